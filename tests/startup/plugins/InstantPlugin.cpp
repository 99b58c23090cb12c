// Test plugin without a mount profile: adds a step to the main pipeline once set up. Its
// name is the one it was listed under.
#include "TestPlugins.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/NhrPluginLoader.h"

namespace {

class InstantStep : public Velt::NhrPipelineStep {
 public:
   InstantStep() : Velt::NhrPipelineStep(VeltTest::instantStepName, 45000) {}
   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>&) override { return true; }
};

class InstantPlugin : public Velt::NhrPluginBase {
 public:
   explicit InstantPlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase(Velt::NhrPluginLoader()->pluginName(), context) {}
   void setupNhr() override {
      context()->resolverSteps()->stepIs(Pelin::make<InstantStep>());
   }
};

} // namespace

VELT_NHR_PLUGIN(InstantPlugin)
