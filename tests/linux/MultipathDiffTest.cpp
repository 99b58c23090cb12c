// Weighted multipath, velt against the kernel. The two hash functions pick differently
// for one flow, so the test compares how a few thousand flows split: each side's share of
// every path must lie within 4 sigma of the path's weight share, and the two sides' shares
// within 4 sigma of each other (the sigma of a difference of two independent shares).
#include "KernelOracle.h"
#include "TestNamespaces.h"
#include "common/PcapWriter.h"
#include "pcapgen/FlowPackets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace {

using namespace KernelDiff;

constexpr unsigned kFlows = 3000;
constexpr double kSigmas = 4.0;

struct PathWeight {
   std::string dev;
   double weight;
};

class MultipathDiffTest : public testing::Test {
 protected:
   void SetUp() override {
      if (!namespaceProblem().empty()) {
         GTEST_SKIP() << namespaceProblem() << " — skipping the kernel differential suite";
      }
      ns_ = namespaces_.add("m");
      namespaces_.addVeths(ns_, namespaces_.add("q"), 3);
      TestNamespaces::batch(ns_, {
          "addr add 192.0.2.1/24 dev e1",
          "addr add 2001:db8:1::1/64 dev e1 nodad",
          "addr add 198.51.100.1/24 dev e2",
          "addr add 2001:db8:2::1/64 dev e2 nodad",
          "addr add 203.0.113.1/24 dev e3",
          "neigh add 192.0.2.2 lladdr 02:00:00:00:01:02 dev e1 nud permanent",
          "neigh add 198.51.100.2 lladdr 02:00:00:00:02:02 dev e2 nud permanent",
          "neigh add 203.0.113.2 lladdr 02:00:00:00:03:02 dev e3 nud permanent",
          "neigh add 2001:db8:1::2 lladdr 02:00:00:00:01:06 dev e1 nud permanent",
          "neigh add 2001:db8:2::2 lladdr 02:00:00:00:02:06 dev e2 nud permanent",
          "route add 198.18.20.0/24 nexthop via 192.0.2.2 dev e1 weight 1 nexthop via "
          "198.51.100.2 dev e2 weight 3",
          "nexthop add id 1 via 192.0.2.2 dev e1",
          "nexthop add id 2 via 198.51.100.2 dev e2",
          "nexthop add id 3 via 203.0.113.2 dev e3",
          "nexthop add id 10 group 1,1/2,2/3,1",
          "route add 198.18.21.0/24 nhid 10",
          "nexthop add id 11 group 1,3/3,1 type resilient buckets 128",
          "route add 198.18.22.0/24 nhid 11",
          "route add 2001:db8:200::/48 nexthop via 2001:db8:1::2 dev e1 weight 2 nexthop via "
          "2001:db8:2::2 dev e2 weight 1",
      });
      // Hash on the five-tuple with a fixed seed, so that the kernel's picks repeat.
      CommandResult r = runCommand("ip netns exec " + ns_ +
                                   " sysctl -qw net.ipv4.fib_multipath_hash_policy=1 "
                                   "net.ipv4.fib_multipath_hash_seed=2024 "
                                   "net.ipv6.fib_multipath_hash_policy=1");
      ASSERT_EQ(r.status, 0) << r.output;
   }

