// The terminal and adjacency resolvers, registered as an agent would and reached through
// their steps.
#include "Lumo/FecIdIntfId.h"
#include "ResolutionFixture.h"

namespace Velt::test {
namespace {

using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

class TerminalResolvers : public ResolutionTest {
 protected:
   TerminalResolvers() {
      steps->stepIs(nhrFecTypeStepFactory(resolvers));
      steps->stepIs(nhrFecIdTypeStepFactory(resolvers));
      for (auto r : std::initializer_list<Pelin::Ptr<FecTypeResolver>>{
               receiveFecTypeResolverFactory(), receiveBcastFecTypeResolverFactory(),
               kernelFecTypeResolverFactory(), dropFecTypeResolverFactory(),
               cpuTrapFecTypeResolverFactory("Punt", 3)})
         resolvers->fecTypeResolverIs(r);
      for (auto r : std::initializer_list<Pelin::Ptr<FecIdResolver>>{
               fibV4AdjFecIdResolverFactory(), fibV6AdjFecIdResolverFactory(),
               fibGenAdjFecIdResolverFactory(), defaultFecIdResolverFactory("adj20", AdjType(20))})
         resolvers->fecIdResolverIs(r);
   }

   Pelin::Ptr<RoutingNexthop> withFecType(std::uint8_t type) {
      Fec fec(FecId(AdjType::fibGenAdj, 1));
      fec.fecTypeIs(type);
      auto nh = nexthop();
      nh->fecIs(fec);
      return nh;
   }
};

TEST_F(TerminalResolvers, RegisterUnderTheirKeysAndNames) {
   const std::vector<std::pair<std::uint8_t, std::string>> fecTypes = {
       {1, "Drop"}, {2, "Receive"}, {3, "Punt"}, {4, "ReceiveBcast"}, {6, "Kernel"}};
   for (const auto& [type, name] : fecTypes) EXPECT_EQ(resolvers->fecTypeResolver(type)->name(), name);
   EXPECT_EQ(resolvers->fecIdResolver(AdjType::fibV4Adj)->name(), "fibV4Adj");
   EXPECT_EQ(resolvers->fecIdResolver(AdjType::fibV6Adj)->name(), "fibV6Adj");
   EXPECT_EQ(resolvers->fecIdResolver(AdjType::fibGenAdj)->name(), "fibGenAdj");
   EXPECT_EQ(resolvers->fecIdResolver(AdjType(20))->name(), "adj20");
   EXPECT_EQ(fecIdIntfIdHandlerFactory()->type(), 19);
   EXPECT_EQ(fecIdIntfIdHandlerFactory()->name(), "FecIdIntfId");
}

TEST_F(TerminalResolvers, CpuTrapFamilyEndsAtTheCpuAsOursAndDropDrops) {
   for (std::uint8_t type : {2, 3, 4, 6}) {
      auto nh = withFecType(type);
      nh->dstIpIs(Lumo::IpGenAddr("10.0.0.1"));
      EXPECT_FALSE(onePass(nh));
      EXPECT_EQ(nh->outputIntf(), Lumo::cpuIntfId()) << int(type);
      EXPECT_TRUE(nh->toMe()) << int(type);
      EXPECT_FALSE(nh->drop()) << int(type);
      EXPECT_TRUE(nh->fullyResolved()) << int(type);
      EXPECT_EQ(nh->dstIp(), Lumo::IpGenAddr()) << int(type);
   }
   auto nh = withFecType(1);
   EXPECT_FALSE(onePass(nh));
   EXPECT_TRUE(nh->drop());
   EXPECT_FALSE(nh->toMe());
   dropFecTypeResolverFactory()->resolve(rCtx, red, nullptr); // nothing to drop: no crash
}

TEST_F(TerminalResolvers, FecIdResolversCopyTheVrfsFecOrDrop) {
   Fec fec(FecId(AdjType::fibV4Adj, 9));
   fec.backupViaIndexIs(2);
   for (std::uint32_t i = 1; i <= 3; ++i)
      fec.viaAppend(Via(Lumo::IntfId::fromType(Lumo::GenericIntfId::ethernetTypeId, i), i,
                        Lumo::IpGenAddr("10.0.0.1")));
   fec.secondaryViaAppend(Via(Lumo::IntfId("Ethernet5"), 1, Lumo::IpGenAddr("10.0.0.5")));
   redTable->fecIs(fec);
   Fec empty(FecId(AdjType(20), 4)); // known, without vias
   redTable->fecIs(empty);

   auto nh = nexthop();
   nh->fecIdIs(fec.fecId());
   EXPECT_FALSE(onePass(nh));
   EXPECT_EQ(nh->fec(), fec);
   EXPECT_EQ(nh->fec().secondaryViaCount(), 1u);
   EXPECT_FALSE(nh->drop());

   nh = nexthop();
   nh->fecIdIs(empty.fecId());
   EXPECT_FALSE(onePass(nh));
   EXPECT_EQ(nh->fec(), empty);
   EXPECT_FALSE(nh->drop());

   // Known in red only: blue drops it and leaves the FEC as it was.
   nh = nexthop("blue");
   nh->fecIdIs(fec.fecId());
   EXPECT_FALSE(onePass(nh, blue));
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(nh->fec(), Fec());
}

TEST_F(TerminalResolvers, FecIdInterfaceContinuesFromItsFecKeepingTheDestination) {
   resolvers->interfaceResolverIs(fecIdIntfIdHandlerFactory());
   steps->stepIs(nhrInterfaceTypeStepFactory(resolvers));
   const FecId id(AdjType::fibGenAdj, 5);
   auto nh = nexthop();
   nh->outputIntfIs(Lumo::FecIdIntfId::fecIdToIntfId(id));
   nh->dstIpIs(Lumo::IpGenAddr("10.0.0.7"));
   nh->routeIs(Lumo::IpGenPrefix("10.0.0.0/24"));
   nh->viaIs(Via(Lumo::IntfId("Ethernet1"), 1, Lumo::IpGenAddr("10.0.0.1")));
   nh->dstMacIs(kMac);
   EXPECT_FALSE(onePass(nh));
   EXPECT_EQ(nh->fecId(), id);
   EXPECT_EQ(nh->dstIp(), Lumo::IpGenAddr("10.0.0.7"));
   EXPECT_EQ(nh->outputIntf(), Lumo::IntfId());
   EXPECT_EQ(nh->route(), Lumo::IpGenPrefix());
   EXPECT_EQ(nh->via(), Via());
   EXPECT_EQ(nh->dstMac(), kMac);
}

} // namespace
} // namespace Velt::test
