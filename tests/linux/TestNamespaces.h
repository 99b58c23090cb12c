// Network namespaces a test builds for itself, named after the process so that concurrent
// test runs never meet, and removed by name when the owner goes, also after a failed
// assertion.
#pragma once
#include <string>
#include <vector>

namespace KernelDiff {

struct CommandResult {
   int status = -1;
   std::string output; // stdout and stderr together
};
// Runs a shell command line.
CommandResult runCommand(const std::string& command);

class TestNamespaces {
 public:
   TestNamespaces() = default;
   ~TestNamespaces();
   TestNamespaces(const TestNamespaces&) = delete;
   TestNamespaces& operator=(const TestNamespaces&) = delete;

   // A fresh namespace with lo up, "vlt<pid>-<n><role>"; raises std::runtime_error with
   // the command's message when it cannot be made.
   std::string add(const std::string& role);
   // Veth pairs e1..eN in `ns` to p1..pN in `peer`, all up, without IPv6 link-local
   // addresses (no chatter, and nothing the test did not ask for).
   static void addVeths(const std::string& ns, const std::string& peer, int count);
   // Runs `ip -batch` lines inside namespace `ns`; raises std::runtime_error naming the
   // failing line.
   // `options` go before -batch, e.g. "-6" for rules of IPv6.
   static void batch(const std::string& ns, const std::vector<std::string>& lines,
                     const std::string& options = "");

 private:
   std::vector<std::string> names_;
};

// Empty when this process may make namespaces; else the reason, for a skip message.
const std::string& namespaceProblem();

} // namespace KernelDiff
