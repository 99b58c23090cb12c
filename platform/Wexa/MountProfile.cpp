#include "Wexa/MountProfile.h"

#include "Pelin/Exception.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Wexa {

const MountProfile* MountFileInfo::profile(const std::string& name) const {
   auto it = profiles_.find(name);
   return it == profiles_.end() ? nullptr : &it->second;
}

void MountFileInfo::profileIs(MountProfile profile) {
   std::string name = profile.name;
   profiles_[name] = std::move(profile);
}

namespace {

MountEntry parseLine(const std::string& line, const std::string& where) {
   std::istringstream in(line);
   MountEntry mount;
   in >> mount.path >> mount.typeName;
   if (mount.typeName.empty()) {
      throw Pelin::Exception(where + ": expected \"<path> <typeName> [<mountType> [<mode>]]\"");
   }
   std::string type, mode, extra;
   if (in >> type) {
      try {
         std::size_t used = 0;
         mount.info.type = static_cast<std::uint32_t>(std::stoul(type, &used));
         if (used != type.size()) throw std::invalid_argument(type);
      } catch (const std::logic_error&) {
         throw Pelin::Exception(where + ": mount type \"" + type + "\" is not a number");
      }
   }
   if (in >> mode) {
      if (mode != "r" && mode != "w") {
         throw Pelin::Exception(where + ": mode \"" + mode + "\" is neither r nor w");
      }
      mount.info.mode = mode;
   }
   if (in >> extra) throw Pelin::Exception(where + ": unexpected \"" + extra + "\"");
   return mount;
}

} // namespace

void MountFileInfo::loadProfileFile(const std::string& file) {
   std::ifstream in(file);
   if (!in) throw Pelin::Exception(file + ": cannot read mount profile");
   MountProfile profile;
   profile.name = std::filesystem::path(file).stem().string();
   std::string line;
   for (int number = 1; std::getline(in, line); ++number) {
      if (auto hash = line.find('#'); hash != std::string::npos) line.erase(hash);
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      profile.mounts.push_back(parseLine(line, file + ":" + std::to_string(number)));
   }
   profileIs(std::move(profile));
}

std::size_t MountFileInfo::loadProfileDir(const std::string& dir) {
   std::error_code ec;
   std::size_t loaded = 0;
   for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
      if (entry.path().extension() != ".profile") continue;
      loadProfileFile(entry.path().string());
      ++loaded;
   }
   return loaded;
}

} // namespace Wexa
