// The formwiz command line as a user runs it: the rules of `assemble`, an
// editing session with `page`; then hostile and broken input, each refused
// with one short line and a non-zero status, or run as the format defines,
// and a page file that a run could not use keeps every byte. What the
// readers refuse, kind by kind, is tested on the readers; here, that every
// command meets it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "component/identity.h"
#include "component_test_support.h"
#include "host/page.h"

namespace formwiz {
namespace {

using Json = nlohmann::ordered_json;
using Args = std::vector<std::string>;
using CliTest = ProgramTest;

const std::string kOrb =
    std::string(FORMWIZ_SOURCE_DIR) + "/orbs/form/form.qlo";

// One line on stderr, short whatever the input held.
void ExpectOneShortLine(const ProgramRun& run, const std::string& fragment) {
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1)
      << run.err.substr(0, 2000);
  EXPECT_LT(run.err.size(), 1000u) << run.err.substr(0, 2000);
  EXPECT_NE(run.err.find(fragment), std::string::npos)
      << run.err.substr(0, 2000);
  EXPECT_EQ(run.err.find("root:"), std::string::npos) << "a file leaked";
}

// `formwiz page` with `args`, which must succeed in silence; gives its output.
std::string Page(Args args) {
  args.insert(args.begin(), "page");
  const ProgramRun done = RunFormwiz(args);
  EXPECT_EQ(done.status, 0) << args[1];
  EXPECT_EQ(done.err, "") << args[1];
  return done.out;
}
// The person's steps: finishing the wizard with an address, or Escape.
std::string FinishSteps() {
  return WriteTemp("finish.json", R"js([
    {"do": "click", "control": "cmdNav(3)"},
    {"do": "type", "control": "txtEmailAddr", "text": "me@example.org"},
    {"do": "click", "control": "cmdNav(4)"}])js");
}
std::string CancelSteps() {
  return WriteTemp("cancel.json", R"js([{"do": "key", "key": "Escape"}])js");
}

TEST_F(CliTest, SmallDefinitionsFollowTheCommit) {
  const struct {
    const char* name;
    std::string definition;
    Args options;
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
    Args args = {"assemble", WriteTemp("small.xml", c.definition)};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, c.html + "\n");
    // The same definition on standard input.
    args[1] = "-";
    EXPECT_EQ(RunFormwiz(args, c.definition).out, c.html + "\n");
  }
}

// Malformed and hostile definitions are further below.
TEST_F(CliTest, UnusableInputFailsWithOneReason) {
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
    Args args = {"assemble", c.definition.empty()
                                 ? TempPath("no/such.qlo")
                                 : WriteTemp("bad.xml", c.definition)};
    if (!c.option.empty()) args.insert(args.end(), {"--form-index", c.option});
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out, "");
    if (c.one_line) {
      ExpectOneShortLine(run, c.err);
    } else {
      EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }
  }
}

// `formwiz page`, run as a person at a terminal would, on one file.
TEST_F(CliTest, EditingSessionOnOneFile) {
  const std::string page = TempPath("page.html");
  Page({"new", page});
  Page({"add-text", page, "Write to us <today>"});
  Page({"insert", page, "--at", "0", "--script", FinishSteps()});
  EXPECT_EQ(Page({"list", page}),
            "0\tobject\t\"Form\"\n1\tparagraph\t\"Write to us <today>\"\n");
  const std::string saved = ReadAll(page);
  Page({"open", page, "0", "--script", CancelSteps()});
  EXPECT_EQ(ReadAll(page), saved);
  const std::string html = Page({"export", page});
  EXPECT_EQ(html, saved);
  EXPECT_NE(html.find("<p>Write to us &lt;today&gt;</p>"), std::string::npos);

  EXPECT_EQ(Page({"title", page}), "Page\n");
  const std::string title = "Ask <for> \"our\" caf\xC3\xA9 & more";
  Page({"title", page, title});
  EXPECT_EQ(Page({"title", page}), title + "\n");
  const std::string titled = ReadAll(page);
  for (const std::string bad : {"", "   ", "two\nlines"}) {
    const ProgramRun refused = RunFormwiz({"page", "title", page, bad});
    EXPECT_EQ(refused.status, 2) << bad;
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1)
        << refused.err;
  }
  EXPECT_EQ(ReadAll(page), titled);
}

