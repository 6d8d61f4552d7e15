// The exported pages are valid HTML by the Nu Html Checker: a page holding
// either form choice of the bundled orb, and one full of typed markup with
// fields renamed and moved. One run of the checker over all pages keeps the
// Java start-up to one.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "html_page_support.h"

namespace formwiz {
namespace {

namespace fs = std::filesystem;
using html_check::Json;
using html_check::ScratchDir;

TEST(VnuTest, ExportedPagesHaveNoErrors) {
  const std::string jar =
      html_check::ToolPath("FORMWIZ_VNU_JAR", FORMWIZ_VNU_JAR);
  // scripts/bootstrap installs the jar when java and npm are there and the
  // npm registry answers.
  const std::string java = "/usr/bin/java";
  std::string missing = html_check::Missing(jar);
  if (missing.empty()) missing = html_check::Missing(java);
  if (!missing.empty()) GTEST_SKIP() << missing;

  const std::vector<std::pair<std::string, Json>> pages = {
      {"comment-form", html_check::ChoiceSteps(0)},
      {"request-form", html_check::ChoiceSteps(1)},
      {"typed-markup", html_check::HostileSteps()},
  };
  ScratchDir dir;
  std::vector<std::string> args = {
      java,       "-jar",     jar,   "--errors-only", "--exit-zero-always",
      "--stdout", "--format", "json"};
  for (const auto& [name, steps] : pages) {
    const fs::path page = html_check::MakePage(dir, name, steps);
    ASSERT_FALSE(page.empty());
    args.push_back(page.string());
  }
  const html_check::RunResult run = html_check::RunBounded(120, args, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const Json report = Json::parse(run.out, nullptr, false);
  ASSERT_TRUE(report.contains("messages")) << run.out << run.err;
  for (const auto& m : report["messages"]) {
    ADD_FAILURE() << m.value("url", "") << ":" << m.value("lastLine", 0) << ": "
                  << m.value("type", "") << ": " << m.value("message", "")
                  << "\n  " << m.value("extract", "");
  }
}

}  // namespace
}  // namespace formwiz
