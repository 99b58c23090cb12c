// The reader's view of the message table of a ring file, and the text of one record made
// from its site and argument bytes. Every byte comes from a file and may be hostile.
#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ringlog::reader {

struct Message {
   std::string handle;
   std::string format;
   int level;
   std::vector<std::uint16_t> codes;
};
using Messages = std::unordered_map<std::uint16_t, Message>;

// Parses the entries of a message table; an unreadable entry is skipped and sets `damaged`.
Messages parseMessages(std::span<const std::byte> table, bool& damaged);

// The text of one record whose argument bytes are `args`; undecodable arguments and
// format errors are named in the text instead.
std::string textOf(const Message& message, std::span<const std::byte> args);

} // namespace Ringlog::reader
