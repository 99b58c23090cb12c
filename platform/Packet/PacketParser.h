// Placeholder until the packet parser lands: the names the caller API needs, nothing
// more. PacketParserRoot holds the parser and the flow hasher an agent resolves packets
// with.
#pragma once
#include "Pelin/Ptr.h"

class PacketHasher : public Pelin::Node {};

class PacketParser : public Pelin::Node {};

class PacketParserRoot : public Pelin::Node {
 public:
   const Pelin::Ptr<PacketParser>& parser() const { return parser_; }
   const Pelin::Ptr<PacketHasher>& hasher() const { return hasher_; }

 private:
   Pelin::Ptr<PacketParser> parser_;
   Pelin::Ptr<PacketHasher> hasher_;
};
