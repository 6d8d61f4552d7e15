// The command line given hostile and broken input: scripts, orb files, page
// files and the stored definitions in them. Each is refused with one short
// line and a non-zero status, or runs as the format defines, and a page file
// that a run could not use keeps every byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "component/identity.h"
#include "component_test_support.h"
#include "host/page.h"

namespace formwiz {
namespace {

using Json = nlohmann::ordered_json;

const std::string kOrb =
    std::string(FORMWIZ_SOURCE_DIR) + "/orbs/form/form.qlo";

std::string Repeat(std::string_view s, size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (size_t i = 0; i < n; ++i) out += s;
  return out;
}

std::string BillionLaughs() {
  std::string doc = "<!DOCTYPE impl [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    doc += "<!ENTITY l" + std::to_string(i) + " \"" +
           Repeat("&l" + std::to_string(i - 1) + ";", 10) + "\">";
  }
  return doc + "]><impl><form>&l9;</form></impl>";
}

// Definitions no command may read, each holding an `impl` that a reader
// which expanded entities or ignored bad bytes would find.
std::vector<std::string> HostileDefinitions() {
  return {BillionLaughs(),
          "<!DOCTYPE impl [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
          "<impl><form>&x;</form></impl>",
          "<!DOCTYPE impl [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]>"
          "<impl><form/></impl>",
          "<impl><form>" + Repeat("<a>", 1000000) + Repeat("</a>", 1000000) +
              "</form></impl>",
          "<impl><form v=\"\xC0\xBC\"/></impl>"};
}

// One line on stderr, short whatever the input held.
void ExpectOneShortLine(const ProgramRun& run, const std::string& fragment) {
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1)
      << run.err.substr(0, 2000);
  EXPECT_LT(run.err.size(), 1000u) << run.err.substr(0, 2000);
  EXPECT_NE(run.err.find(fragment), std::string::npos)
      << run.err.substr(0, 2000);
  EXPECT_EQ(run.err.find("root:"), std::string::npos) << "a file leaked";
}

using CliHostileTest = ProgramTest;

TEST_F(CliHostileTest, ScriptsThatCannotRunAreRefusedInOneShortLine) {
  const std::string deep = Repeat("[", 100000) + Repeat("]", 100000);
  const std::string huge(1000000, 'x');
  const std::string step0 = R"({"steps": [{"call": "OnCommand"}, )";
  auto check = [&](const std::string& rest) {
    return step0 + R"({"do": "check", "control": "lstFields", )" + rest + "}]}";
  };
  std::string files = R"({"host": {"files": {)";
  for (char name = 'a'; name <= 'e'; ++name) {
    files += std::string(name == 'a' ? "" : ", ") + "\"" + name +
             R"(": {"size": 16777216})";
  }
  files += "}}}";
  const struct {
    const char* name;
    std::string script;
    std::string line;  // what the line says
  } kCases[] = {
      {"empty", "", "script: not valid JSON"},
      {"cut short in a huge string", R"({"host": {"impl": ")" + huge,
       "script: not valid JSON"},
      {"invalid UTF-8", "{\"host\": {\"displayName\": \"\xC0\xAF\"}}",
       "script: not valid JSON"},
      {"a list", "[]", "script: expected an object"},
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
      {"count beyond 32 bits",
       step0 + R"({"do": "backspace", "control": "txtEmailAddr", )"
               R"("count": 9999999999}]})",
       "steps[1].count: expected 0 to 2147483647"},
      {"a file of a terabyte",
       R"({"host": {"files": {"p.png": {"size": 1099511627776}}}})",
       "host.files.p.png.size: expected 0 to 16777216"},
      {"files too large in all", files, "host.files.e: the script's files"},
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

TEST_F(CliHostileTest, HugeCountsAndStringsThatFitTheFormatRunBounded) {
  Json steps = Json::array();
  auto step = [&](Json fields) { steps.push_back(std::move(fields)); };
  step({{"call", "OnCommand"}});
  step({{"do", "click"}, {"control", "cmdNav(3)"}});
  step({{"do", "type"},
        {"control", "txtEmailAddr"},
        {"text", std::string(1000000, 'a')}});
  step({{"do", "snapshot"}});
  step({{"do", "backspace"}, {"control", "txtEmailAddr"}, {"count", INT_MAX}});
  step({{"do", "snapshot"}});
  step({{"do", "type"},
        {"control", "txtEmailAddr"},
        {"text", "me@example.org"}});
  step({{"do", "click"}, {"control", "cmdNav(3)"}});
  step({{"do", "click"}, {"control", "cmdNav(3)"}});
  step({{"do", "check"},
        {"control", "lstFields"},
        {"row", INT_MAX},
        {"value", true}});
  step({{"do", "select"}, {"control", "lstFields"}, {"row", INT_MAX}});
  const Json script = {{"host", {{"implFile", kOrb}}}, {"steps", steps}};
  const ProgramRun run =
      RunFormwiz({"script", WriteTemp("script.json", script.dump())});
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<std::string> typed, ignored;
  const Json transcript = Json::parse(run.out);
  for (const Json& event : transcript["events"]) {
    if (event.contains("snapshot")) {
      typed.push_back(event["snapshot"]["controls"]["txtEmailAddr"]["text"]
                          .get<std::string>());
    } else if (event.contains("ignored")) {
      ignored.push_back(event["ignored"]["do"].get<std::string>() + ": " +
                        event["why"].get<std::string>());
    }
  }
  // The box takes what its limit lets in; deleting stops when it is empty.
  EXPECT_EQ(typed, (std::vector<std::string>{std::string(256, 'a'), ""}));
  EXPECT_EQ(ignored, (std::vector<std::string>{"check: no such row",
                                               "select: no such row"}));
}

