// A NETLINK_ROUTE socket that runs dump requests, and bounded readers of the messages and
// attributes it returns. The kernel's answers are outside input: every length is checked
// against the buffer before use, and a message that does not add up raises NetlinkError,
// as do failures (no socket, an error answer from the kernel).
#pragma once
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>

struct nlattr;

namespace VeltLinux {

class NetlinkError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class NetlinkSocket {
 public:
   NetlinkSocket();
   ~NetlinkSocket();
   NetlinkSocket(const NetlinkSocket&) = delete;
   NetlinkSocket& operator=(const NetlinkSocket&) = delete;

   // Sends request `type` with NLM_F_DUMP and the given family header, and hands every
   // answer message to `onMessage` until the dump is done. `what` names the dump in errors.
   void dump(std::uint16_t type, std::span<const std::uint8_t> header, const std::string& what,
             const std::function<void(const nlmsghdr&)>& onMessage);

 private:
   int fd_ = -1;
   std::uint32_t sequence_ = 0;
};

// Hands each message of `buffer` to `onMessage`; every message handed over lies whole
// inside the buffer. Bytes left over that make no whole message raise NetlinkError.
// `buffer` must be 4-byte aligned, as received.
void forEachMessage(std::span<const std::uint8_t> buffer,
                    const std::function<void(const nlmsghdr&)>& onMessage);

// The family header at the start of `msg`'s payload; raises NetlinkError naming `what` when
// the message is too short to hold it.
const void* familyHeader(const nlmsghdr& msg, std::size_t headerLength, const char* what);
template <typename Header>
const Header& familyHeader(const nlmsghdr& msg, const char* what) {
   return *static_cast<const Header*>(familyHeader(msg, sizeof(Header), what));
}

// The attributes of one message by type; types beyond the table are ignored. Accessors
// check the attribute's size for what they read and raise NetlinkError naming `what`
// (the kind of message) and the attribute type otherwise.
class Attributes {
 public:
   static constexpr std::size_t maxType = 64;
   // `data`/`length`: an attribute area, such as a nested attribute's payload.
   Attributes(const void* data, std::size_t length, const char* what);
   // Those of `msg` after a family header of `headerLength` bytes.
   Attributes(const nlmsghdr& msg, std::size_t headerLength, const char* what);

   const nlattr* operator[](std::size_t type) const {
      return type < maxType ? at_[type] : nullptr;
   }
   std::uint8_t u8(std::size_t type, std::uint8_t otherwise = 0) const;
   std::uint32_t u32(std::size_t type, std::uint32_t otherwise = 0) const;
   std::string text(std::size_t type) const;
   // Empty for a missing attribute.
   std::span<const std::uint8_t> payload(std::size_t type) const;
   const char* what() const { return what_; }
   // Raises NetlinkError for attribute `type` of `length` bytes where `expected` is wanted.
   [[noreturn]] void badLength(std::size_t type, std::size_t length,
                               const std::string& expected) const;

 private:
   std::array<const nlattr*, maxType> at_{};
   const char* what_;
};

// The payload of an attribute.
std::span<const std::uint8_t> payloadOf(const nlattr* a);

} // namespace VeltLinux
