#include "Target.h"

#include "Kor/ValueText.h"

#include <stdexcept>

namespace Velt::Tool {

namespace {

template <typename T>
bool tryParse(std::string_view text, T& out) {
   try {
      out = Kor::fromText<T>(text);
      return true;
   } catch (const std::exception&) {
      return false;
   }
}

bool isIp(std::string_view text, Lumo::IpGenAddr& out) {
   return tryParse(text, out) && out != Lumo::IpGenAddr();
}

} // namespace

Target parseTarget(const std::string& text) {
   Target t;
   t.text = text;
   if (isIp(text, t.ip)) return t;
   if (tryParse(text, t.fecId) && t.fecId != Quarn::Fib::FecId()) {
      t.kind = Target::Kind::fecId;
      return t;
   }
   const auto at = text.find('@');
   const std::string intfText = text.substr(0, at);
   if (tryParse(intfText, t.intf) && t.intf.isValid() &&
       (at == std::string::npos || isIp(std::string_view(text).substr(at + 1), t.ip))) {
      t.kind = Target::Kind::interface;
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
