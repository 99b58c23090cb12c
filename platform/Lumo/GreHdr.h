// A GRE header: the flags-and-protocol word and the optional checksum, key and sequence
// words that its flags announce.
#pragma once
#include "Pelin/Ptr.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Lumo {

class GreHdr : public Pelin::Node {
 public:
   // Flag bits of the first word in host order.
   static constexpr std::uint32_t checksumBit = 0x80000000;
   static constexpr std::uint32_t keyBit = 0x20000000;
   static constexpr std::uint32_t sequenceBit = 0x10000000;
   static constexpr std::size_t maxBytes = 16;

   // `flags` holds the upper 16 bits of the first word; optional words it does not
   // announce are left out, the checksum is written as 0.
   explicit GreHdr(std::uint16_t protocol, std::uint32_t flags = 0, std::uint32_t key = 0,
                   std::uint32_t sequence = 0);
   // The header at the start of `bytes`; null unless `len` bytes hold it whole.
   static Pelin::Ptr<const GreHdr> fromBytes(const std::uint8_t* bytes, std::size_t len);

   // The first 32-bit word in host order: flags and version above, protocol type below.
   std::uint32_t word0() const;
   std::uint16_t protocol() const { return static_cast<std::uint16_t>(word0()); }
   bool checksumPresent() const { return word0() & checksumBit; }
   bool keyPresent() const { return word0() & keyBit; }
   bool sequencePresent() const { return word0() & sequenceBit; }
   // 0 when absent.
   std::uint32_t key() const;
   std::uint32_t sequence() const;
   // Bytes of the whole header: 4, plus 4 for each optional word present.
   int headerSize() const { return sizeFor(word0()); }
   const std::uint8_t* bytes() const { return bytes_.data(); }

 private:
   static int sizeFor(std::uint32_t word0);
   // Offset of the key or sequence word; the words follow one another in flag order.
   std::size_t keyOffset() const { return checksumPresent() ? 8 : 4; }

   std::array<std::uint8_t, maxBytes> bytes_{};
};

} // namespace Lumo
