#include "Table/FlatMap.h"

namespace Table {

void corruptSlot(const std::string& table, Word slot, const std::string& problem,
                 bool repeat) {
   throw Pelin::CorruptionDetectedException(
       fmt::format("table {}: slot {} is corrupt: {}", table, slot, problem), repeat);
}

void tableFull(const std::string& table, Word capacity) {
   throw Pelin::RangeException(
       fmt::format("table {}: full at its capacity of {} entries", table, capacity));
}

} // namespace Table