// A page written before pages had titles opens, and nothing a person did not
// ask for changes its file: only a change saves it, as the current version.
TEST_F(CliTest, VersionOnePagesStayAsTheyAreUntilChanged) {
  const std::string old =
      ReadAll(FORMWIZ_SOURCE_DIR "/fuzz/page_seeds/version-1.html");
  ASSERT_NE(old.find("content=\"formwiz page 1\""), std::string::npos);
  const std::string page = WriteTemp("old.html", old);
  for (const Args& args :
       {Args{"page", "list", page}, Args{"page", "title", page},
        Args{"page", "title", page, "Page"},
        Args{"page", "open", page, "1", "--script", CancelSteps()}}) {
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, 0) << args[1] << run.err;
    EXPECT_EQ(ReadAll(page), old) << args[1];
  }
  const ProgramRun run = RunFormwiz({"page", "add-text", page, "More"});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string saved = ReadAll(page);
  EXPECT_NE(saved.find("content=\"formwiz page 2\""), std::string::npos);
  EXPECT_NE(saved.find("<title>Page</title>"), std::string::npos);
  EXPECT_EQ(RunFormwiz({"page", "list", page}).out,
            RunFormwiz({"page", "list", WriteTemp("again.html", old)}).out +
                "3\tparagraph\t\"More\"\n");
}

// A template partial of a static site gets its form from the command line;
// every other byte stays, and taking the form out again gives the file back.
TEST_F(CliTest, APartialGetsItsFormAndKeepsTheRest) {
  const std::string original = ReadAll(
      FORMWIZ_SOURCE_DIR "/tests/data/foreign_pages/template-partial.html");
  const std::string page = WriteTemp("offers.html", original);
  EXPECT_NE(Page({"list", page}).find("1\thtml\t<h1> \"{{ page.title }}\"\n"),
            std::string::npos);
  Page({"insert", page, "--at", "4", "--script", FinishSteps()});
  const std::string saved = ReadAll(page);
  const size_t from = saved.find("<!--formwiz-object ");
  const std::string end = "<!--/formwiz-object-->\n";
  const size_t to = saved.find(end);
  ASSERT_NE(to, std::string::npos);
  EXPECT_EQ(saved.substr(0, from) + saved.substr(to + end.size()), original);
  EXPECT_NE(Page({"list", page}).find("4\tobject\t\"Form\"\n"),
            std::string::npos);
  // A partial takes its title from the page that includes it.
  const ProgramRun titled = RunFormwiz({"page", "title", page, "Offers"});
  EXPECT_EQ(titled.status, 2);
  ExpectOneShortLine(titled, "no <title>");
  Page({"delete", page, "4"});
  EXPECT_EQ(ReadAll(page), original);
}

