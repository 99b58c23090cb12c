#include "VeltLib/RoutingRewriteInfoTypes.h"

namespace Velt {

Pelin::Ptr<CounterActionInfo>
RewriteInfos::findCounterActionWithName(const Pelin::String& name) {
   for (const auto& action : finalCounterActionInfo_) {
      if (action->name() == name) return action;
   }
   return nullptr;
}

Pelin::Ptr<CounterActionInfo const>
RewriteInfos::findConstCounterActionWithName(const Pelin::String& name) const {
   for (const auto& action : finalCounterActionInfo_) {
      if (action->name() == name) return action;
   }
   return nullptr;
}

std::int32_t RewriteInfos::l2SizeChange() const {
   std::int32_t sum = 0;
   for (const auto& r : rewriteInfo_)
      sum += r->l2SizeChange();
   return sum;
}

std::int32_t RewriteInfos::l3SizeChange() const {
   std::int32_t sum = 0;
   for (const auto& r : rewriteInfo_)
      sum += r->l3SizeChange();
   return sum;
}

int RewriteInfos::newTtl(int inputTtl) const {
   int ttl = inputTtl;
   for (const auto& r : rewriteInfo_)
      ttl = r->newTtl(ttl);
   return ttl;
}

void RewriteInfos::copyFrom(const Pelin::Ptr<RewriteInfos>& other) {
   VELT_ASSERT(other);
   VELT_ASSERT(other.get() != this);
   for (const auto& r : other->rewriteInfo_)
      rewriteInfo_.enq(r);
   for (const auto& c : other->finalCounterActionInfo_)
      finalCounterActionInfo_.enq(c);
}

Pelin::Ptr<RewriteInfos> RewriteInfosIs() {
   return Pelin::make<RewriteInfos>();
}
Pelin::Ptr<RewriteInfos> rewriteInfosFactory() {
   return Pelin::make<RewriteInfos>();
}

} // namespace Velt

namespace Velt {

const Kor::TypeInfo* RewriteInfos::typeData() const {
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<RewriteInfos>("Velt::RewriteInfos")
           .collection("rewriteInfo", &RewriteInfos::rewriteInfo)
           .collection("finalCounterActionInfo", &RewriteInfos::finalCounterActionInfo)
           .value("l2SizeChange", &RewriteInfos::l2SizeChange)
           .value("l3SizeChange", &RewriteInfos::l3SizeChange)
           .build();
   return &info;
}

} // namespace Velt

// An unset optional flag prints as "none".
template <>
struct Kor::ValueText<std::optional<bool>> {
   static std::string print(const std::optional<bool>& v) {
      return v ? Kor::toText(*v) : "none";
   }
   static std::optional<bool> parse(std::string_view s) {
      if (s == "none") return std::nullopt;
      return Kor::fromText<bool>(s);
   }
};

