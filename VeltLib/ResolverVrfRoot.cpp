#include "VeltLib/ResolverVrfRoot.h"

#include "Pelin/Exception.h"

namespace Velt {

namespace {
enum RootsAttr : Kor::AttrId { kVrfRoot, kAleVrfIdToVrf };
}

ResolverVrfRoot::ResolverVrfRoot(
    const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
    const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus)
    : vrfName_(vrfName), vrfId_(vrfId), fwdStatus_(fwdStatus) {}

Quarn::FibGen::Fec ResolverVrfRoot::genFec(Quarn::Fib::FecId fecId) const {
   if (!fwdStatus_) return Quarn::FibGen::Fec(Quarn::Fib::FecId());
   try {
      return fwdStatus_->fec(fecId);
   } catch (const Pelin::CorruptionDetectedException& e) {
      fwdStatus_->doCorruptionDetected(e);
      return fwdStatus_->defaultFec();
   }
}

void ResolverVrfRoot::genFecInto(Quarn::Fib::FecId fecId, Quarn::FibGen::Fec& out) const {
   if (!fwdStatus_) {
      out = Quarn::FibGen::Fec(Quarn::Fib::FecId());
      return;
   }
   try {
      if (!fwdStatus_->fecInto(fecId, out)) out = fwdStatus_->defaultFec();
   } catch (const Pelin::CorruptionDetectedException& e) {
      fwdStatus_->doCorruptionDetected(e);
      out = fwdStatus_->defaultFec();
   } catch (...) {
      out = fwdStatus_->defaultFec();
      throw;
   }
}

const Kor::TypeInfo* ResolverVrfRoot::typeData() const {
   using R = ResolverVrfRoot;
   static const Kor::TypeInfo info = Kor::TypeBuilder<R>("Velt::ResolverVrfRoot")
                                         .value("vrfName", &R::vrfName)
                                         .value("vrfId", &R::vrfId)
                                         .node("fwdStatus", &R::fwdStatus)
                                         .build();
   return &info;
}

Pelin::Ptr<ResolverVrfRoot>
resolverVrfRootFactory(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                       const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus) {
   return Pelin::make<ResolverVrfRoot>(vrfName, vrfId, fwdStatus);
}

ResolverVrfRoots::~ResolverVrfRoots() {
   beingDestroyedIs();
   vrfRootDelAll();
   publisherDel();
   aleVrfIdToVrf_.clear();
   vrfRoot_.clear();
}

Pelin::Ptr<ResolverVrfRoot> ResolverVrfRoots::vrfRoot(const L3::VrfName& vrfName) const {
   const auto* found = vrfRoot_.find(vrfName);
   return found ? *found : nullptr;
}

Pelin::Ptr<ResolverVrfRoot>
ResolverVrfRoots::vrfRootIs(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                            const Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>& fwdStatus) {
   if (const auto* existing = vrfRoot_.find(vrfName)) {
      if ((*existing)->vrfId() != vrfId) throw Pelin::ReinstantiationException("vrfId");
      if ((*existing)->fwdStatus() != fwdStatus) {
         throw Pelin::ReinstantiationException("fwdStatus");
      }
      return *existing;
   }
   Pelin::Ptr<ResolverVrfRoot> root = resolverVrfRootFactory(vrfName, vrfId, fwdStatus);
   vrfRoot_.set(vrfName, root);
   notify(kVrfRoot, vrfName, Kor::Change::added);
   return root;
}

Pelin::Ptr<ResolverVrfRoot> ResolverVrfRoots::vrfRootDel(const L3::VrfName& vrfName) {
   bool found = false;
   Pelin::Ptr<ResolverVrfRoot> old = vrfRoot_.erase(vrfName, &found);
   if (found) notify(kVrfRoot, vrfName, Kor::Change::removed);
   return old;
}

void ResolverVrfRoots::vrfRootDelAll() {
   vrfRoot_.drain([this](const L3::VrfName& name, Pelin::Ptr<ResolverVrfRoot>&&) {
      notify(kVrfRoot, name, Kor::Change::removed);
   });
}

L3::VrfName ResolverVrfRoots::aleVrfIdToVrf(std::uint32_t aleVrfId) const {
   const auto* found = aleVrfIdToVrf_.find(aleVrfId);
   return found ? *found : L3::VrfName();
}

void ResolverVrfRoots::aleVrfIdToVrfIs(std::uint32_t aleVrfId, const L3::VrfName& vrfName) {
   Kor::Stored s = aleVrfIdToVrf_.set(aleVrfId, vrfName);
   if (s == Kor::Stored::added) notify(kAleVrfIdToVrf, aleVrfId, Kor::Change::added);
   if (s == Kor::Stored::replaced) notify(kAleVrfIdToVrf, aleVrfId, Kor::Change::changed);
}

void ResolverVrfRoots::aleVrfIdToVrfDel(std::uint32_t aleVrfId) {
   bool found = false;
   aleVrfIdToVrf_.erase(aleVrfId, &found);
   if (found) notify(kAleVrfIdToVrf, aleVrfId, Kor::Change::removed);
}

void ResolverVrfRoots::aleVrfIdToVrfDelAll() {
   aleVrfIdToVrf_.drain([this](std::uint32_t id, L3::VrfName&&) {
      notify(kAleVrfIdToVrf, id, Kor::Change::removed);
   });
}

const Kor::TypeInfo* ResolverVrfRoots::typeData() const {
   using R = ResolverVrfRoots;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<R>("Velt::ResolverVrfRoots")
           .collection("vrfRoot", static_cast<const RootMap& (R::*)() const>(&R::vrfRoot))
           .collection("aleVrfIdToVrf",
                       static_cast<const IdMap& (R::*)() const>(&R::aleVrfIdToVrf))
           .build();
   return &info;
}

Pelin::Ptr<ResolverVrfRoots> resolverVrfRootsFactory() { return Pelin::make<ResolverVrfRoots>(); }

} // namespace Velt
