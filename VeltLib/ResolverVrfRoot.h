// Per-VRF handles on the forwarding tables: ResolverVrfRoot reads one FEC by id out of its
// VRF's table; ResolverVrfRoots holds the roots of every VRF that is up, by name, and the
// reverse map from numeric VRF id to name.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Pelin/Ptr.h"
#include "Quarn/Fec.h"
#include "Quarn/ForwardingStatus.h"
#include "Vrf/VrfId.h"

#include <cstdint>

namespace Velt {

class ResolverVrfRoot : public Kor::Notifier {
 public:
   ResolverVrfRoot(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                   const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus);

   const L3::VrfName& vrfName() const { return vrfName_; }
   Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
   const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus() const {
      return fwdStatus_;
   }

   // A private copy of the FEC of `fecId`: the table's empty FEC when the id is absent or
   // the table is found corrupt (reported to the table), the empty FEC of id 0 when the
   // VRF has no table.
   Quarn::FibGen::Fec genFec(Quarn::Fib::FecId fecId) const;
   // genFec() written into `out` instead of returned, which saves copying the vias once
   // more. On an error genFec() would raise, `out` is left empty before it is raised.
   void genFecInto(Quarn::Fib::FecId fecId, Quarn::FibGen::Fec& out) const;

   const Kor::TypeInfo* typeData() const override;

 private:
   L3::VrfName vrfName_;
   Vrf::VrfIdMap::VrfId vrfId_;
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus const> fwdStatus_;
};

Pelin::Ptr<ResolverVrfRoot>
resolverVrfRootFactory(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                       const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus);

class ResolverVrfRoots : public Kor::Notifier {
 public:
   using RootMap = Kor::HashMap<L3::VrfName, Pelin::Ptr<ResolverVrfRoot>,
                                Kor::PtrKey<&ResolverVrfRoot::vrfName>>;
   using IdMap = Kor::ValueMap<std::uint32_t, L3::VrfName>;

   ResolverVrfRoots() = default;
   ~ResolverVrfRoots() override;

   Pelin::Ptr<ResolverVrfRoot> vrfRoot(const L3::VrfName& vrfName) const;
   // Instantiating: returns the existing root when its id and table match, raises the
   // re-instantiation error naming `vrfId`, then `fwdStatus`, when they do not.
   Pelin::Ptr<ResolverVrfRoot>
   vrfRootIs(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
             const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus);
   Pelin::Ptr<ResolverVrfRoot> vrfRootDel(const L3::VrfName& vrfName);
   void vrfRootDelAll();
   const RootMap& vrfRoot() const { return vrfRoot_; }

   L3::VrfName aleVrfIdToVrf(std::uint32_t aleVrfId) const;
   void aleVrfIdToVrfIs(std::uint32_t aleVrfId, const L3::VrfName& vrfName);
   void aleVrfIdToVrfDel(std::uint32_t aleVrfId);
   void aleVrfIdToVrfDelAll();
   const IdMap& aleVrfIdToVrf() const { return aleVrfIdToVrf_; }

   const Kor::TypeInfo* typeData() const override;

 private:
   RootMap vrfRoot_;
   IdMap aleVrfIdToVrf_;
};

Pelin::Ptr<ResolverVrfRoots> resolverVrfRootsFactory();

} // namespace Velt
