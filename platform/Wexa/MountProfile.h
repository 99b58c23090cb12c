// Mount profiles: named lists of the paths an agent or plugin mounts, loaded from profile
// files; Wexa::MountFileInfo says which profiles are loaded.
#pragma once
#include "Wexa/MountStatus.h"

#include <map>
#include <string>
#include <vector>

namespace Wexa {

struct MountEntry {
   std::string path;
   std::string typeName;
   MountInfo info;
   friend bool operator==(const MountEntry&, const MountEntry&) = default;
};

struct MountProfile {
   std::string name;
   std::vector<MountEntry> mounts;
};

class MountFileInfo {
 public:
   bool profileLoaded(const std::string& name) const { return profiles_.count(name) != 0; }
   // Null when not loaded.
   const MountProfile* profile(const std::string& name) const;
   void profileIs(MountProfile profile);
   void profileDel(const std::string& name) { profiles_.erase(name); }

   // Loads one profile file; the profile is named after the file, without ".profile".
   // Each line is "<path> <typeName> [<mountType> [<mode>]]"; '#' starts a comment. A
   // malformed line raises Pelin::Exception naming the file and line.
   void loadProfileFile(const std::string& file);
   // Loads every "*.profile" file of `dir`; returns how many. A missing directory loads none.
   std::size_t loadProfileDir(const std::string& dir);

 private:
   std::map<std::string, MountProfile> profiles_;
};

} // namespace Wexa
