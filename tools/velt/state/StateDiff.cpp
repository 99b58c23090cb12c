#include "velt/state/StateDiff.h"

#include "Quarn/Fec.h"

#include <cstring>
#include <map>
#include <memory>

namespace VeltState {

namespace {

// Orders trivially copyable keys by their bytes.
struct BytesLess {
   template <typename K>
   bool operator()(const K& a, const K& b) const {
      return std::memcmp(&a, &b, sizeof(K)) < 0;
   }
};

template <typename Entry>
struct Changes {
   std::vector<const Entry*> upserts; // entries of the new state, new or different
   std::vector<const Entry*> removals; // entries of the old state whose key is gone
};

// `keyFrom` and `keyTo` key the entries of each state (the same function, unless keys
// depend on the state, as neighbours' VRF ids do).
template <typename Entry, typename KeyFrom, typename KeyTo>
Changes<Entry> changesBetween(const std::vector<Entry>& from, const std::vector<Entry>& to,
                              KeyFrom keyFrom, KeyTo keyTo, ChangeCounts& counts) {
   using Key = decltype(keyTo(to.front()));
   std::map<Key, const Entry*, BytesLess> before, after;
   for (const Entry& e : from) before.emplace(keyFrom(e), &e);
   for (const Entry& e : to) after.emplace(keyTo(e), &e);
   Changes<Entry> out;
   for (const auto& [key, e] : after) {
      auto it = before.find(key);
      if (it != before.end() && *it->second == *e) continue;
      ++(it == before.end() ? counts.added : counts.changed);
      out.upserts.push_back(e);
   }
   for (const auto& [key, e] : before) {
      if (after.count(key)) continue;
      ++counts.removed;
      out.removals.push_back(e);
   }
   return out;
}

std::uint64_t fecKey(const FecEntry& f) { return f.id.value(); }
Table::PrefixKey routeKey(const RouteEntry& r) { return Quarn::FibGen::prefixKey(r.prefix); }

void changeTable(Quarn::FibGen::ForwardingStatus& table, const TableEntry& from,
                 const TableEntry& to, ChangeSummary& summary) {
   auto fecs = changesBetween(from.fecs, to.fecs, fecKey, fecKey, summary.fecs);
   auto routes = changesBetween(from.routes, to.routes, routeKey, routeKey, summary.routes);
   // Make before break: new FECs first, old FECs only once no route names them.
   auto fec = std::make_unique<Quarn::FibGen::Fec>();
   for (const FecEntry* f : fecs.upserts) {
      fecFrom(*f, *fec);
      table.fecIs(*fec);
   }
   for (const RouteEntry* r : routes.upserts) table.routeIs(r->prefix, r->fec);
   for (const RouteEntry* r : routes.removals) table.routeDel(r->prefix);
   for (const FecEntry* f : fecs.removals) table.fecDel(f->id);
}

void changeNeighbours(Arp::Table::Status& arp, const State& from, const State& to,
                      ChangeSummary& summary) {
   auto keyIn = [](const State& s) {
      return [&s](const NeighbourEntry& n) { return neighbourFrom(n, s).key; };
   };
   auto changes = changesBetween(from.neighbours, to.neighbours, keyIn(from), keyIn(to),
                                 summary.neighbours);
   for (const NeighbourEntry* n : changes.upserts) arp.entryIs(neighbourFrom(*n, to));
   for (const NeighbourEntry* n : changes.removals) arp.entryDel(neighbourFrom(*n, from).key);
}

} // namespace

ChangeSummary applyChanges(Tables& tables, const State& from, const State& to,
                           const std::string& toFile) {
   if (from.unifiedFec != to.unifiedFec) {
      throw StateError(toFile, 0, 0,
                       "unifiedFec differs from the state the tables were made with");
   }
   // Checked before any change, so that a refused state leaves the tables as they were.
   for (const TableEntry& t : to.tables) {
      if (!tables.forwarding.count(t.name)) {
         throw StateError(toFile, t.pos.line, t.pos.column,
                          "table " + t.name + " was not made when the tables were created");
      }
   }
   ChangeSummary summary;
   const TableEntry none;
   for (const auto& [name, table] : tables.forwarding) {
      const TableEntry* before = from.table(name);
      const TableEntry* after = to.table(name);
      changeTable(*table, before ? *before : none, after ? *after : none, summary);
   }
   changeNeighbours(*tables.arp, from, to, summary);
   if (from.vrfs != to.vrfs) summary.notApplied.push_back("vrfs");
   if (from.interfaces != to.interfaces) summary.notApplied.push_back("interfaces");
   return summary;
}

} // namespace VeltState
