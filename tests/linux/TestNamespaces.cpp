#include "TestNamespaces.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <fstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace KernelDiff {

CommandResult runCommand(const std::string& command) {
   CommandResult r;
   FILE* p = popen((command + " 2>&1").c_str(), "r");
   if (!p) return r;
   std::array<char, 4096> buf;
   while (std::size_t n = std::fread(buf.data(), 1, buf.size(), p)) r.output.append(buf.data(), n);
   const int status = pclose(p);
   r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   return r;
}

namespace {

std::string uniqueName(const std::string& role) {
   static int counter = 0;
   return "vlt" + std::to_string(getpid()) + "-" + std::to_string(++counter) + role;
}

std::string scratchFile(const std::string& ns) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + ns + ".batch";
}

} // namespace

TestNamespaces::~TestNamespaces() {
   for (const std::string& name : names_) runCommand("ip netns del " + name);
}

std::string TestNamespaces::add(const std::string& role) {
   const std::string name = uniqueName(role);
   CommandResult r = runCommand("ip netns add " + name);
   if (r.status != 0) throw std::runtime_error("ip netns add " + name + ": " + r.output);
   names_.push_back(name);
   batch(name, {"link set lo up"});
   return name;
}

void TestNamespaces::addVeths(const std::string& ns, const std::string& peer, int count) {
   std::vector<std::string> here, there;
   for (int i = 1; i <= count; ++i) {
      const std::string e = "e" + std::to_string(i), p = "p" + std::to_string(i);
      here.push_back("link add " + e + " type veth peer name " + p + " netns " + peer);
      here.push_back("link set " + e + " addrgenmode none");
      here.push_back("link set " + e + " up");
      there.push_back("link set " + p + " addrgenmode none");
      there.push_back("link set " + p + " up");
   }
   batch(ns, here);
   batch(peer, there);
}

void TestNamespaces::batch(const std::string& ns, const std::vector<std::string>& lines,
                           const std::string& options) {
   const std::string path = scratchFile(ns);
   {
      std::ofstream out(path);
      for (const std::string& line : lines) out << line << "\n";
   }
   CommandResult r = runCommand("ip -n " + ns + " " + options + " -batch " + path);
   std::remove(path.c_str());
   if (r.status != 0) throw std::runtime_error("setting up " + ns + ": " + r.output);
}

namespace {

// Namespaces left by a test process that died before it could remove them (a crash, a
// kill): "vlt<pid>-..." of a pid that no longer runs.
void removeOrphans() {
   std::istringstream names(runCommand("ip netns list").output);
   for (std::string line; std::getline(names, line);) {
      const std::string name = line.substr(0, line.find(' '));
      if (name.rfind("vlt", 0) != 0) continue;
      const std::string pid = name.substr(3, name.find('-') - 3);
      if (pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos) continue;
      if (!std::filesystem::exists("/proc/" + pid)) runCommand("ip netns del " + name);
   }
}

} // namespace

const std::string& namespaceProblem() {
   static const std::string problem = [] {
      const std::string name = "vlt" + std::to_string(getpid()) + "-probe";
      CommandResult r = runCommand("ip netns add " + name);
      while (!r.output.empty() && std::isspace(static_cast<unsigned char>(r.output.back()))) {
         r.output.pop_back();
      }
      if (r.status != 0) {
         return "ip netns add failed: " + (r.output.empty() ? "exit " + std::to_string(r.status)
                                                              : r.output);
      }
      runCommand("ip netns del " + name);
      removeOrphans();
      return std::string();
   }();
   return problem;
}

} // namespace KernelDiff
