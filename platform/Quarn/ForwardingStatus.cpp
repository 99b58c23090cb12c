#include "Quarn/ForwardingStatus.h"

#include "Pelin/Exception.h"

#include <cstring>

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

bool adjTypeInRange(Fib::FecId id) {
   return (id.value() >> Fib::adjTypePos()) < Fib::adjTypeMax();
}

// A backup index past the vias but within the via-index range is a FEC without a usable
// backup, which resolution handles.
bool headDamaged(const FecHead& head) {
   return head.loopbackOnly > 1 || head.pad != 0 ||
          head.backupViaIndex > Fib::ViaIndex::max;
}

bool fecDamaged(const FecHead& head, const Fec& fec) {
   return headDamaged(head) || viasDamaged(fec.vias()) ||
          viasDamaged(fec.secondaryVias());
}

// What fecDamaged() found.
std::string fecProblem(const FecHead& head, const Fec& fec) {
   if (head.loopbackOnly > 1)
      return fmt::format("loopback-only flag {}", head.loopbackOnly);
   if (head.pad != 0) return fmt::format("padding byte {}", head.pad);
   if (head.backupViaIndex > Fib::ViaIndex::max) {
      return fmt::format("backup via index {} above {}", head.backupViaIndex,
                         Fib::ViaIndex::max);
   }
   std::size_t at = 0;
   if (const char* p = viasProblem(fec.vias(), at))
      return fmt::format("via {}: {}", at, p);
   if (const char* p = viasProblem(fec.secondaryVias(), at)) {
      return fmt::format("secondary via {}: {}", at, p);
   }
   return {};
}

[[noreturn]] void damagedFec(const std::string& table, Fib::FecId id,
                             const std::string& what) {
   throw Pelin::CorruptionDetectedException(
       fmt::format("table {}: FEC {} is corrupt: {}", table, id, what));
}

[[noreturn]] void damagedRoute(const std::string& table, const std::string& prefix,
                               std::uint64_t value) {
   throw Pelin::CorruptionDetectedException(fmt::format(
       "table {}: route {} is corrupt: FEC id {:#x} of an adjacency type out of range",
       table, prefix, value));
}

// Null, or what no writer puts in a stored prefix.
const char* prefixKeyProblem(const Table::PrefixKey& k) {
   if (k.family != Table::Family::ipv4 && k.family != Table::Family::ipv6) {
      return "address family out of range";
   }
   if (k.length > Table::PrefixKey::maxLength(k.family))
      return "length above its family's";
   Table::PrefixKey clean = k.masked(k.length);
   if (std::memcmp(clean.bytes, k.bytes, sizeof k.bytes) != 0)
      return "bits set past its length";
   for (std::uint8_t b : k.pad) {
      if (b != 0) return "padding set";
   }
   return nullptr;
}

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
   // Judged once here, on the private copy, so that nothing downstream meets a value no
   // writer makes.
   if (fecDamaged(*head, out)) [[unlikely]]
      damagedFec(name_, fecId, fecProblem(*head, out));
   out.fecIdIs(fecId);
   out.backupViaIndexIs(head->backupViaIndex);
   out.fecTypeIs(head->fecType);
   out.flagsIs(head->flags);
   out.loopbackOnlyIs(head->loopbackOnly != 0);
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
   const Fib::FecId fecId(match->value);
   if (!adjTypeInRange(fecId) || match->length > Table::PrefixKey::maxLength(key.family))
       [[unlikely]] {
      damagedRoute(name_, fmt::format("{}/{}", addr, unsigned(match->length)),
                   match->value);
   }
   return RouteMatch{Lumo::IpGenPrefix(addr, match->length), fecId};
}

std::optional<Fib::FecId> ForwardingStatus::route(const Lumo::IpGenPrefix& prefix) const {
   auto v = routes_.find(prefixKey(prefix));
   if (!v) return std::nullopt;
   if (!adjTypeInRange(Fib::FecId(*v))) [[unlikely]]
      damagedRoute(name_, fmt::format("{}", prefix), *v);
   return Fib::FecId(*v);
}

void ForwardingStatus::doCorruptionDetected(const std::string& message) const {
   corruptions_.report(message);
}

void ForwardingStatus::doCorruptionDetected(
    const Pelin::CorruptionDetectedException& e) const {
   corruptions_.report(e);
}

std::string ForwardingStatus::lastCorruption() const { return corruptions_.last(); }

std::uint64_t ForwardingStatus::fecCount() const { return fecs_.size(); }
std::uint64_t ForwardingStatus::routeCount() const { return routes_.size(); }

void ForwardingStatus::forEachFec(const std::function<void(const Fec&)>& fn) const {
   fecs_.forEach([&](const Fib::FecId& id, const FecHead&, const auto&) {
      std::optional<Fec> copy;
      try {
         copy.emplace(fec(id));
      } catch (const Pelin::CorruptionDetectedException& e) {
         doCorruptionDetected(e);
         return;
      }
      fn(*copy);
   });
}

void ForwardingStatus::forEachRoute(
    const std::function<void(const Lumo::IpGenPrefix&, Fib::FecId)>& fn) const {
   routes_.map().forEach([&](const Table::PrefixKey& k, std::uint64_t v) {
      const char* problem = prefixKeyProblem(k);
      if (!problem && !adjTypeInRange(Fib::FecId(v))) {
         problem = "FEC id of an adjacency type out of range";
      }
      if (problem) {
         doCorruptionDetected(
             fmt::format("table {}: a route is corrupt: {}", name_, problem));
         return;
      }
      fn(prefixOf(k), Fib::FecId(v));
   });
}

void ForwardingStatus::fecIs(const Fec& fec) {
   FecHead head{fec.backupViaIndex(), fec.fecType(), fec.flags(),
                std::uint8_t(fec.loopbackOnly() ? 1 : 0), 0};
   if (fecDamaged(head, fec)) {
      throw Pelin::RangeException(fmt::format("table {}: FEC {} not written: {}", name_,
                                              fec.fecId(), fecProblem(head, fec)));
   }
   fecs_.insert(fec.fecId(), head, {fec.vias(), fec.secondaryVias()});
}

bool ForwardingStatus::fecDel(Fib::FecId fecId) { return fecs_.erase(fecId); }

void ForwardingStatus::routeIs(const Lumo::IpGenPrefix& prefix, Fib::FecId fecId) {
   if (!adjTypeInRange(fecId)) {
      throw Pelin::RangeException(fmt::format("table {}: route {} not written: FEC id "
                                              "{:#x} of an adjacency type out of range",
                                              name_, prefix, fecId.value()));
   }
   routes_.insert(prefixKey(prefix), fecId.value());
}

bool ForwardingStatus::routeDel(const Lumo::IpGenPrefix& prefix) {
   return routes_.erase(prefixKey(prefix));
}

void ForwardingStatus::debugCorruptFec(Fib::FecId fecId) { fecs_.debugCorrupt(fecId); }

} // namespace Quarn::FibGen
