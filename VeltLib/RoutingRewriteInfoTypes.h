// Header rewrites and counter actions that a resolved next hop carries: the rewrite record
// base, the counter-action base, and RewriteInfos, the ordered list with its size and TTL
// queries.
#pragma once
#include "Kor/TypeInfo.h"
#include "Pelin/Ptr.h"
#include "Pelin/RQueue.h"

#include <cstdint>

namespace Velt {

// One header rewrite. Records are immutable and shared between lists by reference.
class RewriteInfo : public Pelin::Node {
 public:
   virtual Pelin::String name() const = 0;
   // Bytes added (positive) or removed (negative) at layer 3.
   virtual std::int32_t l3SizeChange() const = 0;
   // Bytes at layer 2; a record that does not say changes layer 2 as much as layer 3.
   virtual std::int32_t l2SizeChange() const { return l3SizeChange(); }
   virtual int newTtl(int inputTtl) const { return inputTtl; }
   virtual bool applyVlanTagsBeforeRewrite() const { return false; }
};

// A counter to bump when the packet is finally sent; subclasses name what they count.
class CounterActionInfo : public Pelin::Node {
 public:
   CounterActionInfo() = default;
   virtual Pelin::String name() const = 0;
};

class RewriteInfos : public Pelin::Node {
 public:
   RewriteInfos() = default;

   void rewriteInfoEnq(const Pelin::Ptr<RewriteInfo>& r) { rewriteInfo_.enq(r); }
   Pelin::Ptr<RewriteInfo> rewriteInfoDeq() { return rewriteInfo_.deq(); }
   Pelin::Ptr<RewriteInfo> rewriteInfoFront() const { return rewriteInfo_.front(); }
   Pelin::Ptr<RewriteInfo> rewriteInfoBack() const { return rewriteInfo_.back(); }
   void rewriteInfoDelAll() { rewriteInfo_.delAll(); }
   const Pelin::RQueue<RewriteInfo>& rewriteInfo() const { return rewriteInfo_; }

   void finalCounterActionInfoEnq(const Pelin::Ptr<CounterActionInfo>& c) {
      finalCounterActionInfo_.enq(c);
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoDeq() {
      return finalCounterActionInfo_.deq();
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoFront() const {
      return finalCounterActionInfo_.front();
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoBack() const {
      return finalCounterActionInfo_.back();
   }
   void finalCounterActionInfoDelAll() { finalCounterActionInfo_.delAll(); }
   const Pelin::RQueue<CounterActionInfo>& finalCounterActionInfo() const {
      return finalCounterActionInfo_;
   }

   // The first counter action, front to back, whose name() is exactly `name`.
   Pelin::Ptr<CounterActionInfo> findCounterActionWithName(const Pelin::String& name);
   Pelin::Ptr<CounterActionInfo const>
   findConstCounterActionWithName(const Pelin::String& name) const;

   std::int32_t l2SizeChange() const;
   std::int32_t l3SizeChange() const;
   // The TTL that leaves the last rewrite, folding each rewrite's newTtl front to back.
   int newTtl(int inputTtl) const;

   // Appends other's rewrites, then its counter actions, sharing the records.
   void copyFrom(const Pelin::Ptr<RewriteInfos>& other);

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::RQueue<RewriteInfo> rewriteInfo_;
   Pelin::RQueue<CounterActionInfo> finalCounterActionInfo_;
};

Pelin::Ptr<RewriteInfos> RewriteInfosIs();
Pelin::Ptr<RewriteInfos> rewriteInfosFactory();

} // namespace Velt
