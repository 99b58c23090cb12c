#include "Table/ExtentPool.h"

#include "Pelin/Exception.h"

#include <bit>
#include <fmt/format.h>

namespace Table {

// Extent words: [0] generation | size class << 32, [1] item count while live or the next
// free extent while free, then the items.

ExtentPool::ExtentPool(Region& region)
    : base_(region.words(0)), header_(&region.header()), poolOffset_(header_->poolOffset),
      poolBytes_(header_->poolBytes), name_(region.name()) {}

unsigned ExtentPool::classFor(Word payloadBytes) {
   Word rounded = std::bit_ceil(std::max<Word>(payloadBytes, 64));
   return static_cast<unsigned>(std::countr_zero(rounded) - 6);
}

Word ExtentPool::footprint(Word payloadBytes) {
   return kHeaderBytes + classBytes(classFor(payloadBytes));
}

Word ExtentPool::used() const { return loadWord(header_->poolTop); }

Word ExtentPool::allocate(unsigned cls) {
   Word& head = header_->freeHeads[cls];
   if (Word offset = loadWord(head)) {
      storeWord(head, loadWord(at(offset)[1]));
      return offset;
   }
   Word top = loadWord(header_->poolTop);
   Word bytes = kHeaderBytes + classBytes(cls);
   if (top + bytes > poolBytes_) {
      throw Pelin::RangeException(fmt::format(
          "table {}: extent pool full at its capacity of {} bytes", name_, poolBytes_));
   }
   storeWord(header_->poolTop, top + bytes);
   Word offset = poolOffset_ + top;
   // Born free (odd), continuing whatever generation the memory had before a reset.
   Word gen = loadWord(at(offset)[0]) & 0xffffffffu;
   storeWord(at(offset)[0], (gen | 1) | Word(cls) << 32);
   return offset;
}

ExtentRef ExtentPool::write(const void* items, std::uint32_t count, std::size_t itemSize) {
   if (count == 0) return {};
   Word bytes = Word(count) * itemSize;
   unsigned cls = classFor(bytes);
   if (cls >= kSizeClasses) {
      throw Pelin::RangeException(
          fmt::format("table {}: list of {} bytes exceeds the largest extent", name_, bytes));
   }
   Word offset = allocate(cls);
   Word* e = at(offset);
   storeWord(e[1], count, std::memory_order_release); // inside the odd generation
   copyIn(e + 2, items, bytes);
   endWrite(e[0]); // odd (free) to even (live), publishing the items
   return {offset, count, static_cast<std::uint32_t>(loadWord(e[0]))};
}

void ExtentPool::release(const ExtentRef& ref) {
   if (ref.offset == 0) return;
   Word* e = at(ref.offset);
   beginWrite(e[0]);
   unsigned cls = static_cast<unsigned>(loadWord(e[0]) >> 32);
   storeWord(e[1], loadWord(header_->freeHeads[cls]), std::memory_order_release);
   storeWord(header_->freeHeads[cls], ref.offset);
}

void ExtentPool::reset() {
   // Bump every extent's generation so that no outdated reference matches any more.
   for (Word top = loadWord(header_->poolTop), o = 0; o < top;) {
      Word* e = at(poolOffset_ + o);
      Word w = loadWord(e[0]);
      if ((w & 1) == 0) beginWrite(e[0]);
      o += kHeaderBytes + classBytes(static_cast<unsigned>(w >> 32));
   }
   for (auto& head : header_->freeHeads) storeWord(head, 0);
   storeWord(header_->poolTop, 0);
}

const char* ExtentPool::read(const ExtentRef& ref, void* dst, std::size_t itemSize) const {
   if (ref.offset == 0) return ref.count == 0 ? nullptr : "list count without an extent";
   Word bytes = Word(ref.count) * itemSize;
   if (ref.offset % 8 || ref.offset < poolOffset_ ||
       ref.offset + kHeaderBytes + bytes > poolOffset_ + poolBytes_) {
      return "extent offset outside the pool";
   }
   const Word* e = at(ref.offset);
   Word before = loadWord(e[0], std::memory_order_acquire);
   if (static_cast<std::uint32_t>(before) != ref.gen) return "extent generation changed";
   if ((before >> 32) >= kSizeClasses || bytes > classBytes(unsigned(before >> 32))) {
      return "extent size class too small for its list";
   }
   // Acquire loads throughout, so that the re-check of the generation comes after them.
   if (loadWord(e[1], std::memory_order_acquire) != ref.count) {
      return "extent count differs from its record";
   }
   copyOut(e + 2, dst, bytes);
   if (loadWord(e[0]) != before) return "extent generation changed";
   return nullptr;
}

} // namespace Table
