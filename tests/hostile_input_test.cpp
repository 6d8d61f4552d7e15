// Hostile and broken XML, at the tree and through the component: what cannot
// be read is refused whole and quickly, and a page object keeps what it had
// stored; what can be read comes out as XML's rules say and is written so
// that it reads back the same.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "component_test_support.h"
#include "formdoc/kelxml.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

using Kind = tk::UserAction::Kind;

struct Named {
  const char* name;
  std::string xml;
};

// Documents that must be refused whole: entities of every kind, nesting
// beyond the cap, bytes that are no XML character in UTF-8, and what is not
// one well-formed document.
std::vector<Named> Unreadable() {
  using namespace std::string_literals;
  return {
      {"billion laughs", BillionLaughs()},
      {"external entity",
       "<!DOCTYPE impl [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
       "<impl><form>&x;</form></impl>"},
      {"parameter entity",
       "<!DOCTYPE impl [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]>"
       "<impl><form/></impl>"},
      {"external DTD",
       "<!DOCTYPE impl SYSTEM \"file:///etc/passwd\"><impl><form/></impl>"},
      {"undeclared entity in an attribute", "<impl><form v=\"&x;\"/></impl>"},
      {"10^6 nested elements",
       "<impl>" + Repeat("<a>", 1000000) + Repeat("</a>", 1000000) + "</impl>"},
      {"invalid byte in an attribute", "<impl><form v=\"\xFF\"/></impl>"},
      {"overlong '<' in an attribute", "<impl><form v=\"\xC0\xBC\"/></impl>"},
      {"overlong 3-byte '<'", "<impl>\xE0\x80\xBC</impl>"},
      {"overlong 4-byte '<'", "<impl>\xF0\x80\x80\xBC</impl>"},
      {"surrogate pair as two 3-byte forms",
       "<impl>\xED\xA0\xBD\xED\xB8\x80</impl>"},
      {"low surrogate in an attribute", "<impl v=\"\xED\xBF\xBF\"/>"},
      {"beyond U+10FFFF", "<impl>\xF4\x90\x80\x80</impl>"},
      {"U+FFFE", "<impl>\xEF\xBF\xBE</impl>"},
      {"sequence cut short", "<impl>\xE2\x82</impl>"},
      {"sequence cut short in a name", "<impl\xE2\x82/>"},
      {"surrogate by reference", "<impl>&#xD83D;</impl>"},
      {"NUL by reference", "<impl v=\"&#0;\"/>"},
      {"NUL in an attribute", "<impl v=\"\0\"/>"s},
      {"NUL after the end", "<impl/>\0"s},
      {"NUL in text", "<a>\0</a>"s},
      {"bad continuation byte", "<a>\xC3\x28</a>"},
      {"control character", "<a>\x01</a>"},
      {"undeclared entity in text", "<l>&nope;</l>"},
      {"a DOCTYPE of no entity", "<!DOCTYPE impl><impl/>"},
      {"one level beyond the cap",
       Repeat("<a>", KelXmlDocument::kMaxDepth + 1) +
           Repeat("</a>", KelXmlDocument::kMaxDepth + 1)},
      {"definition cut short", "<impl><forminfo/><form><input"},
      {"end tag that closes nothing", "<impl><form></impl>"},
      {"two top elements", "<a/><b/>"},
      {"text alone", "just text"},
  };
}

