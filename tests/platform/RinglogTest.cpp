#include "Packet/PacketTrace.h"
#include "Ringlog/Ringlog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

struct TestAddr {
   std::uint32_t v;
};

} // namespace

template <>
struct fmt::formatter<TestAddr> : fmt::formatter<std::string_view> {
   auto format(const TestAddr& a, format_context& ctx) const {
      return fmt::format_to(ctx.out(), "{}.{}.{}.{}", a.v >> 24, (a.v >> 16) & 255,
                            (a.v >> 8) & 255, a.v & 255);
   }
};
template <>
struct Ringlog::Codec<TestAddr> : Ringlog::TrivialCodec<TestAddr, 0x7001> {};
VELT_RINGLOG_CODEC(TestAddr);

namespace {

enum class Color : std::uint8_t { red = 2 };

std::string tmpPath(const char* name) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + name;
}

class RinglogTest : public ::testing::Test {
 protected:
   void openRing(std::size_t bytes = 64 * 1024) {
      std::string error;
      ASSERT_TRUE(Ringlog::open(path_, bytes, &error)) << error;
   }
   Ringlog::Contents contents() {
      Ringlog::Contents c;
      std::string error;
      EXPECT_TRUE(Ringlog::read(path_, c, error)) << error;
      return c;
   }
   std::vector<std::string> texts() {
      std::vector<std::string> out;
      for (const auto& l : contents().lines) out.push_back(l.text);
      return out;
   }
   void TearDown() override { Ringlog::close(); }
   std::string path_ = tmpPath(
      (std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".ring")
         .c_str());
};

int evaluations = 0;
int touch() { return ++evaluations; }

TEST_F(RinglogTest, ClosedRingSkipsArgumentsAndRecordsNothing) {
   EXPECT_FALSE(Ringlog::isOpen());
   VELT_RINGLOG("Test", 1, "value {}", touch());
   EXPECT_EQ(evaluations, 0);
   openRing();
   EXPECT_TRUE(Ringlog::isOpen());
   VELT_RINGLOG("Test", 1, "value {}", touch());
   Ringlog::close();
   VELT_RINGLOG("Test", 1, "value {}", touch());
   EXPECT_EQ(evaluations, 1);
   EXPECT_EQ(texts(), std::vector<std::string>{"value 1"});
}

TEST_F(RinglogTest, EveryArgumentKindRoundTrips) {
   openRing();
   std::string s = "std-string";
   std::string_view sv = "a-view";
   const char* cs = "c-string";
   const char* none = nullptr;
   VELT_RINGLOG("Ints", 4, "{} {} {} {} {:x}", std::int8_t{-5}, std::int16_t{-300}, -70000,
                std::int64_t{-1} << 40, ~std::uint64_t{0});
   VELT_RINGLOG("Misc", 0, "{} {} {} {}", true, 2.5, Color::red, 'A');
   VELT_RINGLOG("Strings", 9, "[{}] [{}] [{}] [{}] [{}]", s, sv, cs, "literal", none);
   VELT_RINGLOG("Codec", 2, "via {} then {}", TestAddr{0x0a000001}, TestAddr{0xc0a80101});
   VELT_RINGLOG("NoArgs", 3, "plain");
   std::string longText(2000, 'x');
   VELT_RINGLOG("Long", 3, "{}", longText);

   auto c = contents();
   ASSERT_EQ(c.lines.size(), 6u);
   EXPECT_EQ(c.lines[0].text, "-5 -300 -70000 -1099511627776 ffffffffffffffff");
   EXPECT_EQ(c.lines[0].handle, "Ints");
   EXPECT_EQ(c.lines[0].level, 4);
   EXPECT_EQ(c.lines[1].text, "true 2.5 2 65");
   EXPECT_EQ(c.lines[2].text, "[std-string] [a-view] [c-string] [literal] []");
   EXPECT_EQ(c.lines[3].text, "via 10.0.0.1 then 192.168.1.1");
   EXPECT_EQ(c.lines[4].text, "plain");
   EXPECT_EQ(c.lines[5].text, std::string(Ringlog::kMaxStringBytes, 'x'));
   EXPECT_EQ(c.lines[5].seq, 5u);
   EXPECT_EQ(c.overwritten + c.damaged + c.unfinished, 0u);
}

TEST_F(RinglogTest, SitesUsedBeforeOpenAreWrittenIntoEachNewFile) {
   auto line = [](int i) { VELT_RINGLOG("Early", 1, "early {}", i); };
   openRing();
   line(1);
   Ringlog::close();
   openRing(); // a fresh file must carry the site table again
   line(2);
   VELT_RINGLOG("Late", 1, "late {}", 3);
   EXPECT_EQ(texts(), (std::vector<std::string>{"early 2", "late 3"}));
}

