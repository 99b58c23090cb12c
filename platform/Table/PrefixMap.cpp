#include "Table/PrefixMap.h"

#include <algorithm>
#include <bit>

namespace Table {

static_assert(sizeof(PrefixKey) == 24);

// Entry words. A direct entry is [meta, value]; a hashed entry is [meta, key, value,
// bits]. meta: generation in bits 0..31, length + 1 of the prefix held in bits 48..55 (0:
// none). Direct entries keep a bitmap in bits 32..47: for an IPv4 root entry the lengths
// above the root width present under it, for an IPv6 root entry which of its 16 /20s hold
// anchors (bit 0: the first), with kHas24 in bit 56. Hashed entries keep their state in
// bits 32..33 and their kind (/24, /32 or /48) in bits 34..35; their key word holds the
// /24, /32 or /48 right-aligned in its low 48 bits. `bits` of a /32 anchor:
// lengths 33..40 present under it (bit 0: /33), and kHas48; of a /48 anchor: lengths
// 49..112, with 113..128 in the key word's top 16 bits.
namespace {

constexpr Word kGenMask = 0xffffffffull;
constexpr unsigned kBitsShift = 32;
constexpr unsigned kLenShift = 48;
constexpr Word kLenMask = Word(0xff) << kLenShift;
constexpr Word kBitsMask = Word(0xffff) << kBitsShift;
constexpr unsigned kStateShift = 32;
constexpr Word kStateMask = Word(3) << kStateShift;
constexpr unsigned kKindShift = 34;
constexpr Word kKeyMask = (Word(1) << 48) - 1;
enum SlotState : unsigned { slotEmpty = 0, slotFull = 1, slotTombstone = 2 };
enum Kind : unsigned { kind24 = 0, kind32 = 1, kind48 = 2 };
constexpr unsigned kLevel[] = {24, 32, 48};

constexpr Word kShortEntries = 256;
constexpr Word kRoot6Entries = Word(1) << 16;
// Tables this large take IPv4 /24s into direct entries: one memory access per lookup.
constexpr Word kWideRootCapacity = Word(1) << 17;
// IPv6 root bits, and the /32 anchor bit telling that /48 anchors exist under it.
constexpr Word kHas24 = Word(1) << 56;
Word anchorsBit(Word hi) {
   return Word(1) << (hi >> 44 & 15);
}
constexpr Word kHas48 = Word(1) << 8;

bool busy(Word meta) {
   return meta & 1;
}
unsigned lenPlus1(Word meta) {
   return unsigned(meta >> kLenShift) & 0xff;
}
Word withLen(Word meta, unsigned lp1) {
   return (meta & ~kLenMask) | Word(lp1) << kLenShift;
}
Word directBits(Word meta) {
   return (meta & kBitsMask) >> kBitsShift;
}
Word withDirectBits(Word meta, Word bits) {
   return (meta & ~kBitsMask) | (bits << kBitsShift & kBitsMask);
}
unsigned stateOf(Word meta) {
   return unsigned(meta >> kStateShift) & 3;
}
Word withState(Word meta, unsigned state) {
   return (meta & ~kStateMask) | Word(state) << kStateShift;
}
// A hashed entry's identity: its kind above its right-aligned prefix bits.
Word slotKeyOf(Kind kind, Word hi) {
   return Word(kind) << 48 | hi >> (64 - kLevel[kind]);
}
Word storedKey(Word meta, Word keyWord) {
   return (meta >> kKindShift & 3) << 48 | (keyWord & kKeyMask);
}
Word kindMeta(Kind kind) {
   return Word(kind) << kKindShift;
}

// Writer: makes the entry's generation odd and returns the meta it had.
Word openEntry(Word& meta) {
   Word m = loadWord(meta);
   storeWord(meta, (m & ~kGenMask) | ((m + 1) & kGenMask));
   std::atomic_thread_fence(std::memory_order_release);
   return m;
}

// Writer: publishes `fields` under the generation after the one `opened` made odd.
void closeEntry(Word& meta, Word fields, Word opened) {
   storeWord(meta, (fields & ~kGenMask) | ((opened + 2) & kGenMask),
             std::memory_order_release);
}

// Retries of a reader: bounded in time only while what it depends on stands still, so that
// a writer busy changing it is waited for and one that died inside an entry is reported.
class Patience {
 public:
   bool again(Word seen) {
      if (seen != seen_) {
         seen_ = seen;
         budget_ = RetryBudget();
      }
      return budget_.again();
   }

