#include "Packet/PacketContext.h"

void PacketContext::initializeParsedPkt(const Pelin::Ptr<PacketParser>& parser) {
   parsed_.reset();
   if (!parser || !pkt()) return;
   parsed_ = parser->parse(*pkt());
   if (hasher_) hash_ = hasher_->hash(*parsed_);
}
