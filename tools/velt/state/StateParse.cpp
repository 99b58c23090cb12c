// Reading a state file: yaml-cpp builds the node tree, then one pass turns it into a
// State, checking each value where it is written. References that may point forward (a
// route or via to a FEC listed later, or in another table) are checked once every table
// is read.
#include "L3/VrfName.h"
#include "Lumo/FecIdIntfId.h"
#include "Quarn/Fec.h"
#include "velt/state/State.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <tuple>

namespace VeltState {

namespace {

using Quarn::Fib::FecId;
using Vrf::VrfIdMap::VrfId;

// Ids 0 (default) up to one below the "no VRF" value.
constexpr std::uint64_t maxVrfId = VrfId::noneValue - 1;

Position positionOf(const YAML::Node& n) {
   const YAML::Mark m = n.Mark();
   return {m.line + 1, m.column + 1};
}

std::string where(Position p) {
   return fmt::format("{}:{}", p.line, p.column);
}

const char* kindOf(const YAML::Node& n) {
   switch (n.Type()) {
   case YAML::NodeType::Scalar:
      return "a scalar";
   case YAML::NodeType::Sequence:
      return "a sequence";
   case YAML::NodeType::Map:
      return "a mapping";
   default:
      return "nothing";
   }
}

std::string joined(std::initializer_list<std::string_view> names) {
   std::string out;
   for (std::string_view n : names) {
      if (!out.empty()) out += ", ";
      out += n;
   }
   return out;
}

std::string fecTypeNames() {
   std::string out;
   for (const auto& n : Quarn::FibGen::FecType::names()) {
      out += n.name;
      out += ", ";
   }
   return out + "or a number up to 255";
}

class Parser {
 public:
   explicit Parser(const std::string& fileName) : fileName_(fileName) {
      vrfs_.emplace(std::string(defaultVrfName), Position{});
      vrfIds_.emplace(0, std::string(defaultVrfName));
   }

   State parse(const YAML::Node& top);

   [[noreturn]] void fail(const YAML::Node& at, const std::string& problem) const {
      Position p = positionOf(at);
      throw StateError(fileName_, p.line, p.column, problem);
   }

 private:
   // The keys of one mapping, each allowed and written once.
   class Fields {
    public:
      Fields(const Parser& parser, const YAML::Node& map, std::string_view what,
             std::initializer_list<std::string_view> allowed)
          : parser_(parser), map_(map), what_(what) {
         if (map.IsNull()) return; // an empty entry: only its required keys are missing
         if (!map.IsMap()) {
            parser.fail(map, fmt::format("expected a mapping for {}, found {}", what,
                                         kindOf(map)));
         }
         for (const auto& kv : map) {
            std::string key = parser.scalar(kv.first, "a key");
            bool known = false;
            for (std::string_view a : allowed)
               known = known || a == key;
            if (!known) {
               parser.fail(kv.first, fmt::format("unknown key '{}' in {}; allowed: {}",
                                                 key, what, joined(allowed)));
            }
            for (const auto& [k, first] : keys_) {
               if (k == key) {
                  parser.fail(kv.first,
                              fmt::format("duplicate key '{}' in {} (first at {})", key,
                                          what, where(positionOf(first))));
               }
            }
            keys_.emplace_back(key, kv.first);
            values_.push_back(kv.second);
         }
      }

      std::optional<YAML::Node> operator[](std::string_view key) const {
         for (std::size_t i = 0; i < keys_.size(); ++i) {
            if (keys_[i].first == key) return values_[i];
         }
         return std::nullopt;
      }
      YAML::Node required(std::string_view key) const {
         auto v = (*this)[key];
         if (!v) parser_.fail(map_, fmt::format("missing key '{}' in {}", key, what_));
         return *v;
      }

    private:
      const Parser& parser_;
      YAML::Node map_;
      std::string_view what_;
      std::vector<std::pair<std::string, YAML::Node>> keys_;
      std::vector<YAML::Node> values_;
   };

   // ---- values ----

   std::string scalar(const YAML::Node& n, std::string_view what) const {
      if (!n.IsScalar()) {
         fail(n, fmt::format("expected a scalar for {}, found {}", what, kindOf(n)));
      }
      return n.Scalar();
   }