 private:
   Word seen_ = 0;
   RetryBudget budget_;
};

std::optional<PrefixMatch> held(Word meta, Word value) {
   unsigned lp1 = lenPlus1(meta);
   if (lp1 == 0) return std::nullopt;
   return PrefixMatch{std::uint8_t(lp1 - 1), value};
}

Word bigEndian64(const std::uint8_t* bytes) {
   Word w;
   std::memcpy(&w, bytes, 8);
   return std::endian::native == std::endian::little ? __builtin_bswap64(w) : w;
}

// The exact key of the address hi:lo cut to `length` bits.
PrefixKey keyOf(Family family, Word hi, Word lo, unsigned length) {
   PrefixKey key{};
   Word hiMask = length >= 64 ? ~Word(0) : length == 0 ? 0 : ~Word(0) << (64 - length);
   Word loMask = length <= 64 ? 0 : length >= 128 ? ~Word(0) : ~Word(0) << (128 - length);
   Word words[2] = {hi & hiMask, lo & loMask};
   for (Word& w : words)
      w = std::endian::native == std::endian::little ? __builtin_bswap64(w) : w;
   std::memcpy(key.bytes, words, 16);
   key.length = std::uint8_t(length);
   key.family = family;
   return key;
}

Word hashOf(Word key) {
   key ^= key >> 33;
   key *= 0xff51afd7ed558ccdull;
   key ^= key >> 33;
   key *= 0xc4ceb9fe1a85ec53ull;
   return key ^ (key >> 33);
}

} // namespace

struct PrefixMap::Geometry {
   unsigned rootBits4;
   Word hashLimit;
   Word hashSlots;
   // Offsets from the first 64-byte boundary of the pool.
   Word root4;
   Word root6;
   Word hash;
   Word bytes;

