// `formwiz assemble` as a user runs it: the bundled orb for each form choice,
// small definitions for the rules of the command, and the ways input can be
// unusable. Runs the built program (FORMWIZ_BIN, set by ctest).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace {

struct Result {
  int status;
  std::string out, err;
};

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A file of this test process: ctest runs the tests of this file in
// parallel processes that share the temporary folder.
std::string TempPath(const std::string& name) {
  return testing::TempDir() + "cli_assemble_" + std::to_string(getpid()) + "_" +
         name;
}

std::string WriteTemp(const std::string& name, const std::string& text) {
  const std::string path = TempPath(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

// Runs the program with `args`; output and errors go through files, which
// unlike pipes cannot fill up and stall it.
Result Formwiz(std::vector<std::string> args, const std::string& input = "") {
  const char* bin = std::getenv("FORMWIZ_BIN");
  const std::string in = WriteTemp("stdin", input);
  const std::string out = TempPath("stdout");
  const std::string err = TempPath("stderr");
  args.insert(args.begin(), bin);
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open(in.c_str(), O_RDONLY), 0);
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    execv(bin, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(out), Slurp(err)};
}

class CliAssembleTest : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("FORMWIZ_BIN") == nullptr) {
      GTEST_SKIP() << "FORMWIZ_BIN is not set; run through ctest";
    }
  }
};

// The names of the data fields in the HTML, in order, joined as
// qln_SortOrder joins them.
std::string FieldNames(const std::string& html) {
  static const std::regex kField(
      R"re(<(input|textarea) [^>]*name="([^"]*)")re");
  std::string names;
  for (std::sregex_iterator it(html.begin(), html.end(), kField), end;
       it != end; ++it) {
    if ((*it)[2] == "qln_SortOrder") continue;
    names += (names.empty() ? "" : ",") + (*it)[2].str();
  }
  return names;
}

int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (auto at = text.find(what); at != std::string::npos;
       at = text.find(what, at + 1)) {
    ++n;
  }
  return n;
}

TEST_F(CliAssembleTest, BundledOrbGivesTheHtmlOfEachChoice) {
  const std::string orb = FORMWIZ_SOURCE_DIR "/orbs/form/form.qlo";
  const struct {
    const char* index;
    std::string fields;
  } kChoices[] = {
      {"1", "Name,Email,Subject,Comments"},
      {"2", "Name,Email,Phone,Address1,City,State,PostalCode,Request"},
  };
  for (const auto& choice : kChoices) {
    SCOPED_TRACE(choice.index);
    const Result run = Formwiz({"assemble", orb, "--form-index", choice.index});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    std::smatch head;
    ASSERT_TRUE(std::regex_search(
        run.out, head,
        std::regex(R"(^<form[^>]*><input type="hidden" )"
                   R"re(name="qln_SortOrder" value="([^"]*)">)re")))
        << run.out;
    EXPECT_EQ(head[1], choice.fields);
    EXPECT_EQ(FieldNames(run.out), choice.fields);
    // HTML, not XML: void elements alone, textarea always closed.
    EXPECT_EQ(Count(run.out, "/>"), 0);
    EXPECT_EQ(Count(run.out, "</input>"), 0);
    EXPECT_EQ(Count(run.out, "<textarea "), 1);
    EXPECT_EQ(Count(run.out, "></textarea>"), 1);
    EXPECT_NE(run.out.find(R"(<input type="submit" value="Send">)"),
              std::string::npos);
    for (const char* leftover :
         {"<section", "<template", "uitype", "defaultaction", "["}) {
      EXPECT_EQ(Count(run.out, leftover), 0) << leftover;
    }
    EXPECT_TRUE(run.out.ends_with("</form>\n"));
  }
}

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
    const Result run = Formwiz(args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, c.html + "\n");
    // The same definition on standard input.
    args[1] = "-";
    EXPECT_EQ(Formwiz(args, c.definition).out, c.html + "\n");
  }
}

TEST_F(CliAssembleTest, UnusableInputFailsWithOneReason) {
  const struct {
    const char* name;
    const char* definition;  // null: the file does not exist
    std::vector<std::string> options;
    int status;
    std::string err;
    bool one_line = false;  // a problem of the input, not a report
  } kCases[] = {
      {"missing file", nullptr, {}, 1, "cannot read: No such file", true},
      {"malformed",
       "<impl><form></impl>",
       {},
       1,
       "not one well-formed XML",
       true},
      {"no impl", "<orb><form/></orb>", {}, 1, "holds no impl element", true},
      {"no form child",
       "<impl><div><form/></div></impl>",
       {},
       1,
       "Error: Internal Error in Form Wizard: 105\n"},
      {"stored index too large",
       R"(<impl><form><input type="hidden" name="qln_FormIndex" )"
       R"(value="40000"/></form></impl>)",
       {},
       1,
       "Internal Error in Form Wizard: 102"},
      {"index beyond 16 bits",
       "<impl><form/></impl>",
       {"--form-index", "40000"},
       2,
       "--form-index"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args = {
        "assemble", c.definition ? WriteTemp("bad.xml", c.definition)
                                 : testing::TempDir() + "no/such.qlo"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const Result run = Formwiz(args);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    if (c.one_line) {
      EXPECT_EQ(Count(run.err, "\n"), 1) << run.err;
    }
  }
}

TEST_F(CliAssembleTest, CommandLineNamesItsSubcommands) {
  const Result help = Formwiz({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("assemble"), std::string::npos) << help.out;
  EXPECT_EQ(Formwiz({}).status, 2);
  EXPECT_EQ(Formwiz({"assemble"}).status, 2);
}

}  // namespace
