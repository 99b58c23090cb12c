// The built velt run as a user runs it: decisions on the example leaf switch, exit codes and
// messages for bad input, plugins found through the search path, replay splits.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
   int code;
   std::string out; // stdout and stderr
};

Outcome run(const std::string& args, const std::string& env = "") {
   std::string cmd = env + " " VELT_BIN " " + args + " 2>&1";
   FILE* p = popen(cmd.c_str(), "r");
   Outcome r{-1, {}};
   std::array<char, 4096> buf;
   while (std::size_t n = fread(buf.data(), 1, buf.size(), p)) r.out.append(buf.data(), n);
   int status = pclose(p);
   r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   return r;
}

json decisions(const std::string& args) {
   Outcome r = run("resolve --json " + args);
   EXPECT_EQ(r.code, 0) << r.out;
   return json::parse(r.out)["decisions"];
}

fs::path tmpDir(const std::string& name) {
   const char* base = std::getenv("VELT_TEST_TMP");
   fs::path dir = fs::path(base ? base : "/tmp") / name;
   fs::remove_all(dir);
   fs::create_directories(dir);
   return dir;
}

bool hasCount(const json& d, const std::string& text) {
   for (const auto& c : d["counts"]) {
      if (c["text"] == text) return true;
   }
   return false;
}

TEST(VeltToolTest, ExampleDecisionsInBothVrfs) {
   json t = decisions("--vrf tenant 192.0.2.10 2001:db8:10::10 198.51.100.200 203.0.113.70 "
                      "192.0.2.1 10.200.0.1 2001:db8:77::1");
   ASSERT_EQ(t.size(), 7u);
   EXPECT_EQ(t[0]["decision"], "forwarded");
   EXPECT_EQ(t[0]["outputInterface"], "Vlan10");
   EXPECT_EQ(t[0]["dstMac"], "02:00:0a:00:00:10");
   EXPECT_EQ(t[0]["route"], "192.0.2.0/25");
   EXPECT_EQ(t[1]["outputInterface"], "Vlan10");
   EXPECT_EQ(t[2]["decision"], "dropped"); // null route
   EXPECT_EQ(t[3]["decision"], "trapped"); // gateway without a neighbour
   EXPECT_TRUE(t[3]["kernelHandlesPacket"]);
   EXPECT_EQ(t[4]["decision"], "received");
   EXPECT_EQ(t[5]["decision"], "forwarded"); // leaked default route: jumps to VRF default
   EXPECT_EQ(t[5]["endVrf"], "default");
   // No route at all: the fallback traps it at once, without spinning to the pass limit.
   EXPECT_EQ(t[6]["decision"], "trapped");
   EXPECT_TRUE(hasCount(t[6], "No route, trying fallbacks for {}"));
   EXPECT_FALSE(hasCount(t[6], "Could not resolve after {} iterations"));

   json d = decisions("10.0.255.11 fibGenAdj:1 Vlan4094@10.0.1.1");
   EXPECT_EQ(d[0]["decision"], "received");
   EXPECT_EQ(d[1]["decision"], "forwarded");
   EXPECT_EQ(d[2]["outputInterface"], "Vlan4094");
   EXPECT_EQ(d[2]["dstMac"], "02:1e:00:00:00:02");
}

TEST(VeltToolTest, FlowPicksAmongWeightedVias) {
   Outcome mixed = run("resolve --flow 10.9.9.9,2001:db8:99::1,udp,1,53 2001:db8:99::1");
   EXPECT_EQ(mixed.code, 1);
   EXPECT_NE(mixed.out.find("different families"), std::string::npos) << mixed.out;
   std::set<std::string> outputs;
   for (int port = 1000; port < 1040; ++port) {
      json d = decisions("--flow fd00::9,2001:db8:99::1,udp," + std::to_string(port) +
                         ",53 2001:db8:99::1");
      outputs.insert(d[0]["outputInterface"].get<std::string>());
   }
   EXPECT_GE(outputs.size(), 3u);
}

