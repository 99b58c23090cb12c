// Table files of a forwarding table as a writer leaves them, whose bytes the input
// overwrites; a reader then attaches them and reads as resolution does (FEC by id, longest
// route) and walks them whole. Damage must be refused or reported, never read past.
#include "FuzzInput.h"

#include "Pelin/Exception.h"
#include "Quarn/ForwardingStatus.h"

namespace Fuzz {

namespace {

using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::ForwardingStatus;
using Quarn::FibGen::Via;

constexpr int kFecs = 6;

FecId fecIdOf(int i) {
   return FecId(AdjType::fibGenAdj, static_cast<std::uint64_t>(i) + 1);
}

const Lumo::IpGenAddr kAddrs[] = {Lumo::IpGenAddr("10.1.2.3"), Lumo::IpGenAddr("10.200.0.1"),
                                  Lumo::IpGenAddr("2001:db8::1"), Lumo::IpGenAddr("192.0.2.1")};

struct Files {
   std::vector<std::uint8_t> fecs, routes;
};

// FECs of 0 to 9 vias (inline and pooled lists) and routes of both families.
Files validFiles() {
   const std::string base = scratchDir() + "/valid";
   {
      auto table = ForwardingStatus::createFiles(
          "valid", base, {.fecs = 16, .viaPoolBytes = 1 << 14, .routes = 16});
      for (int i = 0; i < kFecs; ++i) {
         Fec fec(fecIdOf(i));
         for (int v = 0; v < i * 2 - 1; ++v) {
            fec.viaAppend(Via(Lumo::IntfId::fromValue(0x2000100u + v), 1,
                              Lumo::IpGenAddr("10.0.0.2"), FecId(), 0));
         }
         if (i == 3) fec.secondaryViaAppend(Via(Lumo::IntfId("Ethernet9"), 1, {}));
         table->fecIs(fec);
      }
      table->routeIs(Lumo::IpGenPrefix("10.0.0.0/8"), fecIdOf(1));
      table->routeIs(Lumo::IpGenPrefix("10.1.0.0/16"), fecIdOf(2));
      table->routeIs(Lumo::IpGenPrefix("0.0.0.0/0"), fecIdOf(3));
      table->routeIs(Lumo::IpGenPrefix("2001:db8::/32"), fecIdOf(4));
   }
   return {readFile(base + ".fecs"), readFile(base + ".routes")};
}

void readAll(const ForwardingStatus& table) {
   for (int i = 0; i <= kFecs; ++i) table.fec(fecIdOf(i));
   for (const auto& addr : kAddrs) {
      if (auto match = table.routeLookup(addr)) table.fec(match->fecId);
   }
   table.fecCount();
   table.routeCount();
   table.forEachFec([](const Fec&) {});
   table.forEachRoute([](const Lumo::IpGenPrefix&, FecId) {});
}

} // namespace

void sharedTable(Input in) {
   static const Files valid = validFiles();
   Files files = valid;
   // The first byte says which files the edits go to.
   const std::uint8_t which = in.empty() ? 1 : in[0];
   const Input edits = in.empty() ? in : in.subspan(1);
   if (which & 1) overlay(files.fecs, edits);
   if (which & 2) overlay(files.routes, edits);
   const std::string base = scratchDir() + "/fuzz";
   writeFile(base + ".fecs", files.fecs);
   writeFile(base + ".routes", files.routes);
   try {
      readAll(*ForwardingStatus::attachFiles("fuzz", base));
   } catch (const Pelin::Exception&) {
   }
}

} // namespace Fuzz