   // velt's split of the same flows, from replaying one packet per flow.
   std::map<std::string, unsigned> veltSplit(const std::vector<VeltTools::Flow>& flows) {
      const char* dir = std::getenv("VELT_TEST_TMP");
      const std::string pcap = std::string(dir ? dir : "/tmp") + "/" + ns_ + ".pcap";
      {
         VeltTools::PcapWriter writer(pcap);
         for (const auto& f : flows) writer.write(VeltTools::flowPacket(f), 0);
      }
      CommandResult r = runCommand("ip netns exec " + ns_ + " " VELT_BIN
                                   " --linux replay --quiet --json " + pcap);
      std::remove(pcap.c_str());
      if (r.status != 0) throw std::runtime_error("velt replay: " + r.output);
      replay_ = nlohmann::json::parse(r.output);
      // Outputs read "Ethernet2 (e1) 02:00:00:00:01:02": the Linux name is beside velt's.
      std::map<std::string, unsigned> split;
      for (const auto& [key, n] : replay_.at("outputs").items()) {
         const auto open = key.find('('), close = key.find(')');
         const std::string name = open < close && close != std::string::npos
                                      ? key.substr(open + 1, close - open - 1)
                                      : key;
         split[name] += n.get<unsigned>();
      }
      return split;
   }

   void expectSplitsMatch(const std::string& dst, const std::vector<PathWeight>& paths) {
      std::vector<VeltTools::Flow> flows;
      std::vector<std::string> kernelArgs;
      const Lumo::IpGenAddr dstIp(dst);
      const Lumo::IpGenAddr src(dstIp.af() == Lumo::AddressFamily::ipv4_ ? "192.0.2.100"
                                                                         : "2001:db8:1::100");
      for (unsigned i = 0; i < kFlows; ++i) {
         const auto sport = static_cast<std::uint16_t>(10000 + i);
         flows.push_back({src, dstIp, VeltTools::kProtoUdp, sport, 53});
         kernelArgs.push_back(dst + " ipproto udp sport " + std::to_string(sport) + " dport 53");
      }
      const auto kernel = kernelFlowSplit(ns_, kernelArgs);
      const auto velt = veltSplit(flows);
      double total = 0;
      for (const auto& p : paths) total += p.weight;
      for (const auto& p : paths) {
         const double share = p.weight / total;
         const double sigma = std::sqrt(share * (1 - share) / kFlows);
         const double k = kernel.count(p.dev) ? kernel.at(p.dev) / double(kFlows) : 0;
         const double v = velt.count(p.dev) ? velt.at(p.dev) / double(kFlows) : 0;
         std::printf("  %s via %s: weight share %.3f, kernel %.3f, velt %.3f (4 sigma %.3f)\n",
                     dst.c_str(), p.dev.c_str(), share, k, v, kSigmas * sigma);
         EXPECT_NEAR(k, share, kSigmas * sigma) << "kernel, " << dst << " via " << p.dev;
         EXPECT_NEAR(v, share, kSigmas * sigma) << "velt, " << dst << " via " << p.dev;
         EXPECT_NEAR(v, k, kSigmas * sigma * std::sqrt(2.0)) << dst << " via " << p.dev;
      }
      unsigned veltFlows = 0;
      for (const auto& [dev, n] : velt) veltFlows += n;
      EXPECT_EQ(veltFlows, kFlows) << "every flow is forwarded: " << replay_.dump();
   }

   TestNamespaces namespaces_;
   std::string ns_;
   nlohmann::json replay_; // velt's last replay summary, for failure messages
};

TEST_F(MultipathDiffTest, WeightedRouteSplitsFlowsLikeTheKernel) {
   expectSplitsMatch("198.18.20.7", {{"e1", 1}, {"e2", 3}});
}

TEST_F(MultipathDiffTest, NexthopGroupSplitsFlowsLikeTheKernel) {
   expectSplitsMatch("198.18.21.7", {{"e1", 1}, {"e2", 2}, {"e3", 1}});
}

// The kernel spreads a resilient group's buckets by weight; velt sees the same weights.
TEST_F(MultipathDiffTest, ResilientGroupSplitsFlowsLikeTheKernel) {
   expectSplitsMatch("198.18.22.7", {{"e1", 3}, {"e3", 1}});
}

TEST_F(MultipathDiffTest, Ipv6WeightedRouteSplitsFlowsLikeTheKernel) {
   expectSplitsMatch("2001:db8:200::7", {{"e1", 2}, {"e2", 1}});
}

} // namespace
