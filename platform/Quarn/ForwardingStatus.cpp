#include "Quarn/ForwardingStatus.h"

#include "Pelin/Exception.h"

namespace Quarn::FibGen {

namespace {

Table::Family familyOf(Lumo::AddressFamily af) {
   if (af == Lumo::AddressFamily::ipv4_) return Table::Family::ipv4;
   if (af == Lumo::AddressFamily::ipv6_) return Table::Family::ipv6;
   throw Pelin::RangeException("a route needs an IPv4 or IPv6 prefix");
}

Lumo::IpGenPrefix prefixOf(const Table::PrefixKey& k) {
   auto af = k.family == Table::Family::ipv4 ? Lumo::AddressFamily::ipv4_
                                             : Lumo::AddressFamily::ipv6_;
   return Lumo::IpGenPrefix(Lumo::IpGenAddr(af, k.bytes), k.length);
}

ForwardingStatus::FecTable::Bounds viaBounds() { return {Fec::maxVias, Fec::maxSecondaryVias}; }

} // namespace

Table::PrefixKey prefixKey(const Lumo::IpGenPrefix& prefix) {
   return Table::PrefixKey::of(familyOf(prefix.af()), prefix.addr().bytes(), prefix.length());
}

Table::PrefixKey hostKey(const Lumo::IpGenAddr& addr) {
   Table::Family f = familyOf(addr.af());
   return Table::PrefixKey::of(f, addr.bytes(), Table::PrefixKey::maxLength(f));
}

ForwardingStatus::ForwardingStatus(const std::string& name)
    : ForwardingStatus(name, Capacity()) {}

ForwardingStatus::ForwardingStatus(const std::string& name, const Capacity& c)
    : ForwardingStatus(name, FecTable(c.fecs, c.viaPoolBytes, viaBounds()),
                       Table::PrefixMap(c.routes)) {}

ForwardingStatus::ForwardingStatus(const std::string& name, FecTable fecs,
                                   Table::PrefixMap routes)
    : name_(name), fecs_(std::move(fecs)), routes_(std::move(routes)) {}

Pelin::Ptr<ForwardingStatus> ForwardingStatus::createFiles(const std::string& name,
                                                           const std::string& base,
                                                           const Capacity& c) {
   return Pelin::make<ForwardingStatus>(
       name, FecTable::createFile(base + ".fecs", c.fecs, c.viaPoolBytes, viaBounds()),
       Table::PrefixMap::createFile(base + ".routes", c.routes));
}

Pelin::Ptr<ForwardingStatus> ForwardingStatus::attachFiles(const std::string& name,
                                                                 const std::string& base) {
   return Pelin::make<ForwardingStatus>(name, FecTable::attachFile(base + ".fecs", viaBounds()),
                                        Table::PrefixMap::attachFile(base + ".routes"));
}

Fec ForwardingStatus::fec(Fib::FecId fecId) const {
   // One named result on every path, so that it is built in place: a FEC is returned by
   // value and may hold hundreds of vias.
   Fec out(fecId);
   if (!fecInto(fecId, out)) out = defaultFec();
   return out;
}

bool ForwardingStatus::fecInto(Fib::FecId fecId, Fec& out) const {
   auto head = fecs_.find(fecId, [&out](std::size_t list, std::uint32_t count) {
      return list == 0 ? out.viaStorageIs(count) : out.secondaryViaStorageIs(count);
   });
   if (!head) return false;
   out.fecIdIs(fecId);
   out.backupViaIndexIs(head->backupViaIndex);
   out.fecTypeIs(head->fecType);
   out.flagsIs(head->flags);
   out.loopbackOnlyIs(head->loopbackOnly);
   return true;
}

const Fec& ForwardingStatus::defaultFec() const {
   static const Fec empty{Fib::FecId()};
   return empty;
}

std::optional<RouteMatch> ForwardingStatus::routeLookup(const Lumo::IpGenAddr& addr) const {
   if (addr.af() != Lumo::AddressFamily::ipv4_ && addr.af() != Lumo::AddressFamily::ipv6_) {
      return std::nullopt;
   }
   Table::PrefixKey key = hostKey(addr);
   auto match = routes_.longestMatch(key);
   if (!match) return std::nullopt;
   return RouteMatch{Lumo::IpGenPrefix(addr, match->length), Fib::FecId(match->value)};
}

std::optional<Fib::FecId> ForwardingStatus::route(const Lumo::IpGenPrefix& prefix) const {
   auto v = routes_.find(prefixKey(prefix));
   if (!v) return std::nullopt;
   return Fib::FecId(*v);
}

void ForwardingStatus::doCorruptionDetected(const std::string& message) const {
   corruptions_.report(message);
}

std::string ForwardingStatus::lastCorruption() const { return corruptions_.last(); }

std::uint64_t ForwardingStatus::fecCount() const { return fecs_.size(); }
std::uint64_t ForwardingStatus::routeCount() const { return routes_.size(); }

void ForwardingStatus::forEachFec(const std::function<void(const Fec&)>& fn) const {
   fecs_.forEach([&](const Fib::FecId& id, const FecHead&, const auto&) { fn(fec(id)); });
}

void ForwardingStatus::forEachRoute(
    const std::function<void(const Lumo::IpGenPrefix&, Fib::FecId)>& fn) const {
   routes_.map().forEach([&](const Table::PrefixKey& k, std::uint64_t v) {
      fn(prefixOf(k), Fib::FecId(v));
   });
}

void ForwardingStatus::fecIs(const Fec& fec) {
   FecHead head{fec.backupViaIndex(), fec.fecType(), fec.flags(), fec.loopbackOnly(), 0};
   fecs_.insert(fec.fecId(), head, {fec.vias(), fec.secondaryVias()});
}

bool ForwardingStatus::fecDel(Fib::FecId fecId) { return fecs_.erase(fecId); }

void ForwardingStatus::routeIs(const Lumo::IpGenPrefix& prefix, Fib::FecId fecId) {
   routes_.insert(prefixKey(prefix), fecId.value());
}

bool ForwardingStatus::routeDel(const Lumo::IpGenPrefix& prefix) {
   return routes_.erase(prefixKey(prefix));
}

void ForwardingStatus::debugCorruptFec(Fib::FecId fecId) { fecs_.debugCorrupt(fecId); }

} // namespace Quarn::FibGen
