// Test plugin with a mount profile: registers an IPv4 destination resolver named after
// itself and after whether its mounted state was there when the mounts completed.
#include "TestPlugins.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/NhrPluginLoader.h"

namespace {

class NamedResolver : public Velt::DstIpResolver {
 public:
   explicit NamedResolver(const Pelin::String& name)
       : Velt::DstIpResolver(name, Lumo::AddressFamily::ipv4_) {}
   void resolve(const Pelin::Ptr<Velt::RoutingContext>&,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>&,
                const Pelin::Ptr<Velt::RoutingNexthop>&) override {}
};

class MountingPlugin : public Velt::NhrPluginBase {
 public:
   explicit MountingPlugin(const Pelin::Ptr<Velt::NhrPluginContext>& context)
       : Velt::NhrPluginBase(Velt::NhrPluginLoader()->pluginName(), context) {}

   void mountsComplete(const Pelin::Ptr<Wexa::EntityManager>& em) override {
      mounted_ = em && em->entity(VeltTest::mountedStatePath);
   }
   void setupNhr() override {
      context()->resolvers()->dstIpResolverIs(
          Pelin::make<NamedResolver>(name() + (mounted_ ? ":mounted" : ":unmounted")));
   }

 private:
   bool mounted_ = false;
};

} // namespace

VELT_NHR_PLUGIN(MountingPlugin)
