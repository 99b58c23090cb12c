#include "tools/common/PcapReader.h"

#include <pcap/pcap.h>

namespace VeltTools {

PcapReader::PcapReader(const std::string& path) : path_(path) {
   char err[PCAP_ERRBUF_SIZE] = {};
   handle_ = pcap_open_offline(path.c_str(), err);
   if (!handle_) throw PcapError(path + ": " + err);
}

PcapReader::~PcapReader() {
   pcap_close(handle_);
}

int PcapReader::linkType() const {
   return pcap_datalink(handle_);
}

std::optional<std::span<const std::uint8_t>> PcapReader::next() {
   pcap_pkthdr* hdr = nullptr;
   const u_char* data = nullptr;
   const int rc = pcap_next_ex(handle_, &hdr, &data);
   if (rc == PCAP_ERROR_BREAK) return std::nullopt; // end of file
   if (rc != 1) throw PcapError(path_ + ": " + pcap_geterr(handle_));
   return std::span<const std::uint8_t>(data, hdr->caplen);
}

std::vector<std::vector<std::uint8_t>> readPcapFile(const std::string& path) {
   PcapReader reader(path);
   std::vector<std::vector<std::uint8_t>> packets;
   while (auto pkt = reader.next())
      packets.emplace_back(pkt->begin(), pkt->end());
   return packets;
}

} // namespace VeltTools