TEST_F(CliTest, ScriptsThatCannotRunAreRefusedInOneShortLine) {
  const std::string deep = Repeat("[", 100000) + Repeat("]", 100000);
  const std::string huge(1000000, 'x');
  const std::string step0 = R"({"steps": [{"call": "OnCommand"}, )";
  auto check = [&](const std::string& rest) {
    return step0 + R"({"do": "check", "control": "lstFields", )" + rest + "}]}";
  };
  Json files;
  for (const char* name : {"a", "b", "c", "d", "e"}) {
    files[name]["size"] = 16777216;
  }
  const struct {
    const char* name;
    std::string script;
    std::string line;  // what the line says
  } kCases[] = {
      {"cut short in a huge string", R"({"host": {"impl": ")" + huge,
       "script: not valid JSON"},
      {"invalid UTF-8", "{\"host\": {\"displayName\": \"\xC0\xAF\"}}",
       "script: not valid JSON"},
      {"a list", "[]", "script: expected an object"},
      {"unknown key", R"({"hots": {}})", R"(script: unknown key "hots")"},
      {"unknown fault", R"({"host": {"faults": {"InsertHTMLObject": "no"}}})",
       R"(host.faults.InsertHTMLObject: expected "nothing" or a failure)"},
      {"nested 10^5 deep", R"({"steps": )" + deep + "}",
       "steps[0]: expected an object"},
      {"a value nested 10^5 deep",
       R"({"host": {"objects": [{"HTMLData": )" + deep + "}]}}",
       "host.objects[0].HTMLData: expected a string"},
      {"unknown call", R"({"steps": [{"call": "OnClose"}]})",
       R"(steps[0]: unknown call "OnClose")"},
      {"unknown action with a huge name",
       step0 + R"({"do": ")" + huge + R"("}]})", "steps[1]: unknown action"},
      {"unknown control",
       step0 + R"js({"do": "click", "control": "cmdNav(5)"}]})js",
       R"js(no dialog has a control "cmdNav(5)")js"},
      {"row as text", check(R"("row": "1", "value": true)"),
       "steps[1].row: expected an integer"},
      {"row below 0", check(R"("row": -1, "value": true)"),
       "steps[1].row: expected 0 to 2147483647, not -1"},
      {"row beyond 32 bits", check(R"("row": 4294967296, "value": true)"),
       "not 4294967296"},
      {"row beyond 64 bits",
       check(R"("row": 18446744073709551615, "value": true)"),
       "steps[1].row: out of range"},
      {"tick not a Boolean", check(R"("row": 0, "value": 1)"),
       "steps[1].value: expected true or false"},
      {"a file of a terabyte",
       R"({"host": {"files": {"p.png": {"size": 1099511627776}}}})",
       "host.files.p.png.size: expected 0 to 16777216"},
      {"files too large in all", Json{{"host", {{"files", files}}}}.dump(),
       "host.files.e: the script's files"},
      {"object not made yet",
       R"({"host": {"objects": [{}]}, "steps": [{"call": "OnOpen",)"
       R"( "object": 1}, {"call": "OnCommand"}]})",
       "steps[0]: object 1 cannot exist by then"},
      {"object that cannot exist",
       R"({"steps": [{"call": "OnOpen", "object": 2147483647}]})",
       "steps[0]: object 2147483647 cannot exist by then"},
      {"definition with entities",
       Json{{"host", {{"impl", BillionLaughs()}}}}.dump(),
       "host.impl: holds no impl element, or is not well-formed XML"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const ProgramRun run =
        RunFormwiz({"script", WriteTemp("script.json", c.script)});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "") << "nothing ran";
    ExpectOneShortLine(run, c.line);
  }
}

TEST_F(CliTest, HugeCountsAndStringsThatFitTheFormatRunBounded) {
  const Json steps = Json::parse(R"js([{"call": "OnCommand"},
      {"do": "click", "control": "cmdNav(3)"},
      {"do": "type", "control": "txtEmailAddr", "text": ")js" +
                                 std::string(1000000, 'a') + R"js("},
      {"do": "snapshot"},
      {"do": "backspace", "control": "txtEmailAddr", "count": 2147483647},
      {"do": "snapshot"},
      {"do": "type", "control": "txtEmailAddr", "text": "me@example.org"},
      {"do": "click", "control": "cmdNav(3)"},
      {"do": "click", "control": "cmdNav(3)"},
      {"do": "check", "control": "lstFields", "row": 2147483647, "value": true},
      {"do": "select", "control": "lstFields", "row": 2147483647}])js");
  const Json script = {{"host", {{"implFile", kOrb}}}, {"steps", steps}};
  const ProgramRun run =
      RunFormwiz({"script", WriteTemp("script.json", script.dump())});
  ASSERT_EQ(run.status, 0) << run.err;
  Args typed, ignored;
  const Json transcript = Json::parse(run.out);
  for (const Json& event : transcript["events"]) {
    if (event.contains("snapshot")) {
      typed.push_back(event["snapshot"]["controls"]["txtEmailAddr"]["text"]);
    } else if (event.contains("ignored")) {
      ignored.push_back(event["ignored"]["do"].get<std::string>() + ": " +
                        event["why"].get<std::string>());
    }
  }
  // The box takes what its limit lets in; deleting stops when it is empty.
  EXPECT_EQ(typed, (Args{std::string(256, 'a'), ""}));
  EXPECT_EQ(ignored, (Args{"check: no such row", "select: no such row"}));
}

