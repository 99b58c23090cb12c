// A table file takes its whole size from its file system when it is made: a full file
// system, or a file size limit, is an error naming the file, its size and the directory,
// and nothing of the file is left behind.
#include "ScratchDir.h"
#include "SmallFileSystem.h"
#include "VersionedRecords.h"

#include "Pelin/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace {

using namespace ShmTest;
using Quarn::FibGen::ForwardingStatus;
using testing::ContainsRegex;
using testing::HasSubstr;

std::string makeTables(const std::string& base) {
   try {
      ForwardingStatus::createFiles("t", base, forwardingCapacity());
   } catch (const Pelin::Exception& e) {
      return e.what();
   }
   return "made";
}

std::vector<std::string> filesIn(const std::string& dir) {
   std::vector<std::string> out;
   for (const auto& e : std::filesystem::directory_iterator(dir)) {
      out.push_back(e.path().filename().string());
   }
   return out;
}

TEST(ShmFullFileSystem, AFileWithoutRoomIsRefusedNamingFileSizeAndDirectory) {
   ScratchDir scratch("full");
   SmallFileSystem fs(scratch.path() + "/mnt", 64 << 10);
   if (!fs.mounted()) GTEST_SKIP() << fs.whyNot();
   const std::string message = makeTables(fs.path() + "/t");
   EXPECT_THAT(message, ContainsRegex("^table file " + fs.path() +
                                      "/t.(fecs|routes): cannot reserve its [0-9]+ bytes in " +
                                      fs.path() + ": No space left on device$"));
   EXPECT_THAT(filesIn(fs.path()), testing::IsEmpty()) << "a temporary was left";
}

// The same through a file size limit, which needs no mount: in a child process, so that
// the limit stays there.
TEST(ShmFullFileSystem, AFileAboveTheSizeLimitIsRefusedTheSameWay) {
   ScratchDir scratch("fsize");
   int pipeFds[2];
   ASSERT_EQ(::pipe(pipeFds), 0);
   const pid_t child = ::fork();
   if (child == 0) {
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{64 << 10, 64 << 10};
      ::setrlimit(RLIMIT_FSIZE, &limit);
      const std::string message = makeTables(scratch.base("t"));
      [[maybe_unused]] auto n = ::write(pipeFds[1], message.data(), message.size());
      ::_exit(0);
   }
   ::close(pipeFds[1]);
   std::string message;
   char buf[512];
   for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;)
      message.append(buf, n);
   ::close(pipeFds[0]);
   int status = 0;
   ::waitpid(child, &status, 0);
   EXPECT_TRUE(WIFEXITED(status)) << "the limit killed the writer";
   EXPECT_THAT(message,
               ContainsRegex("table file " + scratch.base("t") +
                             ".(fecs|routes): cannot reserve its [0-9]+ bytes"));
   EXPECT_THAT(message, HasSubstr("File too large"));
   EXPECT_THAT(filesIn(scratch.path()), testing::IsEmpty());
}

} // namespace
