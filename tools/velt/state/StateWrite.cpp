// Writing a state file in the layout FORMAT.md shows: one flow mapping per line for short
// elements, a block per FEC with vias. Fields at their default are left out, except the
// ones a reader wants to see (VRF flags, weights, interface status).
#include "Quarn/Fec.h"
#include "velt/state/State.h"

#include <fmt/format.h>

namespace VeltState {

namespace {

bool plainSafe(std::string_view s) {
   if (s.empty()) return false;
   // Words a YAML reader may take for null or a boolean.
   for (std::string_view word :
        {"null",  "Null", "NULL", "~",   "true", "True", "TRUE", "false", "False",
         "FALSE", "yes",  "Yes",  "YES", "no",   "No",   "NO",   "on",    "On",
         "ON",    "off",  "Off",  "OFF", "y",    "Y",    "n",    "N"}) {
      if (s == word) return false;
   }
   if (s.front() == '-' || s.front() == '.') return false;
   for (char c : s) {
      bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
      if (!ok) return false;
   }
   return true;
}

// A free-form name (VRF, table): plain when that reads back the same, else double-quoted.
std::string quoted(std::string_view s) {
   if (plainSafe(s)) return std::string(s);
   std::string out = "\"";
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         out += '\\';
         out += c;
      } else if (u < 0x20 || u == 0x7f) {
         out += fmt::format("\\x{:02x}", u);
      } else {
         out += c;
      }
   }
   return out + "\"";
}

const char* boolText(bool v) {
   return v ? "true" : "false";
}

std::string fecTypeText(std::uint8_t type) {
   std::string_view name = Quarn::FibGen::FecType::name(type);
   return name.empty() ? std::to_string(type) : std::string(name);
}

// Addresses with colons are quoted so that YAML 1.1 readers do not see numbers in them.
std::string addressText(const Lumo::IpGenAddr& a) {
   std::string s = Kor::toText(a);
   return a.af() == Lumo::AddressFamily::ipv6_ ? "\"" + s + "\"" : s;
}

std::string prefixText(const Lumo::IpGenPrefix& p) {
   std::string s = Kor::toText(p);
   return p.af() == Lumo::AddressFamily::ipv6_ ? "\"" + s + "\"" : s;
}

std::string viaText(const ViaEntry& v) {
   std::string out = "{";
   auto field = [&out](std::string_view key, const std::string& value) {
      if (out.size() > 1) out += ", ";
      out += fmt::format("{}: {}", key, value);
   };
   if (v.intf.isValid()) field("interface", Kor::toText(v.intf));
   if (v.hop.af() != Lumo::AddressFamily::ipunknown_) field("hop", addressText(v.hop));
   field("weight", std::to_string(v.weight));
   if (v.fecId.isValid()) field("fecId", Kor::toText(v.fecId));
   return out + "}";
}

void writeFec(std::string& out, const FecEntry& fec) {
   std::string head =
       fmt::format("id: {}, type: {}", Kor::toText(fec.id), fecTypeText(fec.type));
   if (fec.loopbackOnly) head += ", loopbackOnly: true";
   if (fec.backupVia != 0) head += fmt::format(", backupVia: {}", fec.backupVia);
   if (fec.vias.empty()) {
      out += fmt::format("      - {{{}}}\n", head);
      return;
   }
   out += fmt::format("      - id: {}\n", Kor::toText(fec.id));
   out += fmt::format("        type: {}\n", fecTypeText(fec.type));
   if (fec.loopbackOnly) out += "        loopbackOnly: true\n";
   if (fec.backupVia != 0) out += fmt::format("        backupVia: {}\n", fec.backupVia);
   out += "        vias:\n";
   for (const ViaEntry& v : fec.vias)
      out += fmt::format("          - {}\n", viaText(v));
}

} // namespace

std::string writeStateFile(const State& state) {
   std::string out = fmt::format("unifiedFec: {}\n", boolText(state.unifiedFec));
   if (!state.vrfs.empty()) {
      out += "vrfs:\n";
      for (const VrfEntry& v : state.vrfs) {
         out += fmt::format("  - {{name: {}, id: {}, globalUp: {}, localUp: {}}}\n",
                            quoted(v.name), v.id.value(), boolText(v.globalUp),
                            boolText(v.localUp));
      }
   }
   if (!state.interfaces.empty()) {
      out += "interfaces:\n";
      for (const IntfEntry& i : state.interfaces) {
         std::string linuxField =
             i.linuxName.empty() ? "" : fmt::format(", linuxName: {}", quoted(i.linuxName));
         out += fmt::format("  - {{name: {}, vrf: {}, operStatus: {}{}}}\n",
                            Kor::toText(i.intf), quoted(i.vrf),
                            i.operStatus == OperStatus::up ? "up" : "down", linuxField);
      }
   }
   if (!state.neighbours.empty()) {
      out += "neighbours:\n";
      for (const NeighbourEntry& n : state.neighbours) {
         out += fmt::format("  - {{vrf: {}, interface: {}, ip: {}, mac: \"{}\"}}\n",
                            quoted(n.vrf), Kor::toText(n.intf), addressText(n.ip),
                            Kor::toText(n.mac));
      }
   }
   if (!state.tables.empty()) {
      out += "tables:\n";
      for (const TableEntry& t : state.tables) {
         if (t.fecs.empty() && t.routes.empty()) {
            out += fmt::format("  {}: {{}}\n", quoted(t.name));
            continue;
         }
         out += fmt::format("  {}:\n", quoted(t.name));
         if (!t.fecs.empty()) {
            out += "    fecs:\n";
            for (const FecEntry& f : t.fecs)
               writeFec(out, f);
         }
         if (!t.routes.empty()) {
            out += "    routes:\n";
            for (const RouteEntry& r : t.routes) {
               out += fmt::format("      - {{prefix: {}, fec: {}}}\n",
                                  prefixText(r.prefix), Kor::toText(r.fec));
            }
         }
      }
   }
   return out;
}

} // namespace VeltState
