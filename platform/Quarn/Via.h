// One path of a FEC: output interface, weight for multipath selection, hop address, and
// optionally a FEC id or tunnel to continue through. The default via stands for no via.
// Trivially copyable and compact: resolution copies vias per packet.
#pragma once
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Quarn/FecId.h"

#include <span>

namespace Quarn::FibGen {

class Via {
 public:
   constexpr Via() = default;
   Via(Lumo::IntfId intfId, std::uint32_t weight, const Lumo::IpGenAddr& hop,
       Fib::FecId fecId = Fib::FecId(), std::uint32_t tunnelId = 0)
       : fecId_(fecId), intfId_(intfId), weight_(weight), tunnelId_(tunnelId), hop_(hop) {}

   Lumo::IntfId intfId() const { return intfId_; }
   std::uint32_t weight() const { return weight_; }
   const Lumo::IpGenAddr& hop() const { return hop_; }
   Fib::FecId fecId() const { return fecId_; }
   std::uint32_t tunnelId() const { return tunnelId_; }

   void intfIdIs(Lumo::IntfId v) { intfId_ = v; }
   void weightIs(std::uint32_t v) { weight_ = v; }
   void hopIs(const Lumo::IpGenAddr& v) { hop_ = v; }
   void fecIdIs(Fib::FecId v) { fecId_ = v; }
   void tunnelIdIs(std::uint32_t v) { tunnelId_ = v; }

   // Null, or what makes this via one that no writer makes (a damaged record): a FEC id
   // or FEC-id interface of an adjacency type out of range, an interface id of no type,
   // a hop of no family or with bytes past its family's width.
   const char* problem() const;

   static bool isEq(const Via& a, const Via& b) {
      return a.intfId_ == b.intfId_ && a.weight_ == b.weight_ && a.hop_ == b.hop_ &&
             a.fecId_ == b.fecId_ && a.tunnelId_ == b.tunnelId_;
   }
   friend bool operator==(const Via& a, const Via& b) { return isEq(a, b); }

 private:
   // Widest first: 40 bytes with no holes beyond the tail.
   Fib::FecId fecId_;
   Lumo::IntfId intfId_;
   std::uint32_t weight_ = 0;
   std::uint32_t tunnelId_ = 0;
   Lumo::IpGenAddr hop_;
};

// Whether any of `vias` has a problem(): a few instructions per via, without branches,
// for whole lists read per packet.
bool viasDamaged(std::span<const Via> vias);
// Null, or the first problem() of `vias` with its index in `at`.
const char* viasProblem(std::span<const Via> vias, std::size_t& at);

} // namespace Quarn::FibGen

// {intfId=Ethernet1, weight=1, hop=10.0.0.2, fecId=0, tunnelId=0}
template <>
struct Kor::ValueText<Quarn::FibGen::Via> {
   static std::string print(const Quarn::FibGen::Via& v);
   static Quarn::FibGen::Via parse(std::string_view s);
};

template <>
struct fmt::formatter<Quarn::FibGen::Via> : Lumo::ValueFormatter<Quarn::FibGen::Via> {};

template <>
struct std::hash<Quarn::FibGen::Via> {
   std::size_t operator()(const Quarn::FibGen::Via& v) const noexcept;
};
