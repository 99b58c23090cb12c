#include "kernel/Netlink.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>

#include <cerrno>
#include <climits>
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
   // Words, so that messages start aligned for their headers.
   std::vector<std::uint32_t> buf(1 << 14);
   const std::size_t bufBytes = buf.size() * sizeof(std::uint32_t);
   for (bool done = false; !done;) {
      ssize_t n = recv(fd_, buf.data(), bufBytes, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw NetlinkError(fmt::format("netlink {} dump: {}", what, std::strerror(errno)));
      const std::span<const std::uint8_t> got(reinterpret_cast<const std::uint8_t*>(buf.data()),
                                              static_cast<std::size_t>(n));
      forEachMessage(got, [&](const nlmsghdr& m) {
         if (done || m.nlmsg_seq != sequence_) return;
         if (m.nlmsg_type == NLMSG_DONE) {
            done = true;
         } else if (m.nlmsg_type == NLMSG_ERROR) {
            const auto& err = familyHeader<nlmsgerr>(m, "netlink error");
            if (err.error == 0) return;
            throw NetlinkError(fmt::format("netlink {} dump: {}", what, std::strerror(-err.error)));
         } else {
            onMessage(m);
         }
      });
   }
}

void forEachMessage(std::span<const std::uint8_t> buffer,
                    const std::function<void(const nlmsghdr&)>& onMessage) {
   // libmnl keeps the remaining length signed, so an unaligned last message ends the walk
   // instead of wrapping it.
   if (buffer.size() > INT_MAX) throw NetlinkError("netlink answer larger than 2 GiB");
   int left = static_cast<int>(buffer.size());
   const auto* m = reinterpret_cast<const nlmsghdr*>(buffer.data());
   // mnl_nlmsg_ok compares the length as a signed int: one of 2^31 or more passes it.
   for (; mnl_nlmsg_ok(m, left) && m->nlmsg_len <= static_cast<unsigned>(left);
        m = mnl_nlmsg_next(m, &left)) {
      onMessage(*m);
   }
   if (left > 0) {
      throw NetlinkError(fmt::format(
          "netlink answer: {} bytes at offset {} are no whole message", left,
          reinterpret_cast<const std::uint8_t*>(m) - buffer.data()));
   }
}

const void* familyHeader(const nlmsghdr& msg, std::size_t headerLength, const char* what) {
   if (mnl_nlmsg_get_payload_len(&msg) < headerLength) {
      throw NetlinkError(fmt::format("{} message of {} bytes is too short for its {}-byte header",
                                     what, msg.nlmsg_len, headerLength));
   }
   return mnl_nlmsg_get_payload(&msg);
}

namespace {

struct Walk {
   std::array<const nlattr*, Attributes::maxType>* at;
};

int keep(const nlattr* a, void* data) {
   // NLA_F_NESTED and NLA_F_NET_BYTEORDER share the type field; libmnl masks them off.
   const std::size_t t = mnl_attr_get_type(a);
   if (t < Attributes::maxType) (*static_cast<Walk*>(data)->at)[t] = a;
   return MNL_CB_OK;
}

} // namespace

Attributes::Attributes(const void* data, std::size_t length, const char* what) : what_(what) {
   Walk walk{&at_};
   mnl_attr_parse_payload(data, length, keep, &walk);
}

Attributes::Attributes(const nlmsghdr& msg, std::size_t headerLength, const char* what)
    : what_(what) {
   familyHeader(msg, headerLength, what);
   // Not mnl_attr_parse: it walks to the aligned end of the message, up to 3 bytes past
   // the buffer when the last message's length is unaligned.
   const std::size_t start = MNL_ALIGN(headerLength);
   const std::size_t payload = mnl_nlmsg_get_payload_len(&msg);
   if (payload <= start) return;
   Walk walk{&at_};
   mnl_attr_parse_payload(static_cast<const std::uint8_t*>(mnl_nlmsg_get_payload(&msg)) + start,
                          payload - start, keep, &walk);
}

void Attributes::badLength(std::size_t type, std::size_t length,
                           const std::string& expected) const {
   throw NetlinkError(fmt::format("{} message: attribute {} has {} payload bytes, expected {}",
                                  what_, type, length, expected));
}

std::uint8_t Attributes::u8(std::size_t type, std::uint8_t otherwise) const {
   const nlattr* a = (*this)[type];
   if (!a) return otherwise;
   if (mnl_attr_validate(a, MNL_TYPE_U8) < 0) badLength(type, mnl_attr_get_payload_len(a), "1");
   return mnl_attr_get_u8(a);
}

std::uint32_t Attributes::u32(std::size_t type, std::uint32_t otherwise) const {
   const nlattr* a = (*this)[type];
   if (!a) return otherwise;
   if (mnl_attr_validate(a, MNL_TYPE_U32) < 0) badLength(type, mnl_attr_get_payload_len(a), "4");
   return mnl_attr_get_u32(a);
}

std::string Attributes::text(std::size_t type) const {
   const auto p = payload(type);
   if (p.empty()) return {};
   const auto* c = reinterpret_cast<const char*>(p.data());
   return std::string(c, strnlen(c, p.size()));
}

std::span<const std::uint8_t> Attributes::payload(std::size_t type) const {
   const nlattr* a = (*this)[type];
   return a ? payloadOf(a) : std::span<const std::uint8_t>();
}

std::span<const std::uint8_t> payloadOf(const nlattr* a) {
   return {static_cast<const std::uint8_t*>(mnl_attr_get_payload(a)),
           mnl_attr_get_payload_len(a)};
}

} // namespace VeltLinux
