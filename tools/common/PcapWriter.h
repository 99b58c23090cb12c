// VeltTools::PcapWriter: writes Ethernet packets to a pcap file with given timestamps, so
// that the same packets always make the same file.
#pragma once
#include "tools/common/PcapReader.h"

#include <cstdint>
#include <span>
#include <string>

struct pcap;
struct pcap_dumper;

namespace VeltTools {

class PcapWriter {
 public:
   // Throws PcapError when `path` cannot be created.
   explicit PcapWriter(const std::string& path);
   // Flushes and closes the file.
   ~PcapWriter();
   PcapWriter(const PcapWriter&) = delete;
   PcapWriter& operator=(const PcapWriter&) = delete;

   // Only before close().
   void write(std::span<const std::uint8_t> bytes, std::uint64_t timestampMicros);
   // Flushes and closes now; throws PcapError if the data did not reach the file.
   void close();

 private:
   std::string path_;
   pcap* dead_ = nullptr;
   pcap_dumper* dumper_ = nullptr;
};

} // namespace VeltTools
