#include "Lumo/FecIdIntfId.h"

namespace Lumo {

Quarn::Fib::FecId FecIdIntfId::intfIdToFecId(IntfId id) {
   VELT_ASSERT(isFecIdIntfId(id));
   auto adjType = static_cast<Quarn::Fib::AdjType>(id.number() >> indexBits);
   return Quarn::Fib::FecId(adjType, id.number() & maxIndex);
}

IntfId FecIdIntfId::fecIdToIntfId(Quarn::Fib::FecId fecId) {
   if (fecId.index() > maxIndex) {
      throw Pelin::RangeException(
         "Lumo::FecIdIntfId: FEC index > Lumo::FecIdIntfId::maxIndex not allowed");
   }
   auto adjType = static_cast<std::uint32_t>(fecId.adjType());
   return IntfId::fromType(GenericIntfId::fecIdTypeId,
                           adjType << indexBits | static_cast<std::uint32_t>(fecId.index()));
}

} // namespace Lumo
