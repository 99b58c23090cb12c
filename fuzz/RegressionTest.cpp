// Every kept input of every fuzz target (its seed corpus and the inputs of past findings)
// replayed in the normal suite, so that a fixed fault cannot come back unnoticed where no
// fuzzer runs. An input fails the test by crashing it or by an escaping exception.
#include "FuzzInput.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

class FuzzRegression : public testing::TestWithParam<Fuzz::Target> {};

TEST_P(FuzzRegression, KeptInputsRunClean) {
   const Fuzz::Target& target = GetParam();
   int inputs = 0;
   for (const char* kept : {"corpus", "regressions"}) {
      const fs::path dir = fs::path(VELT_FUZZ_DIR) / std::string(target.name) / kept;
      if (!fs::is_directory(dir)) continue;
      for (const auto& entry : fs::directory_iterator(dir)) {
         if (!entry.is_regular_file()) continue;
         SCOPED_TRACE(entry.path().string());
         const std::vector<std::uint8_t> bytes = Fuzz::readFile(entry.path());
         EXPECT_NO_THROW(target.run(bytes));
         ++inputs;
      }
   }
   EXPECT_GT(inputs, 0) << "no seed inputs for " << target.name;
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzRegression, testing::ValuesIn(Fuzz::targets().begin(),
                                                                   Fuzz::targets().end()),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
