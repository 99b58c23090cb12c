// The reader side of the shared-memory tests: reads one key from attached tables and
// sorts the outcome (whole, absent, torn, reported corrupt), keeping count.
#pragma once
#include "VersionedRecords.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace ShmTest {

struct ReadTally {
   std::uint64_t reads = 0;
   std::uint64_t whole = 0;
   std::uint64_t absent = 0;
   std::uint64_t absentStable = 0;   // absent, though writers never erase the key
   std::uint64_t torn = 0;           // found, but mixing versions
   std::uint64_t corrupt = 0;        // CorruptionDetectedException
   std::uint64_t versionChanges = 0; // a key seen at a version other than last time
   std::chrono::nanoseconds slowest{0};
   std::string lastCorruption;
};

// Reads FECs and neighbour entries through one pair of attachments. Any exception other
// than a corruption report escapes to the test.
class RecordReader {
 public:
   RecordReader(const Quarn::FibGen::ForwardingStatus& fwd,
                const Arp::Table::Status& neighbors);

   void readFec(std::uint32_t key);
   void readNeighbor(std::uint32_t key);
   // Both records of every key once.
   void readAll();

   const ReadTally& tally() const { return tally_; }

 private:
   template <typename Read>
   void timed(Read&& read);
   void seen(std::uint32_t& last, std::uint32_t version);
   void missing(std::uint32_t key);

   const Quarn::FibGen::ForwardingStatus& fwd_;
   const Arp::Table::Status& neighbors_;
   std::unique_ptr<Quarn::FibGen::Fec> scratch_; // large: kept off the stack, reused
   std::uint32_t lastFec_[kAllKeys] = {};
   std::uint32_t lastNeighbor_[kAllKeys] = {};
   ReadTally tally_;
};

} // namespace ShmTest
