// Quarn::FibGen::ForwardingStatus: one forwarding table (FECs by id, routes by prefix),
// written by one writer and read without locks. It lives in a table region: process
// memory for the embedded default, or a shared file mapped read-only by readers.
#pragma once
#include "Kor/Entity.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Pelin/CorruptionReport.h"
#include "Pelin/Ptr.h"
#include "Quarn/Fec.h"
#include "Table/ListMap.h"
#include "Table/PrefixMap.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Quarn::FibGen {

// The fixed part of a stored FEC; the vias live in the table's lists. No bool: a damaged
// byte must be readable as a number before it is judged.
struct FecHead {
   std::uint32_t backupViaIndex;
   std::uint8_t fecType;
   std::uint8_t flags;
   std::uint8_t loopbackOnly; // 0 or 1
   std::uint8_t pad;
};

struct RouteMatch {
   Lumo::IpGenPrefix prefix;
   Fib::FecId fecId;
};

class ForwardingStatus : public Kor::Notifier {
 public:
   struct Capacity {
      std::uint64_t fecs = 1 << 16;
      std::uint64_t viaPoolBytes = 16 << 20;
      std::uint64_t routes = 1 << 16;
   };
   // The shortest via lists live in the record itself.
   static constexpr std::size_t inlineVias = 4;
   using FecTable = Table::ListMap<Fib::FecId, FecHead, Via, 2, inlineVias>;

   explicit ForwardingStatus(const std::string& name);
   ForwardingStatus(const std::string& name, const Capacity& capacity);
   ForwardingStatus(const std::string& name, FecTable fecs, Table::PrefixMap routes);
   // The writer's table in two new owner-only files, `<base>.fecs` and `<base>.routes`.
   static Pelin::Ptr<ForwardingStatus> createFiles(const std::string& name,
                                                   const std::string& base,
                                                   const Capacity& capacity);
   // A reader's mapping of the files createFiles made, without write access: the writer
   // calls fault. A file whose header is not a forwarding table's raises Pelin::Exception
   // naming the file and the field.
   static Pelin::Ptr<ForwardingStatus> attachFiles(const std::string& name,
                                                         const std::string& base);

   const std::string& name() const { return name_; }

   // ---- readers ----
   // The FEC of `fecId`, or defaultFec() when absent; raises
   // Pelin::CorruptionDetectedException when the record is found damaged, or holds a value
   // no writer makes (see Via::problem).
   Fec fec(Fib::FecId fecId) const;
   // fec() copied straight into `out`, in proportion to its vias: true when `fecId` is
   // present. False, or an error as fec() raises, leaves `out` partly written.
   bool fecInto(Fib::FecId fecId, Fec& out) const;
   // The empty FEC of id 0, returned for absent keys.
   const Fec& defaultFec() const;
   // The longest route covering `addr`, if any; may raise CorruptionDetectedException,
   // also for a route to a FEC id no writer makes.
   std::optional<RouteMatch> routeLookup(const Lumo::IpGenAddr& addr) const;
   std::optional<Fib::FecId> route(const Lumo::IpGenPrefix& prefix) const;
   // Reports a damaged table: counted, and the last message kept, for operators.
   void doCorruptionDetected(const std::string& message) const;
   // The same for what a read raised, unless it repeats damage reported before.
   void doCorruptionDetected(const Pelin::CorruptionDetectedException& e) const;
   std::uint64_t corruptionCount() const { return corruptions_.count(); }
   std::string lastCorruption() const;

   std::uint64_t fecCount() const;
   std::uint64_t routeCount() const;
   // For tools: damaged records are reported and left out.
   void forEachFec(const std::function<void(const Fec&)>& fn) const;
   void forEachRoute(const std::function<void(const Lumo::IpGenPrefix&, Fib::FecId)>& fn) const;

   // ---- the writer ----
   // Raises RangeException for a FEC readers would take for damage (see Via::problem).
   void fecIs(const Fec& fec);
   bool fecDel(Fib::FecId fecId);
   // Raises RangeException for a FEC id of an adjacency type out of range.
   void routeIs(const Lumo::IpGenPrefix& prefix, Fib::FecId fecId);
   bool routeDel(const Lumo::IpGenPrefix& prefix);
   // Tests only: leaves the record of `fecId` half-written, as a killed writer would.
   void debugCorruptFec(Fib::FecId fecId);

 private:
   std::string name_;
   FecTable fecs_;
   Table::PrefixMap routes_;
   mutable Pelin::CorruptionReport corruptions_;
};

Table::PrefixKey prefixKey(const Lumo::IpGenPrefix& prefix);
Table::PrefixKey hostKey(const Lumo::IpGenAddr& addr);

} // namespace Quarn::FibGen