TEST_F(CliTest, HostileOrbFilesAreRefusedByEveryCommand) {
  const std::string page = TempPath("page.html");
  ASSERT_EQ(RunFormwiz({"page", "new", page}).status, 0);
  const std::string before = ReadAll(page);
  for (const NamedXml& c : Unreadable()) {
    SCOPED_TRACE(c.name);
    const std::string orb = WriteTemp("orb.qlo", c.xml);
    ProgramRun run = RunFormwiz({"assemble", orb});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    ExpectOneShortLine(run, "is not one well-formed XML document");

    run = RunFormwiz(
        {"script",
         WriteTemp("script.json", Json{{"host", {{"implFile", orb}}}}.dump())});
    EXPECT_EQ(run.status, 2);
    ExpectOneShortLine(run,
                       "host.implFile: holds no impl element, or is not "
                       "well-formed XML");

    run = RunFormwiz({"page", "insert", page, "--orb", orb});
    EXPECT_EQ(run.status, 1);
    ExpectOneShortLine(run, "is not one well-formed XML document");
    EXPECT_TRUE(ReadAll(page) == before);
  }
}

// A page file with an object of the component for each of `stored`, its
// HTMLData.
std::string PageFileOf(const Args& stored) {
  host::Page page;
  for (const std::string& data : stored) {
    const auto object = page.document->AddObject();
    object->prog_id = kProgId;
    object->html_data = Variant::String(data);
    object->html_source = "<form>old</form>";
  }
  page.AdoptNewObjects(0);
  return host::WritePageFile(page);
}

TEST_F(CliTest, ChangedPageFilesAreSaidSoAndHugeOnesRefused) {
  // A page file whose line ends were converted is no page file any more,
  // but its form (one line of HTML) is intact: the commands work on it as
  // on any HTML page, in silence, and keep its line ends.
  std::string crlf;
  for (char c : PageFileOf({"<impl/>"})) {
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  }
  const std::string path = WriteTemp("page.html", crlf);
  EXPECT_EQ(Page({"add-text", path, "more"}), "");
  std::string expected = crlf;
  expected.insert(expected.find("</main>"), "<p>more</p>\r\n");
  EXPECT_TRUE(ReadAll(path) == expected) << ReadAll(path);
  // A form whose HTML was edited by hand no longer reads as one: said in
  // one line, and the command goes on.
  std::string changed = PageFileOf({"<impl/>"});
  changed.replace(changed.find("old<"), 3, "older");
  const std::string edited = WriteTemp("edited.html", changed);
  const ProgramRun run = RunFormwiz({"page", "list", edited});
  EXPECT_EQ(run.status, 0);
  ExpectOneShortLine(run, "1 form is no longer readable");
  EXPECT_TRUE(run.out.starts_with("0\thtml\t")) << run.out;
  // A file with no size to check first, and no end: every command that
  // reads a file stops at its limit.
  for (const auto& [args, status] :
       std::vector<std::pair<Args, int>>{{{"page", "list", "/dev/zero"}, 1},
                                         {{"assemble", "/dev/zero"}, 1},
                                         {{"script", "/dev/zero"}, 2}}) {
    const ProgramRun endless = RunFormwiz(args);
    EXPECT_EQ(endless.status, status) << args[0];
    ExpectOneShortLine(endless, "too large");
  }
}

TEST_F(CliTest, HostileStoredDataAndActionsLeaveThePageAsItWas) {
  // Each kind of stored data the component refuses is its own test
  // (component_test); here one, and one that opens nothing.
  const std::string file = PageFileOf({BillionLaughs(), "<p>hi</p>"});
  const std::string path = WriteTemp("page.html", file);
  ProgramRun run = RunFormwiz({"page", "open", path, "0"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.err.starts_with("Error: Internal Error in Form Wizard: 104"))
      << run.err;
  run = RunFormwiz({"page", "open", path, "1"});
  EXPECT_EQ(run.status, 0);  // nothing to open, nothing said
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(ReadAll(path) == file) << "the file changed";

  // The person's actions, broken in the ways only a list of steps can be;
  // the steps themselves are read as a script's are (above).
  const std::string deep = Repeat("[", 100000) + Repeat("]", 100000);
  for (const auto& [steps, line] :
       std::vector<std::pair<std::string, const char*>>{
           {deep, "steps[0]: expected an object"},
           {R"([{"do": "type", "control": "txtEmailAddr", "text": "a)",
            "not valid JSON"}}) {
    SCOPED_TRACE(line);
    run = RunFormwiz({"page", "open", path, "0", "--script",
                      WriteTemp("steps.json", steps)});
    EXPECT_EQ(run.status, 2);
    ExpectOneShortLine(run, line);
    EXPECT_TRUE(ReadAll(path) == file) << "the file changed";
  }
}

}  // namespace
}  // namespace formwiz
