// Reading a state file: the YAML events are read one at a time and each element (a VRF, a
// FEC with its vias, a route) is gathered, checked where it is written and turned into
// its entry; the file as a whole is never held as a tree. References that may point
// forward (a route or via to a FEC listed later, or in another table) are checked once
// every table is read, and so are those to a section written after the one that refers.
#include "L3/VrfName.h"
#include "Lumo/FecIdIntfId.h"
#include "Quarn/Fec.h"
#include "Wexa/Paths.h"
#include "velt/state/RouteIndex.h"
#include "velt/state/State.h"
#include "velt/state/StateValues.h"
#include "velt/state/YamlTree.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <tuple>
#include <unordered_set>

namespace VeltState {

namespace {

using Quarn::Fib::FecId;
using Vrf::VrfIdMap::VrfId;

// Ids 0 (default) up to one below the "no VRF" value.
constexpr std::uint64_t maxVrfId = VrfId::noneValue - 1;

std::string where(Position p) {
   return fmt::format("{}:{}", p.line, p.column);
}

// The kind of the node an event starts.
NodeKind kindOf(const YamlEvent& e) {
   switch (e.kind) {
   case EventKind::scalar:
      return e.null ? NodeKind::null : NodeKind::scalar;
   case EventKind::sequenceStart:
      return NodeKind::sequence;
   case EventKind::mappingStart:
      return NodeKind::mapping;
   default:
      return NodeKind::null;
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

// The keys of one mapping so far, each allowed and written once. Kept without allocating:
// a mapping holds at most the keys allowed in it.
class KeyCheck {
 public:
   static constexpr std::size_t maxKeys = 5;

   KeyCheck(std::string_view what, std::initializer_list<std::string_view> allowed)
       : what_(what), allowed_(allowed) {}

   // Raises StateError through `fail` for a key not allowed or already seen.
   template <class Fail>
   void add(std::string_view key, Position at, Fail&& fail) {
      const std::string_view* known = nullptr;
      for (const std::string_view& a : allowed_)
         if (a == key) known = &a;
      if (!known) {
         fail(at, fmt::format("unknown key '{}' in {}; allowed: {}", key, what_,
                              joined(allowed_)));
      }
      for (std::size_t i = 0; i < count_; ++i) {
         if (keys_[i] == key) {
            fail(at, fmt::format("duplicate key '{}' in {} (first at {})", key, what_,
                                 where(firsts_[i])));
         }
      }
      keys_[count_] = *known; // the allowed list's text outlives the mapping's
      firsts_[count_++] = at;
   }

 private:
   std::string_view what_;
   std::initializer_list<std::string_view> allowed_;
   std::array<std::string_view, maxKeys> keys_;
   std::array<Position, maxKeys> firsts_;
   std::size_t count_ = 0;
};

// A reference checked once every table is read.
struct LateRef {
   enum Kind : std::uint8_t { routeFec, viaFec, viaIntf } kind;
   std::uint32_t table;
   Position at;
   FecId fec;
   Lumo::IntfId intf;
};

class Parser : ValueReader {
 public:
   Parser(YamlEvents& events, const std::string& fileName)
       : ValueReader(fileName), events_(events) {
      vrfs_.emplace(std::string(defaultVrfName), Position{});
      vrfIds_.emplace(0, std::string(defaultVrfName));
   }

   State parse();

 private:
   // The keys of one gathered mapping, each allowed and written once.
   class Fields {
    public:
      Fields(const Parser& parser, const YamlNode& map, std::string_view what,
             std::initializer_list<std::string_view> allowed)
          : parser_(parser), map_(map), what_(what) {
         if (map.isNull()) return; // an empty entry: only its required keys are missing
         if (map.kind != NodeKind::mapping) {
            parser.fail(map, fmt::format("expected a mapping for {}, found {}", what,
                                         kindOf(map.kind)));
         }
         KeyCheck check(what, allowed);
         map.eachEntry([&](const YamlNode& key, const YamlNode& value) {
            check.add(parser.scalar(key, "a key"), key.pos,
                      [&](Position p, const std::string& s) { parser.fail(p, s); });
            entries_[count_++] = {&key, &value};
         });
      }

      const YamlNode* operator[](std::string_view key) const {
         for (std::size_t i = 0; i < count_; ++i) {
            if (entries_[i].first->value == key) return entries_[i].second;
         }
         return nullptr;
      }
      const YamlNode& required(std::string_view key) const {
         auto v = (*this)[key];
         if (!v) parser_.fail(map_, fmt::format("missing key '{}' in {}", key, what_));
         return *v;
      }

    private:
      const Parser& parser_;
      const YamlNode& map_;
      std::string_view what_;
      std::array<std::pair<const YamlNode*, const YamlNode*>, KeyCheck::maxKeys> entries_;
      std::size_t count_ = 0;
   };

   // ---- streamed collections ----

   // Reads a mapping key by key: f(key, keyPosition) reads each value.
   template <class F>
   void eachKey(std::string_view what, std::initializer_list<std::string_view> allowed,
                F&& f);
   // Reads a sequence item by item: f(item) gets each gathered item.
   template <class F>
   void eachItem(std::string_view what, F&& f);
   const YamlNode& gather() { return tree_.gather(events_); }

   // Runs `check` now when the sections it needs are read, else once the state is.
   template <class F>
   void whenRead(bool ready, F&& check) {
      if (ready)
         check();
      else
         lateChecks_.emplace_back(std::forward<F>(check));
   }
   // Checks `ref` now when its FEC is known already, else once every table is read.
   void refer(const LateRef& ref) {
      if (ref.kind == LateRef::viaFec || !fecIds_[ref.table].contains(ref.fec))
         lateRefs_.push_back(ref);
   }

   std::string declaredVrf(const YamlNode& n) {
      std::string s = scalar(n, "a VRF name");
      whenRead(read_.vrfs, [this, s, at = n.pos] {
         if (!vrfs_.contains(s)) fail(at, fmt::format("VRF '{}' is not declared", s));
      });
      return s;
   }

   // ---- sections ----

   void parseVrf(const YamlNode& item, bool& defaultDeclared);
   void parseInterface(const YamlNode& item);
   void parseNeighbour(
       const YamlNode& item,
       std::map<std::tuple<std::string, std::uint32_t, Lumo::IpGenAddr>, Position>& seen);
   void parseTables();
   void checkTableName(const std::string& name, Position at) const;
   void parseTable(std::size_t t);
   void parseRoute(std::size_t t, const YamlNode& item, RouteIndex& seen);
   FecEntry parseFec(std::size_t t, const YamlNode& item,
                     std::map<FecId, Position>& seen);
   ViaEntry parseVia(std::size_t t, const YamlNode& item);
   void checkRef(const LateRef& ref) const;
   void checkViaFec(const LateRef& ref) const;

   YamlEvents& events_;
   YamlTree tree_;
   State state_;
   struct {
      bool unifiedFec = false, vrfs = false, interfaces = false;
   } read_;                                        // the sections read so far
   std::map<std::string, Position> vrfs_;          // declared, and "default"
   std::map<std::uint32_t, std::string> vrfIds_;   // id -> VRF name
   std::map<std::uint32_t, std::size_t> intfs_;    // interface -> index
   std::vector<std::unordered_set<FecId>> fecIds_; // per table
   std::vector<std::function<void()>>
       lateChecks_; // sections written before what they need
   std::vector<LateRef> lateRefs_;
};

template <class F>
void Parser::eachKey(std::string_view what,
                     std::initializer_list<std::string_view> allowed, F&& f) {
   const YamlEvent& start = events_.peek();
   if (kindOf(start) == NodeKind::null) {
      events_.take();
      return;
   }
   if (start.kind != EventKind::mappingStart) {
      fail(start.pos, fmt::format("expected a mapping for {}, found {}", what,
                                  kindOf(kindOf(start))));
   }
   events_.take();
   KeyCheck check(what, allowed);
   while (events_.peek().kind != EventKind::mappingEnd) {
      const YamlNode& keyNode = gather();
      std::string key = scalar(keyNode, "a key");
      Position at = keyNode.pos;
      check.add(key, at, [this](Position p, const std::string& s) { fail(p, s); });
      f(key, at);
   }
   events_.take();
}

template <class F>
void Parser::eachItem(std::string_view what, F&& f) {
   const YamlEvent& start = events_.peek();
   if (kindOf(start) == NodeKind::null) {
      events_.take();
      return;
   }
   if (start.kind != EventKind::sequenceStart) {
      fail(start.pos, fmt::format("expected a sequence for {}, found {}", what,
                                  kindOf(kindOf(start))));
   }
   events_.take();
   while (events_.peek().kind != EventKind::sequenceEnd)
      f(gather());
   events_.take();
}

State Parser::parse() {
   if (events_.peek().kind == EventKind::streamEnd) return State();
   events_.take(); // the document's start
   eachKey(
       "the state", {"unifiedFec", "vrfs", "interfaces", "neighbours", "tables"},
       [&](const std::string& key, Position) {
          if (key == "unifiedFec") {
             state_.unifiedFec = boolean(gather(), "unifiedFec");
             read_.unifiedFec = true;
          } else if (key == "vrfs") {
             bool defaultDeclared = false;
             eachItem("vrfs",
                      [&](const YamlNode& item) { parseVrf(item, defaultDeclared); });
             read_.vrfs = true;
          } else if (key == "interfaces") {
             eachItem("interfaces", [&](const YamlNode& item) { parseInterface(item); });
             read_.interfaces = true;
          } else if (key == "neighbours") {
             std::map<std::tuple<std::string, std::uint32_t, Lumo::IpGenAddr>, Position>
                 seen;
             eachItem("neighbours",
                      [&](const YamlNode& item) { parseNeighbour(item, seen); });
          } else {
             parseTables();
          }
       });
   events_.take(); // the document's end
   if (events_.peek().kind == EventKind::documentStart) {
      events_.take();
      fail(events_.peek().pos, "a state file holds one YAML document");
   }
   for (const auto& check : lateChecks_)
      check();
   for (const LateRef& ref : lateRefs_)
      checkRef(ref);
   return std::move(state_);
}

void Parser::parseVrf(const YamlNode& item, bool& defaultDeclared) {
   Fields f(*this, item, "a VRF", {"name", "id", "globalUp", "localUp"});
   VrfEntry v;
   v.pos = item.pos;
   const YamlNode& nameNode = f.required("name");
   v.name = vrfName(nameNode);
   const YamlNode& idNode = f.required("id");
   v.id = VrfId(static_cast<std::uint32_t>(number(idNode, "VRF id", maxVrfId)));
   if (auto n = f["globalUp"]) v.globalUp = boolean(*n, "globalUp");
   if (auto n = f["localUp"]) v.localUp = boolean(*n, "localUp");

   if (v.name == defaultVrfName) {
      // The implicit default may be declared once, to give its state.
      if (defaultDeclared) {
         fail(nameNode,
              fmt::format("duplicate VRF 'default' (first at {})", where(vrfs_[v.name])));
      }
      if (v.id.value() != 0) fail(idNode, "the VRF 'default' has id 0");
      defaultDeclared = true;
      vrfs_[v.name] = v.pos;
   } else {
      if (auto it = vrfs_.find(v.name); it != vrfs_.end()) {
         fail(nameNode,
              fmt::format("duplicate VRF '{}' (first at {})", v.name, where(it->second)));
      }
      if (auto it = vrfIds_.find(v.id.value()); it != vrfIds_.end()) {
         fail(idNode, fmt::format("VRF id {} is already the id of VRF '{}'", v.id.value(),
                                  it->second));
      }
      vrfs_.emplace(v.name, v.pos);
      vrfIds_.emplace(v.id.value(), v.name);
   }
   state_.vrfs.push_back(std::move(v));
}

void Parser::parseInterface(const YamlNode& item) {
   Fields f(*this, item, "an interface", {"name", "vrf", "operStatus", "linuxName"});
   IntfEntry e;
   e.pos = item.pos;
   const YamlNode& nameNode = f.required("name");
   e.intf = l3IntfName(nameNode, "interface name");
   if (auto n = f["vrf"]) e.vrf = declaredVrf(*n);
   if (auto n = f["operStatus"]) {
      const std::string& s = scalar(*n, "operStatus");
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

void Parser::parseNeighbour(
    const YamlNode& item,
    std::map<std::tuple<std::string, std::uint32_t, Lumo::IpGenAddr>, Position>& seen) {
   Fields f(*this, item, "a neighbour", {"vrf", "interface", "ip", "mac"});
   NeighbourEntry e;
   e.pos = item.pos;
   if (auto n = f["vrf"]) e.vrf = declaredVrf(*n);
   const YamlNode& intfNode = f.required("interface");
   e.intf = l3IntfName(intfNode, "interface");
   e.ip = address(f.required("ip"), "ip");
   e.mac = mac(f.required("mac"));
   // Looked up by (interface, VRF id, address): on an interface of another VRF the
   // entry could never be found.
   whenRead(read_.interfaces, [this, intf = e.intf, vrf = e.vrf, at = intfNode.pos] {
      if (auto it = intfs_.find(intf.value()); it != intfs_.end()) {
         const std::string& intfVrf = state_.interfaces[it->second].vrf;
         if (intfVrf != vrf) {
            fail(at, fmt::format("interface {} is in VRF '{}', not in '{}'", intf,
                                 intfVrf, vrf));
         }
      }
   });
   auto [it, fresh] = seen.emplace(std::tuple(e.vrf, e.intf.value(), e.ip), e.pos);
   if (!fresh) {
      fail(item, fmt::format("duplicate neighbour {} on {} in VRF '{}' (first at {})",
                             e.ip, e.intf, e.vrf, where(it->second)));
   }
   state_.neighbours.push_back(std::move(e));
}

void Parser::parseTables() {
   const YamlEvent& start = events_.peek();
   if (kindOf(start) == NodeKind::null) {
      events_.take();
      return;
   }
   if (start.kind != EventKind::mappingStart) {
      fail(start.pos,
           fmt::format("expected a mapping for tables, found {}", kindOf(kindOf(start))));
   }
   events_.take();
   while (events_.peek().kind != EventKind::mappingEnd) {
      const YamlNode& keyNode = gather();
      std::string name = scalar(keyNode, "a table name");
      Position at = keyNode.pos;
      if (const TableEntry* first = state_.table(name)) {
         fail(at,
              fmt::format("duplicate table '{}' (first at {})", name, where(first->pos)));
      }
      whenRead(read_.unifiedFec && read_.vrfs,
               [this, name, at] { checkTableName(name, at); });
      TableEntry t;
      t.name = name;
      t.pos = at;
      state_.tables.push_back(std::move(t));
      fecIds_.emplace_back();
      parseTable(state_.tables.size() - 1);
   }
   events_.take();
}

// A table's name is its VRF's, or the unified table's, and names the folder of its files.
void Parser::checkTableName(const std::string& name, Position at) const {
   if (state_.unifiedFec) {
      if (name != unifiedTableName) {
         fail(at, fmt::format("with unifiedFec: true the only table is '{}', not '{}'",
                              unifiedTableName, name));
      }
   } else if (!vrfs_.contains(name)) {
      fail(at, fmt::format("VRF '{}' is not declared{}", name,
                           name == unifiedTableName
                               ? " (a unified table needs unifiedFec: true)"
                               : ""));
   }
   if (std::string problem = Wexa::Paths::componentProblem(name); !problem.empty()) {
      fail(at, fmt::format("table name {} cannot name a folder: {}",
                           Wexa::Paths::shownName(name), problem));
   }
}

void Parser::parseTable(std::size_t t) {
   std::map<FecId, Position> fecsSeen;
   RouteIndex routesSeen(state_.tables[t].routes);
   eachKey("a table", {"fecs", "routes"}, [&](const std::string& key, Position) {
      if (key == "fecs") {
         eachItem("fecs", [&](const YamlNode& item) {
            FecEntry fec = parseFec(t, item, fecsSeen);
            fecIds_[t].insert(fec.id);
            state_.tables[t].fecs.push_back(std::move(fec));
         });
      } else {
         eachItem("routes",
                  [&](const YamlNode& item) { parseRoute(t, item, routesSeen); });
      }
   });
}

void Parser::parseRoute(std::size_t t, const YamlNode& item, RouteIndex& seen) {
   Fields r(*this, item, "a route", {"prefix", "fec"});
   RouteEntry route;
   route.pos = item.pos;
   const YamlNode& prefixNode = r.required("prefix");
   route.prefix = prefix(prefixNode);
   const YamlNode& fecNode = r.required("fec");
   route.fec = fecId(fecNode, "FEC id");
   std::vector<RouteEntry>& routes = state_.tables[t].routes;
   if (const RouteEntry* first =
           seen.findOrAdd(route.prefix, static_cast<std::uint32_t>(routes.size()))) {
      fail(prefixNode,
           fmt::format("duplicate route {} in table '{}' (first at {})", route.prefix,
                       state_.tables[t].name, where(first->pos)));
   }
   refer({LateRef::routeFec, static_cast<std::uint32_t>(t), fecNode.pos, route.fec, {}});
   routes.push_back(std::move(route));
}

FecEntry Parser::parseFec(std::size_t t, const YamlNode& item,
                          std::map<FecId, Position>& seen) {
   Fields f(*this, item, "a FEC", {"id", "type", "loopbackOnly", "backupVia", "vias"});
   FecEntry fec;
   fec.pos = item.pos;
   const YamlNode& idNode = f.required("id");
   fec.id = fecId(idNode, "FEC id");
   auto [first, fresh] = seen.emplace(fec.id, fec.pos);
   if (!fresh) {
      fail(idNode, fmt::format("duplicate FEC {} in table '{}' (first at {})", fec.id,
                               state_.tables[t].name, where(first->second)));
   }
   if (auto n = f["type"]) fec.type = fecType(*n);
   if (auto n = f["loopbackOnly"]) fec.loopbackOnly = boolean(*n, "loopbackOnly");
   if (auto list = f["vias"]) {
      const YamlNode& vias = sequence(*list, "vias");
      if (vias.count > Quarn::FibGen::Fec::maxVias) {
         fail(vias, fmt::format("FEC {} has {} vias; a FEC holds at most {}", fec.id,
                                vias.count, Quarn::FibGen::Fec::maxVias));
      }
      fec.vias.reserve(vias.count);
      vias.each([&](const YamlNode& v) { fec.vias.push_back(parseVia(t, v)); });
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

ViaEntry Parser::parseVia(std::size_t t, const YamlNode& item) {
   Fields f(*this, item, "a via", {"interface", "hop", "weight", "fecId"});
   ViaEntry via;
   via.pos = item.pos;
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
   auto table = static_cast<std::uint32_t>(t);
   if (fecNode) refer({LateRef::viaFec, table, fecNode->pos, via.fecId, via.intf});
   if (Lumo::FecIdIntfId::isFecIdIntfId(via.intf)) {
      refer({LateRef::viaIntf, table, intfNode->pos,
             Lumo::FecIdIntfId::intfIdToFecId(via.intf), via.intf});
   }
   return via;
}

void Parser::checkRef(const LateRef& ref) const {
   switch (ref.kind) {
   case LateRef::routeFec:
      if (!fecIds_[ref.table].contains(ref.fec)) {
         fail(ref.at, fmt::format("route to FEC {}, which table '{}' does not have",
                                  ref.fec, state_.tables[ref.table].name));
      }
      break;
   case LateRef::viaIntf:
      if (!fecIds_[ref.table].contains(ref.fec)) {
         fail(ref.at, fmt::format("via interface {} stands for FEC {}, which table '{}' "
                                  "does not have",
                                  ref.intf, ref.fec, state_.tables[ref.table].name));
      }
      break;
   case LateRef::viaFec:
      checkViaFec(ref);
      break;
   }
}

// A via whose interface is in another VRF takes resolution into that VRF, so its FEC id
// is looked up in that VRF's table.
void Parser::checkViaFec(const LateRef& ref) const {
   std::size_t target = ref.table;
   std::string jump;
   if (!state_.unifiedFec) {
      auto it = intfs_.find(ref.intf.value());
      if (it != intfs_.end()) {
         const std::string& vrf = state_.interfaces[it->second].vrf;
         if (vrf != state_.tables[ref.table].name) {
            const TableEntry* other = state_.table(vrf);
            if (!other) {
               fail(ref.at,
                    fmt::format("via FEC {}: interface {} is in VRF '{}', which has "
                                "no table",
                                ref.fec, ref.intf, vrf));
            }
            target = static_cast<std::size_t>(other - state_.tables.data());
            jump = fmt::format(" (interface {} is in VRF '{}')", ref.intf, vrf);
         }
      }
   }
   if (!fecIds_[target].contains(ref.fec)) {
      fail(ref.at, fmt::format("via FEC {} does not exist in table '{}'{}", ref.fec,
                               state_.tables[target].name, jump));
   }
}

State readState(YamlEvents& events, const std::string& fileName) {
   return Parser(events, fileName).parse();
}

// Files this big show how far the reading is, when a person watches.
constexpr std::size_t progressFrom = 16 << 20;

YamlEvents::Progress progressOn(const std::string& path, std::size_t size) {
   if (size < progressFrom || !::isatty(STDERR_FILENO)) return {};
   return [path](std::size_t done, std::size_t total) {
      std::fprintf(stderr, "\rloading %s: %zu%%", path.c_str(), done * 100 / total);
      if (done == total) std::fputc('\n', stderr);
      std::fflush(stderr);
   };
}

} // namespace

State parseState(const std::string& text, const std::string& fileName) {
   YamlEvents events(text, fileName);
   return readState(events, fileName);
}

// The file is read as the parser needs it: a large state never sits in memory as text.
State loadStateFile(const std::string& path) {
   auto unreadable = [&](int err) {
      return StateError(path, 0, 0,
                        fmt::format("cannot read the file: {}", std::strerror(err)));
   };
   std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                        &std::fclose);
   if (!file) throw unreadable(errno);
   struct stat st {};
   if (::fstat(::fileno(file.get()), &st) != 0) throw unreadable(errno);
   if (S_ISDIR(st.st_mode)) throw unreadable(EISDIR);
   const auto size = static_cast<std::size_t>(std::max<off_t>(st.st_size, 0));
   YamlEvents events(file.get(), size, path, progressOn(path, size));
   return readState(events, path);
}

} // namespace VeltState
