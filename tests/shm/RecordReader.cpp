// Reads and classifies records of the shared tables for the tests.
#include "RecordReader.h"

namespace ShmTest {

RecordReader::RecordReader(const Quarn::FibGen::ForwardingStatus& fwd,
                           const Arp::Table::Status& neighbors)
    : fwd_(fwd), neighbors_(neighbors), scratch_(std::make_unique<Quarn::FibGen::Fec>()) {
}

template <typename Read>
void RecordReader::timed(Read&& read) {
   auto start = std::chrono::steady_clock::now();
   ++tally_.reads;
   try {
      read();
   } catch (const Pelin::CorruptionDetectedException& e) {
      ++tally_.corrupt;
      tally_.lastCorruption = e.what();
   }
   tally_.slowest = std::max(tally_.slowest, std::chrono::steady_clock::now() - start);
}

void RecordReader::seen(std::uint32_t& last, std::uint32_t version) {
   if (last != version) ++tally_.versionChanges;
   last = version;
   ++tally_.whole;
}

void RecordReader::missing(std::uint32_t key) {
   ++tally_.absent;
   if (key < kStableKeys) ++tally_.absentStable;
}

void RecordReader::readFec(std::uint32_t key) {
   timed([&] {
      if (!fwd_.fecInto(fecIdOf(key), *scratch_)) {
         missing(key);
      } else if (auto version = wholeVersionOf(*scratch_)) {
         seen(lastFec_[key], *version);
      } else {
         ++tally_.torn;
      }
   });
}

void RecordReader::readNeighbor(std::uint32_t key) {
   timed([&] {
      Arp::Table::ArpKey k = neighborKeyOf(key);
      Arp::Table::ArpEntry entry = mapOf(neighbors_, k).find(k);
      if (entry == Arp::Table::ArpEntry()) {
         missing(key);
      } else if (auto version = wholeVersionOf(entry)) {
         seen(lastNeighbor_[key], *version);
      } else {
         ++tally_.torn;
      }
   });
}

void RecordReader::readAll() {
   for (std::uint32_t k = 0; k < kAllKeys; ++k) {
      readFec(k);
      readNeighbor(k);
   }
}

} // namespace ShmTest
