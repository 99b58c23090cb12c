#include "tools/common/PcapWriter.h"

#include "Pelin/Assert.h"

#include <pcap/pcap.h>

#include <cstdio>

namespace VeltTools {

namespace {
constexpr int kSnapLen = 65535;
}

PcapWriter::PcapWriter(const std::string& path) : path_(path) {
   dead_ = pcap_open_dead(DLT_EN10MB, kSnapLen);
   if (!dead_) throw PcapError(path + ": cannot set up a pcap writer");
   dumper_ = pcap_dump_open(dead_, path.c_str());
   if (!dumper_) {
      std::string err = pcap_geterr(dead_);
      pcap_close(dead_);
      throw PcapError(path + ": " + err);
   }
}

PcapWriter::~PcapWriter() {
   if (dumper_) pcap_dump_close(dumper_);
   pcap_close(dead_);
}

void PcapWriter::write(std::span<const std::uint8_t> bytes,
                       std::uint64_t timestampMicros) {
   VELT_ASSERT(dumper_ != nullptr);
   pcap_pkthdr hdr{};
   hdr.ts.tv_sec = static_cast<time_t>(timestampMicros / 1000000);
   hdr.ts.tv_usec = static_cast<suseconds_t>(timestampMicros % 1000000);
   hdr.caplen = hdr.len = static_cast<bpf_u_int32>(bytes.size());
   pcap_dump(reinterpret_cast<u_char*>(dumper_), &hdr, bytes.data());
}

void PcapWriter::close() {
   if (!dumper_) return;
   const bool flushed = pcap_dump_flush(dumper_) == 0;
   FILE* file = pcap_dump_file(dumper_);
   const bool clean = !std::ferror(file);
   pcap_dump_close(dumper_);
   dumper_ = nullptr;
   if (!flushed || !clean) throw PcapError(path_ + ": write failed");
}

} // namespace VeltTools
