// A pcap file, read record by record, each packet through the packet parser.
#include "FuzzInput.h"

#include "Packet/PacketParser.h"
#include "common/PcapReader.h"

namespace Fuzz {

void pcap(Input in) {
   const std::string path = scratchDir() + "/fuzz.pcap";
   writeFile(path, in);
   static const auto parser = Pelin::make<PacketParser>();
   try {
      VeltTools::PcapReader reader(path);
      while (auto packet = reader.next()) parser->parse(packet->data(), packet->size());
   } catch (const VeltTools::PcapError&) {
   }
}

} // namespace Fuzz
