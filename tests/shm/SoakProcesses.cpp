#include "SoakProcesses.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace ShmSoak {

namespace {

std::string readAll(const std::filesystem::path& path) {
   std::ifstream in(path);
   return std::string(std::istreambuf_iterator<char>(in), {});
}

Outcome outcome(int status, const std::filesystem::path& out) {
   Outcome r;
   if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
   if (WIFSIGNALED(status)) r.signal = WTERMSIG(status);
   r.out = readAll(out);
   return r;
}

} // namespace

Child::~Child() {
   if (!reaped_) kill();
}

void Child::kill() {
   ::kill(pid, SIGKILL);
   int status = 0;
   ::waitpid(pid, &status, 0);
   reaped_ = true;
}

Outcome Child::wait(std::chrono::seconds limit) {
   const auto until = std::chrono::steady_clock::now() + limit;
   int status = 0;
   // A process that never ends is a finding, not a reason for the test to hang.
   while (::waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() >= until) {
         ::kill(pid, SIGKILL);
         ::waitpid(pid, &status, 0);
         break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
   }
   reaped_ = true;
   return outcome(status, out_);
}

Child spawnVelt(const std::vector<std::string>& args, const std::vector<std::string>& env,
                const std::filesystem::path& out) {
   std::vector<std::string> argStore{VELT_BIN};
   argStore.insert(argStore.end(), args.begin(), args.end());
   std::vector<char*> argv;
   for (auto& a : argStore)
      argv.push_back(a.data());
   argv.push_back(nullptr);
   std::vector<std::string> envStore(env);
   for (char** e = environ; *e; ++e)
      envStore.emplace_back(*e);
   std::vector<char*> envp;
   for (auto& e : envStore)
      envp.push_back(e.data());
   envp.push_back(nullptr);

   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init(&actions);
   posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                    O_WRONLY | O_CREAT | O_TRUNC, 0600);
   posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
   pid_t pid = -1;
   const int err =
       ::posix_spawn(&pid, VELT_BIN, &actions, nullptr, argv.data(), envp.data());
   posix_spawn_file_actions_destroy(&actions);
   if (err != 0) throw std::runtime_error("cannot start " VELT_BIN);
   return Child(pid, out);
}

Outcome runVelt(std::vector<std::string> args, const std::string& targets,
            const std::vector<std::string>& env, const std::filesystem::path& out) {
   std::istringstream in(targets);
   for (std::string t; in >> t;)
      args.push_back(t);
   return spawnVelt(args, env, out).wait();
}

void feedPackets(const std::filesystem::path& fifo, const std::string& pcap,
                 std::chrono::steady_clock::time_point until) {
   constexpr std::size_t kHeaderBytes = 24;
   const std::string bytes = readAll(pcap);
   ::signal(SIGPIPE, SIG_IGN); // a reader that died shows in its exit status instead
   // Not blocking on a reader that never came: it failed at start, as its status shows.
   int fd = -1;
   while ((fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK)) < 0 &&
          std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
   }
   if (fd < 0) return;
   ::fcntl(fd, F_SETFL, 0);
   auto put = [fd](const char* p, std::size_t n) {
      while (n) {
         const ssize_t w = ::write(fd, p, n);
         if (w <= 0) return false;
         p += w;
         n -= static_cast<std::size_t>(w);
      }
      return true;
   };
   bool open = put(bytes.data(), kHeaderBytes);
   while (open && std::chrono::steady_clock::now() < until) {
      open = put(bytes.data() + kHeaderBytes, bytes.size() - kHeaderBytes);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
   }
   ::close(fd);
}

long residentKb(pid_t pid) {
   std::ifstream status("/proc/" + std::to_string(pid) + "/status");
   for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
   }
   return 0;
}

} // namespace ShmSoak
