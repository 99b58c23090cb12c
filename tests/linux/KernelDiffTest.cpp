// velt resolving over a namespace it imported, against the kernel's own answers in that
// namespace: connected and gateway routes (IPv4, IPv6), own and broadcast addresses,
// blackhole, unreachable, prohibit, no route, gateways without a neighbour, and routes
// leaking between a VRF made of a table with rules and the main table. Each test builds a
// fresh pair of namespaces (the one asked, and one holding the far ends of its veths).
#include "KernelOracle.h"
#include "TestNamespaces.h"

#include <gtest/gtest.h>

namespace {

using namespace KernelDiff;

// Table 10 is VRF red: e3's connected and local routes live there, rules send e3's
// traffic and mark 10 there, and an unreachable default keeps lookups from falling
// through to main. Each side leaks one route into the other.
std::vector<std::string> topology() {
   return {
       "addr add 192.0.2.1/24 dev e1",
       "addr add 2001:db8:1::1/64 dev e1 nodad",
       "addr add 198.51.100.1/24 dev e2",
       "addr add 2001:db8:2::1/64 dev e2 nodad",
       "addr add 203.0.113.1/24 dev e3",
       "neigh add 192.0.2.2 lladdr 02:00:00:00:01:02 dev e1 nud permanent",
       "neigh add 192.0.2.3 lladdr 02:00:00:00:01:03 dev e1 nud stale",
       "neigh add 198.51.100.2 lladdr 02:00:00:00:02:02 dev e2 nud permanent",
       "neigh add 2001:db8:1::2 lladdr 02:00:00:00:01:06 dev e1 nud permanent",
       "neigh add 203.0.113.2 lladdr 02:00:00:00:03:02 dev e3 nud permanent",
       "route add 198.18.0.0/24 via 192.0.2.2",
       "route add 198.18.1.0/24 via 198.51.100.2",
       "route add 198.18.2.0/24 via 192.0.2.3",
       "route add 198.18.3.0/24 via 192.0.2.9",
       "route add blackhole 198.18.4.0/24",
       "route add unreachable 198.18.5.0/24",
       "route add prohibit 198.18.6.0/24",
       "route add 2001:db8:100::/48 via 2001:db8:1::2",
       "route add 2001:db8:101::/48 via 2001:db8:1::9",
       "route add blackhole 2001:db8:102::/48",
       "route add unreachable 2001:db8:103::/48",
       "route add prohibit 2001:db8:104::/48",
       "nexthop add id 1 via 198.51.100.2 dev e2",
       "route add 198.18.7.0/24 nhid 1",
       // VRF red.
       "route del 203.0.113.0/24 dev e3 table main",
       "route del local 203.0.113.1 dev e3 table local",
       "route del broadcast 203.0.113.255 dev e3 table local",
       "route add 203.0.113.0/24 dev e3 table 10",
       "route add local 203.0.113.1 dev e3 table 10",
       "route add broadcast 203.0.113.255 dev e3 table 10",
       "route add unreachable default metric 4278198272 table 10",
       "route add 198.18.10.0/24 via 203.0.113.2 dev e3 table 10",
       "route add 198.18.11.0/24 via 192.0.2.2 dev e1 onlink table 10",
       "route add 198.18.12.0/24 via 203.0.113.2 dev e3 onlink",
       "rule add pref 1000 iif e3 lookup 10",
       "rule add pref 1001 oif e3 lookup 10",
       "rule add pref 1002 fwmark 10 lookup 10",
       "rule add pref 2000 lookup local",
       "rule del pref 0",
   };
}

// VRF red in IPv6: the same layout, with rules of their own. The kernel adds an IPv6
// address's local route in the background, so it stays in table local too (where it
// answers only after the VRF's rules) rather than racing a delete.
std::vector<std::string> topology6() {
   return {
       "addr add 2001:db8:3::1/64 dev e3 nodad noprefixroute",
       "neigh add 2001:db8:3::2 lladdr 02:00:00:00:03:06 dev e3 nud permanent",
       "route add 2001:db8:3::/64 dev e3 table 10",
       "route add local 2001:db8:3::1 dev e3 table 10",
       "route add unreachable default metric 4278198272 table 10",
       "route add 2001:db8:110::/48 via 2001:db8:1::2 dev e1 onlink table 10",
       "route add 2001:db8:111::/48 via 2001:db8:3::2 dev e3 onlink",
       "rule add pref 1000 iif e3 lookup 10",
       "rule add pref 1001 oif e3 lookup 10",
       "rule add pref 1002 fwmark 10 lookup 10",
       "rule add pref 2000 lookup local",
       "rule del pref 0",
   };
}

class KernelDiffTest : public testing::Test {
 protected:
   void SetUp() override {
      if (!namespaceProblem().empty()) {
         GTEST_SKIP() << namespaceProblem() << " — skipping the kernel differential suite";
      }
      ns_ = namespaces_.add("d");
      namespaces_.addVeths(ns_, namespaces_.add("p"), 3);
      TestNamespaces::batch(ns_, topology());
      TestNamespaces::batch(ns_, topology6(), "-6");
   }

