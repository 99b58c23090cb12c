// The short way for an agent to resolve one next hop in a VRF, with or without its
// packet: NexthopResolverHelper builds the packet and routing contexts and runs the
// root's driver. RoutingNexthopResolverHelperHolder is the process's place to find the
// helper.
#pragma once
#include "Kor/Entity.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Packet/PacketParserRoot.h"
#include "Packet/Pkt.h"
#include "Pelin/Ptr.h"
#include "VeltLib/NexthopResolverRoot.h"
#include "VeltLib/RoutingNexthop.h"

#include <cstdint>

namespace Velt {

class NexthopResolverHelper : public Kor::Notifier {
 public:
   enum Attr : Kor::AttrId { kResolverRoot, kParserRoot };

   explicit NexthopResolverHelper(const Pelin::Ptr<NexthopResolverRoot>& resolverRoot);
   ~NexthopResolverHelper() override;

   const Pelin::Ptr<NexthopResolverRoot>& resolverRoot() const { return resolverRoot_; }
   // Needed by resolveWithPkt() only.
   const Pelin::Ptr<PacketParserRoot>& parserRoot() const { return parserRoot_; }
   void parserRootIs(const Pelin::Ptr<PacketParserRoot>& parserRoot);

   // Resolves `nexthop` in place in `vrfName`, with no input interface and no packet. The
   // result is what the driver leaves in the next hop; nothing is thrown for a next hop
   // that cannot be resolved.
   void resolve(const Pelin::Ptr<RoutingNexthop>& nexthop, const L3::VrfName& vrfName);
   // The same with the packet, parsed and hashed by the parser root's parser and hasher.
   // Without a parser root the process stops: that is a programming error.
   void resolveWithPkt(const Pelin::Ptr<RoutingNexthop>& nexthop,
                       const L3::VrfName& vrfName, const Pelin::Ptr<Lumo::Pkt>& pkt);

   // The number the next packet context gets; each resolution takes one.
   static std::uint64_t nextPacketContextId();

   const Kor::TypeInfo* typeData() const override;

 private:
   void run(const Pelin::Ptr<PacketContext>& pktCtx,
            const Pelin::Ptr<RoutingNexthop>& nexthop, const L3::VrfName& vrfName);

   Pelin::Ptr<NexthopResolverRoot> resolverRoot_;
   Pelin::Ptr<PacketParserRoot> parserRoot_;
};

Pelin::Ptr<NexthopResolverHelper>
nexthopResolverHelperFactory(const Pelin::Ptr<NexthopResolverRoot>& resolverRoot);
Pelin::Ptr<NexthopResolverHelper>
NexthopResolverHelperIs(const Pelin::Ptr<NexthopResolverRoot>& resolverRoot);

// Holds the process's helper, so that code with no other path to the resolver finds it.
class RoutingNexthopResolverHelperHolder : public Kor::Entity {
 public:
   static constexpr const char* singletonName =
       "Velt::RoutingNexthopResolverHelperHolder";
   enum Attr : Kor::AttrId { kName, kHelper };

   explicit RoutingNexthopResolverHelperHolder(const Pelin::String& name);
   ~RoutingNexthopResolverHelperHolder() override;

   static Pelin::Ptr<RoutingNexthopResolverHelperHolder> singleton();

   const Pelin::Ptr<NexthopResolverHelper>& helper() const { return helper_; }
   // Publishes only when `helper` is not the one held; null lets the held one go.
   void helperIs(const Pelin::Ptr<NexthopResolverHelper>& helper);

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<NexthopResolverHelper> helper_;
};

Pelin::Ptr<RoutingNexthopResolverHelperHolder>
routingNexthopResolverHelperHolderFactory(const Pelin::String& name);
Pelin::Ptr<RoutingNexthopResolverHelperHolder>
RoutingNexthopResolverHelperHolderIs(const Pelin::String& name);

} // namespace Velt
