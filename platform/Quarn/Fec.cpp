#include "Quarn/Fec.h"
#include "Quarn/ViaIndex.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace Quarn::FibGen {

namespace FecType {

namespace {
constexpr Name fecTypeNames[] = {{forward, "forward"},
                                 {drop, "drop"},
                                 {receive, "receive"},
                                 {receiveBcast, "receiveBcast"},
                                 {kernel, "kernel"}};
} // namespace

std::span<const Name> names() { return fecTypeNames; }

std::string_view name(std::uint8_t type) {
   for (const Name& n : fecTypeNames) {
      if (n.type == type) return n.name;
   }
   return {};
}

std::optional<std::uint8_t> fromName(std::string_view name) {
   for (const Name& n : fecTypeNames) {
      if (n.name == name) return n.type;
   }
   return std::nullopt;
}

} // namespace FecType

namespace {

[[noreturn]] void countError(const char* name, std::uint32_t count, std::uint32_t max) {
   throw Pelin::RangeException(
      fmt::format("Quarn::FibGen::Fec::{} {} > {} not allowed", name, count, max));
}

void checkCount(const char* name, std::uint32_t count, std::uint32_t max) {
   if (count > max) countError(name, count, max);
}

} // namespace

const Via& Fec::via(Fib::ViaIndex i) const {
   VELT_ASSERT(i.value() < viaCount_);
   return vias_[i.value()].via;
}

const Via& Fec::secondaryVia(std::uint32_t i) const {
   VELT_ASSERT(i < secondaryViaCount_);
   return secondaryVias_[i].via;
}

void Fec::viaAppend(const Via& v) {
   checkCount("viaCount", viaCount_ + 1, maxVias);
   vias_[viaCount_++].via = v;
}

void Fec::viaIs(Fib::ViaIndex i, const Via& v) {
   VELT_ASSERT(i.value() < viaCount_);
   vias_[i.value()].via = v;
}

void Fec::viaCountIs(std::uint32_t n) {
   checkCount("viaCount", n, maxVias);
   for (std::uint32_t i = viaCount_; i < n; ++i) vias_[i].via = Via();
   viaCount_ = n;
}

void Fec::secondaryViaAppend(const Via& v) {
   checkCount("secondaryViaCount", secondaryViaCount_ + 1, maxSecondaryVias);
   secondaryVias_[secondaryViaCount_++].via = v;
}

void Fec::secondaryViaCountIs(std::uint32_t n) {
   checkCount("secondaryViaCount", n, maxSecondaryVias);
   for (std::uint32_t i = secondaryViaCount_; i < n; ++i) secondaryVias_[i].via = Via();
   secondaryViaCount_ = n;
}

void Fec::countAboveMax(const char* name, std::uint32_t count, std::uint32_t max) {
   countError(name, count, max);
}

void Fec::copyFrom(const Fec& o) {
   checkCount("viaCount", o.viaCount_, maxVias);
   checkCount("secondaryViaCount", o.secondaryViaCount_, maxSecondaryVias);
   fecId_ = o.fecId_;
   backupViaIndex_ = o.backupViaIndex_;
   fecType_ = o.fecType_;
   flags_ = o.flags_;
   loopbackOnly_ = o.loopbackOnly_;
   viaCount_ = o.viaCount_;
   secondaryViaCount_ = o.secondaryViaCount_;
   // Vias are trivially copyable: one block copy of the used slots.
   std::memcpy(static_cast<void*>(vias_), o.vias_, viaCount_ * sizeof(Slot));
   std::memcpy(static_cast<void*>(secondaryVias_), o.secondaryVias_,
               secondaryViaCount_ * sizeof(Slot));
}

bool Fec::isEq(const Fec& a, const Fec& b) {
   if (&a == &b) return true;
   if (a.fecId_ != b.fecId_ || a.fecType_ != b.fecType_ || a.flags_ != b.flags_ ||
       a.loopbackOnly_ != b.loopbackOnly_ || a.backupViaIndex_ != b.backupViaIndex_ ||
       a.viaCount_ != b.viaCount_ || a.secondaryViaCount_ != b.secondaryViaCount_) {
      return false;
   }
   return std::ranges::equal(a.vias(), b.vias(), Via::isEq) &&
          std::ranges::equal(a.secondaryVias(), b.secondaryVias(), Via::isEq);
}

} // namespace Quarn::FibGen

using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

namespace {

std::string printVias(std::span<const Via> vias) {
   Kor::Fields f;
   for (std::size_t i = 0; i < vias.size(); ++i) {
      f.emplace_back(std::to_string(i), Kor::toText(vias[i]));
   }
   return Kor::printComposite(f);
}

// Entries must be numbered 0, 1, ... in order.
template <typename Append>
void parseVias(const std::string& text, Append append) {
   auto f = Kor::parseComposite(text, "Quarn::FibGen::Fec");
   for (std::size_t i = 0; i < f.size(); ++i) {
      if (f[i].first != std::to_string(i)) {
         throw Pelin::DeserializationException("Quarn::FibGen::Fec", text);
      }
      append(Kor::fromText<Via>(f[i].second));
   }
}

} // namespace

std::string Kor::ValueText<Fec>::print(const Fec& fec) {
   return printComposite({{"fecId", toText(fec.fecId())},
                          {"fecType", toText(fec.fecType())},
                          {"flags", toText(fec.flags())},
                          {"loopbackOnly", toText(fec.loopbackOnly())},
                          {"backupViaIndex", toText(fec.backupViaIndex())},
                          {"vias", printVias(fec.vias())},
                          {"secondaryVias", printVias(fec.secondaryVias())}});
}

Fec Kor::ValueText<Fec>::parse(std::string_view s) {
   try {
      auto f = parseComposite(s, "Quarn::FibGen::Fec");
      Fec fec(fromText<Quarn::Fib::FecId>(field(f, "fecId")));
      fec.fecTypeIs(fromText<std::uint8_t>(field(f, "fecType")));
      fec.flagsIs(fromText<std::uint8_t>(field(f, "flags")));
      fec.loopbackOnlyIs(fromText<bool>(field(f, "loopbackOnly")));
      fec.backupViaIndexIs(fromText<std::uint32_t>(field(f, "backupViaIndex")));
      parseVias(field(f, "vias"), [&](const Via& v) { fec.viaAppend(v); });
      parseVias(field(f, "secondaryVias"), [&](const Via& v) { fec.secondaryViaAppend(v); });
      return fec;
   } catch (const Pelin::DeserializationException&) {
      throw Pelin::DeserializationException("Quarn::FibGen::Fec", std::string(s));
   }
}
