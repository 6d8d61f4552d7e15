// `formwiz assemble` as a user runs it: small definitions for the rules of
// the command, and the ways input can be unusable. The HTML of the bundled
// orb's choices is checked where the component writes it, in the scenarios
// (new-form-each-choice.json).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "component_test_support.h"

namespace formwiz {
namespace {

using CliAssembleTest = ProgramTest;

TEST_F(CliAssembleTest, SmallDefinitionsFollowTheCommit) {
  const struct {
    const char* name;
    std::string definition;
    std::vector<std::string> options;
    std::string html;
  } kCases[] = {
      {"index from qln_FormIndex, template filled",
       R"(<impl><template name="t"><input name="[fieldname]"/></template>)"
       R"(<form><input type="hidden" name="qln_FormIndex" value="2"/>)"
       R"(<section name="a" template="t" included="yn"/>)"
       R"(<section name="b" template="t" included="ny"/></form></impl>)",
       {},
       R"(<form><input type="hidden" name="qln_SortOrder" value="b">)"
       R"(<input type="hidden" name="qln_FormIndex" value="2">)"
       R"(<input name="b"></form>)"},
      {"option beats qln_FormIndex; impl found below the top",
       R"(<orb><impl><form><input type="hidden" name="qln_FormIndex" )"
       R"(value="2"/><section included="yn"><br/></section></form></impl>)"
       R"(</orb>)",
       {"--form-index", "1"},
       R"(<form><input type="hidden" name="qln_SortOrder" value="">)"
       R"(<input type="hidden" name="qln_FormIndex" value="2"><br></form>)"},
      {"assembly takes the first form, the HTML is the last",
       R"(<impl><form><section included="y"/></form><form id="z"/></impl>)",
       {"--form-index", "1"},
       R"(<form id="z"><input type="hidden" name="qln_SortOrder" )"
       R"(value=""></form>)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args = {"assemble",
                                     WriteTemp("small.xml", c.definition)};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, c.html + "\n");
    // The same definition on standard input.
    args[1] = "-";
    EXPECT_EQ(RunFormwiz(args, c.definition).out, c.html + "\n");
  }
}

// Malformed and hostile definitions are cli_hostile_test's.
TEST_F(CliAssembleTest, UnusableInputFailsWithOneReason) {
  const std::string index = R"(<input type="hidden" name="qln_FormIndex" )";
  const struct {
    std::string definition;  // empty: the file does not exist
    std::string option;      // the value of --form-index, if any
    int status;
    std::string err;
    bool one_line;  // a problem of the input, not a report
  } kCases[] = {
      {"", "", 1, "cannot read: No such file", true},
      {"<orb><form/></orb>", "", 1, "holds no impl element", true},
      {"<impl><div><form/></div></impl>", "", 1,
       "Error: Internal Error in Form Wizard: 105\n", false},
      {"<impl><form>" + index + R"(value="40000"/></form></impl>)", "", 1,
       "Internal Error in Form Wizard: 102", false},
      {"<impl><form/></impl>", "40000", 2, "--form-index", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.err);
    std::vector<std::string> args = {
        "assemble", c.definition.empty() ? TempPath("no/such.qlo")
                                         : WriteTemp("bad.xml", c.definition)};
    if (!c.option.empty()) args.insert(args.end(), {"--form-index", c.option});
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    if (c.one_line) {
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
  }
}

TEST_F(CliAssembleTest, CommandLineNamesItsSubcommands) {
  const ProgramRun help = RunFormwiz({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("assemble"), std::string::npos) << help.out;
  EXPECT_EQ(RunFormwiz({}).status, 2);
  EXPECT_EQ(RunFormwiz({"assemble"}).status, 2);
}

}  // namespace
}  // namespace formwiz
