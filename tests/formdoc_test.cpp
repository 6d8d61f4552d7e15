// The operations on the form definition: assembly of a form choice from its
// fields and templates, the placeholders filled in, the order of the data
// fields, the included flags of a field and the hidden fields of a form; and
// the internal error report they all make.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "component/utils.h"
#include "component_test_support.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"

namespace formwiz {
namespace {

// Every report goes to `ui`.
class FormDocTest : public ::testing::Test {
 protected:
  RecordingUi ui;
  ScopedUi scoped{ui};
};

TEST_F(FormDocTest, AssemblyReplacesReachedFieldsByTheirFragments) {
  const std::string kFields =
      "<impl><template name=\"t\"><i n=\"[fieldname]\" s=\"[size]\" "
      "c=\"[cols]\"/></template><form>a<section name=\"A\" size=\"\" "
      "template=\"t\" included=\"yn\"><b>[fieldprompt]</b></section>b"
      "<section included=\"ny\">B</section>c<table><section/></table></form>"
      "</impl>";
  struct Case {
    std::string impl;
    int16_t index;
    const char* form;
  } cases[] = {
      {kFields, 1,
       "<form>a<b></b><i n=\"A\" s=\"\" c=\"[cols]\"></i>bc<table><section>"
       "</section></table></form>"},
      {kFields, 2, "<form>abBc<table><section></section></table></form>"},
      // Pairs run in order, and an empty value ends nothing.
      {"<impl><form><section name=\"[size]\" prompt=\"[fieldname]\" size=\"9\" "
       "included=\"y\">[fieldname]|[fieldprompt]</section></form></impl>",
       1, "<form>9|[fieldname]</form>"},
      // The walk enters the first table only and never comes back out.
      {"<impl><form uitype=\"orb\"><section included=\"y\">1</section><table>"
       "<section included=\"y\">2</section><tr><section/></tr></table>"
       "<section/></form></impl>",
       1,
       "<form uitype=\"orb\">1<table>2<tr><section></section></tr></table>"
       "<section></section></form>"},
      // The first template of a name, matched exactly; a fragment's own
      // section is not expanded.
      {"<impl><template name=\"line\">1st</template><template name=\"line\">"
       "2nd</template><form><section template=\"line\" included=\"y\"/>"
       "<section template=\"Line\" included=\"y\"/><section name=\"n\" "
       "included=\"y\"><section>[fieldname]</section></section></form></impl>",
       1, "<form>1st<section>n</section></form>"},
  };
  for (const Case& c : cases) {
    const KelXmlNode impl = FindElementInXml(c.impl, "impl");
    EXPECT_TRUE(AssembleForm(impl, c.index)) << c.impl;
    EXPECT_EQ(FirstFormChild(impl).Xml(), c.form) << c.impl;
  }
}

TEST_F(FormDocTest, AFormFarLargerThanItsDefinitionIsNotMade) {
  // A 5 KB field whose values each name the next placeholder a hundred
  // times asks for 10^12 bytes; a 20 KB template used by 1,000 fields, for
  // 20 MB. Each fails once, as out of memory, within its budget of memory
  // and time; a form of 20,000 real fields is made.
  const std::string chained =
      "<impl><template name=\"t\">[fieldname]</template><form><section "
      "template=\"t\" included=\"y\" name=\"" +
      Repeat("[fieldprompt]", 100) + "\" prompt=\"" + Repeat("[size]", 100) +
      "\" size=\"" + Repeat("[maxlength]", 100) + "\" maxlength=\"" +
      Repeat("[rows]", 100) + "\" rows=\"" + Repeat("[cols]", 100) +
      "\" cols=\"" + Repeat("x", 100) + "\"/></form></impl>";
  const std::string copied =
      "<impl><template name=\"t\"><p>" + Repeat("x", 20000) +
      "</p></template><form>" +
      Repeat("<section template=\"t\" included=\"y\"/>", 1000) +
      "</form></impl>";
  const std::string real =
      "<impl><template name=\"t\"><tr><td>[fieldprompt]</td><td><input "
      "name=\"[fieldname]\" size=\"[size]\"/></td></tr></template><form>" +
      Repeat(
          "<section template=\"t\" included=\"y\" name=\"Field\" "
          "prompt=\"Your field:\" size=\"30\"/>",
          20000) +
      "</form></impl>";
  for (const std::string* definition : {&chained, &copied}) {
    EXPECT_FALSE(AssembleForm(FindElementInXml(*definition, "impl"), 1));
  }
  const KelXmlNode impl = FindElementInXml(real, "impl");
  EXPECT_TRUE(AssembleForm(impl, 1));
  EXPECT_EQ(FirstFormChild(impl).GetElementsByTagName("input").Count(), 20000);
  EXPECT_EQ(ui.boxes,
            (std::vector<RecordingUi::Box>(
                2, {"Error", InternalError("201\r\n7: Out of memory")})));
}

TEST_F(FormDocTest, SubstitutionFillsTextAndValuesGoingOnBehindWhatItPut) {
  for (const auto& [text, find, by, replaced] :
       {std::tuple{"aaa", "a", "aa", "aaaaaa"},
        {"aXbXXc", "X", "", "abc"},
        {"ababa [A] [a ]", "aba", "[a]", "[a]ba [A] [a ]"}}) {
    std::string s = text;
    ReplaceAll(s, find, by);
    EXPECT_EQ(s, replaced);
  }
  const KelXmlElement p = FindElementInXml(
      "<p x=\"[v]\" y=\"\"><!--[v]--><q b=\"[v]\">t[v]</q></p>", "p");
  SubstituteInTree(p, {"[v]", "<&\"", ""});
  // Values go in as plain strings; escaping is the writer's work.
  EXPECT_EQ(p.Xml(),
            "<p x=\"&lt;&amp;&quot;\" y=\"\"><!--[v]--><q "
            "b=\"&lt;&amp;&quot;\">t&lt;&amp;\"</q></p>");
}

TEST_F(FormDocTest, FieldOrderRecordsDataFieldsAndMarksHtmlElements) {
  const KelXmlElement form = FindElementInXml(
      "<form><input type=\"hidden\" name=\"qln_SortOrder\"/><input "
      "type=\"submit\" name=\"qln_go\"/><input type=\"hidden\" name=\"note\"/>"
      "<table><tr><td><input type=\"text\" name=\"qln_x\"/><br/><img/></td>"
      "</tr></table><input type=\"HIDDEN\" name=\"qln_y\"/><input "
      "name=\"Qln_z\" type=\"hidden\"/><textarea name=\"a,b\"/><textarea/>"
      "<select name=\"s\"/><INPUT name=\"up\"/><input type=\"submit\"/></form>",
      "form");
  std::string order;
  CollectFieldOrder(form, order);
  EXPECT_EQ(order, "note,qln_x,qln_y,Qln_z,a,b");
  EXPECT_EQ(form.Xml(),
            "<form><input type=\"hidden\" name=\"qln_SortOrder\"><input "
            "type=\"submit\" name=\"qln_go\"><input type=\"hidden\" "
            "name=\"note\"><table><tr><td><input type=\"text\" name=\"qln_x\">"
            "<br><img></td></tr></table><input type=\"HIDDEN\" name=\"qln_y\">"
            "<input name=\"Qln_z\" type=\"hidden\"><textarea name=\"a,b\">"
            "</textarea><textarea></textarea><select name=\"s\"></select>"
            "<INPUT name=\"up\"></INPUT><input type=\"submit\"></form>");
}

TEST_F(FormDocTest, FragmentsNestedBeyondTheReadersLimitAreFilledAndOrdered) {
  // Code can nest deeper than LoadXml accepts; filling and ordering walk
  // such a tree without recursion, and fill children before attributes.
  constexpr int kDepth = 200000;
  const KelXmlElement top = FindElementInXml("<div/>", "div");
  KelXmlElement leaf = top;
  for (int i = 1; i < kDepth; ++i) leaf = leaf.AppendNewElement("div");
  leaf.SetAttribute("title", "[fieldprompt]");
  leaf.InsertBefore(FindElementInXml("<t>[fieldprompt]</t>", "t").FirstChild(),
                    {});
  leaf.AppendNewElement("input").SetAttribute("name", "[fieldname]");
  SubstituteInTree(top, {"[fieldname]", "Email", "[fieldprompt]", "Mail:", ""});
  std::string order;
  CollectFieldOrder(top, order);
  EXPECT_TRUE(ui.boxes.empty());
  EXPECT_EQ(order, "Email");
  EXPECT_EQ(leaf.GetAttribute("title"), "Mail:");
  EXPECT_EQ(top.Text(), "Mail:");
  EXPECT_EQ(top.GetElementsByTagName("div").Count(), kDepth - 1);
  EXPECT_EQ(leaf.Xml(),
            "<div title=\"Mail:\">Mail:<input name=\"Email\"></div>");
}

TEST_F(FormDocTest, EachOperationReportsItsFailuresUnderItsOwnCode) {
  // The report: the code alone, or a second line with the number.
  ReportInternalError(105, 0, "");
  ReportInternalError(105, 0, "x");
  ReportInternalError(105, 91, "");
  ReportInternalError(105, -2147024809, "Bad");
  // A trapped failure ends the body only, whatever it was.
  bool after = false;
  EXPECT_FALSE(Trapped(201, [&] {
    KelXmlNode().FirstChild();
    after = true;
  }));
  EXPECT_FALSE(after);
  EXPECT_FALSE(Trapped(202, [] { throw std::bad_alloc(); }));
  EXPECT_TRUE(Trapped(203, [] {}));
  EXPECT_FALSE(AssembleForm(FindElementInXml("<impl/>", "impl"), 1));
  EXPECT_FALSE(AssembleForm(KelXmlNode(), 1));
  // A field out of any tree gets its template, then fails at the removal.
  const KelXmlNode impl = FindElementInXml(
      "<impl><template name=\"t\">x</template></impl>", "impl");
  const KelXmlElement field =
      FindElementInXml("<section template=\"t\"/>", "section");
  ExpandField(impl, field, 1);
  EXPECT_EQ(field.Xml(), "<section template=\"t\">x</section>");
  EXPECT_EQ(impl.Xml(), "<impl><template name=\"t\">x</template></impl>");
  // A placeholder without its value fails on each text and value it meets:
  // text t, text u, then value a, which ends p before b.
  SubstituteInTree(FindElementInXml("<p a=\"1\" b=\"2\"><q>t</q>u</p>", "p"),
                   {"[v]"});
  std::string order = "a";
  CollectFieldOrder(KelXmlNode(), order);
  EXPECT_EQ(order, "a") << "the order so far stays";
  const std::string not_set =
      "\r\n91: Object variable or With block variable not set";
  const std::string range = "203\r\n9: Subscript out of range";
  std::vector<RecordingUi::Box> expected;
  for (const std::string& text :
       {std::string("105"), std::string("105\r\n0: x"),
        std::string("105\r\n91: "), std::string("105\r\n-2147024809: Bad"),
        "201" + not_set, std::string("202\r\n7: Out of memory"),
        "201" + not_set, "202" + not_set, range, range, range,
        "106" + not_set}) {
    expected.push_back({"Error", InternalError(text)});
  }
  EXPECT_EQ(ui.boxes, expected);
}

TEST_F(FormDocTest, IncludedReadsAndRewritesTheCharacterAtTheIndex) {
  struct Case {
    const char* before;  // nullptr: no `included` attribute
    int32_t index;
    bool included;
    bool tick;
    const char* after;
  } cases[] = {
      {"yh", 1, true, false, "nh"},
      {"yh", 2, false, true, "yy"},
      {"y", 2, false, true, "yy"},
      {nullptr, 2, false, true, "y"},
      {"n", 5, false, true, "ny"},    // Grows by one, never padded.
      {"yn", 0, false, true, "yyn"},  // Index 0 reads the whole value.
      {"y", 0, true, false, "n"},
      {"\xC3\xA9yn", 2, true, false, "\xC3\xA9nn"},  // Counts characters.
  };
  for (const Case& c : cases) {
    const KelXmlElement field = FindElementInXml("<section/>", "section");
    if (c.before) field.SetAttribute("included", c.before);
    EXPECT_EQ(IsIncluded(field, c.index), c.included) << c.before;
    SetFieldIncluded(field, c.index, c.tick);
    EXPECT_EQ(field.GetAttribute("included"), c.after) << c.before;
  }
  EXPECT_TRUE(IsFieldHidden(FindElementInXml("<s included=\"yh\"/>", "s"), 2));
  EXPECT_FALSE(IsIncluded(KelXmlNode(), 1));  // Lets no failure out.
}

TEST_F(FormDocTest, AHiddenFieldReadsTheFirstMatchWithAValue) {
  const struct {
    const char* form;
    const char* value;
  } cases[] = {
      {"<form/>", ""},
      {"<form><input type=\"hidden\" name=\"f\" value=\"1\"/></form>", "1"},
      {"<form><input type=\"text\" name=\"f\" value=\"1\"/></form>", ""},
      {"<form><input TYPE=\"hidden\" name=\"f\" value=\"1\"/></form>", ""},
      {"<form><input type=\"Hidden\" name=\"f\" value=\"1\"/></form>", ""},
      {"<form><INPUT type=\"hidden\" name=\"f\" value=\"1\"/></form>", ""},
      {"<form><input type=\"hidden\" name=\"F\" value=\"1\"/></form>", ""},
      {"<form><table><input type=\"hidden\" name=\"f\" value=\"1\"/></table>"
       "</form>",
       ""},
      {"<form><input type=\"hidden\" name=\"f\" value=\"\"/>"
       "<input type=\"hidden\" name=\"f\" value=\"2\"/>"
       "<input type=\"hidden\" name=\"f\" value=\"3\"/></form>",
       "2"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GetHiddenField(FindElementInXml(c.form, "form"), "f"), c.value)
        << c.form;
  }
  // A failure reads as an absent field.
  EXPECT_EQ(GetHiddenField(KelXmlNode(), "f"), "");
}

TEST_F(FormDocTest, NewHiddenFieldsGoFirstInReverseOrderAndExistingOnesStay) {
  KelXmlElement form = FindElementInXml(
      "<form><input type=\"hidden\" name=\"b\" value=\"\"/>"
      "<input type=\"hidden\" name=\"b\" value=\"x\"/><table/></form>",
      "form");
  SetHiddenField(form, "a", "1", false);
  SetHiddenField(form, "b", "2", false);  // the first match, the empty one
  SetHiddenField(form, "c", "", false);
  SetHiddenField(form, "d", "<&\"", true);
  SetHiddenField(form, "a", "3", false);
  EXPECT_EQ(form.Xml(),
            "<form><input type=\"hidden\" name=\"d\" value=\"&lt;&amp;&quot;\">"
            "<input type=\"hidden\" name=\"c\" value=\"\"></input>"
            "<input type=\"hidden\" name=\"a\" value=\"3\"></input>"
            "<input type=\"hidden\" name=\"b\" value=\"2\"></input>"
            "<input type=\"hidden\" name=\"b\" value=\"x\"></input>"
            "<table></table></form>");
  // An empty form gets the field as its only child.
  KelXmlElement bare = FindElementInXml("<form/>", "form");
  SetHiddenField(bare, "f", "v", false);
  EXPECT_EQ(bare.Xml(),
            "<form><input type=\"hidden\" name=\"f\" value=\"v\"></input>"
            "</form>");
  EXPECT_TRUE(ui.boxes.empty());
  // A failure is reported as 301.
  SetHiddenField(KelXmlElement(), "f", "v", false);
  EXPECT_EQ(ui.boxes, (std::vector<RecordingUi::Box>{
                          {"Error", InternalError("301\r\n91: Object variable "
                                                  "or With block variable not "
                                                  "set")}}));
}

}  // namespace
}  // namespace formwiz
