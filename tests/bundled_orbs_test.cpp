// Every bundled orb, every form choice, as a person uses the wizard on it:
// every field ticked, one moved, one renamed, finished. The form that goes
// into the page must have every field, in the person's order, with its
// prompt on the label that holds its control (or the legend of its group),
// the sizes the wizard edits, the handler's action and its robot trap, and
// no table and no placeholder left unfilled. Whether a browser and the
// checkers accept the page is the business of the page checks; this is
// about what the orbs' templates and the wizard make of each field.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "component_test_support.h"
#include "formdoc/kelxml.h"
#include "host/orb_catalog.h"
#include "script/script.h"

namespace formwiz {
namespace {

namespace fs = std::filesystem;
using script::Json;

const fs::path kOrbs = fs::path(FORMWIZ_SOURCE_DIR) / "orbs";

// A field as the orb defines it.
struct Field {
  std::string name, prompt, included;
  std::string size, cols;  // empty when the field has none
};

struct OrbDefinition {
  int choices = 0;
  std::vector<Field> fields;
};

std::vector<KelXmlNode> Children(const KelXmlNode& node) {
  std::vector<KelXmlNode> children;
  for (KelXmlNode child = node.FirstChild(); child;
       child = child.NextSibling()) {
    if (child.NodeType() == kElementNode) children.push_back(child);
  }
  return children;
}

OrbDefinition ReadDefinition(const fs::path& file) {
  host::Orb orb;
  std::string error;
  OrbDefinition definition;
  EXPECT_TRUE(host::ReadOrb(file, orb, error)) << error;
  if (!orb.impl) return definition;
  for (const KelXmlNode& child : Children(orb.impl)) {
    if (child.TagName() == "forminfo") {
      ++definition.choices;
      for (const char* part : {"desc", "response", "emailsubject"}) {
        const KelXmlNode text = child.GetElementsByTagName(part).Item(0);
        EXPECT_TRUE(text && !text.Text().empty())
            << "form choice " << definition.choices << " has no " << part;
      }
    }
    if (child.TagName() != "form") continue;
    EXPECT_EQ(child.GetAttribute("defaultaction"), "/cgi-bin/formmail");
    for (const KelXmlNode& section : Children(child)) {
      if (section.TagName() != "section") continue;
      definition.fields.push_back(
          {section.GetAttribute("name"), section.GetAttribute("prompt"),
           section.GetAttribute("included"), section.GetAttribute("size"),
           section.GetAttribute("cols")});
    }
  }
  return definition;
}

// The fields choice `k` (from 0) lists, in the orb's order.
std::vector<Field> Listed(const OrbDefinition& orb, int k) {
  std::vector<Field> listed;
  for (const Field& field : orb.fields) {
    const char c = static_cast<size_t>(k) < field.included.size()
                       ? field.included[static_cast<size_t>(k)]
                       : '\0';
    if (!field.name.empty() && c != 'h') listed.push_back(field);
  }
  return listed;
}

// The person: picks choice `k`, gives an address, ticks every one of `rows`
// fields, moves the second field up, renames the last one, finishes.
Json Steps(int k, size_t rows, const std::string& new_name) {
  auto click = [](const std::string& control) {
    return Json{{"do", "click"}, {"control", control}};
  };
  Json steps = Json::array({{{"call", "OnCommand"}},
                            click("optForm(" + std::to_string(k) + ")"),
                            click("cmdNav(3)"),
                            {{"do", "type"},
                             {"control", "txtEmailAddr"},
                             {"text", "owner@example.org"}},
                            click("cmdNav(3)"),
                            click("cmdNav(3)")});
  for (size_t row = 0; row < rows; ++row) {
    steps.push_back({{"do", "check"},
                     {"control", "lstFields"},
                     {"row", row},
                     {"value", true}});
  }
  steps.push_back({{"do", "select"}, {"control", "lstFields"}, {"row", 1}});
  steps.push_back(click("cmdShift(0)"));
  steps.push_back(
      {{"do", "select"}, {"control", "lstFields"}, {"row", rows - 1}});
  steps.push_back({{"do", "clear"}, {"control", "txtFieldName"}});
  steps.push_back(
      {{"do", "type"}, {"control", "txtFieldName"}, {"text", new_name}});
  steps.push_back(click("cmdNav(4)"));
  return steps;
}

// The page's HTML read as a tree: input elements have no end tag there.
KelXmlElement ParseHtml(const std::string& html) {
  return FindElementInXml(
      std::regex_replace(html, std::regex("<input([^>]*)>"), "<input$1/>"),
      "form");
}

void Walk(const KelXmlNode& node, std::vector<KelXmlNode>& all) {
  for (const KelXmlNode& child : Children(node)) {
    all.push_back(child);
    Walk(child, all);
  }
}

KelXmlNode Ancestor(KelXmlNode node, const std::string& tag) {
  for (node = node.ParentNode(); node && node.NodeType() == kElementNode;
       node = node.ParentNode()) {
    if (node.TagName() == tag) return node;
  }
  return {};
}

// The text the person reads as the control's prompt: the fw-prompt of the
// label around it, or the legend of the group around it.
bool PromptNamesControl(const KelXmlNode& control, const std::string& prompt) {
  const KelXmlNode label = Ancestor(control, "label");
  if (label && label.GetAttribute("class") == "fw-label") {
    for (const KelXmlNode& part : Children(label)) {
      if (part.GetAttribute("class") == "fw-prompt" &&
          part.Text().starts_with(prompt)) {
        return true;
      }
    }
  }
  const KelXmlNode group = Ancestor(control, "fieldset");
  if (!group) return false;
  const std::vector<KelXmlNode> parts = Children(group);
  return !parts.empty() && parts[0].TagName() == "legend" &&
         parts[0].Text().starts_with(prompt);
}

bool IsVisitorControl(const KelXmlNode& node) {
  const std::string tag = node.TagName();
  if (tag == "select" || tag == "textarea") return true;
  return tag == "input" && node.GetAttribute("type") != "hidden" &&
         node.GetAttribute("type") != "submit" &&
         node.GetAttribute("name") != "qln_Website";
}

// Which of `fields` a control belongs to: its name, or the name of its
// group before a "-".
int FieldOf(const KelXmlNode& control, const std::vector<Field>& fields) {
  const std::string name = control.GetAttribute("name");
  for (size_t i = 0; i < fields.size(); ++i) {
    if (name == fields[i].name || name.starts_with(fields[i].name + "-")) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

void CheckForm(const std::string& html, const std::vector<Field>& fields) {
  for (const char* placeholder : {"[fieldname]", "[fieldprompt]", "[size]",
                                  "[maxlength]", "[rows]", "[cols]"}) {
    EXPECT_EQ(html.find(placeholder), std::string::npos) << placeholder;
  }
  const KelXmlElement form = ParseHtml(html);
  ASSERT_TRUE(form) << html;
  EXPECT_EQ(form.TagName(), "form");
  EXPECT_EQ(form.GetAttribute("action"), "/cgi-bin/formmail");
  EXPECT_EQ(form.GetAttribute("method"), "POST");
  EXPECT_EQ(form.GetAttribute("class"), "fw-form");

  std::vector<KelXmlNode> all;
  Walk(form, all);
  std::vector<int> order;  // the field of each control, in page order
  std::vector<std::vector<KelXmlNode>> controls(fields.size());
  bool trap = false, send = false;
  for (const KelXmlNode& node : all) {
    EXPECT_NE(node.TagName(), "table");
    const std::string name = node.GetAttribute("name");
    if (node.TagName() == "input" && name == "qln_Website") {
      const KelXmlNode box = Ancestor(node, "div");
      trap = box && box.GetAttribute("class") == "qln-trap" &&
             box.GetAttribute("aria-hidden") == "true" &&
             node.GetAttribute("tabindex") == "-1";
    }
    if (node.GetAttribute("type") == "submit") send = true;
    if (!IsVisitorControl(node)) continue;
    const int field = FieldOf(node, fields);
    ASSERT_GE(field, 0) << "a control of no field: " << name;
    EXPECT_TRUE(Ancestor(node, "label")) << name << " has no label around it";
    if (order.empty() || order.back() != field) order.push_back(field);
    controls[static_cast<size_t>(field)].push_back(node);
  }
  EXPECT_TRUE(trap) << "the robot trap is missing or visible";
  EXPECT_TRUE(send) << "no button sends the form";

  std::vector<int> expected(fields.size());
  for (size_t i = 0; i < fields.size(); ++i) expected[i] = static_cast<int>(i);
  EXPECT_EQ(order, expected) << "fields missing, split or out of order";
  for (size_t i = 0; i < fields.size(); ++i) {
    const Field& field = fields[i];
    SCOPED_TRACE(field.name);
    ASSERT_FALSE(controls[i].empty());
    EXPECT_TRUE(PromptNamesControl(controls[i][0], field.prompt));
    // The sizes the wizard's boxes edit reach a control of the field.
    auto has = [&](const char* attribute, const std::string& value) {
      for (const KelXmlNode& control : controls[i]) {
        if (control.GetAttribute(attribute) == value) return true;
      }
      return false;
    };
    EXPECT_TRUE(field.size.empty() || has("size", field.size));
    EXPECT_TRUE(field.cols.empty() || has("cols", field.cols));
  }
}

TEST(BundledOrbsTest, EveryChoiceWithEveryFieldMovedAndRenamedIsALabelledForm) {
  size_t orbs = 0;
  for (const auto& dir : fs::directory_iterator(kOrbs)) {
    const std::string folder = dir.path().filename().string();
    const fs::path file = dir.path() / (folder + ".qlo");
    SCOPED_TRACE(folder);
    const OrbDefinition orb = ReadDefinition(file);
    ++orbs;
    EXPECT_EQ(orb.choices, 2);
    for (int k = 0; k < orb.choices; ++k) {
      SCOPED_TRACE("form choice " + std::to_string(k + 1));
      std::vector<Field> fields = Listed(orb, k);
      ASSERT_GE(fields.size(), 3u);
      std::swap(fields[0], fields[1]);
      fields.back().name = "Renamed";

      Json run = {{"host", {{"implFile", file.string()}}},
                  {"steps", Steps(k, fields.size(), "Renamed")}};
      const Json transcript =
          script::RunScript(script::ParseScript(run.dump(), dir.path()));
      const Json& objects = transcript["objects"];
      ASSERT_EQ(objects.size(), 1u) << transcript.dump(1);
      EXPECT_TRUE(objects[0]["HTMLPicture"].is_object())
          << "the orb's picture did not reach the page";
      CheckForm(objects[0]["HTMLSource"].get<std::string>(), fields);
    }
  }
  EXPECT_GE(orbs, 6u);
}

// The command line takes a bundled orb by its folder's name, and says which
// there are when a name is none of them.
using BundledOrbsCliTest = ProgramTest;

TEST_F(BundledOrbsCliTest, PageInsertTakesABundledOrbByName) {
  const std::string page = TempPath("page.html");
  const std::string steps = WriteTemp("steps.json", R"js([
    {"do": "click", "control": "cmdNav(3)"},
    {"do": "type", "control": "txtEmailAddr", "text": "me@example.org"},
    {"do": "click", "control": "cmdNav(4)"}])js");
  ASSERT_EQ(RunFormwiz({"page", "new", page}).status, 0);
  ProgramRun run =
      RunFormwiz({"page", "insert", page, "--orb", "event", "--script", steps});
  ASSERT_EQ(run.status, 0) << run.err;
  run = RunFormwiz({"page", "list", page});
  EXPECT_EQ(run.out, "0\tobject\t\"Event Registration\"\n");

  run = RunFormwiz({"page", "insert", page, "--orb", "events"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("no bundled orb of that name (contact, event,"),
            std::string::npos)
      << run.err;
}

}  // namespace
}  // namespace formwiz
