// Interfaces that stand for a FEC: resolving such an interface continues from its FEC id.
// The 24-bit interface number holds the adjacency type (5 bits) and the FEC index
// (low 19 bits), so only FEC indexes up to maxIndex have an interface. The name is
// "FecId<adjType>/<index>" with both numbers in decimal, e.g. "FecId18/5" for the
// fibGenAdj FEC of index 5.
#pragma once
#include "Lumo/IntfId.h"
#include "Quarn/FecId.h"

namespace Lumo {

struct FecIdIntfId {
   static constexpr unsigned indexBits = 19;
   static constexpr std::uint64_t maxIndex = (std::uint64_t(1) << indexBits) - 1;

   static constexpr bool isFecIdIntfId(IntfId id) {
      return GenericIntfId::typeId(id) == GenericIntfId::fecIdTypeId;
   }
   // `id` must be a FEC-id interface.
   static Quarn::Fib::FecId intfIdToFecId(IntfId id);
   // Raises RangeException when the FEC index exceeds maxIndex.
   static IntfId fecIdToIntfId(Quarn::Fib::FecId fecId);
};

} // namespace Lumo