TEST(HostileXml, UnreadableDocumentsAreRefusedWhole) {
  std::vector<Named> cases = Unreadable();
  cases.push_back({"empty", ""});  // the component never reads it
  for (const Named& c : cases) {
    SCOPED_TRACE(c.name);
    KelXmlDocument doc;
    ASSERT_TRUE(doc.LoadXml("<kept/>"));
    EXPECT_FALSE(doc.LoadXml(c.xml));
    EXPECT_EQ(doc.Root().FirstChild().Xml(), "<kept></kept>");
    EXPECT_TRUE(FindElementInXml(c.xml, "impl").IsNull());
  }
  KelXmlDocument doc;
  const int cap = KelXmlDocument::kMaxDepth;
  EXPECT_TRUE(doc.LoadXml(Repeat("<a>", cap) + Repeat("</a>", cap)));
  // A declared encoding does not change how the bytes are read.
  EXPECT_TRUE(doc.LoadXml(
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xC3\xA9</a>"));
  EXPECT_EQ(doc.Root().FirstChild().Text(), "\xC3\xA9");
}

TEST(HostileXml, LineEndsAreNormalisedAndWrittenToReadBackTheSame) {
  const struct {
    std::string_view xml;  // CR LF, lone CR, tab and their references
    std::string_view value;
    std::string_view text;
  } kCases[] = {
      {"<a v=\"1\r\n2\">1\r\n2</a>", "1 2", "1\n2"},
      {"<a v=\"1\r2\">1\r2</a>", "1 2", "1\n2"},
      {"<a v=\"1\r\r\n2\">1\r\r\n2</a>", "1  2", "1\n\n2"},
      {"<a v=\"1\n\t2\">1\n\t2</a>", "1  2", "1\n\t2"},
      {"<a v=\"&#13;&#10;&#9;\">&#13;&#10;&#13;</a>", "\r\n\t", "\r\n\r"},
      {"<a v=\"\r\">\r<![CDATA[\r\n]]>&#13;\r</a>", " ", "\n\n\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::string(c.xml)));
    KelXmlDocument doc;
    ASSERT_TRUE(doc.LoadXml(c.xml));
    const KelXmlNode a = doc.Root().FirstChild();
    EXPECT_EQ(a.GetAttribute("v"), c.value);
    EXPECT_EQ(a.Text(), c.text);
    KelXmlDocument again;
    ASSERT_TRUE(again.LoadXml(a.Xml())) << a.Xml();
    EXPECT_EQ(again.Root().FirstChild().GetAttribute("v"), c.value);
    EXPECT_EQ(again.Root().FirstChild().Text(), c.text);
  }
}

TEST(HostileXml, AHugeAttributeValueLoads) {
  // Over 100 MB of attribute value, so the text reaches the parser in
  // several pieces, and a CR LF in the text split across two of them. The
  // writing back of what was normalised is the test above, on small text.
  constexpr size_t kPiece = size_t{1} << 24;
  const std::string head = "<a v=\"\r\n&#13;&#9;\t";
  const std::string tail = "\">x\r\ny</a>";
  std::string doc = head;
  doc.append(6 * kPiece - head.size() - 4, 'v');
  doc += tail;
  ASSERT_EQ(doc.substr(6 * kPiece - 1, 2), "\r\n");
  const size_t fill = doc.size() - head.size() - tail.size();
  ASSERT_GT(fill, 100000000u);

  KelXmlDocument loaded;
  ASSERT_TRUE(loaded.LoadXml(doc));
  doc = std::string();
  const KelXmlNode a = loaded.Root().FirstChild();
  const std::string value = a.GetAttribute("v");
  ASSERT_EQ(value.size(), 4 + fill);
  EXPECT_EQ(value.substr(0, 4), " \r\t ");
  EXPECT_EQ(value.find_first_not_of('v', 4), std::string::npos);
  EXPECT_EQ(a.Text(), "x\ny");
}

TEST(HostileXml, ATreeOfAnyDepthOrWidthIsWrittenCopiedAndFreed) {
  // Code may build deeper than the parser accepts, and rows of siblings of
  // any length; every walk of the tree must take them without recursion.
  constexpr int kDepth = 300000, kWidth = 50000;
  KelXmlElement top = FindElementInXml("<a/>", "a");
  KelXmlElement leaf = top;
  for (int i = 1; i < kDepth; ++i) leaf = leaf.AppendNewElement("a");
  leaf.InsertBefore(FindElementInXml("<t>x</t>", "t").FirstChild(), {});
  for (int i = 0; i < kWidth; ++i) top.AppendNewElement("s");
  const std::string xml = top.Xml();
  EXPECT_EQ(xml.size(), (kDepth + kWidth) * 7 + 1);
  EXPECT_EQ(top.GetElementsByTagName("a").Count(), kDepth - 1);
  EXPECT_TRUE(top.CloneNode(true).Xml() == xml);
  KelXmlDocument doc;
  EXPECT_FALSE(doc.LoadXml(xml)) << "deeper than the reader takes";
  top = KelXmlElement();
  EXPECT_EQ(leaf.Text(), "x") << "a held node outlives its tree";
}

// The component opening stored data, with a person who closes the dialogs
// that come up.
class HostileOpenTest : public ComponentTest {
 protected:
  ~HostileOpenTest() override {
    frmWizard::Instance().Unload();
    frmActionOptions::Instance().Unload();
  }
  // Runs OnOpen on an object that has been committed before, with `data`
  // stored; expects that nothing was written to it.
  int32_t OpenStored(const std::string& data) {
    ui.boxes.clear();
    ui.shown.clear();
    page->calls.clear();
    auto object = page->AddObject();
    object->html_data = Variant::String(data);
    object->html_source = "<form>old</form>";
    object->display_name = "old";
    clsFormWiz wiz;
    wiz.OnOpen(object, page, 0);
    EXPECT_TRUE(object->html_data->text == data) << "HTMLData changed";
    EXPECT_EQ(object->html_source, "<form>old</form>");
    EXPECT_EQ(object->display_name, "old");
    for (const std::string& call : page->calls) {
      EXPECT_FALSE(call.starts_with("put.")) << call;
    }
    return wiz.Result();
  }
};

TEST_F(HostileOpenTest, UnreadableStoredDataIsReportedAndKept) {
  for (const Named& c : Unreadable()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(OpenStored(c.xml), kResultNone);
    EXPECT_EQ(ui.boxes,
              (std::vector<RecordingUi::Box>{{"Error", InternalError("104")}}));
    EXPECT_TRUE(ui.shown.empty());
  }
}

// The kinds a host can store (none, empty, an object, a number, a failing
// read) are a scenario (onopen-stored-data-kinds.json); here the strings.
TEST_F(HostileOpenTest, StoredStringsDecideWhatFollows) {
  const std::string index = "<input type=\"hidden\" name=\"qln_FormIndex\" ";
  const std::string refused = "QlnFormOrbWiz: This Form Orb can not be edited.";
  const std::string report = "Error: " + InternalError("104");
  const std::string not_set =
      report + "\r\n91: Object variable or With block variable not set";
  using Texts = std::vector<std::string>;
  const struct {
    std::string stored;
    Texts boxes;  // "title: text"
    Texts shown;  // the dialogs that came up
    int32_t result;
  } kCases[] = {
      {"<", {refused}, {}, kResultNone},
      {"\xC3\xA9", {refused}, {}, kResultNone},  // one character
      {"ab", {report}, {}, kResultNone},
      // Only a top element named form or impl leads anywhere.
      {"<p>hi</p>", {}, {}, kResultNone},
      {"<div><form/></div>", {}, {}, kResultNone},
      {"<x><impl><form/></impl></x>", {}, {}, kResultNone},
      {"<!--x--><impl/>", {}, {}, kResultNone},
      {"<?impl x?><impl/>", {}, {}, kResultNone},
      {"<Impl/>", {}, {}, kResultNone},
      // Closed through its frame on a first run, a dialog leaves 0.
      {"<form/>", {}, {"frmActionOptions"}, kResultNone},
      {"<impl><form/></impl>", {}, {"frmWizard"}, kResultNone},
      // The wizard needs a form to list the fields of: it fails before it
      // shows.
      {"<impl/>", {not_set}, {}, kResultCancelled},
      {"<impl><div><form/></div></impl>", {not_set}, {}, kResultCancelled},
      {"<impl><forminfo/><form>" + index + "value=\"99999\"/></form></impl>",
       {report + "\r\n6: Overflow"},
       {},
       kResultCancelled},
      {"<impl><forminfo/><form>" + index + "value=\"3\"/></form></impl>",
       {not_set},
       {},
       kResultCancelled},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.stored);
    EXPECT_EQ(OpenStored(c.stored), c.result);
    EXPECT_EQ(Boxes(), c.boxes);
    EXPECT_EQ(ui.shown, c.shown);
  }
}

TEST_F(HostileOpenTest, AHundredThousandFormChoicesStillChooseAndFinish) {
  constexpr int kChoices = 100000;
  std::string impl = "<impl>";
  for (int i = 1; i <= kChoices; ++i) {
    const std::string n = std::to_string(i);
    impl += "<forminfo><desc>D" + n + "</desc><response>R" + n +
            "</response></forminfo>";
  }
  impl +=
      "<form><section name=\"A\" included=\"yy\"><input "
      "name=\"[fieldname]\"/></section></form></impl>";
  frmWizard& wizard = frmWizard::Instance();
  auto desc = [&] { return wizard.Ctl("lblFormDesc").Caption(); };
  auto choices_in = [](const std::string& stored) {
    int count = 0;
    const KelXmlElement read = FindElementInXml(stored, "impl");
    for (KelXmlNode n = read.FirstChild(); n; n = n.NextSibling()) {
      count += n.TagName() == "forminfo";
    }
    return count;
  };

  ui.scripts["frmWizard"].push_back([&](tk::Form& f) {
    EXPECT_EQ(desc(), "D1");
    Do(f, Kind::kHover, "optForm(1)");
    EXPECT_EQ(desc(), "D2");
    Click(f, "optForm(1)");
    EXPECT_EQ(wizard.Ctl("txtResponse").Text(), "R2");
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtEmailAddr", "me@example.org");
    Click(f, "cmdNav(4)");
  });
  clsFormWiz wiz;
  wiz.SetImpl(FindElementInXml(impl, "impl"));
  wiz.OnCommand(page, 0, "");
  ASSERT_EQ(wiz.Result(), kResultFinished);
  ASSERT_EQ(page->objects.size(), 1u);
  const auto object = page->objects[0];
  const std::string stored = object->html_data->text;
  EXPECT_EQ(choices_in(stored), kChoices);
  EXPECT_NE(object->html_source->find("value=\"2\""), std::string::npos);
  EXPECT_NE(object->html_source->find("<input name=\"A\">"), std::string::npos);

  // Opened again: the stored choice is there, and the first step still
  // shows each choice's own description.
  ui.scripts["frmWizard"].push_back([&](tk::Form& f) {
    EXPECT_TRUE(wizard.Ctl("optForm", 1).Value());
    for (int i = 0; i < 3; ++i) Click(f, "cmdNav(2)");
    EXPECT_EQ(wizard.nCurStep, 0);
    EXPECT_EQ(desc(), "D2");
    Do(f, Kind::kHover, "optForm(0)");
    EXPECT_EQ(desc(), "D1");
    Click(f, "cmdNav(4)");
  });
  wiz.OnOpen(object, page, 0);
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(object->html_data->text == stored) << "nothing was changed";
  EXPECT_TRUE(ui.boxes.empty());
}

}  // namespace
}  // namespace formwiz
