#include "Packet/PacketParserRoot.h"

#include "Pelin/Assert.h"

PacketParserRoot::PacketParserRoot(Pelin::Ptr<PacketParser> parser,
                                   Pelin::Ptr<PacketHasher> hasher)
    : parser_(std::move(parser)), hasher_(std::move(hasher)) {
   VELT_ASSERT(parser_ && hasher_);
}

Pelin::Ptr<PacketParserRoot> packetParserRootFactory() {
   return Pelin::make<PacketParserRoot>(Pelin::make<PacketParser>(),
                                        Pelin::make<PacketHasher>());
}
