// The "sinkhole" plugin: drops every next hop whose destination lies in one prefix, before
// any route is looked up. The prefix is VELT_SINKHOLE (default 192.0.2.0/24); a value that
// is no prefix makes the plugin's set-up fail, which names the plugin and the value.
#include "Lumo/IpGenPrefix.h"
#include "Packet/PacketTrace.h"
#include "Pelin/Exception.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginLoader.h"
#include "VeltLib/RoutingNexthop.h"
#include "VeltLib/Traces.h"

#include <cstdlib>
#include <string>

namespace {

class SinkholeStep : public Velt::NhrPipelineStep {
 public:
   // 5000: ahead of the library's first step (InterfaceType, 10000), so no route or
   // neighbour is looked up for a sunk destination.
   explicit SinkholeStep(Lumo::IpGenPrefix prefix)
       : Velt::NhrPipelineStep("Sinkhole", 5000), prefix_(prefix) {}

   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>& nhrCtx) override {
      const auto& nexthop = nhrCtx->nexthop();
      if (!prefix_.contains(nexthop->dstIp())) return true;
      VELT_PKT_TRACE(Velt::nhResolverTrace(), 3, *nhrCtx->rCtx(), "Sinkhole {} drops {}",
                     prefix_, nexthop->dstIp());
      nexthop->dropIs(true);
      return false;
   }

 private:
   Lumo::IpGenPrefix prefix_;
};

Lumo::IpGenPrefix sinkholePrefix() {
   const char* text = std::getenv("VELT_SINKHOLE");
   std::string value = text && *text ? text : "192.0.2.0/24";
   try {
      return Lumo::IpGenPrefix(value);
   } catch (const std::exception& e) {
      throw Pelin::Exception("VELT_SINKHOLE=\"" + value + "\" is not a prefix: " + e.what());
   }
}

class SinkholePlugin : public Velt::NhrPluginBase {
 public:
   explicit SinkholePlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase("sinkhole", context) {}

   void setupNhr() override {
      context()->resolverSteps()->stepIs(Pelin::make<SinkholeStep>(sinkholePrefix()));
   }
};

} // namespace

VELT_NHR_PLUGIN(SinkholePlugin)