namespace Velt {

std::int32_t VlanTagEncapRewriteInfo::l2SizeChange() const {
   // Unsigned arithmetic on purpose: the result wraps like the stored widths do.
   std::uint32_t pushed = vlanTagStack_.size();
   return static_cast<std::int32_t>(
       4u * (pushed - static_cast<std::uint32_t>(numTagsToPop())));
}

IpHdrEncapRewriteInfo::IpHdrEncapRewriteInfo(const Lumo::IpGenAddr& srcIp,
                                             const Lumo::IpGenAddr& dstIp,
                                             std::uint8_t protocol)
    : srcIp_(srcIp), dstIp_(dstIp), protocol_(protocol) {
   defaultInit();
}

void IpHdrEncapRewriteInfo::defaultInit() {
   VELT_ASSERT(srcIp().af() == dstIp().af() &&
               srcIp().af() != Lumo::AddressFamily::ipunknown_);
   encapAfIs(srcIp().af());
}

std::int32_t IpHdrEncapRewriteInfo::l3SizeChange() const {
   switch (encapAf()) {
   case Lumo::AddressFamily::ipv4_:
      return 20;
   case Lumo::AddressFamily::ipv6_:
      return 40;
   case Lumo::AddressFamily::ipunknown_:
      VELT_ASSERT(false && "Unknown Ip version");
   }
   return 0;
}

Pelin::Ptr<Ipv6DestinationIpRewriteInfo>
Ipv6DestinationIpRewriteInfo::createInfo(const Lumo::Ip6Addr& newDstIp) {
   return ipv6DestinationIpRewriteInfoFactory(newDstIp);
}

GreHdrEncapRewriteInfo::GreHdrEncapRewriteInfo(
    const Pelin::Ptr<const Lumo::GreHdr>& greHdr)
    : greHdr_(greHdr) {
   if (!greHdr_) throw Pelin::NullArgumentException("greHdr");
}

std::int32_t GreHdrEncapRewriteInfo::l3SizeChange() const {
   return (greHdr_->word0() & Lumo::GreHdr::keyBit) ? 8 : 4;
}

std::int32_t ipHdrSizeFromV4OrV6(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
                                 const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr) {
   if (ipHdr) {
      VELT_ASSERT(!ip6Hdr);
      return ipHdr->headerBytes();
   }
   if (ip6Hdr) return static_cast<std::int32_t>(Lumo::Ip6Hdr::size);
   VELT_ASSERT(false && "Need to specify a ip hdr");
   return 0;
}

Pelin::Ptr<GreDecapRewriteInfo>
GreDecapRewriteInfo::createInfo(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
                                const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr,
                                const Pelin::Ptr<const Lumo::GreHdr>& greHdr) {
   if (!greHdr) throw Pelin::NullArgumentException("greHdr");
   auto protocol = static_cast<std::uint16_t>(greHdr->word0() & 0xffff);
   return greDecapRewriteInfoFactory(protocol, greHdr->headerSize(),
                                     ipHdrSizeFromV4OrV6(ipHdr, ip6Hdr));
}

Pelin::Ptr<IpIpDecapRewriteInfo>
IpIpDecapRewriteInfo::createInfo(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
                                 const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr) {
   return ipIpDecapRewriteInfoFactory(ipHdrSizeFromV4OrV6(ipHdr, ip6Hdr));
}

Pelin::Ptr<UdpDecapRewriteInfo>
UdpDecapRewriteInfo::createInfo(std::uint16_t dstPort,
                                const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
                                const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr) {
   return udpDecapRewriteInfoFactory(dstPort, UdpHdrEncapRewriteInfo::udpHdrSize,
                                     ipHdrSizeFromV4OrV6(ipHdr, ip6Hdr));
}

Pelin::Ptr<SetDscpRewriteInfo> SetDscpRewriteInfo::createInfo(std::uint8_t dscp) {
   return setDscpRewriteInfoFactory(dscp);
}

// Generic attribute access of the records: every record starts with the base operations,
// then lists its own attributes in declared order.
namespace {

const Kor::TypeInfo& rewriteBaseType() {
   using R = RewriteInfo;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<R>("Velt::RewriteInfo")
           .value("name", &R::name)
           .value("l3SizeChange", &R::l3SizeChange)
           .value("l2SizeChange", &R::l2SizeChange)
           .value("applyVlanTagsBeforeRewrite", &R::applyVlanTagsBeforeRewrite)
           .build();
   return info;
}

// One table per record type, built on first use.
template <typename T, typename Fn>
const Kor::TypeInfo* recordType(const char* typeName, Fn addAttrs) {
   static const Kor::TypeInfo info = [&] {
      Kor::TypeBuilder<T> b(typeName);
      b.base(rewriteBaseType());
      addAttrs(b);
      return b.build();
   }();
   return &info;
}

template <typename T>
void noAttrs(Kor::TypeBuilder<T>&) {}

template <typename T>
void ethAttrs(Kor::TypeBuilder<T>& b) {
   b.value("srcMac", &T::srcMac, &T::srcMacIs)
       .value("dstMac", &T::dstMac, &T::dstMacIs)
       .value("newEthType", &T::newEthType, &T::newEthTypeIs)
       .value("skipIfTrap", &T::skipIfTrap, &T::skipIfTrapIs)
       .value("shouldApplyVlanTagsBeforeRewrite", &T::shouldApplyVlanTagsBeforeRewrite,
              &T::shouldApplyVlanTagsBeforeRewriteIs);
}

template <typename T>
void encapAttrs(Kor::TypeBuilder<T>& b) {
   b.value("skipL2Headers", &T::skipL2Headers, &T::skipL2HeadersIs)
       .value("displayName", &T::displayName, &T::displayNameIs)
       .value("displayName2", &T::displayName2, &T::displayName2Is);
}

} // namespace

const Kor::TypeInfo* EthHdrRewriteInfo::typeData() const {
   return recordType<EthHdrRewriteInfo>("Velt::EthHdrRewriteInfo",
                                        ethAttrs<EthHdrRewriteInfo>);
}

const Kor::TypeInfo* EthHdrEncapRewriteInfo::typeData() const {
   return recordType<EthHdrEncapRewriteInfo>("Velt::EthHdrEncapRewriteInfo",
                                             ethAttrs<EthHdrEncapRewriteInfo>);
}

const Kor::TypeInfo* StripDot1qTagRewriteInfo::typeData() const {
   return recordType<StripDot1qTagRewriteInfo>("Velt::StripDot1qTagRewriteInfo",
                                               noAttrs<StripDot1qTagRewriteInfo>);
}

const Kor::TypeInfo* VlanTagEncapRewriteInfo::typeData() const {
   using T = VlanTagEncapRewriteInfo;
   return recordType<T>("Velt::VlanTagEncapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.collection("vlanTagStack", &T::vlanTagStack)
          .value("numTagsToPop", &T::numTagsToPop, &T::numTagsToPopIs);
   });
}

