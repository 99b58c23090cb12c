#include "kernel/Netlink.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace VeltLinux {

NetlinkSocket::NetlinkSocket() {
   fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
   if (fd_ < 0) throw NetlinkError(fmt::format("netlink socket: {}", std::strerror(errno)));
   // Large dumps (a full table) arrive in many messages; a bigger buffer saves reads.
   int size = 1 << 20;
   setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
}

NetlinkSocket::~NetlinkSocket() {
   close(fd_);
}

void NetlinkSocket::dump(std::uint16_t type, std::span<const std::uint8_t> header,
                         const std::string& what,
                         const std::function<void(const nlmsghdr&)>& onMessage) {
   std::vector<std::uint8_t> request(NLMSG_SPACE(header.size()), 0);
   auto* hdr = reinterpret_cast<nlmsghdr*>(request.data());
   hdr->nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(header.size()));
   hdr->nlmsg_type = type;
   hdr->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   hdr->nlmsg_seq = ++sequence_;
   std::memcpy(NLMSG_DATA(hdr), header.data(), header.size());
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   if (sendto(fd_, request.data(), hdr->nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
              sizeof(kernel)) < 0) {
      throw NetlinkError(fmt::format("netlink {} request: {}", what, std::strerror(errno)));
   }
   std::vector<std::uint8_t> buf(1 << 16);
   for (;;) {
      ssize_t n = recv(fd_, buf.data(), buf.size(), 0);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw NetlinkError(fmt::format("netlink {} dump: {}", what, std::strerror(errno)));
      auto len = static_cast<unsigned>(n);
      for (auto* m = reinterpret_cast<const nlmsghdr*>(buf.data()); NLMSG_OK(m, len);
           m = NLMSG_NEXT(m, len)) {
         if (m->nlmsg_seq != sequence_) continue;
         if (m->nlmsg_type == NLMSG_DONE) return;
         if (m->nlmsg_type == NLMSG_ERROR) {
            const auto* err = static_cast<const nlmsgerr*>(NLMSG_DATA(m));
            if (err->error == 0) continue;
            throw NetlinkError(
                fmt::format("netlink {} dump: {}", what, std::strerror(-err->error)));
         }
         onMessage(*m);
      }
   }
}

Attributes::Attributes(const void* data, std::size_t length) {
   auto len = static_cast<unsigned>(length);
   for (auto* a = static_cast<const rtattr*>(data); RTA_OK(a, len); a = RTA_NEXT(a, len)) {
      // NLA_F_NESTED and NLA_F_NET_BYTEORDER share the type field.
      const std::size_t t = a->rta_type & NLA_TYPE_MASK;
      if (t < maxType) at_[t] = a;
   }
}

Attributes::Attributes(const nlmsghdr& msg, std::size_t headerLength)
    : Attributes(reinterpret_cast<const std::uint8_t*>(NLMSG_DATA(&msg)) +
                     NLMSG_ALIGN(headerLength),
                 msg.nlmsg_len < NLMSG_SPACE(headerLength)
                     ? 0
                     : msg.nlmsg_len - NLMSG_SPACE(headerLength)) {}

std::uint32_t Attributes::u32(std::size_t type, std::uint32_t otherwise) const {
   const rtattr* a = (*this)[type];
   if (!a || payloadLength(a) < sizeof(std::uint32_t)) return otherwise;
   std::uint32_t v;
   std::memcpy(&v, payload(a), sizeof(v));
   return v;
}

std::string Attributes::text(std::size_t type) const {
   const rtattr* a = (*this)[type];
   if (!a) return {};
   const auto* p = reinterpret_cast<const char*>(payload(a));
   return std::string(p, strnlen(p, payloadLength(a)));
}

} // namespace VeltLinux
