#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formdoc/form_doc.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

TEST(AssemblyTest, ReplacesReachedFieldsByTheirFragments) {
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

TEST(AssemblyTest, FailuresAreReportedByTheirOwnOperation) {
  RecordingUi ui;
  ScopedUi scoped(ui);
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
  const std::string not_set =
      "\r\n91: Object variable or With block variable not set";
  const std::string prefix = "Internal Error in Form Wizard: ";
  EXPECT_EQ(ui.boxes, (std::vector<RecordingUi::Box>{
                          {"Error", prefix + "201" + not_set},
                          {"Error", prefix + "202" + not_set}}));
}

// `text` `n` times.
std::string Times(const std::string& text, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += text;
  return out;
}

TEST(AssemblyTest, AFormFarLargerThanItsDefinitionIsNotMade) {
  // A 5 KB field whose values each name the next placeholder a hundred
  // times asks for 10^12 bytes; a 20 KB template used by 1,000 fields, for
  // 20 MB. Each fails once, as out of memory, within its budget of memory
  // and time; a form of 20,000 real fields is made.
  const std::string chained =
      "<impl><template name=\"t\">[fieldname]</template><form><section "
      "template=\"t\" included=\"y\" name=\"" +
      Times("[fieldprompt]", 100) + "\" prompt=\"" + Times("[size]", 100) +
      "\" size=\"" + Times("[maxlength]", 100) + "\" maxlength=\"" +
      Times("[rows]", 100) + "\" rows=\"" + Times("[cols]", 100) +
      "\" cols=\"" + Times("x", 100) + "\"/></form></impl>";
  const std::string copied =
      "<impl><template name=\"t\"><p>" + Times("x", 20000) +
      "</p></template><form>" +
      Times("<section template=\"t\" included=\"y\"/>", 1000) +
      "</form></impl>";
  const std::string real =
      "<impl><template name=\"t\"><tr><td>[fieldprompt]</td><td><input "
      "name=\"[fieldname]\" size=\"[size]\"/></td></tr></template><form>" +
      Times(
          "<section template=\"t\" included=\"y\" name=\"Field\" "
          "prompt=\"Your field:\" size=\"30\"/>",
          20000) +
      "</form></impl>";
  for (const std::string* definition : {&chained, &copied}) {
    RecordingUi ui;
    ScopedUi scoped(ui);
    EXPECT_FALSE(AssembleForm(FindElementInXml(*definition, "impl"), 1));
    EXPECT_EQ(ui.boxes, (std::vector<RecordingUi::Box>{
                            {"Error",
                             "Internal Error in Form Wizard: 201\r\n7: Out "
                             "of memory"}}));
  }
  RecordingUi ui;
  ScopedUi scoped(ui);
  const KelXmlNode impl = FindElementInXml(real, "impl");
  EXPECT_TRUE(AssembleForm(impl, 1));
  EXPECT_EQ(FirstFormChild(impl).GetElementsByTagName("input").Count(), 20000);
  EXPECT_TRUE(ui.boxes.empty());
}

}  // namespace
}  // namespace formwiz
