// Processes of the soak test: velt runs with their output in a file, a pcap stream fed
// into a FIFO, and a process's resident memory.
#pragma once
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace ShmSoak {

struct Outcome {
   int status = -1; // exit status, when it exited
   int signal = 0;  // the signal that ended it, if one did
   std::string out; // stdout and stderr
};

class Child {
 public:
   Child(pid_t pid, std::filesystem::path out) : pid(pid), out_(std::move(out)) {}
   Child(const Child&) = delete;
   Child& operator=(const Child&) = delete;
   ~Child();

   void kill(); // SIGKILL, then reaped
   // Waits at most `limit`, then kills it (the outcome then names SIGKILL).
   Outcome wait(std::chrono::seconds limit = std::chrono::seconds(60));

   pid_t pid;

 private:
   std::filesystem::path out_;
   bool reaped_ = false;
};

// Starts the velt under test with `args`, `env` added to this environment.
Child spawnVelt(const std::vector<std::string>& args, const std::vector<std::string>& env,
                const std::filesystem::path& out);
// Runs it to the end; `targets` (space-separated) are appended to `args`.
Outcome runVelt(std::vector<std::string> args, const std::string& targets,
            const std::vector<std::string>& env, const std::filesystem::path& out);

// Writes the pcap `pcap` into `fifo` again and again (one header, then its packets over
// and over) until `until`, then closes it.
void feedPackets(const std::filesystem::path& fifo, const std::string& pcap,
                 std::chrono::steady_clock::time_point until);

// VmRSS of `pid` in kB, or 0 when it is gone.
long residentKb(pid_t pid);

} // namespace ShmSoak