TEST_F(CliHostileTest, HostileOrbFilesAreRefusedByEveryCommand) {
  const std::string page = TempPath("page.html");
  ASSERT_EQ(RunFormwiz({"page", "new", page}).status, 0);
  const std::string before = ReadAll(page);
  for (const std::string& definition : HostileDefinitions()) {
    SCOPED_TRACE(testing::PrintToString(definition.substr(0, 200)));
    const std::string orb = WriteTemp("orb.qlo", definition);
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

// A page with a paragraph and an object of the bundled orb, as `formwiz page`
// writes it.
std::string GoodPage() {
  host::Page page;
  page.blocks.push_back({"Write to us", nullptr});
  const auto object = page.document->AddObject();
  object->prog_id = kProgId;
  object->display_name = "Form";
  object->html_data =
      Variant::String(FindElementInXml(ReadAll(kOrb), "impl").Xml());
  object->html_source = "<form></form>";
  page.AdoptNewObjects(1);
  return host::WritePageFile(page);
}

std::string Replaced(std::string text, const std::string& from,
                     const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST_F(CliHostileTest, BrokenPageFilesAreRefusedAndKeepEveryByte) {
  const std::string good = GoodPage();
  const size_t marker = good.find("<!--formwiz-object");
  const size_t source = good.find("source=") + 7;
  std::string crlf;
  for (char c : good)
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  const struct {
    const char* name;
    std::string file;
    std::vector<std::string> action;  // after the file
  } kCases[] = {
      {"cut inside the marker", good.substr(0, marker + 30), {"list"}},
      {"cut inside the HTML",
       good.substr(0, good.find("<form></form>") + 3),
       {"export"}},
      {"end marker missing",
       Replaced(good, "<!--/formwiz-object-->", "<!--/formwiz-obj-->"),
       {"add-text", "more"}},
      {"bad base64",
       Replaced(good, "name=Rm9ybQ==", "name=Rm9ybQ"),
       {"open", "0"}},
      {"length past the end",
       good.substr(0, source) + "999999999" +
           good.substr(good.find(' ', source)),
       {"delete", "0"}},
      {"line ends converted", crlf, {"insert", "--orb", kOrb}},
      {"foreign HTML",
       "<!DOCTYPE html><html><body><p>hi</p></body></html>",
       {"open", "0"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string path = WriteTemp("page.html", c.file);
    std::vector<std::string> args = {"page", c.action[0], path};
    args.insert(args.end(), c.action.begin() + 1, c.action.end());
    const ProgramRun run = RunFormwiz(args);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    ExpectOneShortLine(run, path);
    EXPECT_TRUE(ReadAll(path) == c.file) << "the file changed";
  }
  // A file with no size to check first, and no end: every command that
  // reads a file stops at its limit.
  for (const auto& [args, status] :
       std::vector<std::pair<std::vector<std::string>, int>>{
           {{"page", "list", "/dev/zero"}, 1},
           {{"assemble", "/dev/zero"}, 1},
           {{"script", "/dev/zero"}, 2}}) {
    const ProgramRun endless = RunFormwiz(args);
    EXPECT_EQ(endless.status, status) << args[0];
    ExpectOneShortLine(endless, "too large");
  }
}

TEST_F(CliHostileTest, HostileStoredDataAndActionsLeaveThePageAsItWas) {
  const std::string index = "<input type=\"hidden\" name=\"qln_FormIndex\" ";
  const std::vector<std::string> stored = {
      BillionLaughs(),
      "<impl><form>",
      "<impl/>",
      "<impl><forminfo/><form>" + index + "value=\"99999\"/></form></impl>",
      "<p>hi</p>",
  };
  host::Page page;
  for (const std::string& data : stored) {
    const auto object = page.document->AddObject();
    object->prog_id = kProgId;
    object->html_data = Variant::String(data);
    object->html_source = "<form>old</form>";
  }
  page.AdoptNewObjects(0);
  const std::string file = host::WritePageFile(page);
  const std::string path = WriteTemp("page.html", file);
  for (size_t i = 0; i < stored.size(); ++i) {
    SCOPED_TRACE(stored[i].substr(0, 100));
    const ProgramRun run =
        RunFormwiz({"page", "open", path, std::to_string(i)});
    if (stored[i] == "<p>hi</p>") {
      EXPECT_EQ(run.status, 0);  // nothing to open, nothing said
      EXPECT_EQ(run.err, "");
    } else {
      EXPECT_EQ(run.status, 1);
      EXPECT_TRUE(
          run.err.starts_with("Error: Internal Error in Form Wizard: 104"))
          << run.err;
    }
    EXPECT_TRUE(ReadAll(path) == file) << "the file changed";
  }

  // The person's actions, broken in the ways a script can be.
  const std::string deep = Repeat("[", 100000) + Repeat("]", 100000);
  const struct {
    std::string script;
    std::string line;
  } kActions[] = {
      {deep, "steps[0]: expected an object"},
      {R"([{"do": "click", "control": )" + deep + "}]",
       "steps[0].control: expected a string"},
      {R"([{"do": "type", "control": "txtEmailAddr", "text": "a)",
       "not valid JSON"},
      {R"([{"do": ")" + std::string(1000000, 'x') + R"("}])",
       "steps[0]: unknown action"},
  };
  for (const auto& a : kActions) {
    SCOPED_TRACE(a.line);
    const ProgramRun run = RunFormwiz({"page", "open", path, "0", "--script",
                                       WriteTemp("steps.json", a.script)});
    EXPECT_EQ(run.status, 2);
    ExpectOneShortLine(run, a.line);
    EXPECT_TRUE(ReadAll(path) == file) << "the file changed";
  }
}

}  // namespace
}  // namespace formwiz
