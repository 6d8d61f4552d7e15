// The exported pages are valid HTML by the Nu Html Checker, without a
// warning either: a page holding either form choice of the bundled orb, and
// one full of typed markup with fields renamed and moved. One run of the
// checker over all pages keeps the Java start-up to one. Every other orb's
// pages are checked by tests/pages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "component_test_support.h"

namespace formwiz {
namespace {

using namespace html_check;
using VnuTest = ProgramTest;

TEST_F(VnuTest, ExportedPagesHaveNoErrorsOrWarnings) {
  const std::string jar = ToolPath("FORMWIZ_VNU_JAR", FORMWIZ_VNU_JAR);
  // scripts/bootstrap installs the jar when java and npm are there and the
  // npm registry answers.
  const std::string java = "/usr/bin/java";
  std::string missing = Missing(jar);
  if (missing.empty()) missing = Missing(java);
  if (!missing.empty()) GTEST_SKIP() << missing;

  std::vector<std::string> args = {
      java, "-jar", jar, "--exit-zero-always", "--stdout", "--format", "json"};
  for (const auto& [name, steps] : {std::pair{"comment-form", ChoiceSteps(0)},
                                    {"request-form", ChoiceSteps(1)},
                                    {"typed-markup", HostileSteps()}}) {
    args.push_back(MakePage(name, steps));
    ASSERT_FALSE(args.back().empty());
  }
  const ProgramRun run = RunProgram(args);
  ASSERT_EQ(run.status, 0) << run.err;
  const script::Json report = script::Json::parse(run.out, nullptr, false);
  ASSERT_TRUE(report.contains("messages")) << run.out << run.err;
  for (const auto& m : report["messages"]) {
    ADD_FAILURE() << m.value("url", "") << ":" << m.value("lastLine", 0) << ": "
                  << m.value("type", "") << ": " << m.value("message", "")
                  << "\n  " << m.value("extract", "");
  }
}

}  // namespace
}  // namespace formwiz
