// Variable-length arrays for the shared tables: extents in power-of-two size classes, carved
// from the pool area of a Region and recycled through per-class free lists.
//
// Every extent carries a generation, odd while free or being filled. A record refers to an
// extent by offset, count and the generation it had when filled, so a reader holding an
// outdated reference sees the mismatch instead of reading a reused extent.
#pragma once
#include "Table/Region.h"

#include <cstdint>
#include <string>

namespace Table {

struct ExtentRef {
   Word offset = 0; // from the region's start; 0 for an empty list
   std::uint32_t count = 0;
   std::uint32_t gen = 0;
};

class ExtentPool {
 public:
   explicit ExtentPool(Region& region);

   // Bytes one extent takes in the pool for `payloadBytes`, for sizing a pool.
   static Word footprint(Word payloadBytes);

   // Writer: copies `count` items of `itemSize` bytes into a fresh extent.
   ExtentRef write(const void* items, std::uint32_t count, std::size_t itemSize);
   // Writer: returns an extent to its free list; outdated references to it stop matching.
   void release(const ExtentRef& ref);
   // Writer: forgets every extent (after the records referring to them are gone).
   void reset();

   // Reader: copies the extent's items into `dst`. Returns null, or what is wrong with the
   // reference (outdated or damaged; the caller tells which by its record's generation).
   const char* read(const ExtentRef& ref, void* dst, std::size_t itemSize) const;

   Word capacity() const { return poolBytes_; }
   Word used() const;

 private:
   static constexpr Word kHeaderBytes = 16;
   static unsigned classFor(Word payloadBytes);
   static Word classBytes(unsigned cls) { return Word(64) << cls; }
   Word allocate(unsigned cls);
   Word* at(Word offset) const { return base_ + offset / 8; }

   Word* base_;
   RegionHeader* header_;
   Word poolOffset_;
   Word poolBytes_;
   std::string name_;
};

} // namespace Table