TEST_F(RinglogTest, PacketLinesTakeThePrefixedOrPlainForm) {
   Trace::Handle handle("Velt::RingPkt");
   PacketContextBase plain(41);
   PacketContextBase prefixed(42);
   prefixed.tracePrefixIs("vrf-red");
   openRing();
   for (const PacketContextBase* ctx : {&plain, &prefixed})
      VELT_PKT_TRACE(handle, 3, *ctx, "Step: {}", "intf");
   auto c = contents();
   ASSERT_EQ(c.lines.size(), 2u);
   EXPECT_EQ(c.lines[0].text, "Pkt41: Step: intf");
   EXPECT_EQ(c.lines[0].level, 3);
   EXPECT_EQ(c.lines[1].text, "vrf-red Pkt42: Step: intf");
   EXPECT_EQ(c.lines[1].level, 6);
   EXPECT_EQ(c.lines[1].handle, "RingPkt");
}

TEST_F(RinglogTest, WrapAroundKeepsTheNewestAndCountsTheLost) {
   openRing(64 * 1024);
   constexpr int kLines = 20000; // several laps of the ring, with mixed record sizes
   for (int i = 0; i < kLines; ++i) {
      if (i % 3) VELT_RINGLOG("Wrap", 1, "n {}", i);
      else VELT_RINGLOG("Wrap", 1, "n {} {}", i, std::string(i % 50, 'p'));
   }
   auto c = contents();
   ASSERT_FALSE(c.lines.empty());
   EXPECT_GT(c.overwritten, 0u);
   EXPECT_EQ(c.damaged + c.unfinished, 0u);
   EXPECT_EQ(c.overwritten + c.lines.size(), std::uint64_t{kLines});
   for (std::size_t i = 0; i < c.lines.size(); ++i) {
      ASSERT_EQ(c.lines[i].seq, c.overwritten + i);
      ASSERT_EQ(c.lines[i].text.substr(0, c.lines[i].text.find(' ', 2)),
                fmt::format("n {}", c.overwritten + i));
   }
   std::ostringstream out;
   ASSERT_TRUE(Ringlog::dump(path_, out));
   EXPECT_NE(out.str().find(fmt::format("-- {} older records lost to wrap-around --",
                                        c.overwritten)),
             std::string::npos);
   EXPECT_NE(out.str().find(fmt::format("{} Wrap/1 n {}", kLines - 1, kLines - 1)),
             std::string::npos);
}

// Damage made to a closed file, as a crash or a copy in progress would leave it.
class RinglogDamageTest : public RinglogTest {
 protected:
   void SetUp() override {
      openRing();
      for (int i = 0; i < 10; ++i) VELT_RINGLOG("Dmg", 1, "record {}", i);
      Ringlog::close();
      std::ifstream in(path_, std::ios::binary);
      bytes_.assign(std::istreambuf_iterator<char>(in), {});
   }
   void save(std::size_t size) {
      std::ofstream(path_, std::ios::binary | std::ios::trunc).write(bytes_.data(), size);
   }
   std::size_t ringAt() const { return Ringlog::layout::kHeaderBytes + Ringlog::layout::kSiteAreaBytes; }
   std::vector<char> bytes_;
};

TEST_F(RinglogDamageTest, TornRecordIsSkippedAndCounted) {
   bytes_[ringAt() + 3 * 24 + 12] ^= 0x55; // the stamp of record 3 (24 bytes each)
   save(bytes_.size());
   auto c = contents();
   EXPECT_EQ(c.lines.size(), 9u);
   EXPECT_EQ(c.damaged, 1u);
   EXPECT_EQ(c.lines[3].text, "record 4");
}

TEST_F(RinglogDamageTest, ReservedButUnwrittenRecordsAreUnfinished) {
   auto* h = reinterpret_cast<Ringlog::layout::FileHeader*>(bytes_.data());
   h->head.store(h->head.load() + 64);
   h->nextSeq.store(h->nextSeq.load() + 2);
   save(bytes_.size());
   auto c = contents();
   EXPECT_EQ(c.lines.size(), 10u);
   EXPECT_EQ(c.unfinished, 2u);
}

TEST_F(RinglogDamageTest, TruncatedOrGarbageFilesNeverCrash) {
   std::ostringstream out;
   std::string error;
   save(100);
   EXPECT_FALSE(Ringlog::dump(path_, out, &error));
   EXPECT_EQ(error, "file too short for a ring trace header");

   save(ringAt() + 5 * 24 + 7); // cut inside record 5
   auto c = contents();
   EXPECT_TRUE(c.truncated);
   EXPECT_EQ(c.lines.size(), 5u);

   save(Ringlog::layout::kHeaderBytes + 40); // cut inside the site table
   c = contents();
   ASSERT_EQ(c.lines.size(), 0u);

   std::srand(7);
   for (std::size_t i = Ringlog::layout::kHeaderBytes; i < bytes_.size(); ++i)
      bytes_[i] = static_cast<char>(std::rand());
   save(bytes_.size());
   EXPECT_TRUE(Ringlog::dump(path_, out, &error));

   bytes_[0] ^= 1;
   save(bytes_.size());
   EXPECT_FALSE(Ringlog::dump(path_, out, &error));
   EXPECT_EQ(error, "not a ring trace file (bad magic number)");
}

TEST(RinglogDeathTest, CodeTakenByAnotherTypeIsAProgrammingError) {
   struct Other {};
   EXPECT_DEATH(Ringlog::registerDecoder(0x7001, 4, typeid(Other).name(), nullptr),
                "Assertion failed: added \\|\\| it->second.first == typeName");
}

} // namespace