   // Asks the kernel and velt about each destination in VRF `vrf` (the kernel through
   // `mark`) and expects the same decision.
   void expectSameDecisions(const std::vector<std::string>& dsts, const std::string& vrf = "default",
                            unsigned mark = 0) {
      const auto neighbours = kernelNeighbours(ns_);
      const nlohmann::json velt = veltDecisions(ns_, {"red=10"}, vrf, dsts);
      ASSERT_EQ(velt.size(), dsts.size());
      for (std::size_t i = 0; i < dsts.size(); ++i) {
         const KernelAnswer kernel = kernelRouteGet(ns_, dsts[i], mark);
         const ExpectedDecision want = expectedFor(kernel, dsts[i], neighbours);
         const nlohmann::json& got = velt[i];
         SCOPED_TRACE(dsts[i] + " in " + vrf + ": kernel says " + kernel.text +
                      "velt says " + got.dump());
         EXPECT_EQ(got["decision"], want.decision);
         EXPECT_EQ(got.value("outputLinuxName", ""), want.outputLinuxName);
         if (!want.dstMac.empty()) {
            EXPECT_EQ(got["dstMac"], want.dstMac);
         }
         EXPECT_EQ(got["kernelHandlesPacket"], want.kernelHandlesPacket);
         const nlohmann::json& lookup = got["lookup"];
         EXPECT_EQ(lookup.is_null() ? "" : lookup.value("fecType", ""), want.lookupFecType);
      }
   }

   TestNamespaces namespaces_;
   std::string ns_;
};

TEST_F(KernelDiffTest, ConnectedAndGatewayRoutesForwardToTheKernelsNeighbour) {
   expectSameDecisions({"192.0.2.2", "192.0.2.3", "198.51.100.2", "198.18.0.1", "198.18.1.200",
                        "198.18.2.9", "198.18.7.7", "2001:db8:1::2", "2001:db8:100::1"});
}

TEST_F(KernelDiffTest, OwnAndBroadcastAddressesAreReceived) {
   expectSameDecisions({"192.0.2.1", "198.51.100.1", "2001:db8:1::1", "2001:db8:2::1",
                        "192.0.2.255", "127.0.0.1"});
}

TEST_F(KernelDiffTest, BlackholeDropsAndUnreachableProhibitAndNoRouteGoToTheKernel) {
   expectSameDecisions({"198.18.4.1", "198.18.5.1", "198.18.6.1", "198.19.0.1",
                        "2001:db8:102::1", "2001:db8:103::1", "2001:db8:104::1",
                        "2001:db8:ffff::1"});
}

TEST_F(KernelDiffTest, NextHopWithoutNeighbourIsTrappedForTheKernelToResolve) {
   expectSameDecisions({"198.18.3.1", "192.0.2.77", "2001:db8:101::1", "2001:db8:1::77"});
}

TEST_F(KernelDiffTest, RoutesLeakBetweenTheVrfTableAndMain) {
   expectSameDecisions({"203.0.113.2", "203.0.113.1", "198.18.10.1", "198.18.11.1",
                        "198.19.0.1"},
                       "red", 10);
   expectSameDecisions({"198.18.12.1", "203.0.113.2"});
}

TEST_F(KernelDiffTest, Ipv6RoutesLeakBetweenTheVrfTableAndMain) {
   expectSameDecisions({"2001:db8:3::2", "2001:db8:3::1", "2001:db8:110::1", "2001:db8:ffff::1"},
                       "red", 10);
   expectSameDecisions({"2001:db8:111::1", "2001:db8:3::2"});
}

TEST_F(KernelDiffTest, ImportWritesAStateFileThatResolvesAlike) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   const std::string file = std::string(dir ? dir : "/tmp") + "/" + ns_ + ".yaml";
   CommandResult imported = runCommand("ip netns exec " + ns_ + " " VELT_BIN
                                       " import --vrf-table red=10 -o " + file);
   ASSERT_EQ(imported.status, 0) << imported.output;
   const std::string targets = " 198.18.0.1 198.18.3.1 198.18.5.1 192.0.2.1";
   CommandResult fromFile =
       runCommand(VELT_BIN " --state " + file + " resolve --json" + targets);
   CommandResult fromKernel = runCommand("ip netns exec " + ns_ + " " VELT_BIN
                                         " --linux --vrf-table red=10 resolve --json" + targets);
   std::remove(file.c_str());
   ASSERT_EQ(fromFile.status, 0) << fromFile.output;
   EXPECT_EQ(nlohmann::json::parse(fromFile.output), nlohmann::json::parse(fromKernel.output));
}

} // namespace
