// A FEC record of the forwarding table: its id, type, flags, backup via and two via lists
// held inline with fixed capacity. Construction, copy and comparison touch only the vias
// in use, so copying a FEC costs time in proportion to its vias, not to its capacity.
#pragma once
#include "Quarn/Via.h"
#include "Quarn/ViaIndex.h"

#include <optional>
#include <span>
#include <string_view>

namespace Quarn::FibGen {

// FEC types that have a built-in resolver; other values are valid.
namespace FecType {
inline constexpr std::uint8_t forward = 0;
inline constexpr std::uint8_t drop = 1;
inline constexpr std::uint8_t receive = 2;
inline constexpr std::uint8_t receiveBcast = 4;
inline constexpr std::uint8_t kernel = 6;

// The names of the constants above, for text that names a type ("receiveBcast").
struct Name {
   std::uint8_t type;
   std::string_view name;
};
std::span<const Name> names();
// Empty when `type` has no name.
std::string_view name(std::uint8_t type);
std::optional<std::uint8_t> fromName(std::string_view name);
} // namespace FecType

class Fec {
 public:
   static constexpr std::uint32_t maxVias = 600;
   static constexpr std::uint32_t maxSecondaryVias = 128;

   Fec() : Fec(Fib::FecId()) {}
   explicit Fec(Fib::FecId fecId) : fecId_(fecId) {}
   // Raise RangeException when the source's counts are out of bounds (a damaged record).
   Fec(const Fec& o) { copyFrom(o); }
   Fec& operator=(const Fec& o) {
      if (this != &o) copyFrom(o);
      return *this;
   }

   Fib::FecId fecId() const { return fecId_; }
   std::uint8_t fecType() const { return fecType_; }
   std::uint8_t flags() const { return flags_; }
   bool loopbackOnly() const { return loopbackOnly_; }
   // 0: no backup via.
   std::uint32_t backupViaIndex() const { return backupViaIndex_; }
   std::uint32_t viaCount() const { return viaCount_; }
   std::uint32_t secondaryViaCount() const { return secondaryViaCount_; }
   const Via& via(Fib::ViaIndex i) const;
   const Via& secondaryVia(std::uint32_t i) const;
   std::span<const Via> vias() const { return {&vias_[0].via, viaCount_}; }
   std::span<const Via> secondaryVias() const {
      return {&secondaryVias_[0].via, secondaryViaCount_};
   }

   void fecIdIs(Fib::FecId v) { fecId_ = v; }
   void fecTypeIs(std::uint8_t v) { fecType_ = v; }
   void flagsIs(std::uint8_t v) { flags_ = v; }
   void loopbackOnlyIs(bool v) { loopbackOnly_ = v; }
   void backupViaIndexIs(std::uint32_t v) { backupViaIndex_ = v; }
   // Append and grow raise RangeException beyond the capacity; grown slots hold the
   // default via.
   void viaAppend(const Via& v);
   void viaIs(Fib::ViaIndex i, const Via& v);
   void viaCountIs(std::uint32_t n);
   void secondaryViaAppend(const Via& v);
   void secondaryViaCountIs(std::uint32_t n);

   // For readers that copy vias in bulk: sets the count (bounds checked) and returns the
   // storage to fill, leaving its contents as they are.
   // Inline: table reads call them once per FEC.
   Via* viaStorageIs(std::uint32_t n) {
      if (n > maxVias) countAboveMax("viaCount", n, maxVias);
      viaCount_ = n;
      return &vias_[0].via;
   }
   Via* secondaryViaStorageIs(std::uint32_t n) {
      if (n > maxSecondaryVias) countAboveMax("secondaryViaCount", n, maxSecondaryVias);
      secondaryViaCount_ = n;
      return &secondaryVias_[0].via;
   }

   // Equal to Fec(Fib::FecId()), the empty FEC of id 0; decided on the header alone, as an
   // empty FEC has no vias to compare.
   bool isEmpty() const {
      return !fecId_.isValid() && backupViaIndex_ == 0 && fecType_ == FecType::forward &&
             flags_ == 0 && !loopbackOnly_ && viaCount_ == 0 && secondaryViaCount_ == 0;
   }

   static bool isEq(const Fec& a, const Fec& b);
   friend bool operator==(const Fec& a, const Fec& b) { return isEq(a, b); }

 private:
   // A slot whose constructor leaves the via uninitialised: unused capacity is never
   // written on construction.
   union Slot {
      Slot() {}
      Via via;
   };
   void copyFrom(const Fec& o);
   // Raises the RangeException of a count above its bound.
   [[noreturn]] static void countAboveMax(const char* name, std::uint32_t count,
                                          std::uint32_t max);

   Fib::FecId fecId_;
   std::uint32_t backupViaIndex_ = 0;
   std::uint8_t fecType_ = FecType::forward;
   std::uint8_t flags_ = 0;
   bool loopbackOnly_ = false;
   std::uint32_t viaCount_ = 0;
   std::uint32_t secondaryViaCount_ = 0;
   Slot vias_[maxVias];
   Slot secondaryVias_[maxSecondaryVias];
};

} // namespace Quarn::FibGen

// {fecId=fibGenAdj:5, fecType=0, flags=0, loopbackOnly=false, backupViaIndex=0,
//  vias={0={...}, 1={...}}, secondaryVias={}}
template <>
struct Kor::ValueText<Quarn::FibGen::Fec> {
   static std::string print(const Quarn::FibGen::Fec& f);
   static Quarn::FibGen::Fec parse(std::string_view s);
};

template <>
struct fmt::formatter<Quarn::FibGen::Fec> : Lumo::ValueFormatter<Quarn::FibGen::Fec> {};