   static Geometry of(Word capacity) {
      Geometry g{};
      g.rootBits4 = capacity >= kWideRootCapacity ? 24 : 16;
      g.hashLimit = 6 * capacity + 256;
      g.hashSlots = std::bit_ceil(g.hashLimit + g.hashLimit / 4 + 1);
      g.root4 = 2 * kShortEntries * 16;
      g.root6 = g.root4 + (Word(1) << g.rootBits4) * 16;
      g.hash = g.root6 + kRoot6Entries * 16;
      g.bytes = g.hash + g.hashSlots * 32 + 64;
      return g;
   }
};

struct PrefixMap::Slot {
   const Word* at;
   Word meta;
   Word key;
   Word value;
   Word bits;
};

PrefixKey PrefixKey::of(Family family, const std::uint8_t* address, std::uint8_t length) {
   VELT_ASSERT(length <= maxLength(family));
   PrefixKey key{};
   std::memcpy(key.bytes, address, family == Family::ipv4 ? 4 : 16);
   key.family = family;
   return key.masked(length);
}

PrefixKey PrefixKey::v4(std::uint32_t hostOrder, std::uint8_t length) {
   std::uint8_t bytes[4] = {std::uint8_t(hostOrder >> 24), std::uint8_t(hostOrder >> 16),
                            std::uint8_t(hostOrder >> 8), std::uint8_t(hostOrder)};
   return of(Family::ipv4, bytes, length);
}

PrefixKey PrefixKey::masked(std::uint8_t len) const {
   PrefixKey key = *this;
   key.length = len;
   for (unsigned i = 0; i < 16; ++i) {
      unsigned bits = i * 8;
      if (bits >= len) {
         key.bytes[i] = 0;
      } else if (len - bits < 8) {
         key.bytes[i] &= std::uint8_t(0xff00 >> (len - bits));
      }
   }
   return key;
}

Layout PrefixMap::layout(Word capacity) {
   Layout l = FlatMap<PrefixKey, std::uint64_t>::layout(capacity);
   l.kind = prefixMapKind;
   l.poolBytes = Geometry::of(capacity).bytes;
   return l;
}

PrefixMap::PrefixMap(Region region) : map_(std::move(region)) {
   const RegionHeader& h = map_.region().header();
   Geometry g = Geometry::of(h.capacity);
   if (h.poolBytes != g.bytes) {
      throw Pelin::Exception(
          fmt::format("table file {}: prefix map pool of {} bytes differs "
                      "from the {} its capacity needs",
                      map_.name(), h.poolBytes, g.bytes));
   }
   rootBits4_ = g.rootBits4;
   short4Offset_ = (h.poolOffset + 63) / 64 * 64;
   root4Offset_ = short4Offset_ + g.root4;
   root6Offset_ = short4Offset_ + g.root6;
   hashOffset_ = short4Offset_ + g.hash;
   hashMask_ = g.hashSlots - 1;
   hashLimit_ = g.hashLimit;
}

PrefixMap::PrefixMap(Word capacity) : PrefixMap(Region::anonymous(layout(capacity))) {}

PrefixMap PrefixMap::createFile(const std::string& path, Word capacity) {
   return PrefixMap(Region::createFile(path, layout(capacity)));
}

PrefixMap PrefixMap::attachFile(const std::string& path) {
   return PrefixMap(Region::attachFile(path, layout(0)));
}

Word& PrefixMap::hashLive() const {
   return const_cast<Region&>(map_.region()).header().aux[0];
}
Word& PrefixMap::hashTombstones() const {
   return const_cast<Region&>(map_.region()).header().aux[1];
}
Word PrefixMap::expandedCount() const {
   return loadWord(hashLive());
}

void PrefixMap::stuck(const char* family, const Word* shortEntry, Word shortIndex,
                      const Word* rootEntry, Word rootIndex) const {
   bool root = busy(loadWord(rootEntry[0])) || !busy(loadWord(shortEntry[0]));
   std::string what = fmt::format("{} {} entry", family, root ? "root" : "/0../8");
   const Word* entry = root ? rootEntry : shortEntry;
   const Word meta = loadWord(entry[0]);
   // Reported by the first reader to find it; the others, and later lookups, are answered
   // at once until a writer moves the generation.
   const bool fresh = map_.stuckGenerations().remember(entry, meta);
   corrupt(what.c_str(), root ? rootIndex : shortIndex,
           fmt::format("generation {} stays odd", meta & kGenMask), !fresh);
}

bool PrefixMap::knownStuck(const Word* entry, Word meta) const {
   return busy(meta) && map_.stuckGenerations().known(entry, meta);
}

void PrefixMap::corrupt(const char* what, Word index, const std::string& problem,
                        bool repeat) const {
   throw Pelin::CorruptionDetectedException(
       fmt::format("table {}: {} {} is corrupt: {}", map_.name(), what, index, problem),
       repeat);
}

// ---- reader ----

std::optional<PrefixMatch> PrefixMap::longestMatch(const PrefixKey& address) const {
   auto match = address.family == Family::ipv4 ? match4(address) : match6(address);
   map_.region().verify();
   return match;
}

unsigned PrefixMap::prepareExact(Family family, Word hi, Word lo, Word bits,
                                 unsigned base, PrefixKey* keys) const {
   unsigned n = 0;
   while (bits) {
      unsigned b = 63 - unsigned(std::countl_zero(bits));
      keys[n] = keyOf(family, hi, lo, base + b);
      map_.prefetch(keys[n++]);
      bits &= ~(Word(1) << b);
   }
   return n;
}

std::optional<PrefixMatch> PrefixMap::findExact(const PrefixKey* keys,
                                                unsigned count) const {
   for (unsigned i = 0; i < count; ++i) {
      if (auto v = map_.find(keys[i])) return PrefixMatch{keys[i].length, *v};
   }
   return std::nullopt;
}

std::optional<PrefixMatch> PrefixMap::match4(const PrefixKey& address) const {
   Word hi = bigEndian64(address.bytes) & ~Word(0xffffffff);
   Word addr = hi >> 32;
   const Word* sh = short4() + (addr >> 24) * 2;
   Word ri = addr >> (32 - rootBits4_);
   const Word* rt = root4() + ri * 2;
   Patience patience;
   do {
      Word ms = loadWord(sh[0], std::memory_order_acquire);
      Word mr = loadWord(rt[0], std::memory_order_acquire);
      if (busy(ms) || busy(mr)) {
         if (knownStuck(sh, ms) || knownStuck(rt, mr)) break;
         continue;
      }
      Word vs = loadWord(sh[1]);
      Word vr = loadWord(rt[1]);
      if (pause_) [[unlikely]]
         pause_(0);
      Word bits = directBits(mr);
      const char* problem = nullptr;
      std::optional<PrefixMatch> best;
      if (bits >> (32 - rootBits4_)) {
         problem = "lengths beyond /32 marked";
      } else if (lenPlus1(ms) > 9 ||
                 (lenPlus1(mr) && (lenPlus1(mr) < 10 || lenPlus1(mr) > rootBits4_ + 1))) {
         problem = "length outside its range";
      } else if (bits) {
         PrefixKey keys[16];
         best = findExact(keys,
                          prepareExact(Family::ipv4, hi, 0, bits, rootBits4_ + 1, keys));
      }
      if (!best) best = held(mr, vr);
      if (!best) best = held(ms, vs);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (loadWord(rt[0]) != mr || loadWord(sh[0]) != ms) continue;
      if (problem) corrupt("IPv4 root entry", ri, problem);
      return best;
   } while (patience.again(loadWord(sh[0]) * 3 + loadWord(rt[0])));
   stuck("IPv4", sh, addr >> 24, rt, ri);
}

namespace {
// What is wrong with a consistent copy of a hashed entry of `kind`, if anything.
const char* checkSlot(Kind kind, Word meta, Word bits) {
   unsigned lp1 = lenPlus1(meta);
   unsigned level = kLevel[kind];
   unsigned shortest = kind == kind24 ? 17 : kind == kind32 ? 25 : 41;
   if (kind == kind24 ? lp1 == 0 : lp1 == 0 && !bits) return "hashed entry holds nothing";
   if (lp1 && (lp1 < shortest + 1 || lp1 > level + 1)) {
      return "hashed entry length outside its range";
   }
   if (kind == kind32 && bits > (kHas48 | 0xff)) return "anchor with unknown bits set";
   return nullptr;
}
} // namespace

std::optional<PrefixMatch> PrefixMap::match6(const PrefixKey& address) const {
   Word hi = bigEndian64(address.bytes);
   Word lo = bigEndian64(address.bytes + 8);
   const Word* sh = short6() + (hi >> 56) * 2;
   Word ri = hi >> 48;
   const Word* rt = root6() + ri * 2;
   Word key24 = slotKeyOf(kind24, hi), key32 = slotKeyOf(kind32, hi);
   Word key48 = slotKeyOf(kind48, hi);
   Patience patience;
   const Word* anchorMetas[2] = {};
   do {
      anchorMetas[0] = anchorMetas[1] = nullptr;
      Word ms = loadWord(sh[0], std::memory_order_acquire);
      Word mr = loadWord(rt[0], std::memory_order_acquire);
      if (busy(ms) || busy(mr)) {
         if (knownStuck(sh, ms) || knownStuck(rt, mr)) break;
         continue;
      }
      Word vs = loadWord(sh[1]);
      Word vr = loadWord(rt[1]);
      if (pause_) [[unlikely]]
         pause_(0);
      Word bits = directBits(mr);
      const char* problem = nullptr;
      Slot at24{}, at32{}, at48{};
      bool has24 = false, has32 = false, has48 = false;
      std::optional<PrefixMatch> best;
      if (mr >> 56 & ~Word(1)) {
         problem = "unknown bits set";
      } else if (lenPlus1(ms) > 9 ||
                 (lenPlus1(mr) && (lenPlus1(mr) < 10 || lenPlus1(mr) > 17))) {
         problem = "length outside its range";
      } else {
         // The hashed entries all load together, the /48 anchor too before its /32 anchor
         // tells it exists, so that a lookup waits for memory about twice: for them, then
         // for the exact probes they call for.
         bool anchors = bits & anchorsBit(hi);
         if (mr & kHas24) __builtin_prefetch(slot(hashOf(key24) & hashMask_));
         if (anchors) __builtin_prefetch(slot(hashOf(key48) & hashMask_));
         if (anchors) has32 = probe(key32, at32);
         if (has32 && (at32.bits & kHas48)) has48 = probe(key48, at48);
         if (mr & kHas24) has24 = probe(key24, at24);
         if (pause_) [[unlikely]]
            pause_(1);
         PrefixKey keys[88];
         unsigned n = 0, n40 = 0;
         if (has48) {
            n = prepareExact(Family::ipv6, hi, lo, at48.key >> 48, 113, keys);
            n += prepareExact(Family::ipv6, hi, lo, at48.bits, 49, keys + n);
            if (const char* p =
                    checkSlot(kind48, at48.meta, at48.bits | at48.key >> 48)) {
               problem = p;
            }
         }
         if (has32) {
            if (const char* p = checkSlot(kind32, at32.meta, at32.bits)) problem = p;
            // Shorter than the /48 anchor's own prefix: only wanted when it holds none.
            if (!has48 || !lenPlus1(at48.meta)) {
               n40 = prepareExact(Family::ipv6, hi, lo, at32.bits & 0xff, 33, keys + n);
            }
         }
         best = findExact(keys, n);
         if (!best && has48) best = held(at48.meta, at48.value);
         if (!best) best = findExact(keys + n, n40);
         if (!best && has32) best = held(at32.meta, at32.value);
         if (has24) {
            if (const char* p = checkSlot(kind24, at24.meta, 0)) problem = p;
            if (!best) best = held(at24.meta, at24.value);
         }
      }
      if (!best) best = held(mr, vr);
      if (!best) best = held(ms, vs);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (has32) anchorMetas[0] = at32.at;
      if (has48) anchorMetas[1] = at48.at;
      if (has48 && loadWord(at48.at[0]) != at48.meta) continue;
      if (has32 && loadWord(at32.at[0]) != at32.meta) continue;
      if (loadWord(rt[0]) != mr || loadWord(sh[0]) != ms) continue;
      if (problem) corrupt("IPv6 root entry", ri, problem);
      return best;
   } while (patience.again(loadWord(sh[0]) * 3 + loadWord(rt[0]) * 5 +
                           (anchorMetas[0] ? loadWord(anchorMetas[0][0]) * 7 : 0) +
                           (anchorMetas[1] ? loadWord(anchorMetas[1][0]) : 0)));
   stuck("IPv6", sh, hi >> 56, rt, ri);
}

bool PrefixMap::probe(Word key, Slot& out) const {
   Word h = hashOf(key);
   for (Word i = h & hashMask_, n = 0; n <= hashMask_; i = (i + 1) & hashMask_, ++n) {
      const Word* s = slot(i);
      Patience patience;
      for (;;) {
         Word m = loadWord(s[0], std::memory_order_acquire);
         if (!busy(m)) {
            Word k = loadWord(s[1]);
            Word v = loadWord(s[2]);
            Word b = loadWord(s[3]);
            std::atomic_thread_fence(std::memory_order_acquire);
            if (loadWord(s[0]) == m) {
               unsigned state = stateOf(m);
               if (state == slotEmpty) return false;
               if (state > slotTombstone) {
                  corrupt("hashed IPv6 entry", i, fmt::format("invalid state {}", state));
               }
               if (state == slotFull && storedKey(m, k) == key) {
                  out = Slot{s, m, k, v, b};
                  return true;
               }
               break;
            }
         }
         const bool known = knownStuck(s, m);
         if (known || !patience.again(m)) {
            const bool fresh = !known && map_.stuckGenerations().remember(s, m);
            corrupt("hashed IPv6 entry", i,
                    fmt::format("generation {} stays odd", m & kGenMask), !fresh);
         }
      }
   }
   return false;
}

// ---- writer ----

void PrefixMap::insert(const PrefixKey& prefix, std::uint64_t value) {
   VELT_ASSERT(map_.region().writable());
   VELT_ASSERT(prefix.family == Family::ipv4 || prefix.family == Family::ipv6);
   VELT_ASSERT(prefix.length <= PrefixKey::maxLength(prefix.family));
   PrefixKey clean = PrefixKey::of(prefix.family, prefix.bytes, prefix.length);
   VELT_ASSERT(std::memcmp(&clean, &prefix, sizeof prefix) == 0);
   auto old = map_.find(prefix);
   if (old && *old == value) return;
   // Everything that can fail is checked before the first change.
   if (!old && map_.size() >= map_.capacity()) tableFull(map_.name(), map_.capacity());
   if (Word need = hashedRoomNeeded(prefix);
       need && loadWord(hashLive()) + need > hashLimit_) {
      throw Pelin::RangeException(
          fmt::format("table {}: IPv6 expanded entries full at their capacity of {}",
                      map_.name(), hashLimit_));
   }
   if (prefix.family == Family::ipv4) {
      insert4(prefix, value, !old);
   } else {
      insert6(prefix, value, !old);
   }
}

bool PrefixMap::erase(const PrefixKey& prefix) {
   VELT_ASSERT(map_.region().writable());
   if (!map_.find(prefix)) return false;
   if (prefix.family == Family::ipv4) {
      erase4(prefix);
   } else {
      erase6(prefix);
   }
   return true;
}

// Erasing shortest first leaves nothing shorter to fall back to, so every step is a table
// readers may see.
void PrefixMap::clear() {
   VELT_ASSERT(map_.region().writable());
   std::vector<PrefixKey> keys;
   keys.reserve(map_.size());
   map_.forEach([&](const PrefixKey& k, std::uint64_t) { keys.push_back(k); });
   std::stable_sort(keys.begin(), keys.end(), [](const PrefixKey& a, const PrefixKey& b) {
      return a.length < b.length;
   });
   clearing_ = true;
   try {
      for (const PrefixKey& k : keys) erase(k);
   } catch (...) {
      clearing_ = false;
      throw;
   }
   clearing_ = false;
   map_.clear();
   for (Word i = 0; i <= hashMask_; ++i) {
      Word* s = slot(i);
      if (stateOf(loadWord(s[0])) == slotTombstone) {
         Word m = openEntry(s[0]);
         closeEntry(s[0], withState(m, slotEmpty), m);
      }
   }
   storeWord(hashTombstones(), 0);
   counts_.clear();
}

void PrefixMap::debugCorrupt(const PrefixKey& address) {
   VELT_ASSERT(map_.region().writable());
   Word hi = bigEndian64(address.bytes);
   if (address.family == Family::ipv4) {
      openEntry(root4()[(hi >> (64 - rootBits4_)) * 2]);
   } else {
      openEntry(root6()[(hi >> 48) * 2]);
   }
}

std::optional<PrefixMatch> PrefixMap::coverBelow(const PrefixKey& prefix,
                                                 unsigned minLength) const {
   if (clearing_) return std::nullopt;
   for (int len = int(prefix.length) - 1; len >= int(minLength); --len) {
      if (auto v = map_.find(prefix.masked(std::uint8_t(len)))) {
         return PrefixMatch{std::uint8_t(len), *v};
      }
   }
   return std::nullopt;
}

// Gives the entries [first, first + count) owned by a prefix of `length` the match `to`:
// when inserting, those held by no prefix or a shorter (or the same) one; when erasing,
// those held by this prefix, which fall back to `to` (the longest shorter prefix, if
// any).
void PrefixMap::expandDirect(Word* table, Word first, Word count, unsigned length,
                             std::optional<PrefixMatch> to, bool inserting) {
   unsigned lp1 = to ? to->length + 1u : 0;
   Word value = to ? to->value : 0;
   for (Word i = first; i < first + count; ++i) {
      Word* e = table + i * 2;
      Word m = loadWord(e[0]);
      unsigned had = lenPlus1(m);
      bool owned = inserting ? had <= length + 1 : had == length + 1;
      if (!owned || (had == lp1 && loadWord(e[1]) == value)) continue;
      openEntry(e[0]);
      storeWord(e[1], value);
      closeEntry(e[0], withLen(m, lp1), m);
   }
}

namespace {
bool idle(const Word* s) {
   return lenPlus1(loadWord(s[0])) == 0 && loadWord(s[3]) == 0 &&
          loadWord(s[1]) >> 48 == 0;
}
} // namespace

// The hashed counterpart of expandDirect, over the entries of `kind` that the prefix
// `hi`/`length` covers; entries left holding nothing are dropped. The caller holds the
// entry above them open.
void PrefixMap::expandHashed(unsigned kindNumber, Word hi, unsigned length,
                             std::optional<PrefixMatch> to, bool inserting) {
   auto kind = Kind(kindNumber);
   Word first = slotKeyOf(kind, hi);
   Word count = Word(1) << (kLevel[kind] - length);
   unsigned lp1 = to ? to->length + 1u : 0;
   Word value = to ? to->value : 0;
   for (Word key = first; key < first + count; ++key) {
      Word* s = findSlot(key);
      if (!s) {
         VELT_ASSERT(inserting);
         addSlot(key, withLen(kindMeta(kind), lp1), key & kKeyMask, value, 0);
         continue;
      }
      Word m = loadWord(s[0]);
      unsigned had = lenPlus1(m);
      bool owned = inserting ? had <= length + 1 : had == length + 1;
      if (!owned) continue;
      openEntry(s[0]);
      storeWord(s[2], value);
      closeEntry(s[0], withLen(m, lp1), m);
      if (!to && idle(s)) dropSlot(s);
   }
}

Word PrefixMap::hashedRoomNeeded(const PrefixKey& prefix) const {
   if (prefix.family != Family::ipv6 || prefix.length <= 16) return 0;
   Word hi = bigEndian64(prefix.bytes);
   unsigned len = prefix.length;
   auto absent = [&](Kind kind) {
      Word first = slotKeyOf(kind, hi), need = 0;
      Word count = len < kLevel[kind] ? Word(1) << (kLevel[kind] - len) : 1;
      for (Word key = first; key < first + count; ++key) need += findSlot(key) == nullptr;
      return need;
   };
   if (len <= 24) return absent(kind24);
   Word need = absent(kind32);
   if (len > 40) need += absent(kind48);
   return need;
}

Word* PrefixMap::findSlot(Word key) const {
   for (Word i = hashOf(key) & hashMask_, n = 0; n <= hashMask_;
        i = (i + 1) & hashMask_, ++n) {
      Word* s = slot(i);
      Word m = loadWord(s[0]);
      if (stateOf(m) == slotEmpty) return nullptr;
      if (stateOf(m) == slotFull && storedKey(m, loadWord(s[1])) == key) return s;
   }
   return nullptr;
}

Word* PrefixMap::addSlot(Word key, Word meta, Word keyWord, Word value, Word bits) {
   for (Word i = hashOf(key) & hashMask_;; i = (i + 1) & hashMask_) {
      Word* s = slot(i);
      Word m = loadWord(s[0]);
      if (stateOf(m) == slotFull) continue;
      if (stateOf(m) == slotTombstone)
         storeWord(hashTombstones(), loadWord(hashTombstones()) - 1);
      openEntry(s[0]);
      storeWord(s[1], keyWord);
      storeWord(s[2], value);
      storeWord(s[3], bits);
      closeEntry(s[0], withState(meta, slotFull), m);
      storeWord(hashLive(), loadWord(hashLive()) + 1);
      return s;
   }
}

// Leaves a tombstone, so no key moves under a probing reader; tombstones that end a chain
// become empty again, from the dropped slot backwards.
void PrefixMap::dropSlot(Word* s) {
   Word m = openEntry(s[0]);
   closeEntry(s[0], withState(m, slotTombstone), m);
   storeWord(hashLive(), loadWord(hashLive()) - 1);
   storeWord(hashTombstones(), loadWord(hashTombstones()) + 1);
   Word i = Word(s - slot(0)) / 4;
   while (stateOf(loadWord(slot(i)[0])) == slotTombstone &&
          stateOf(loadWord(slot((i + 1) & hashMask_)[0])) == slotEmpty) {
      Word t = openEntry(slot(i)[0]);
      closeEntry(slot(i)[0], withState(t, slotEmpty), t);
      storeWord(hashTombstones(), loadWord(hashTombstones()) - 1);
      i = (i - 1) & hashMask_;
   }
}

namespace {
// Writer counts of prefixes, keyed by where they lie and their length: under an IPv4 root
// entry (its index); under an IPv6 root entry (its index, length 24 for all of /17../24)
// or /20 (length 0 for everything longer than /24); under an IPv6 anchor (its slot key,
// with length 0 under a /32 anchor for everything longer than /40).
enum CountOwner : Word { underRoot4 = 0, underRoot6 = 1, underAnchor = 2 };
Word countKey(CountOwner owner, Word index, unsigned length) {
   return owner << 60 | index << 8 | length;
}

// An anchor's bit for prefixes of `length` under it.
void markLength(Word* s, Kind kind, unsigned length, bool on) {
   Word* word = &s[3];
   unsigned bit = length - (kind == kind32 ? 33 : 49);
   if (kind == kind48 && length > 112) word = &s[1], bit = 48 + length - 113;
   Word mask = Word(1) << bit;
   storeWord(*word, on ? loadWord(*word) | mask : loadWord(*word) & ~mask);
}
} // namespace

void PrefixMap::insert4(const PrefixKey& prefix, std::uint64_t value, bool added) {
   Word addr = bigEndian64(prefix.bytes) >> 32;
   unsigned len = prefix.length;
   PrefixMatch to{prefix.length, value};
   if (len <= 8) {
      map_.insert(prefix, value);
      expandDirect(short4(), addr >> 24, Word(1) << (8 - len), len, to, true);
      return;
   }
   if (len <= rootBits4_) {
      map_.insert(prefix, value);
      expandDirect(root4(), addr >> (32 - rootBits4_), Word(1) << (rootBits4_ - len), len,
                   to, true);
      return;
   }
   // Longer prefixes stay exact only; the root entry above lists their lengths.
   Word ri = addr >> (32 - rootBits4_);
   bool first = added && counts_[countKey(underRoot4, ri, len)]++ == 0;
   Word& meta = root4()[ri * 2];
   Word m = openEntry(meta);
   map_.insert(prefix, value);
   Word bits = directBits(m) | (first ? Word(1) << (len - rootBits4_ - 1) : 0);
   closeEntry(meta, withDirectBits(m, bits), m);
}

void PrefixMap::erase4(const PrefixKey& prefix) {
   Word addr = bigEndian64(prefix.bytes) >> 32;
   unsigned len = prefix.length;
   if (len <= 8) {
      map_.erase(prefix);
      expandDirect(short4(), addr >> 24, Word(1) << (8 - len), len, coverBelow(prefix, 0),
                   false);
      return;
   }
   if (len <= rootBits4_) {
      map_.erase(prefix);
      expandDirect(root4(), addr >> (32 - rootBits4_), Word(1) << (rootBits4_ - len), len,
                   coverBelow(prefix, 9), false);
      return;
   }
   Word ri = addr >> (32 - rootBits4_);
   bool last = uncount(countKey(underRoot4, ri, len));
   Word& meta = root4()[ri * 2];
   Word m = openEntry(meta);
   map_.erase(prefix);
   Word bits = directBits(m) & ~(last ? Word(1) << (len - rootBits4_ - 1) : 0);
   closeEntry(meta, withDirectBits(m, bits), m);
}

bool PrefixMap::uncount(Word key) {
   auto it = counts_.find(key);
   VELT_ASSERT(it != counts_.end() && it->second > 0);
   if (--it->second) return false;
   counts_.erase(it);
   return true;
}

// The /32 anchor above the prefix at `hi`, made (as a marker) when missing; `added`
// counts a new prefix longer than /24 under the root entry.
Word* PrefixMap::anchor32(Word hi, bool added) {
   Word ri = hi >> 48;
   Word key = slotKeyOf(kind32, hi);
   Word* a = findSlot(key);
   bool first = added && counts_[countKey(underRoot6, hi >> 44, 0)]++ == 0;
   if (a && !first) return a;
   Word& rootMeta = root6()[ri * 2];
   Word m = openEntry(rootMeta);
   if (!a) a = addSlot(key, kindMeta(kind32), key & kKeyMask, 0, 0);
   closeEntry(rootMeta, first ? withDirectBits(m, directBits(m) | anchorsBit(hi)) : m, m);
   return a;
}

// The /48 anchor above the prefix at `hi`, under the /32 anchor `a`; `added` counts a new
// prefix longer than /40 under `a`.
Word* PrefixMap::anchor48(Word hi, Word* a, bool added) {
   Word key = slotKeyOf(kind48, hi);
   Word* b = findSlot(key);
   bool first = added && counts_[countKey(underAnchor, slotKeyOf(kind32, hi), 0)]++ == 0;
   if (b && !first) return b;
   Word m = openEntry(a[0]);
   if (!b) b = addSlot(key, kindMeta(kind48), key & kKeyMask, 0, 0);
   if (first) storeWord(a[3], loadWord(a[3]) | kHas48);
   closeEntry(a[0], m, m);
   return b;
}

// After a prefix longer than /40 left the /32 anchor `a`: drops the /48 anchor `b` if it
// holds nothing more, and clears kHas48 after the last one.
void PrefixMap::release48(Word hi, Word* a, Word* b) {
   bool last = uncount(countKey(underAnchor, slotKeyOf(kind32, hi), 0));
   bool empty = idle(b);
   if (!last && !empty) return;
   Word m = openEntry(a[0]);
   if (empty) dropSlot(b);
   if (last) storeWord(a[3], loadWord(a[3]) & ~kHas48);
   closeEntry(a[0], m, m);
}

// After a prefix longer than /24 left the IPv6 root entry above `hi`: drops the /32
// anchor `a` if it holds nothing more, and clears the /20's anchor bit after its last
// prefix.
void PrefixMap::release32(Word hi, Word* a) {
   Word ri = hi >> 48;
   bool last = uncount(countKey(underRoot6, hi >> 44, 0));
   bool empty = a && idle(a);
   if (!last && !empty) return;
   Word& rootMeta = root6()[ri * 2];
   Word m = openEntry(rootMeta);
   if (empty) dropSlot(a);
   closeEntry(rootMeta, last ? withDirectBits(m, directBits(m) & ~anchorsBit(hi)) : m, m);
}

void PrefixMap::insert6(const PrefixKey& prefix, std::uint64_t value, bool added) {
   Word hi = bigEndian64(prefix.bytes);
   unsigned len = prefix.length;
   PrefixMatch to{prefix.length, value};
   if (len <= 8) {
      map_.insert(prefix, value);
      expandDirect(short6(), hi >> 56, Word(1) << (8 - len), len, to, true);
      return;
   }
   if (len <= 16) {
      map_.insert(prefix, value);
      expandDirect(root6(), hi >> 48, Word(1) << (16 - len), len, to, true);
      return;
   }
   Word ri = hi >> 48;
   if (len <= 24) {
      bool first = added && counts_[countKey(underRoot6, ri, 24)]++ == 0;
      Word& rootMeta = root6()[ri * 2];
      Word m = openEntry(rootMeta);
      map_.insert(prefix, value);
      expandHashed(kind24, hi, len, to, true);
      closeEntry(rootMeta, first ? m | kHas24 : m, m);
      return;
   }
   if (len <= 32) {
      bool first = added && counts_[countKey(underRoot6, hi >> 44, 0)]++ == 0;
      Word& rootMeta = root6()[ri * 2];
      Word m = openEntry(rootMeta);
      map_.insert(prefix, value);
      expandHashed(kind32, hi, len, to, true);
      closeEntry(rootMeta, first ? withDirectBits(m, directBits(m) | anchorsBit(hi)) : m,
                 m);
      return;
   }
   Word* a = anchor32(hi, added);
   Word key32 = slotKeyOf(kind32, hi);
   if (len <= 40) {
      bool first = added && counts_[countKey(underAnchor, key32, len)]++ == 0;
      Word m = openEntry(a[0]);
      map_.insert(prefix, value);
      if (first) markLength(a, kind32, len, true);
      closeEntry(a[0], m, m);
      return;
   }
   if (len <= 48) {
      bool first = added && counts_[countKey(underAnchor, key32, 0)]++ == 0;
      Word m = openEntry(a[0]);
      map_.insert(prefix, value);
      expandHashed(kind48, hi, len, to, true);
      if (first) storeWord(a[3], loadWord(a[3]) | kHas48);
      closeEntry(a[0], m, m);
      return;
   }
   Word* b = anchor48(hi, a, added);
   bool first =
       added && counts_[countKey(underAnchor, slotKeyOf(kind48, hi), len)]++ == 0;
   Word m = openEntry(b[0]);
   map_.insert(prefix, value);
   if (first) markLength(b, kind48, len, true);
   closeEntry(b[0], m, m);
}

void PrefixMap::erase6(const PrefixKey& prefix) {
   Word hi = bigEndian64(prefix.bytes);
   unsigned len = prefix.length;
   if (len <= 8) {
      map_.erase(prefix);
      expandDirect(short6(), hi >> 56, Word(1) << (8 - len), len, coverBelow(prefix, 0),
                   false);
      return;
   }
   if (len <= 16) {
      map_.erase(prefix);
      expandDirect(root6(), hi >> 48, Word(1) << (16 - len), len, coverBelow(prefix, 9),
                   false);
      return;
   }
   Word ri = hi >> 48;
   if (len <= 32) {
      Kind kind = len <= 24 ? kind24 : kind32;
      auto cover = coverBelow(prefix, kLevel[kind] - 7);
      bool last = uncount(kind == kind24 ? countKey(underRoot6, ri, 24)
                                         : countKey(underRoot6, hi >> 44, 0));
      Word& rootMeta = root6()[ri * 2];
      Word m = openEntry(rootMeta);
      map_.erase(prefix);
      expandHashed(kind, hi, len, cover, false);
      Word fields = m;
      if (last)
         fields = kind == kind24 ? m & ~kHas24
                                 : withDirectBits(m, directBits(m) & ~anchorsBit(hi));
      closeEntry(rootMeta, fields, m);
      return;
   }
   Word key32 = slotKeyOf(kind32, hi);
   Word* a = findSlot(key32);
   VELT_ASSERT(a != nullptr);
   if (len <= 40) {
      bool last = uncount(countKey(underAnchor, key32, len));
      Word m = openEntry(a[0]);
      map_.erase(prefix);
      if (last) markLength(a, kind32, len, false);
      closeEntry(a[0], m, m);
   } else if (len <= 48) {
      auto cover = coverBelow(prefix, 41);
      bool last = uncount(countKey(underAnchor, key32, 0));
      Word m = openEntry(a[0]);
      map_.erase(prefix);
      expandHashed(kind48, hi, len, cover, false);
      if (last) storeWord(a[3], loadWord(a[3]) & ~kHas48);
      closeEntry(a[0], m, m);
   } else {
      Word* b = findSlot(slotKeyOf(kind48, hi));
      VELT_ASSERT(b != nullptr);
      bool last = uncount(countKey(underAnchor, slotKeyOf(kind48, hi), len));
      Word m = openEntry(b[0]);
      map_.erase(prefix);
      if (last) markLength(b, kind48, len, false);
      closeEntry(b[0], m, m);
      release48(hi, a, b);
   }
   release32(hi, a);
}

} // namespace Table
