// velt write cycling three states at 100 versions a second, killed with SIGKILL at random
// and restarted, while short-lived readers resolve through --shm and one long-lived
// reader replays a packet stream: no reader crashes, none decides from a mix of two
// versions, and the long-lived reader's memory stays flat. VELT_SOAK_SECONDS sets the
// length (scripts/soak.sh runs it for minutes).
#include "SoakProcesses.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace {

using namespace ShmSoak;
using nlohmann::json;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const std::string kLeaf = VELT_SOURCE_DIR "/examples/leaf.yaml";
const std::string kTargets = "10.100.0.5 2001:db8::5 10.0.1.1 203.0.113.99 10.0.255.21";
constexpr int kHashes = 4;

std::string readFile(const std::string& path) {
   std::ifstream in(path);
   return std::string(std::istreambuf_iterator<char>(in), {});
}

// The leaf with the spines' MACs moved: states that differ in records a reader reads.
std::string movedMacs(std::string text, const std::vector<std::pair<int, int>>& moves) {
   for (auto [spine, to] : moves) {
      const std::string from = fmt::format("mac: \"02:5b:00:00:00:0{}\"", spine);
      const auto at = text.find(from);
      if (at != std::string::npos)
         text.replace(at, from.size(), fmt::format("mac: \"02:5b:00:00:00:{}\"", to));
   }
   return text;
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool underAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool underAddressSanitizer = true;
#else
constexpr bool underAddressSanitizer = false;
#endif
#else
constexpr bool underAddressSanitizer = false;
#endif

double seconds() {
   const char* s = std::getenv("VELT_SOAK_SECONDS");
   return s && *s ? std::atof(s) : 12;
}

struct Figures {
   std::atomic<unsigned> readers{0}, decisions{0}, torn{0}, fallbacks{0}, crashes{0};
   std::atomic<unsigned> notYet{0}, refused{0};
   std::string sample; // the first unexpected outcome, for the failure message
   std::mutex sampleLock;
   void note(const std::string& what) {
      std::lock_guard lock(sampleLock);
      if (sample.empty()) sample = what;
   }
};

class ShmSoak : public testing::Test {
 protected:
   void SetUp() override {
      const char* base = std::getenv("VELT_TEST_TMP");
      dir_ = fs::path(base ? base : "/tmp") / fmt::format("soak-{}", ::getpid());
      fs::remove_all(dir_);
      fs::create_directories(dir_);
      const std::string leaf = readFile(kLeaf);
      states_ = {kLeaf, (dir_ / "s2.yaml").string(), (dir_ / "s3.yaml").string()};
      std::ofstream(states_[1]) << movedMacs(leaf, {{1, 91}, {2, 92}});
      std::ofstream(states_[2]) << movedMacs(leaf, {{1, 93}, {3, 94}, {4, 95}});
      for (const std::string& state : states_) {
         for (int h = 1; h <= kHashes; ++h) {
            const Outcome r = runVelt(
                {"--state", state, "resolve", "--json", "--hash", std::to_string(h)},
                kTargets, {}, dir_ / "expect.out");
            ASSERT_EQ(r.status, 0) << r.out;
            const json d = json::parse(r.out)["decisions"];
            for (std::size_t i = 0; i < d.size(); ++i) {
               valid_[{h, i}].insert(d[i].dump());
               if (d[i]["decision"] == "forwarded") {
                  pairs_.insert(d[i]["outputInterface"].get<std::string>() + " " +
                                d[i]["dstMac"].get<std::string>());
               }
            }
         }
      }
   }
   void TearDown() override { fs::remove_all(dir_); }

   std::vector<std::string> env() const {
      return {"VELT_SHM_DIR=" + (dir_ / "tables").string()};
   }

   // One short-lived reader: resolves every target with hash `h`.
   void readOnce(int h, const fs::path& out, Figures& f) {
      const Outcome r = runVelt({"resolve", "--json", "--shm", "--hash", std::to_string(h)},
                            kTargets, env(), out);
      ++f.readers;
      if (r.signal) {
         ++f.crashes;
         f.note(fmt::format("reader died of signal {}: {}", r.signal, r.out));
         return;
      }
      if (r.status != 0) {
         ++(r.out.find("no shared tables here") != std::string::npos ? f.notYet
                                                                     : f.refused);
         if (r.out.find("no shared tables here") == std::string::npos) f.note(r.out);
         return;
      }
      const json d = json::parse(r.out)["decisions"];
      for (std::size_t i = 0; i < d.size(); ++i) {
         ++f.decisions;
         if (valid_.at({h, i}).count(d[i].dump())) continue;
         const bool mixed = d[i]["decision"] == "forwarded" &&
                            !pairs_.count(d[i]["outputInterface"].get<std::string>() +
                                          " " + d[i]["dstMac"].get<std::string>());
         ++(mixed ? f.torn : f.fallbacks);
         f.note(d[i].dump());
      }
   }

   fs::path dir_;
   std::vector<std::string> states_;
   std::map<std::pair<int, std::size_t>, std::set<std::string>> valid_;
   std::set<std::string> pairs_; // output interface and MAC of any state
};

TEST_F(ShmSoak, KilledAndRestartedWriterNeverTearsNorCrashesReaders) {
   const auto until = Clock::now() + std::chrono::milliseconds(static_cast<long>(seconds() * 1000));
   Figures f;
   std::atomic<unsigned> kills{0};
   std::atomic<bool> writing{true};
   // The writer: killed after 0.15 to 1.5 s, then started again at once.
   std::thread writer([&] {
      std::mt19937 random(42);
      std::uniform_int_distribution<int> life(150, 1500);
      while (Clock::now() < until) {
         Child w = spawnVelt({"write", "--interval", "10", "--cycles", "0", states_[0],
                              states_[1], states_[2]},
                             env(), dir_ / "writer.out");
         std::this_thread::sleep_for(std::chrono::milliseconds(life(random)));
         w.kill();
         ++kills;
      }
      writing = false;
   });
   // Wait for the first set, so that readers have something to read.
   while (!fs::exists(dir_ / "tables" / "current") && Clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
   }
   // The long-lived reader: a packet stream replayed as it arrives.
   const fs::path fifo = dir_ / "packets.pcap";
   ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
   Child replay = spawnVelt({"replay", "--json", "--shm", fifo.string()}, env(),
                            dir_ / "replay.out");
   std::vector<long> rssKb;
   std::thread feeder(
       [&] { feedPackets(fifo, VELT_SOURCE_DIR "/examples/leaf.pcap", until); });
   std::thread sampler([&] {
      while (Clock::now() < until) {
         if (long kb = residentKb(replay.pid)) rssKb.push_back(kb);
         std::this_thread::sleep_for(std::chrono::milliseconds(250));
      }
   });
   std::vector<std::thread> readers;
   for (int t = 0; t < 2; ++t) {
      readers.emplace_back([&, t] {
         for (int h = 1 + t; Clock::now() < until; h = h % kHashes + 1) {
            readOnce(h, dir_ / fmt::format("reader{}.out", t), f);
         }
      });
   }
   for (auto& r : readers)
      r.join();
   sampler.join();
   feeder.join();
   writer.join();
   const Outcome replayed = replay.wait();

   ASSERT_EQ(replayed.signal, 0) << "the long-lived reader died: " << replayed.out;
   ASSERT_EQ(replayed.status, 0) << replayed.out;
   const json summary = json::parse(replayed.out.substr(replayed.out.find('{')));
   unsigned tornPackets = 0;
   // A spine's MAC that no state gives it is a mix of two versions.
   const std::set<std::string> spineMacs{"01", "02", "03", "04", "91", "92", "93", "94", "95"};
   for (const auto& [out, n] : summary.at("outputs").items()) {
      const auto at = out.find("02:5b:00:00:00:");
      if (at != std::string::npos && !spineMacs.count(out.substr(at + 15, 2))) {
         tornPackets += n.get<unsigned>();
      }
   }
   const long rssGrowth =
       rssKb.size() > 4 ? rssKb.back() - rssKb[rssKb.size() / 4] : 0;
   const std::string figures = fmt::format(
       "{:.0f} s: writer killed {} times; {} reader processes, {} decisions checked, {} "
       "torn, "
       "{} fell back on a reported corruption, {} crashed, {} before the first set, {} "
       "refused; long-lived reader: {} packets, {} torn, RSS {} kB at a quarter, {} kB "
       "at "
       "the end (max {} kB)",
       seconds(), kills.load(), f.readers.load(), f.decisions.load(), f.torn.load(),
       f.fallbacks.load(), f.crashes.load(), f.notYet.load(), f.refused.load(),
       summary.value("packets", 0u), tornPackets,
       rssKb.empty() ? 0 : rssKb[rssKb.size() / 4], rssKb.empty() ? 0 : rssKb.back(),
       rssKb.empty() ? 0 : *std::max_element(rssKb.begin(), rssKb.end()));
   std::cout << "soak: " << figures << "\n";
   RecordProperty("figures", figures);
   EXPECT_EQ(f.crashes, 0u) << f.sample;
   EXPECT_EQ(f.torn, 0u) << f.sample;
   EXPECT_EQ(tornPackets, 0u) << summary.at("outputs").dump();
   EXPECT_GT(kills, 3u);
   EXPECT_GT(summary.value("packets", 0u), 1000u);
   // AddressSanitizer's quarantine grows memory, and readers run ten times slower.
   if (!underAddressSanitizer) {
      EXPECT_GT(f.decisions, 100u);
      EXPECT_LT(rssGrowth, 2048) << "the long-lived reader grew";
   }
}

} // namespace
