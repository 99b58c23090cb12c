// The fuzz targets: each hands one input to a parser of outside input the way the product
// does, and returns normally whatever the input holds. A parser's refusal is an error value
// or a documented exception, caught here; anything else (a crash, a sanitizer report, an
// escaping exception, a broken round trip) is a finding.
#pragma once
#include <cstdint>
#include <span>
#include <string_view>

namespace Fuzz {

using Input = std::span<const std::uint8_t>;

void netlink(Input in);     // a netlink dump answer: messages walked and parsed, then imported
void stateFile(Input in);   // a state file
void layoutFile(Input in);  // the layout file of a shared-memory folder
void pcap(Input in);        // a pcap file, each packet through the packet parser
void ringlog(Input in);     // overwrites of a valid ring-trace file, then read
void valueText(Input in);   // values built from bytes print and parse back; text parses
void trace(Input in);       // a TRACE setting, and handle names matched against it
void sharedTable(Input in); // overwrites of valid table files, attached and read

struct Target {
   std::string_view name;
   void (*run)(Input);
};
// Every target, by the name of its folder under fuzz/.
std::span<const Target> targets();

} // namespace Fuzz
