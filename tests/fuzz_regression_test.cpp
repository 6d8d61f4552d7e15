// Inputs that once crashed a fuzz target or failed its checks, kept in
// fuzz/regressions/<target>/, go through that target's checks again here, in
// every build of the suite.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "../fuzz/checks.h"
#include "component_test_support.h"

namespace formwiz::fuzz {
namespace {

namespace fs = std::filesystem;

TEST(FuzzRegressions, EachKeptInputPassesItsTargetsChecks) {
  const fs::path kept = fs::path(FORMWIZ_SOURCE_DIR) / "fuzz" / "regressions";
  for (const Target& target : kTargets) {
    const fs::path folder = kept / target.name;
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) {
      SCOPED_TRACE(entry.path().string());
      EXPECT_EQ(target.check(ReadAll(entry.path())), "");
    }
  }
}

}  // namespace
}  // namespace formwiz::fuzz