TEST(VeltToolTest, BadInputGivesClearErrorsAndExitCodes) {
   EXPECT_EQ(run("--help").code, 0);
   EXPECT_EQ(run("resolve --help").code, 0);
   Outcome noCommand = run("");
   EXPECT_EQ(noCommand.code, 2);
   Outcome badOption = run("resolve --bogus 10.0.0.1");
   EXPECT_EQ(badOption.code, 2);
   EXPECT_NE(badOption.out.find("--bogus"), std::string::npos) << badOption.out;
   Outcome badTarget = run("resolve 10.0.0.300");
   EXPECT_EQ(badTarget.code, 1);
   EXPECT_NE(badTarget.out.find("\"10.0.0.300\""), std::string::npos) << badTarget.out;
   // A FEC id beyond the adjacency types is refused as a state file refuses it, not aborted.
   Outcome badFec = run("resolve 0x1e00000000000005");
   EXPECT_EQ(badFec.code, 1);
   EXPECT_NE(badFec.out.find("adjacency type 30 is above 28"), std::string::npos) << badFec.out;
   Outcome badVrf = run("resolve --vrf nosuch 10.0.0.1");
   EXPECT_EQ(badVrf.code, 1);
   EXPECT_NE(badVrf.out.find("nosuch"), std::string::npos) << badVrf.out;
   Outcome badFlow = run("resolve --flow 10.0.0.1,10.0.0.2,icmp,1,2 10.0.0.2");
   EXPECT_EQ(badFlow.code, 1);
   EXPECT_NE(badFlow.out.find("icmp"), std::string::npos) << badFlow.out;

   fs::path dir = tmpDir("velt-bad-state");
   std::ofstream(dir / "bad.yaml") << "vrfs:\n  - {name: red, id: 1, colour: blue}\n";
   Outcome badState = run("--state " + (dir / "bad.yaml").string() + " resolve 10.0.0.1");
   EXPECT_EQ(badState.code, 1);
   EXPECT_NE(badState.out.find("bad.yaml:2:"), std::string::npos) << badState.out;
   EXPECT_NE(badState.out.find("colour"), std::string::npos) << badState.out;
   EXPECT_EQ(run("replay /nonexistent.pcap").code, 2);
   std::ofstream(dir / "junk.pcap") << "not a capture";
   Outcome junk = run("replay " + (dir / "junk.pcap").string());
   EXPECT_EQ(junk.code, 1);
   EXPECT_NE(junk.out.find("junk.pcap"), std::string::npos) << junk.out;
}

TEST(VeltToolTest, PluginsComeFromTheSearchPath) {
   fs::path dir = tmpDir("velt-plugin-path");
   fs::create_directories(dir / "NhrPlugin");
   for (const char* lib : {"libbuiltins.so", "librouteLookup.so"}) {
      fs::copy_file(fs::path(VELT_PLUGIN_DIR) / lib, dir / "NhrPlugin" / lib);
   }
   Outcome ok = run("resolve 10.0.1.1", "VELT_PLUGIN_PATH=" + dir.string());
   EXPECT_EQ(ok.code, 0) << ok.out;
   EXPECT_NE(ok.out.find("forwarded via Vlan4094"), std::string::npos) << ok.out;
   Outcome missing = run("resolve 10.0.1.1", "VELT_PLUGIN_PATH=" + dir.string() +
                                             " VELT_NHR_PLUGINS=builtins,noSuchPlugin");
   EXPECT_EQ(missing.code, 1);
   EXPECT_NE(missing.out.find("noSuchPlugin"), std::string::npos) << missing.out;
   // Without the route lookup a destination has no resolver: the fallback step traps it.
   Outcome noLookup = run("resolve --json 10.0.1.1", "VELT_NHR_PLUGINS=builtins");
   EXPECT_EQ(noLookup.code, 0) << noLookup.out;
}

