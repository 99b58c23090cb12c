// VeltTools::PcapReader: reads the packets of a pcap file one by one, for tools that
// replay or check captured or generated traffic.
#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

struct pcap;

namespace VeltTools {

// A pcap file that cannot be opened or read; the message leads with the file name.
class PcapError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class PcapReader {
 public:
   // Throws PcapError when `path` is missing, unreadable or not a pcap file.
   explicit PcapReader(const std::string& path);
   ~PcapReader();
   PcapReader(const PcapReader&) = delete;
   PcapReader& operator=(const PcapReader&) = delete;

   // The file's link type (DLT_EN10MB, 1, for Ethernet).
   int linkType() const;
   // The next packet's captured bytes, valid until the next call; nullopt at the end of
   // the file. Throws PcapError on a damaged or cut-off record.
   std::optional<std::span<const std::uint8_t>> next();

 private:
   std::string path_;
   pcap* handle_ = nullptr;
};

// Every packet of `path`, in file order; throws PcapError as the reader does.
std::vector<std::vector<std::uint8_t>> readPcapFile(const std::string& path);

} // namespace VeltTools