   // Null is an empty list, so that "vias:" with nothing after it reads naturally.
   YAML::Node sequence(const YAML::Node& n, std::string_view what) const {
      if (!n.IsNull() && !n.IsSequence()) {
         fail(n, fmt::format("expected a sequence for {}, found {}", what, kindOf(n)));
      }
      return n;
   }

   bool boolean(const YAML::Node& n, std::string_view what) const {
      std::string s = scalar(n, what);
      if (s == "true") return true;
      if (s == "false") return false;
      fail(n, fmt::format("bad {} '{}': expected true or false", what, s));
   }

   std::uint64_t number(const YAML::Node& n, std::string_view what,
                        std::uint64_t max) const {
      std::string s = scalar(n, what);
      try {
         return Kor::parseUnsigned(s, max, "number");
      } catch (const Pelin::DeserializationException&) {
         fail(n,
              fmt::format("bad {} '{}': expected a number from 0 to {}", what, s, max));
      }
   }

   Lumo::IntfId intfName(const YAML::Node& n, std::string_view what) const {
      std::string s = scalar(n, what);
      try {
         Lumo::IntfId id(s);
         if (id.isValid()) return id;
      } catch (const Pelin::DeserializationException&) {
      }
      fail(n, fmt::format("bad {} '{}': expected an interface name such as Ethernet1, "
                          "Vlan10, Port-Channel4, Loopback0, Tunnel1, Cpu or FecId18/5",
                          what, s));
   }

   // An interface that can hold an address and neighbours: not a FEC's stand-in.
   Lumo::IntfId l3IntfName(const YAML::Node& n, std::string_view what) const {
      Lumo::IntfId id = intfName(n, what);
      if (Lumo::FecIdIntfId::isFecIdIntfId(id)) {
         fail(n, fmt::format("{} stands for a FEC, it cannot be an L3 interface",
                             n.Scalar()));
      }
      return id;
   }

   Lumo::IpGenAddr address(const YAML::Node& n, std::string_view what) const {
      std::string s = scalar(n, what);
      try {
         Lumo::IpGenAddr a(s);
         if (a.af() != Lumo::AddressFamily::ipunknown_) return a;
      } catch (const Pelin::DeserializationException&) {
      }
      fail(n, fmt::format("bad {} '{}': expected an IPv4 or IPv6 address", what, s));
   }

   Lumo::IpGenPrefix prefix(const YAML::Node& n) const {
      std::string s = scalar(n, "prefix");
      try {
         Lumo::IpGenPrefix p(s);
         if (p.af() != Lumo::AddressFamily::ipunknown_) return p;
      } catch (const Pelin::DeserializationException&) {
      }
      // Tell host bits set apart from text that is no prefix at all.
      auto slash = s.find('/');
      if (slash != std::string::npos) {
         try {
            Lumo::IpGenAddr a(std::string_view(s).substr(0, slash));
            auto length = Kor::parseUnsigned(std::string_view(s).substr(slash + 1),
                                             a.byteLength() * 8, "length");
            if (a.af() != Lumo::AddressFamily::ipunknown_) {
               Lumo::IpGenPrefix masked(a, static_cast<std::uint8_t>(length));
               fail(n, fmt::format("bad prefix '{}': host bits set (the network is {})",
                                   s, Kor::toText(masked)));
            }
         } catch (const Pelin::Exception&) {
         }
      }
      fail(n, fmt::format("bad prefix '{}': expected an address and a length, such as "
                          "10.0.0.0/8 or 2001:db8::/32",
                          s));
   }

   Lumo::EthAddr mac(const YAML::Node& n) const {
      std::string s = scalar(n, "mac");
      try {
         return Lumo::EthAddr(s);
      } catch (const Pelin::DeserializationException&) {
         fail(n, fmt::format("bad mac '{}': expected six hex bytes such as "
                             "02:00:00:00:00:01",
                             s));
      }
   }

