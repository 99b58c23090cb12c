// PacketParserRoot: the parser and flow hasher shared by the packets of a forwarding
// path.
#pragma once
#include "Packet/PacketHasher.h"
#include "Packet/PacketParser.h"
#include "Pelin/Ptr.h"

class PacketParserRoot : public Pelin::Node {
 public:
   // Both must be non-null.
   PacketParserRoot(Pelin::Ptr<PacketParser> parser, Pelin::Ptr<PacketHasher> hasher);

   const Pelin::Ptr<PacketParser>& parser() const { return parser_; }
   const Pelin::Ptr<PacketHasher>& hasher() const { return hasher_; }

 private:
   Pelin::Ptr<PacketParser> parser_;
   Pelin::Ptr<PacketHasher> hasher_;
};

// A root with a default parser and an unseeded hasher.
Pelin::Ptr<PacketParserRoot> packetParserRootFactory();
