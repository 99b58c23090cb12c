// Parsing and flow-hashing one packet, as done once per packet on the forwarding path.
#include "HeapCounter.h"
#include "Packet/PacketContext.h"
#include "Packet/PacketParserRoot.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

// clang-format off
// Ethernet + IPv4 (10.0.0.1 -> 192.0.2.7) + UDP 1234 -> 53.
const std::vector<std::uint8_t> kUdp4 = {
    0x02, 0, 0, 0, 0, 1, 0x02, 0, 0, 0, 0, 2, 0x08, 0x00,              // Ethernet
    0x45, 0, 0, 28, 0x12, 0x34, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 192, 0, 2, 7, // IPv4
    0x04, 0xd2, 0, 53, 0, 8, 0, 0};                                    // UDP

// Ethernet + IPv6 (2001:db8::1 -> 2001:db8:1::2) + TCP 40000 -> 443.
const std::vector<std::uint8_t> kTcp6 = {
    0x02, 0, 0, 0, 0, 1, 0x02, 0, 0, 0, 0, 2, 0x86, 0xdd,               // Ethernet
    0x60, 0, 0, 0, 0, 20, 6, 64,                                        // IPv6
    0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,
    0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2,
    0x9c, 0x40, 0x01, 0xbb, 0, 0, 0, 1, 0, 0, 0, 0, 0x50, 0x02, 0xff, 0xff, 0, 0, 0, 0}; // TCP
// clang-format on

void parseAndHash(benchmark::State& state, const std::vector<std::uint8_t>& bytes) {
   auto root = packetParserRootFactory();
   const PacketParser& parser = *root->parser();
   const PacketHasher& hasher = *root->hasher();
   unsigned long heapBefore = gHeapAllocations.load();
   for (auto _ : state) {
      benchmark::DoNotOptimize(bytes.data());
      const Lumo::ParsedPkt p = parser.parse(bytes.data(), bytes.size());
      benchmark::DoNotOptimize(hasher.hash(p));
   }
   state.counters["heapAllocsPerPkt"] = benchmark::Counter(
       double(gHeapAllocations.load() - heapBefore) / double(state.iterations()));
}

// The same through the packet context, as the forwarding path calls it.
void BM_InitializeParsedPktTcp6(benchmark::State& state) {
   auto root = packetParserRootFactory();
   PacketContextBase base(1);
   base.pktIs(Pelin::make<Lumo::Pkt>(kTcp6));
   auto ctx = Pelin::make<PacketContext>(base, Lumo::IntfId("Ethernet1"), root->hasher());
   unsigned long heapBefore = gHeapAllocations.load();
   for (auto _ : state) {
      ctx->initializeParsedPkt(root->parser());
      benchmark::DoNotOptimize(ctx->hash());
   }
   state.counters["heapAllocsPerPkt"] = benchmark::Counter(
       double(gHeapAllocations.load() - heapBefore) / double(state.iterations()));
}

void BM_ParseHashUdp4(benchmark::State& state) {
   parseAndHash(state, kUdp4);
}
void BM_ParseHashTcp6(benchmark::State& state) {
   parseAndHash(state, kTcp6);
}
BENCHMARK(BM_ParseHashUdp4);
BENCHMARK(BM_ParseHashTcp6);
BENCHMARK(BM_InitializeParsedPktTcp6);

} // namespace