   FecId fecId(const YAML::Node& n, std::string_view what) const {
      std::string s = scalar(n, what);
      FecId id;
      try {
         id = Kor::fromText<FecId>(s);
      } catch (const Pelin::Exception&) {
         fail(n, fmt::format("bad {} '{}': expected <adjacency type>:<index> such as "
                             "fibGenAdj:5, or a number",
                             what, s));
      }
      if (!id.isValid())
         fail(n, fmt::format("bad {} '{}': 0 stands for no FEC", what, s));
      std::uint64_t adjType = id.value() >> Quarn::Fib::adjTypePos();
      if (adjType >= Quarn::Fib::adjTypeMax()) {
         fail(n, fmt::format("bad {} '{}': adjacency type {} is above {}", what, s,
                             adjType, Quarn::Fib::adjTypeMax() - 1));
      }
      return id;
   }

   std::uint8_t fecType(const YAML::Node& n) const {
      std::string s = scalar(n, "FEC type");
      if (auto t = Quarn::FibGen::FecType::fromName(s)) return *t;
      try {
         return static_cast<std::uint8_t>(Kor::parseUnsigned(s, 255, "FEC type"));
      } catch (const Pelin::DeserializationException&) {
         fail(n, fmt::format("bad FEC type '{}': expected {}", s, fecTypeNames()));
      }
   }

   std::string vrfName(const YAML::Node& n) const {
      std::string s = scalar(n, "a VRF name");
      if (s.empty()) fail(n, "a VRF name cannot be empty");
      if (s.size() > L3::VrfName::maxLength()) {
         fail(n, fmt::format("VRF name '{}' is {} bytes long; at most {} allowed", s,
                             s.size(), L3::VrfName::maxLength()));
      }
      return s;
   }

   std::string declaredVrf(const YAML::Node& n) const {
      std::string s = scalar(n, "a VRF name");
      if (!vrfs_.contains(s)) fail(n, fmt::format("VRF '{}' is not declared", s));
      return s;
   }

   // ---- sections ----

   void parseVrfs(const YAML::Node& list);
   void parseInterfaces(const YAML::Node& list);
   void parseNeighbours(const YAML::Node& list);
   void parseTables(const YAML::Node& map);
   void parseTable(std::size_t t, const YAML::Node& body);
   FecEntry parseFec(std::size_t t, const YAML::Node& item,
                     std::map<FecId, Position>& seen);
   ViaEntry parseVia(std::size_t t, const YAML::Node& item);
   void checkViaFec(std::size_t t, const ViaEntry& via, const YAML::Node& at) const;

