#include "Table/ListMap.h"

namespace Table {

void listAboveBound(const std::string& table, std::size_t list, Word bound, Word count) {
   throw Pelin::RangeException(fmt::format("table {}: list {} holds at most {} items, not {}",
                                           table, list, bound, count));
}

} // namespace Table
