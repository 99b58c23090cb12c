// A NETLINK_ROUTE socket that runs dump requests, and a reader of a message's attributes.
// Failures (no socket, an error answer from the kernel) raise NetlinkError.
#pragma once
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>

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

// The attributes of one message by type; types beyond the table are ignored.
class Attributes {
 public:
   static constexpr std::size_t maxType = 64;
   // `data`/`length`: the attribute area (after the family header).
   Attributes(const void* data, std::size_t length);
   // Those of `msg` after a family header of `headerLength` bytes.
   Attributes(const nlmsghdr& msg, std::size_t headerLength);

   const rtattr* operator[](std::size_t type) const { return type < maxType ? at_[type] : nullptr; }
   std::uint32_t u32(std::size_t type, std::uint32_t otherwise = 0) const;
   std::string text(std::size_t type) const;

 private:
   std::array<const rtattr*, maxType> at_{};
};

// The payload of an attribute.
inline const std::uint8_t* payload(const rtattr* a) {
   return static_cast<const std::uint8_t*>(RTA_DATA(a));
}
inline std::size_t payloadLength(const rtattr* a) {
   return RTA_PAYLOAD(a);
}

} // namespace VeltLinux
