// A resolution world for tests: VRFs red and blue over real forwarding tables, the
// registry, the driver over the main step list, a packet with a counter sink, and small
// resolvers and steps that count their calls and act as told.
#pragma once
#include "L3/IntfStatusDir.h"
#include "Trace/Trace.h"
#include "VeltLib/NexthopResolver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Velt::test {

using Act = std::function<void(RoutingNexthop&)>;

// A resolver of any of the four kinds that counts its calls and applies `act`.
template <typename Kind>
class CountingResolver : public Kind {
 public:
   template <typename Key>
   CountingResolver(const std::string& name, Key key, Act act = {})
       : Kind(name, key), act_(std::move(act)) {}
   void resolve(const Pelin::Ptr<RoutingContext>&, const Pelin::Ptr<ResolverVrfRoot const>&,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override {
      ++calls;
      if (act_) act_(*nexthop);
   }
   int calls = 0;

 private:
   Act act_;
};

template <typename Kind, typename Key>
Pelin::Ptr<CountingResolver<Kind>> counting(const std::string& name, Key key, Act act = {}) {
   return Pelin::make<CountingResolver<Kind>>(name, key, std::move(act));
}

// A step of either pipeline that counts its calls, applies `act` and reports `result`.
template <typename Base>
class ScriptedStep : public Base {
 public:
   ScriptedStep(const std::string& name, unsigned priority, bool result, Act act = {})
       : Base(name, priority), result_(result), act_(std::move(act)) {}
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override {
      ++calls;
      if (act_) act_(*nhrCtx->nexthop());
      return result_;
   }
   int calls = 0;

 private:
   bool result_;
   Act act_;
};

inline const Lumo::EthAddr kMac("00:11:22:33:44:55");
inline void giveMac(RoutingNexthop& nh) { nh.dstMacIs(kMac); }

class ResolutionTest : public ::testing::Test {
 protected:
   static constexpr std::uint64_t kPktId = 42;

   ResolutionTest() {
      Trace::configIs("Velt::NHResolver/0-9");
      auto pktCtx = Pelin::make<PacketContext>(PacketContextBase(kPktId));
      pktCtx->countersIs(counters);
      rCtx = routingContextFactory(pktCtx, Lumo::IntfId("Ethernet9"), L3::VrfName("red"));
      red = vrfRoots->vrfRootIs(L3::VrfName("red"), Vrf::VrfIdMap::VrfId(1), redTable);
      blue = vrfRoots->vrfRootIs(L3::VrfName("blue"), Vrf::VrfIdMap::VrfId(2), blueTable);
      l3Intfs->intfStatusIs(Lumo::IntfId("Ethernet1"), L3::VrfName("red"));
      l3Intfs->intfStatusIs(Lumo::IntfId("Ethernet2"), L3::VrfName("blue"));
   }
   ~ResolutionTest() override {
      Trace::configIs("");
      velt_trace_verbose_bitmap = 0;
   }

   static Pelin::Ptr<Quarn::FibGen::ForwardingStatus> table(const std::string& name) {
      return Pelin::make<Quarn::FibGen::ForwardingStatus>(
          name, Quarn::FibGen::ForwardingStatus::Capacity{64, 1 << 16, 64});
   }

   // The six built-in steps, added in reverse so that only priority can order them.
   void addBuiltInSteps() {
      steps->stepIs(noIpRouteFallbackStepFactory(fallback));
      steps->stepIs(nhrDstIpTypeStepFactory(resolvers));
      steps->stepIs(nhrFecIdTypeStepFactory(resolvers));
      steps->stepIs(nhrFecTypeStepFactory(resolvers));
      steps->stepIs(nhrCopyViaNexthopStepFactory(l3Intfs));
      steps->stepIs(nhrInterfaceTypeStepFactory(resolvers));
   }

   Pelin::Ptr<RoutingNexthop> nexthop(const std::string& vrf = "red") {
      auto nh = routingNexthopFactory(Lumo::IntfId());
      nh->vrfIs(L3::VrfName(vrf));
      return nh;
   }

   // One pass of the main pipeline in `root`, as the driver runs it; true: nothing handled.
   bool onePass(const Pelin::Ptr<RoutingNexthop>& nh,
                const Pelin::Ptr<ResolverVrfRoot>& root = nullptr) {
      return driver->process(nhrPipelineContextFactory(rCtx, root ? root : red, nh));
   }

   std::uint64_t counted(const std::string& category, const std::string& text) const {
      return counters->value(category, "NHResolver", text);
   }
   // The captured lines of the resolution handle, without the packet id.
   std::vector<std::string> lines() const {
      std::vector<std::string> out;
      const std::string pkt = "Pkt" + std::to_string(kPktId) + ": ";
      for (const std::string& l : capture.lines()) {
         std::size_t at = l.find(pkt);
         if (l.rfind("Velt::NHResolver/", 0) == 0 && at != std::string::npos)
            out.push_back(l.substr(0, at) + l.substr(at + pkt.size()));
      }
      return out;
   }

   Trace::Capture capture;
   Pelin::Ptr<VeltNamedCounters> counters = Pelin::make<VeltNamedCounters>();
   Pelin::Ptr<RoutingContext> rCtx;
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> redTable = table("red");
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> blueTable = table("blue");
   Pelin::Ptr<NexthopResolvers> resolvers = nexthopResolversFactory();
   Pelin::Ptr<ResolverVrfRoots> vrfRoots = resolverVrfRootsFactory();
   Pelin::Ptr<ResolverVrfRoot> red, blue;
   Pelin::Ptr<L3::Intf::StatusDir> l3Intfs = L3::Intf::statusDirFactory();
   Pelin::Ptr<GenericPipelineSteps> steps = genericPipelineStepsFactory(nhrPipelineName);
   Pelin::Ptr<GenericPipelineSteps> fallbackSteps =
       genericPipelineStepsFactory(noIpRouteFallbackPipelineName);
   Pelin::Ptr<GenericPipeline> fallback = genericPipelineFactory(fallbackSteps);
   Pelin::Ptr<RoutingNexthopResolver> driver =
       routingNexthopResolverFactory(steps, resolvers, vrfRoots);
};

} // namespace Velt::test
