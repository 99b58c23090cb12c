#include "Target.h"

#include "Kor/ValueText.h"
#include "Lumo/FecIdIntfId.h"

#include <fmt/format.h>

#include <optional>
#include <stdexcept>

namespace Velt::Tool {

namespace {

template <typename T>
std::optional<T> parsed(std::string_view text) {
   try {
      return Kor::fromText<T>(text);
   } catch (const std::exception&) {
      return std::nullopt;
   }
}

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
   throw std::invalid_argument("target \"" + text + "\": " + why);
}

// The same rules as a FEC id in a state file.
void checkFecId(const std::string& text, Quarn::Fib::FecId id) {
   if (!id.isValid()) refuse(text, "0 stands for no FEC");
   const std::uint64_t adjType = id.value() >> Quarn::Fib::adjTypePos();
   if (adjType >= Quarn::Fib::adjTypeMax()) {
      refuse(text, fmt::format("adjacency type {} is above {}", adjType,
                               Quarn::Fib::adjTypeMax() - 1));
   }
}

void checkInterface(const std::string& text, Lumo::IntfId intf) {
   if (!Lumo::FecIdIntfId::isFecIdIntfId(intf)) return;
   const std::uint32_t adjType = intf.number() >> Lumo::FecIdIntfId::indexBits;
   if (adjType >= Quarn::Fib::adjTypeMax()) {
      refuse(text, fmt::format("interface {} stands for a FEC of adjacency type {}, which is "
                               "above {}",
                               Kor::toText(intf), adjType, Quarn::Fib::adjTypeMax() - 1));
   }
}

} // namespace

Target parseTarget(const std::string& text) {
   Target t;
   t.text = text;
   if (auto ip = parsed<Lumo::IpGenAddr>(text); ip && *ip != Lumo::IpGenAddr()) {
      t.ip = *ip;
      return t;
   }
   if (auto id = parsed<Quarn::Fib::FecId>(text)) {
      checkFecId(text, *id);
      t.kind = Target::Kind::fecId;
      t.fecId = *id;
      return t;
   }
   const auto at = text.find('@');
   if (auto intf = parsed<Lumo::IntfId>(std::string_view(text).substr(0, at));
       intf && intf->isValid()) {
      checkInterface(text, *intf);
      t.kind = Target::Kind::interface;
      t.intf = *intf;
      if (at == std::string::npos) return t;
      const std::string neighbour = text.substr(at + 1);
      auto ip = parsed<Lumo::IpGenAddr>(neighbour);
      if (!ip || *ip == Lumo::IpGenAddr()) {
         refuse(text, "neighbour '" + neighbour + "' is not an IPv4 or IPv6 address");
      }
      t.ip = *ip;
      return t;
   }
   throw std::invalid_argument(
       "target \"" + text +
       "\" is neither a destination IP (10.1.2.3, 2001:db8::1), a FEC id (fibGenAdj:5) nor an "
       "interface with an optional neighbour (Ethernet1, Ethernet1@10.1.0.2)");
}

Pelin::Ptr<RoutingNexthop> Target::nexthop(const NexthopConfig& config) const {
   auto nh = routingNexthopFactory(kind == Kind::interface ? intf : Lumo::IntfId());
   nh->configIs(config);
   if (kind == Kind::fecId) nh->fecIdIs(fecId);
   nh->dstIpIs(ip);
   return nh;
}

} // namespace Velt::Tool