const Kor::TypeInfo* IpHdrEncapRewriteInfo::typeData() const {
   using T = IpHdrEncapRewriteInfo;
   return recordType<T>("Velt::IpHdrEncapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.value("srcIp", &T::srcIp)
          .value("dstIp", &T::dstIp)
          .value("encapAf", &T::encapAf, &T::encapAfIs)
          .value("protocol", &T::protocol)
          .value("ttlOverride", &T::ttlOverride, &T::ttlOverrideIs)
          .value("ttlUniform", &T::ttlUniform, &T::ttlUniformIs)
          .value("tosUniform", &T::tosUniform, &T::tosUniformIs)
          .value("doNotFrag", &T::doNotFrag, &T::doNotFragIs)
          .value("protocolAuto", &T::protocolAuto, &T::protocolAutoIs)
          .value("optionProtoField", &T::optionProtoField, &T::optionProtoFieldIs);
      encapAttrs(b);
   });
}

const Kor::TypeInfo* UdpHdrEncapRewriteInfo::typeData() const {
   using T = UdpHdrEncapRewriteInfo;
   return recordType<T>("Velt::UdpHdrEncapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      encapAttrs(b);
      b.value("srcPort", &T::srcPort, &T::srcPortIs)
          .value("dstPort", &T::dstPort, &T::dstPortIs);
   });
}

const Kor::TypeInfo* Ipv4TtlRewriteInfo::typeData() const {
   return recordType<Ipv4TtlRewriteInfo>("Velt::Ipv4TtlRewriteInfo",
                                         noAttrs<Ipv4TtlRewriteInfo>);
}

const Kor::TypeInfo* Ipv6HopLimitRewriteInfo::typeData() const {
   return recordType<Ipv6HopLimitRewriteInfo>("Velt::Ipv6HopLimitRewriteInfo",
                                              noAttrs<Ipv6HopLimitRewriteInfo>);
}

const Kor::TypeInfo* Ipv6DestinationIpRewriteInfo::typeData() const {
   using T = Ipv6DestinationIpRewriteInfo;
   return recordType<T>("Velt::Ipv6DestinationIpRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.value("newDstIp", &T::newDstIp);
   });
}

const Kor::TypeInfo* GreHdrEncapRewriteInfo::typeData() const {
   using T = GreHdrEncapRewriteInfo;
   return recordType<T>("Velt::GreHdrEncapRewriteInfo",
                        [](Kor::TypeBuilder<T>& b) { b.node("greHdr", &T::greHdr); });
}

const Kor::TypeInfo* GreDecapRewriteInfo::typeData() const {
   using T = GreDecapRewriteInfo;
   return recordType<T>("Velt::GreDecapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.value("protocol", &T::protocol)
          .value("greHdrSize", &T::greHdrSize)
          .value("ipHdrSize", &T::ipHdrSize);
   });
}

const Kor::TypeInfo* IpIpDecapRewriteInfo::typeData() const {
   using T = IpIpDecapRewriteInfo;
   return recordType<T>("Velt::IpIpDecapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.value("ipHdrSize", &T::ipHdrSize);
   });
}

const Kor::TypeInfo* UdpDecapRewriteInfo::typeData() const {
   using T = UdpDecapRewriteInfo;
   return recordType<T>("Velt::UdpDecapRewriteInfo", [](Kor::TypeBuilder<T>& b) {
      b.value("dstPort", &T::dstPort)
          .value("udpHdrSize", &T::udpHdrSize)
          .value("ipHdrSize", &T::ipHdrSize);
   });
}

const Kor::TypeInfo* SetDscpRewriteInfo::typeData() const {
   using T = SetDscpRewriteInfo;
   return recordType<T>("Velt::SetDscpRewriteInfo",
                        [](Kor::TypeBuilder<T>& b) { b.value("dscp", &T::dscp); });
}

} // namespace Velt
