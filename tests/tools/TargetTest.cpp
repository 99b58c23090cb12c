// What `velt resolve` accepts as a target: each form parsed to the right kind, and values a
// state file would refuse refused here too, with the text and the fault named.
#include "Target.h"

#include "Lumo/FecIdIntfId.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using Velt::Tool::parseTarget;
using Velt::Tool::Target;

std::string refusal(const std::string& text) {
   try {
      parseTarget(text);
   } catch (const std::invalid_argument& e) {
      return e.what();
   }
   return "accepted";
}

TEST(TargetTest, EachFormGivesItsKind) {
   EXPECT_EQ(parseTarget("10.1.2.3").kind, Target::Kind::dstIp);
   EXPECT_EQ(parseTarget("2001:db8::1").ip, Lumo::IpGenAddr("2001:db8::1"));
   const Target fec = parseTarget("0x1c00000000000005");
   EXPECT_EQ(fec.kind, Target::Kind::fecId);
   EXPECT_EQ(fec.fecId, Quarn::Fib::FecId(Quarn::Fib::AdjType(28), 5));
   const Target intf = parseTarget("Ethernet1@10.1.0.2");
   EXPECT_EQ(intf.kind, Target::Kind::interface);
   EXPECT_EQ(intf.intf, Lumo::IntfId("Ethernet1"));
   EXPECT_EQ(intf.ip, Lumo::IpGenAddr("10.1.0.2"));
   EXPECT_EQ(parseTarget("FecId28/3").kind, Target::Kind::interface);
}

TEST(TargetTest, ValuesAStateFileRefusesAreRefused) {
   EXPECT_EQ(refusal("0x1e00000000000005"),
             "target \"0x1e00000000000005\": adjacency type 30 is above 28");
   EXPECT_EQ(refusal("0xff00000000000001"),
             "target \"0xff00000000000001\": adjacency type 255 is above 28");
   EXPECT_EQ(refusal("0"), "target \"0\": 0 stands for no FEC");
   // A FEC-id interface reached through its raw number.
   EXPECT_EQ(refusal("0x13f00003@10.0.0.1"),
             "target \"0x13f00003@10.0.0.1\": interface 0x13f00003 stands for a FEC of "
             "adjacency type 30, which is above 28");
   EXPECT_EQ(refusal("Ethernet1@10.0.0.300"),
             "target \"Ethernet1@10.0.0.300\": neighbour '10.0.0.300' is not an IPv4 or IPv6 "
             "address");
   EXPECT_EQ(refusal("Ethernet1@"),
             "target \"Ethernet1@\": neighbour '' is not an IPv4 or IPv6 address");
   for (const char* none : {"", "Vlan0", "FecId29/1", "fibGenAdj:", "@10.0.0.1"}) {
      EXPECT_NE(refusal(none).find("is neither a destination IP"), std::string::npos) << none;
   }
}

} // namespace
