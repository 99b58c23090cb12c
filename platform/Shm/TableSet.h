// A writer's set of table files: made in a fresh subdirectory of the table directory and
// published whole, with the layout beside the tables, by one atomic rename of the
// "current" link. Readers resolve the link once when they start, so they never see a
// layout with another writer's tables, nor a set that a writer left half-made.
#pragma once
#include <optional>
#include <string>

namespace Shm {

inline constexpr const char* currentLinkName = "current";

// The directory of the set published in `dir` ("<dir>/set-N"), or nullopt when none was.
// Raises Pelin::Exception when the link names anything but a set.
std::optional<std::string> publishedSet(const std::string& dir);

class TableSet {
 public:
   // Makes "<dir>/set-N", N past every set there, after removing the sets that the link
   // does not name (what killed or failed writers left). Hold the writer lock meanwhile.
   explicit TableSet(const std::string& dir);
   // Removes the set unless it was published.
   ~TableSet();
   TableSet(const TableSet&) = delete;
   TableSet& operator=(const TableSet&) = delete;

   const std::string& path() const { return path_; }
   // Points the link at the set in one rename, then removes every other set but the one
   // it replaced, which readers starting at this moment may still be opening.
   void publish();

 private:
   std::string dir_;
   std::string name_;
   std::string path_;
   bool published_ = false;
};

} // namespace Shm