TEST(VeltToolTest, ReplaySplitFollowsTheWeights) {
   fs::path dir = tmpDir("velt-replay");
   std::string pcap = (dir / "flows.pcap").string();
   ASSERT_EQ(std::system((std::string(VELT_PCAPGEN) + " -o " + pcap +
                          " -d 2001:db8:99::/48 -n 20000 -f 20000 -s 5 > /dev/null")
                             .c_str()),
             0);
   Outcome r = run("replay --json --quiet " + pcap);
   ASSERT_EQ(r.code, 0) << r.out;
   json j = json::parse(r.out);
   EXPECT_EQ(j["packets"], 20000);
   EXPECT_EQ(j["decisions"]["forwarded"], 20000);
   // ::/0 over four uplinks weighted 4:4:2:2: each share within 2 points of its weight's.
   const json& vias = j["multipath"]["fibGenAdj:2"];
   ASSERT_EQ(vias.size(), 4u);
   const double want[] = {4.0 / 12, 4.0 / 12, 2.0 / 12, 2.0 / 12};
   for (int i = 0; i < 4; ++i) {
      double got = vias[i]["packets"].get<double>() / 20000;
      EXPECT_NEAR(got, want[i], 0.02) << vias[i]["via"];
   }
}

TEST(VeltToolTest, ExampleCaptureIsReproducedByItsScript) {
   fs::path dir = tmpDir("velt-example-pcap");
   std::string out = (dir / "leaf.pcap").string();
   std::string cmd = "bash " VELT_SOURCE_DIR "/examples/make-leaf-pcap.sh " VELT_PCAPGEN " " + out;
   ASSERT_EQ(std::system(cmd.c_str()), 0);
   auto bytes = [](const std::string& f) {
      std::ifstream in(f, std::ios::binary);
      return std::string(std::istreambuf_iterator<char>(in), {});
   };
   EXPECT_EQ(bytes(out), bytes(VELT_SOURCE_DIR "/examples/leaf.pcap"));
   Outcome r = run("replay --quiet " VELT_SOURCE_DIR "/examples/leaf.pcap");
   EXPECT_EQ(r.code, 0);
   EXPECT_NE(r.out.find("4000 IP packets"), std::string::npos) << r.out;
}

TEST(VeltToolTest, ShowAndBenchRun) {
   Outcome show = run("show --json");
   ASSERT_EQ(show.code, 0) << show.out;
   json s = json::parse(show.out);
   EXPECT_EQ(s["steps"].size(), 6u);
   EXPECT_EQ(s["steps"]["DstIpType"], 50000);
   EXPECT_TRUE(s["vrfRoots"]["vrfRoot"].contains("tenant"));
   Outcome bench = run("bench --json --routes 100 --iterations 200 --repetitions 1");
   ASSERT_EQ(bench.code, 0) << bench.out;
   json b = json::parse(bench.out.substr(bench.out.find('{')));
   EXPECT_EQ(b["scenarios"].size(), 6u);
   Outcome both = run("bench --json --tables both --only two-level --routes 100 "
                      "--iterations 200 --repetitions 2");
   ASSERT_EQ(both.code, 0) << both.out;
   json c = json::parse(both.out.substr(both.out.find('{')));
   ASSERT_EQ(c["scenarios"].size(), 1u);
   EXPECT_GT(c["scenarios"][0]["sharedOverInProcess"].get<double>(), 0.0);
   EXPECT_EQ(c["scenarios"][0]["shared"]["heapAllocsPerResolution"],
             c["scenarios"][0]["inProcess"]["heapAllocsPerResolution"]);
}

} // namespace

