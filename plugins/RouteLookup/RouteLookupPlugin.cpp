// The "routeLookup" plugin: destination-IP resolvers for IPv4 and IPv6 that find the longest
// matching route in the VRF's forwarding table and hand the next hop on to the route's FEC,
// keeping the destination (so that a connected route finds its neighbour).
//
// A destination with no route goes through the no-route fallback at once, inside the
// resolver: the destination-IP step always ends the pass when a resolver exists, so a
// resolver that left the next hop unchanged would be asked again on every pass until the
// pass limit. Running the fallback here leaves the next hop trapped to the CPU, or as a
// fallback step made it, and resolution ends normally.
#include "Pelin/Exception.h"
#include "VeltLib/NexthopResolver.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginLoader.h"
#include "Packet/PacketTrace.h"
#include "VeltLib/Traces.h"

namespace {

class RouteLookupResolver : public Velt::DstIpResolver {
 public:
   RouteLookupResolver(Lumo::AddressFamily af, const Pelin::Ptr<Velt::NoIpRouteFallbackStep>& fallback)
       : Velt::DstIpResolver(af == Lumo::AddressFamily::ipv4_ ? "RouteLookupV4" : "RouteLookupV6",
                             af),
         fallback_(fallback) {}

   void resolve(const Pelin::Ptr<Velt::RoutingContext>& rCtx,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<Velt::RoutingNexthop>& nexthop) override {
      if (auto match = lookup(*vrfRoot, nexthop->dstIp())) {
         VELT_PKT_TRACE(Velt::nhResolverTrace(), 3, *rCtx, "Route {} to {}", match->prefix,
                        match->fecId);
         nexthop->routeIs(match->prefix);
         nexthop->fecIdIs(match->fecId);
         return;
      }
      fallback_->process(Velt::nhrPipelineContextFactory(rCtx, vrfRoot, nexthop));
   }

 private:
   static std::optional<Quarn::FibGen::RouteMatch> lookup(const Velt::ResolverVrfRoot& root,
                                                          const Lumo::IpGenAddr& dst) {
      const auto& table = root.fwdStatus();
      if (!table) return std::nullopt;
      try {
         return table->routeLookup(dst);
      } catch (const Pelin::CorruptionDetectedException& e) {
         table->doCorruptionDetected(e); // answered as no route
         return std::nullopt;
      }
   }

   Pelin::Ptr<Velt::NoIpRouteFallbackStep> fallback_;
};

class RouteLookupPlugin : public Velt::NhrPluginBase {
 public:
   explicit RouteLookupPlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase("routeLookup", context) {}

   void setupNhr() override {
      const auto& ctx = *context();
      auto fallback = Velt::noIpRouteFallbackStepFactory(ctx.noIpRouteFallbackPipeline());
      for (auto af : {Lumo::AddressFamily::ipv4_, Lumo::AddressFamily::ipv6_}) {
         ctx.resolvers()->dstIpResolverIs(Pelin::make<RouteLookupResolver>(af, fallback));
      }
   }
};

} // namespace

VELT_NHR_PLUGIN(RouteLookupPlugin)
