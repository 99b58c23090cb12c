// The "builtins" plugin: wires the library's own steps and resolvers into the resolver root,
// once for every embedding agent. It reads the neighbour table and the interface status
// from the state database after its mounts complete; with no state database it wires over
// empty tables, so that the pipeline still runs (tests).
#include "Arp/ArpTable.h"
#include "Interface/EthIntfStatusDir.h"
#include "L3/IntfStatusDir.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/IntfSuitabilityCheckerTypes.h"
#include "VeltLib/NexthopResolver.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginLoader.h"
#include "Wexa/Paths.h"

namespace {

class BuiltinsPlugin : public Velt::NhrPluginBase {
 public:
   explicit BuiltinsPlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase("builtins", context) {}

   void mountsComplete(const Pelin::Ptr<Wexa::EntityManager>& em) override {
      if (!em) return;
      l3IntfStatus_ = em->entity<L3::Intf::StatusDir>(Wexa::Paths::l3IntfStatus);
      ethIntfStatus_ = em->entity<Interface::EthIntfStatusDir>(Wexa::Paths::ethIntfStatus);
      arp_ = Wexa::sharedMemoryEntityManager(em->sysName(), em->writer())
                 ->entity<Arp::Table::Status>(Wexa::Paths::arpStatus);
   }

   void setupNhr() override {
      if (!l3IntfStatus_) l3IntfStatus_ = L3::Intf::statusDirFactory();
      if (!ethIntfStatus_) ethIntfStatus_ = Interface::ethIntfStatusDirFactory();
      if (!arp_) arp_ = Pelin::make<Arp::Table::Status>("arp", Arp::Table::Status::Capacity{16, 16});
      const auto& ctx = *context();
      ctx.intfSuitabilityHelper()->intfSuitabilityCheckerIs(
          Velt::intfOperStatusSuitabilityCheckerFactory(ethIntfStatus_));
      addSteps(ctx);
      addResolvers(ctx);
   }

 private:
   void addSteps(const Velt::NhrPluginContext& ctx) {
      const auto& steps = ctx.resolverSteps();
      const auto& resolvers = ctx.resolvers();
      steps->stepIs(Velt::nhrInterfaceTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrCopyViaNexthopStepFactory(l3IntfStatus_));
      steps->stepIs(Velt::nhrFecTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrFecIdTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrDstIpTypeStepFactory(resolvers));
      steps->stepIs(Velt::noIpRouteFallbackStepFactory(ctx.noIpRouteFallbackPipeline()));
   }

   void addResolvers(const Velt::NhrPluginContext& ctx) {
      const auto& r = ctx.resolvers();
      r->interfaceResolverIs(Pelin::make<Velt::EthernetArpResolver>(Velt::arpHelperFactory(arp_)));
      r->interfaceResolverIs(Velt::fecIdIntfIdHandlerFactory());
      r->fecTypeResolverIs(
          Velt::forwardFecTypeResolverFactory(ctx.resolver().get(), ctx.intfSuitabilityHelper()));
      r->fecTypeResolverIs(Velt::dropFecTypeResolverFactory());
      r->fecTypeResolverIs(Velt::receiveFecTypeResolverFactory());
      r->fecTypeResolverIs(Velt::receiveBcastFecTypeResolverFactory());
      r->fecTypeResolverIs(Velt::kernelFecTypeResolverFactory());
      r->fecIdResolverIs(Velt::fibV4AdjFecIdResolverFactory());
      r->fecIdResolverIs(Velt::fibV6AdjFecIdResolverFactory());
      r->fecIdResolverIs(Velt::fibGenAdjFecIdResolverFactory());
   }

   Pelin::Ptr<L3::Intf::StatusDir const> l3IntfStatus_;
   Pelin::Ptr<Interface::EthIntfStatusDir const> ethIntfStatus_;
   Pelin::Ptr<Arp::Table::Status const> arp_;
};

} // namespace

VELT_NHR_PLUGIN(BuiltinsPlugin)
