#include "Kor/Entity.h"
#include "Kor/Enum.h"
#include "Kor/HashMap.h"
#include "Kor/Singleton.h"
#include "Kor/TypeInfo.h"
#include "Pelin/RQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace Test {
enum class Colour : std::uint8_t { red, green, blue };
}

template <>
struct Kor::EnumNames<Test::Colour> {
   static constexpr std::string_view typeName = "Test::Colour";
   static constexpr std::array<std::string_view, 3> names{"red", "green", "blue"};
};
KOR_ENUM_FORMATTER(Test::Colour);

namespace {

using Test::Colour;

TEST(KorEnum, RoundTripsByNumberNameAndText) {
   for (std::size_t i = 0; i < Kor::enumCount<Colour>(); ++i) {
      Colour c = Kor::enumInstance<Colour>(i);
      EXPECT_EQ(Kor::enumInstance<Colour>(Kor::enumName(c)), c);
      EXPECT_EQ(Kor::fromText<Colour>(Kor::toText(c)), c);
   }
   const char text[] = " blue ";
   EXPECT_EQ(Kor::enumParse<Colour>(text, text + 6), Colour::blue);
   EXPECT_EQ(fmt::format("{}", Colour::green), "green");
   EXPECT_THROW(Kor::enumInstance<Colour>(3), Pelin::RangeException);
}

TEST(KorEnum, UnknownNameNamesTheEnumAndTheText) {
   try {
      Kor::fromText<Colour>("purple");
      FAIL();
   } catch (const Pelin::DeserializationException& e) {
      EXPECT_EQ(e.attribute(), "Test::Colour");
      EXPECT_NE(std::string(e.what()).find("purple"), std::string::npos);
   }
}

struct Root : Kor::Entity {
   using Kor::Entity::Entity;
};

TEST(KorSingleton, OneObjectPerNameUntilReset) {
   auto a = Kor::singleton<Root>("Test::Root");
   EXPECT_EQ(a->name(), "Test::Root");
   EXPECT_EQ(Kor::singleton<Root>("Test::Root"), a);
   EXPECT_NE(Kor::singleton<Root>("Test::Other"), a);
   EXPECT_EQ(Kor::singletonDel("Test::Root"), a);
   EXPECT_NE(Kor::singleton<Root>("Test::Root"), a);
   Kor::singletonDel("Test::Root");
   Kor::singletonDel("Test::Other");
}

// A small type exposing each kind of attribute.
class Probe : public Kor::Entity {
 public:
   using Kor::Entity::Entity;
   const Kor::TypeInfo* typeData() const override {
      static const Kor::TypeInfo info = Kor::TypeBuilder<Probe>("Test::Probe")
                                            .value("colour", &Probe::colour, &Probe::colourIs)
                                            .value("count", &Probe::count)
                                            .node("peer", &Probe::peer)
                                            .collection("tag", &Probe::tags)
                                            .collection("item", &Probe::items)
                                            .action("reset", &Probe::reset)
                                            .build();
      return &info;
   }
   Colour colour() const { return colour_; }
   void colourIs(Colour c) { Kor::assign(*this, colour_, c, 0); }
   int count() const { return count_; }
   Pelin::Ptr<Probe> peer() const { return peer_; }
   const Kor::ValueMap<std::uint32_t, std::string>& tags() const { return tags_; }
   const Pelin::RQueue<Probe>& items() const { return items_; }
   void reset() { count_ = 0; }

   int count_ = 3;
   Colour colour_ = Colour::red;
   Pelin::Ptr<Probe> peer_;
   Kor::ValueMap<std::uint32_t, std::string> tags_;
   Pelin::RQueue<Probe> items_;
};

TEST(KorTypeInfo, DescribesAttributesInDeclaredOrder) {
   auto p = Pelin::make<Probe>("p");
   const auto& attrs = Kor::attributes(*p);
   ASSERT_EQ(attrs.size(), 6u);
   EXPECT_EQ(attrs[2].name, "peer");
   EXPECT_EQ(attrs[2].kind, Kor::AttrKind::node);
   EXPECT_EQ(p->typeData()->attr("item"), p->typeData()->attr(4));
   EXPECT_EQ(p->typeData()->attr("nope"), nullptr);
}

TEST(KorTypeInfo, GetsSetsAndRunsByName) {
   auto p = Pelin::make<Probe>("p");
   Kor::set(*p, "colour", "blue");
   EXPECT_EQ(p->colour(), Colour::blue);
   EXPECT_EQ(Kor::get(*p, "colour"), "blue");
   EXPECT_EQ(Kor::get(*p, "peer"), "null");
   p->peer_ = Pelin::make<Probe>("q");
   EXPECT_EQ(Kor::get(*p, "peer"), "Test::Probe");
   EXPECT_EQ(Kor::child(*p, "peer"), p->peer_);
   Kor::invoke(*p, "reset");
   EXPECT_EQ(Kor::get(*p, "count"), "0");
   EXPECT_THROW(Kor::set(*p, "count", "4"), Pelin::Exception);
   EXPECT_THROW(Kor::get(*p, "nope"), Pelin::Exception);
   EXPECT_THROW(Kor::set(*p, "colour", "purple"), Pelin::DeserializationException);
}

TEST(KorTypeInfo, IteratesKeyedAndQueuedCollections) {
   auto p = Pelin::make<Probe>("p");
   p->tags_.set(7, "seven");
   auto child = Pelin::make<Probe>("c");
   p->items_.enq(child);
   p->items_.enq(child);
   std::vector<std::string> seen;
   Kor::forEach(*p, "tag", [&](const Kor::CollectionEntry& e) { seen.push_back(e.key + "=" + e.value); });
   Kor::forEach(*p, "item", [&](const Kor::CollectionEntry& e) {
      seen.push_back(e.key + (e.node == child ? "=child" : "=?"));
   });
   EXPECT_EQ(seen, (std::vector<std::string>{"7=seven", "0=child", "1=child"}));
}

} // namespace
