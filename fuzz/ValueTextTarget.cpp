// Value text of every value type. The first byte picks a type and a way: a value built
// from the rest must print to text that parses back to it; or the rest as text, when it
// parses, must give a value whose text parses back to it in turn.
#include "FuzzInput.h"

#include "Kor/ValueText.h"
#include "L3/VrfName.h"
#include "Lumo/Ip6Addr.h"
#include "Lumo/IpGenPrefix.h"
#include "Lumo/EthAddr.h"
#include "Quarn/Fec.h"
#include "Trell/VlanTag.h"
#include "VeltLib/RoutingNexthop.h"
#include "VeltLib/RoutingPolicyRewriteTypes.h"
#include "Vrf/VrfId.h"

#include <optional>
#include <typeinfo>

namespace Fuzz {

namespace {

using Lumo::AddressFamily;
using Quarn::Fib::FecId;

template <typename T>
std::optional<T> parsed(std::string_view text) {
   try {
      return Kor::fromText<T>(text);
   } catch (const Pelin::Exception&) {
      return std::nullopt;
   }
}

template <typename T>
void expectRoundTrip(const T& v) {
   const std::string text = Kor::toText(v);
   std::optional<T> back;
   try {
      back.emplace(Kor::fromText<T>(text));
   } catch (const Pelin::Exception& e) {
      finding(typeid(T).name(), "'" + text + "' does not parse: " + e.what());
   }
   if (!(*back == v)) finding(typeid(T).name(), "'" + text + "' reads back as '" + Kor::toText(*back) + "'");
}

AddressFamily familyOf(Bytes& b) { return static_cast<AddressFamily>(b.byte() % 3); }

Lumo::IpGenAddr addrOf(Bytes& b) {
   const AddressFamily af = familyOf(b);
   std::uint8_t bytes[16];
   for (auto& x : bytes) x = b.byte();
   return Lumo::IpGenAddr(af, bytes);
}

Lumo::IpGenPrefix prefixOf(Bytes& b) {
   const Lumo::IpGenAddr addr = addrOf(b);
   if (addr.af() == AddressFamily::ipunknown_) return {};
   return Lumo::IpGenPrefix(addr, static_cast<std::uint8_t>(b.byte() % (addr.byteLength() * 8 + 1)));
}

Lumo::IntfId intfOf(Bytes& b) { return Lumo::IntfId::fromValue(b.take<std::uint32_t>()); }
FecId fecIdOf(Bytes& b) { return FecId(b.take<std::uint64_t>()); }
std::string textOf(Bytes& b) { return b.text(b.byte() % 24); }

// Arguments are taken one statement at a time: their order must not depend on the compiler,
// so that a kept input builds the same value everywhere.
Quarn::FibGen::Via viaOf(Bytes& b) {
   const Lumo::IntfId intf = intfOf(b);
   const auto weight = b.take<std::uint32_t>();
   const Lumo::IpGenAddr hop = addrOf(b);
   const FecId fecId = fecIdOf(b);
   return Quarn::FibGen::Via(intf, weight, hop, fecId, b.take<std::uint32_t>());
}

Quarn::FibGen::Fec fecOf(Bytes& b) {
   Quarn::FibGen::Fec fec(fecIdOf(b));
   fec.fecTypeIs(b.byte());
   fec.flagsIs(b.byte());
   fec.loopbackOnlyIs(b.byte() & 1);
   fec.backupViaIndexIs(b.take<std::uint32_t>());
   for (int n = b.byte() % 4; n > 0; --n) fec.viaAppend(viaOf(b));
   for (int n = b.byte() % 3; n > 0; --n) fec.secondaryViaAppend(viaOf(b));
   return fec;
}

Velt::PolicyNexthopGroupRewriteKey rewriteKeyOf(Bytes& b) {
   const Lumo::IntfId intf = intfOf(b);
   const auto nhg = b.take<std::uint32_t>();
   const std::uint8_t dscp = b.byte();
   return {intf, nhg, dscp, familyOf(b)};
}

Velt::PolicyNexthopGroupRewrite rewriteOf(Bytes& b) {
   Velt::PolicyNexthopGroupRewrite r;
   r.key = rewriteKeyOf(b);
   r.newNhgId = b.take<std::uint32_t>();
   r.policyName = textOf(b);
   r.className = textOf(b);
   r.aclName = textOf(b);
   r.aceName = textOf(b);
   return r;
}

bool boolOf(Bytes& b) { return (b.byte() & 1) != 0; }
L3::VrfName vrfNameOf(Bytes& b) { return L3::VrfName(textOf(b)); }
Lumo::Ip6Addr ip6Of(Bytes& b) { return Lumo::Ip6Addr(addrOf(b).bytes()); }
Lumo::EthAddr ethOf(Bytes& b) { return Lumo::EthAddr(addrOf(b).bytes()); }
Vrf::VrfIdMap::VrfId vrfIdOf(Bytes& b) { return Vrf::VrfIdMap::VrfId(b.take<std::uint32_t>()); }
Quarn::Fib::AdjType adjTypeOf(Bytes& b) {
   return static_cast<Quarn::Fib::AdjType>(b.byte() % Quarn::Fib::adjTypeMax());
}

Trell::VlanTag vlanTagOf(Bytes& b) {
   const auto tpid = b.take<std::uint16_t>();
   const auto pcp = static_cast<std::uint8_t>(b.byte() % 8);
   const bool dei = boolOf(b);
   return Trell::VlanTag(tpid, pcp, dei, static_cast<std::uint16_t>(b.take<std::uint16_t>() % 4096));
}

Velt::NexthopConfig nexthopConfigOf(Bytes& b) {
   const auto action = static_cast<Velt::ArpLookupFailAction>(b.byte() % 3);
   return Velt::NexthopConfig(action, boolOf(b));
}

template <typename T>
T integer(Bytes& b) {
   return static_cast<T>(b.take<std::uint64_t>());
}

// One value type: a value built from bytes, and text parsed, each checked to round-trip.
struct Kind {
   void (*fromBytes)(Bytes&);
   void (*fromText)(std::string_view);
};

template <typename T, T (*make)(Bytes&)>
void checkBuilt(Bytes& b) {
   expectRoundTrip(make(b));
}

template <typename T>
void checkParsed(std::string_view text) {
   if (auto v = parsed<T>(text)) expectRoundTrip(*v);
}

template <typename T, T (*make)(Bytes&)>
constexpr Kind kind() {
   return {checkBuilt<T, make>, checkParsed<T>};
}

const Kind kKinds[] = {
    kind<bool, boolOf>(),
    kind<std::int8_t, integer<std::int8_t>>(),
    kind<std::uint8_t, integer<std::uint8_t>>(),
    kind<std::int16_t, integer<std::int16_t>>(),
    kind<std::uint16_t, integer<std::uint16_t>>(),
    kind<std::int32_t, integer<std::int32_t>>(),
    kind<std::uint32_t, integer<std::uint32_t>>(),
    kind<std::int64_t, integer<std::int64_t>>(),
    kind<std::uint64_t, integer<std::uint64_t>>(),
    kind<std::string, textOf>(),
    kind<L3::VrfName, vrfNameOf>(),
    kind<AddressFamily, familyOf>(),
    kind<Lumo::IpGenAddr, addrOf>(),
    kind<Lumo::Ip6Addr, ip6Of>(),
    kind<Lumo::IpGenPrefix, prefixOf>(),
    kind<Lumo::EthAddr, ethOf>(),
    kind<Lumo::IntfId, intfOf>(),
    kind<Vrf::VrfIdMap::VrfId, vrfIdOf>(),
    kind<Quarn::Fib::AdjType, adjTypeOf>(),
    kind<FecId, fecIdOf>(),
    kind<Trell::VlanTag, vlanTagOf>(),
    kind<Quarn::FibGen::Via, viaOf>(),
    kind<Quarn::FibGen::Fec, fecOf>(),
    kind<Velt::NexthopConfig, nexthopConfigOf>(),
    kind<Velt::PolicyNexthopGroupRewriteKey, rewriteKeyOf>(),
    kind<Velt::PolicyNexthopGroupRewrite, rewriteOf>(),
};

} // namespace

void valueText(Input in) {
   Bytes b(in);
   const std::uint8_t pick = b.byte();
   const Kind& k = kKinds[(pick >> 1) % std::size(kKinds)];
   if (pick & 1) {
      k.fromBytes(b);
   } else {
      const Input rest = b.rest();
      k.fromText(std::string_view(reinterpret_cast<const char*>(rest.data()), rest.size()));
   }
}

} // namespace Fuzz