namespace {

// Runs velt with its shared-memory tables in `dir`.
Outcome runShm(const fs::path& dir, const std::string& args) {
   return run(args, "VELT_SHM_DIR=" + dir.string());
}

json shmDecisions(const fs::path& dir, const std::string& args) {
   Outcome r = runShm(dir, "resolve --json --shm " + args);
   EXPECT_EQ(r.code, 0) << r.out;
   return r.code == 0 ? json::parse(r.out)["decisions"] : json();
}

TEST(VeltToolTest, ReadersOfSharedTablesDecideAsInProcessAndFollowTheWriter) {
   const fs::path dir = tmpDir("velt-shm-" + std::to_string(::getpid()));
   const std::string leaf = std::string(VELT_SOURCE_DIR) + "/examples/leaf.yaml";
   // The same leaf with the first spine's neighbour moved to a new MAC.
   std::string text;
   {
      std::ifstream in(leaf);
      text.assign(std::istreambuf_iterator<char>(in), {});
   }
   const std::string oldMac = "ip: 10.0.0.1, mac: \"02:5b:00:00:00:01\"";
   ASSERT_NE(text.find(oldMac), std::string::npos);
   text.replace(text.find(oldMac), oldMac.size(), "ip: 10.0.0.1, mac: \"02:5b:00:00:00:99\"");
   std::ofstream(dir / "moved.yaml") << text;

   const fs::path tables = dir / "tables";
   Outcome made = runShm(tables, "write " + leaf);
   ASSERT_EQ(made.code, 0) << made.out;
   for (const std::string args : {"--hash 1 10.100.0.5 2001:db8::5 10.0.1.1",
                                  "--vrf tenant 192.0.2.10 203.0.113.2 198.51.100.7"}) {
      EXPECT_EQ(shmDecisions(tables, args), decisions(args)) << args;
   }
   Outcome replayed = runShm(tables, "replay --json --shm " VELT_SOURCE_DIR "/examples/leaf.pcap");
   ASSERT_EQ(replayed.code, 0) << replayed.out;
   EXPECT_EQ(json::parse(replayed.out)["decisions"],
             json::parse(run("replay --json " VELT_SOURCE_DIR "/examples/leaf.pcap").out)["decisions"]);

   Outcome changed = runShm(tables, "write --interval 0 --json " + leaf + " " +
                                        (dir / "moved.yaml").string());
   ASSERT_EQ(changed.code, 0) << changed.out;
   EXPECT_NE(changed.out.find(R"("neighbours":{"added":0,"changed":1,"removed":0})"),
             std::string::npos)
       << changed.out;
   std::set<std::string> macs;
   for (int hash = 1; hash <= 64; ++hash) {
      json d = shmDecisions(tables, "--hash " + std::to_string(hash) + " 10.100.0.5");
      if (!d.empty() && d[0]["outputInterface"] == "Ethernet49") macs.insert(d[0]["dstMac"]);
   }
   EXPECT_EQ(macs, std::set<std::string>{"02:5b:00:00:00:99"});
}

TEST(VeltToolTest, SharedTableProblemsAreNamed) {
   const fs::path dir = tmpDir("velt-shm-bad-" + std::to_string(::getpid()));
   Outcome none = runShm(dir, "resolve --shm 10.0.0.1");
   EXPECT_EQ(none.code, 1);
   EXPECT_NE(none.out.find("no shared tables here"), std::string::npos) << none.out;
   Outcome both = runShm(dir, "--state " VELT_SOURCE_DIR "/examples/leaf.yaml resolve --shm 10.0.0.1");
   EXPECT_EQ(both.code, 1);
   EXPECT_NE(both.out.find("--shm names the state on its own"), std::string::npos) << both.out;

   ASSERT_EQ(runShm(dir, "write " VELT_SOURCE_DIR "/examples/leaf.yaml").code, 0);
   const fs::path fecs =
       dir / fs::read_symlink(dir / "current") / "forwardingGen" / "default" / "rib.fecs";
   EXPECT_EQ(fs::status(fecs).permissions(), fs::perms::owner_read | fs::perms::owner_write);
   {
      std::fstream f(fecs, std::ios::in | std::ios::out | std::ios::binary);
      f.write("NOTOURS!", 8);
   }
   Outcome damaged = runShm(dir, "resolve --shm 10.0.0.1");
   EXPECT_EQ(damaged.code, 1);
   EXPECT_NE(damaged.out.find(fecs.string() + ": magic"), std::string::npos) << damaged.out;
}

} // namespace
