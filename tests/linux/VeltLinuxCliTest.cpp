// The Linux options of velt as a user meets them: bad VRF tables, options that need each
// other, and an import that cannot be written, each a clear message and a non-zero exit.
#include "TestNamespaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using KernelDiff::runCommand;
using testing::HasSubstr;

TEST(VeltLinuxCliTest, BadLinuxOptionsAreNamedAndFail) {
   auto r = runCommand(VELT_BIN " --linux --vrf-table red resolve 192.0.2.1");
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.output, HasSubstr("VRF table \"red\": no '='"));
   r = runCommand(VELT_BIN " --vrf-table red=10 resolve 192.0.2.1");
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.output, HasSubstr("--vrf-table names tables of the kernel: it needs --linux"));
   r = runCommand(VELT_BIN " --linux --state " VELT_SOURCE_DIR "/examples/leaf.yaml show");
   EXPECT_EQ(r.status, 2);
   EXPECT_THAT(r.output, HasSubstr("excludes"));
   r = runCommand(VELT_BIN " import --vrf-table red=10:nosuch0");
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.output, HasSubstr("VRF table red=10: no interface nosuch0"));
   r = runCommand(VELT_BIN " import -o /nonexistent-dir/state.yaml");
   EXPECT_EQ(r.status, 1);
   EXPECT_THAT(r.output, HasSubstr("-o /nonexistent-dir/state.yaml: cannot write the file"));
}

TEST(VeltLinuxCliTest, ImportHelpStatesTheNameRule) {
   auto r = runCommand(VELT_BIN " import --help");
   EXPECT_EQ(r.status, 0);
   EXPECT_THAT(r.output, HasSubstr("ifindex N is Ethernet<N>"));
   EXPECT_THAT(r.output, HasSubstr("--vrf-table"));
}

} // namespace
