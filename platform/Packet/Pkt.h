// Lumo::Pkt: a packet as raw bytes, shared by counted reference along the forwarding path.
#pragma once
#include "Pelin/Node.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Lumo {

class Pkt : public Pelin::Node {
 public:
   Pkt() = default;
   explicit Pkt(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

   const std::vector<std::uint8_t>& bytes() const { return bytes_; }
   std::size_t size() const { return bytes_.size(); }
   void bytesIs(std::vector<std::uint8_t> bytes) { bytes_ = std::move(bytes); }
   // Copies `len` bytes in, reusing the buffer: a replayed packet costs no allocation.
   void bytesAssign(const std::uint8_t* data, std::size_t len) { bytes_.assign(data, data + len); }

 private:
   std::vector<std::uint8_t> bytes_;
};

} // namespace Lumo