   std::string fileName_;
   State state_;
   std::map<std::string, Position> vrfs_;        // declared, and "default"
   std::map<std::uint32_t, std::string> vrfIds_; // id -> VRF name
   std::map<std::uint32_t, std::size_t> intfs_;  // interface -> index
   std::vector<std::set<FecId>> fecIds_;         // per table
   std::vector<std::function<void()>> deferred_; // run once all tables are read
};

State Parser::parse(const YAML::Node& top) {
   Fields f(*this, top, "the state",
            {"unifiedFec", "vrfs", "interfaces", "neighbours", "tables"});
   if (auto n = f["unifiedFec"]) state_.unifiedFec = boolean(*n, "unifiedFec");
   if (auto n = f["vrfs"]) parseVrfs(*n);
   if (auto n = f["interfaces"]) parseInterfaces(*n);
   if (auto n = f["neighbours"]) parseNeighbours(*n);
   if (auto n = f["tables"]) parseTables(*n);
   for (const auto& check : deferred_)
      check();
   return std::move(state_);
}

void Parser::parseVrfs(const YAML::Node& list) {
   bool defaultDeclared = false;
   for (const YAML::Node& item : sequence(list, "vrfs")) {
      Fields f(*this, item, "a VRF", {"name", "id", "globalUp", "localUp"});
      VrfEntry v;
      v.pos = positionOf(item);
      YAML::Node nameNode = f.required("name");
      v.name = vrfName(nameNode);
      YAML::Node idNode = f.required("id");
      v.id = VrfId(static_cast<std::uint32_t>(number(idNode, "VRF id", maxVrfId)));
      if (auto n = f["globalUp"]) v.globalUp = boolean(*n, "globalUp");
      if (auto n = f["localUp"]) v.localUp = boolean(*n, "localUp");

      if (v.name == defaultVrfName) {
         // The implicit default may be declared once, to give its state.
         if (defaultDeclared) {
            fail(nameNode, fmt::format("duplicate VRF 'default' (first at {})",
                                       where(vrfs_[v.name])));
         }
         if (v.id.value() != 0) fail(idNode, "the VRF 'default' has id 0");
         defaultDeclared = true;
         vrfs_[v.name] = v.pos;
      } else {
         if (auto it = vrfs_.find(v.name); it != vrfs_.end()) {
            fail(nameNode, fmt::format("duplicate VRF '{}' (first at {})", v.name,
                                       where(it->second)));
         }
         if (auto it = vrfIds_.find(v.id.value()); it != vrfIds_.end()) {
            fail(idNode, fmt::format("VRF id {} is already the id of VRF '{}'",
                                     v.id.value(), it->second));
         }
         vrfs_.emplace(v.name, v.pos);
         vrfIds_.emplace(v.id.value(), v.name);
      }
      state_.vrfs.push_back(std::move(v));
   }
}

void Parser::parseInterfaces(const YAML::Node& list) {
   for (const YAML::Node& item : sequence(list, "interfaces")) {
      Fields f(*this, item, "an interface", {"name", "vrf", "operStatus", "linuxName"});
      IntfEntry e;
      e.pos = positionOf(item);
      YAML::Node nameNode = f.required("name");
      e.intf = l3IntfName(nameNode, "interface name");
      if (auto n = f["vrf"]) e.vrf = declaredVrf(*n);
      if (auto n = f["operStatus"]) {
         std::string s = scalar(*n, "operStatus");
         if (s == "up")
            e.operStatus = OperStatus::up;
         else if (s == "down")
            e.operStatus = OperStatus::down;
         else
            fail(*n, fmt::format("bad operStatus '{}': expected up or down", s));
      }
      if (auto n = f["linuxName"]) {
         e.linuxName = scalar(*n, "linuxName");
         if (e.linuxName.empty()) fail(*n, "a linuxName cannot be empty");
      }
      if (auto it = intfs_.find(e.intf.value()); it != intfs_.end()) {
         fail(nameNode, fmt::format("duplicate interface {} (first at {})", e.intf,
                                    where(state_.interfaces[it->second].pos)));
      }
      intfs_.emplace(e.intf.value(), state_.interfaces.size());
      state_.interfaces.push_back(std::move(e));
   }
}

void Parser::parseNeighbours(const YAML::Node& list) {
   std::map<std::tuple<std::string, std::uint32_t, Lumo::IpGenAddr>, Position> seen;
   for (const YAML::Node& item : sequence(list, "neighbours")) {
      Fields f(*this, item, "a neighbour", {"vrf", "interface", "ip", "mac"});
      NeighbourEntry e;
      e.pos = positionOf(item);
      if (auto n = f["vrf"]) e.vrf = declaredVrf(*n);
      YAML::Node intfNode = f.required("interface");
      e.intf = l3IntfName(intfNode, "interface");
      e.ip = address(f.required("ip"), "ip");
      e.mac = mac(f.required("mac"));
      // Looked up by (interface, VRF id, address): on an interface of another VRF the
      // entry could never be found.
      if (auto it = intfs_.find(e.intf.value()); it != intfs_.end()) {
         const std::string& intfVrf = state_.interfaces[it->second].vrf;
         if (intfVrf != e.vrf) {
            fail(intfNode, fmt::format("interface {} is in VRF '{}', not in '{}'", e.intf,
                                       intfVrf, e.vrf));
         }
      }
      auto [it, fresh] = seen.emplace(std::tuple(e.vrf, e.intf.value(), e.ip), e.pos);
      if (!fresh) {
         fail(item, fmt::format("duplicate neighbour {} on {} in VRF '{}' (first at {})",
                                e.ip, e.intf, e.vrf, where(it->second)));
      }
      state_.neighbours.push_back(std::move(e));
   }
}

void Parser::parseTables(const YAML::Node& map) {
   if (map.IsNull()) return;
   if (!map.IsMap()) {
      fail(map, fmt::format("expected a mapping for tables, found {}", kindOf(map)));
   }
   for (const auto& kv : map) {
      std::string name = scalar(kv.first, "a table name");
      if (const TableEntry* first = state_.table(name)) {
         fail(kv.first,
              fmt::format("duplicate table '{}' (first at {})", name, where(first->pos)));
      }
      if (state_.unifiedFec) {
         if (name != unifiedTableName) {
            fail(kv.first, fmt::format("with unifiedFec: true the only table is '{}', "
                                       "not '{}'",
                                       unifiedTableName, name));
         }
      } else if (!vrfs_.contains(name)) {
         fail(kv.first, fmt::format("VRF '{}' is not declared{}", name,
                                    name == unifiedTableName
                                        ? " (a unified table needs unifiedFec: true)"
                                        : ""));
      }
      TableEntry t;
      t.name = name;
      t.pos = positionOf(kv.first);
      state_.tables.push_back(std::move(t));
      fecIds_.emplace_back();
      parseTable(state_.tables.size() - 1, kv.second);
   }
}

void Parser::parseTable(std::size_t t, const YAML::Node& body) {
   Fields f(*this, body, "a table", {"fecs", "routes"});
   if (auto list = f["fecs"]) {
      std::map<FecId, Position> seen;
      for (const YAML::Node& item : sequence(*list, "fecs")) {
         FecEntry fec = parseFec(t, item, seen);
         fecIds_[t].insert(fec.id);
         state_.tables[t].fecs.push_back(std::move(fec));
      }
   }
   if (auto list = f["routes"]) {
      std::map<Lumo::IpGenPrefix, Position> seen;
      for (const YAML::Node& item : sequence(*list, "routes")) {
         Fields r(*this, item, "a route", {"prefix", "fec"});
         RouteEntry route;
         route.pos = positionOf(item);
         YAML::Node prefixNode = r.required("prefix");
         route.prefix = prefix(prefixNode);
         YAML::Node fecNode = r.required("fec");
         route.fec = fecId(fecNode, "FEC id");
         if (auto it = seen.find(route.prefix); it != seen.end()) {
            fail(prefixNode,
                 fmt::format("duplicate route {} in table '{}' (first at {})",
                             route.prefix, state_.tables[t].name, where(it->second)));
         }
         seen.emplace(route.prefix, route.pos);
         deferred_.push_back([this, t, fecNode, id = route.fec] {
            if (!fecIds_[t].contains(id)) {
               fail(fecNode,
                    fmt::format("route to FEC {}, which table '{}' does not have", id,
                                state_.tables[t].name));
            }
         });
         state_.tables[t].routes.push_back(std::move(route));
      }
   }
}

FecEntry Parser::parseFec(std::size_t t, const YAML::Node& item,
                          std::map<FecId, Position>& seen) {
   Fields f(*this, item, "a FEC", {"id", "type", "loopbackOnly", "backupVia", "vias"});
   FecEntry fec;
   fec.pos = positionOf(item);
   YAML::Node idNode = f.required("id");
   fec.id = fecId(idNode, "FEC id");
   auto [first, fresh] = seen.emplace(fec.id, fec.pos);
   if (!fresh) {
      fail(idNode, fmt::format("duplicate FEC {} in table '{}' (first at {})", fec.id,
                               state_.tables[t].name, where(first->second)));
   }
   if (auto n = f["type"]) fec.type = fecType(*n);
   if (auto n = f["loopbackOnly"]) fec.loopbackOnly = boolean(*n, "loopbackOnly");
   if (auto list = f["vias"]) {
      const YAML::Node& vias = sequence(*list, "vias");
      if (vias.size() > Quarn::FibGen::Fec::maxVias) {
         fail(vias, fmt::format("FEC {} has {} vias; a FEC holds at most {}", fec.id,
                                vias.size(), Quarn::FibGen::Fec::maxVias));
      }
      for (const YAML::Node& v : vias)
         fec.vias.push_back(parseVia(t, v));
   }
   if (auto n = f["backupVia"]) {
      // The backup is one of the vias but never the first: index 0 means no backup.
      fec.backupVia = static_cast<std::uint32_t>(number(*n, "backupVia", UINT32_MAX));
      if (fec.backupVia == 0 || fec.backupVia >= fec.vias.size()) {
         fail(*n, fec.vias.size() < 2
                      ? fmt::format("backup via {} out of range: FEC {} has {} via{}, so "
                                    "none can be a backup",
                                    fec.backupVia, fec.id, fec.vias.size(),
                                    fec.vias.size() == 1 ? "" : "s")
                      : fmt::format("backup via {} out of range: FEC {} has {} vias, the "
                                    "backup is one of 1 to {}",
                                    fec.backupVia, fec.id, fec.vias.size(),
                                    fec.vias.size() - 1));
      }
   }
   return fec;
}

ViaEntry Parser::parseVia(std::size_t t, const YAML::Node& item) {
   Fields f(*this, item, "a via", {"interface", "hop", "weight", "fecId"});
   ViaEntry via;
   via.pos = positionOf(item);
   auto intfNode = f["interface"];
   auto fecNode = f["fecId"];
   if (intfNode) via.intf = intfName(*intfNode, "interface");
   if (auto n = f["hop"]) via.hop = address(*n, "hop");
   if (auto n = f["weight"])
      via.weight = static_cast<std::uint32_t>(number(*n, "weight", UINT32_MAX));
   if (fecNode) via.fecId = fecId(*fecNode, "fecId");
   if (!intfNode && !fecNode && via.hop.af() == Lumo::AddressFamily::ipunknown_) {
      fail(item, "a via needs at least one of interface, hop and fecId");
   }
   if (fecNode) {
      deferred_.push_back([this, t, via, at = *fecNode] { checkViaFec(t, via, at); });
   }
   if (Lumo::FecIdIntfId::isFecIdIntfId(via.intf)) {
      deferred_.push_back([this, t, intf = via.intf, at = *intfNode] {
         FecId id = Lumo::FecIdIntfId::intfIdToFecId(intf);
         if (!fecIds_[t].contains(id)) {
            fail(at,
                 fmt::format("via interface {} stands for FEC {}, which table '{}' does "
                             "not have",
                             intf, id, state_.tables[t].name));
         }
      });
   }
   return via;
}

// A via whose interface is in another VRF takes resolution into that VRF, so its FEC id
// is looked up in that VRF's table.
void Parser::checkViaFec(std::size_t t, const ViaEntry& via, const YAML::Node& at) const {
   std::size_t target = t;
   std::string jump;
   if (!state_.unifiedFec) {
      auto it = intfs_.find(via.intf.value());
      if (it != intfs_.end()) {
         const std::string& vrf = state_.interfaces[it->second].vrf;
         if (vrf != state_.tables[t].name) {
            const TableEntry* other = state_.table(vrf);
            if (!other) {
               fail(at,
                    fmt::format("via FEC {}: interface {} is in VRF '{}', which has no "
                                "table",
                                via.fecId, via.intf, vrf));
            }
            target = static_cast<std::size_t>(other - state_.tables.data());
            jump = fmt::format(" (interface {} is in VRF '{}')", via.intf, vrf);
         }
      }
   }
   if (!fecIds_[target].contains(via.fecId)) {
      fail(at, fmt::format("via FEC {} does not exist in table '{}'{}", via.fecId,
                           state_.tables[target].name, jump));
   }
}

} // namespace

State parseState(const std::string& text, const std::string& fileName) {
   std::vector<YAML::Node> docs;
   try {
      docs = YAML::LoadAll(text);
   } catch (const YAML::Exception& e) {
      throw StateError(fileName, e.mark.line + 1, e.mark.column + 1,
                       "YAML syntax error: " + e.msg);
   }
   Parser parser(fileName);
   if (docs.empty()) return State();
   if (docs.size() > 1) parser.fail(docs[1], "a state file holds one YAML document");
   return parser.parse(docs[0]);
}

State loadStateFile(const std::string& path) {
   auto unreadable = [&](int err) {
      return StateError(path, 0, 0,
                        fmt::format("cannot read the file: {}", std::strerror(err)));
   };
   std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                        &std::fclose);
   if (!file) throw unreadable(errno);
   std::string text;
   char buf[1 << 16];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof(buf), file.get())) > 0)
      text.append(buf, n);
   if (std::ferror(file.get())) throw unreadable(errno);
   return parseState(text, path);
}

} // namespace VeltState
