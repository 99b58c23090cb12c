// Test plugin whose set-up registers a step, a destination resolver (replacing the one
// there) and an interface checker, and then fails; with its mount profile loaded it fails
// later, on the event loop. VELT_TEST_HALF_THROW=int makes it throw a non-std exception.
#include "TestPlugins.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/NhrPluginLoader.h"

#include <cstdlib>
#include <string>

namespace {

class HalfStep : public Velt::NhrPipelineStep {
 public:
   HalfStep() : Velt::NhrPipelineStep(VeltTest::halfStepName, 46000) {}
   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>&) override { return true; }
};

class HalfResolver : public Velt::DstIpResolver {
 public:
   HalfResolver() : Velt::DstIpResolver("half", Lumo::AddressFamily::ipv4_) {}
   void resolve(const Pelin::Ptr<Velt::RoutingContext>&,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>&,
                const Pelin::Ptr<Velt::RoutingNexthop>&) override {}
};

class HalfChecker : public Velt::IntfSuitabilityCheckerBase {
 public:
   HalfChecker() : Velt::IntfSuitabilityCheckerBase(VeltTest::halfCheckerName) {}
   bool isSuitable(Lumo::IntfId) override { return false; }
};

class HalfSetUpPlugin : public Velt::NhrPluginBase {
 public:
   explicit HalfSetUpPlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase(Velt::NhrPluginLoader()->pluginName(), context) {}
   void setupNhr() override {
      context()->resolverSteps()->stepIs(Pelin::make<HalfStep>());
      context()->resolvers()->dstIpResolverIs(Pelin::make<HalfResolver>());
      context()->intfSuitabilityHelper()->intfSuitabilityCheckerIs(
          Pelin::make<HalfChecker>());
      const char* how = std::getenv(VeltTest::halfThrowVariable);
      if (how && std::string(how) == "int") throw 7;
      throw Pelin::Exception("its table is missing");
   }
};

} // namespace

VELT_NHR_PLUGIN(HalfSetUpPlugin)
