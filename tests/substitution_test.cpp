#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formdoc/form_doc.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

std::string Replaced(std::string text, const char* find, const char* by) {
  ReplaceAll(text, find, by);
  return text;
}

TEST(SubstitutionTest, ReplaceAllGoesOnBehindWhatItInserted) {
  EXPECT_EQ(Replaced("aaa", "a", "aa"), "aaaaaa");
  EXPECT_EQ(Replaced("aXbXXc", "X", ""), "abc");
  EXPECT_EQ(Replaced("ababa [A] [a ]", "aba", "[a]"), "[a]ba [A] [a ]");
}

TEST(SubstitutionTest, FillsTextAndAttributeValuesAtAnyDepth) {
  const KelXmlElement p = FindElementInXml(
      "<p x=\"[v]\" y=\"\"><!--[v]--><q b=\"[v]\">t[v]</q></p>", "p");
  SubstituteInTree(p, {"[v]", "<&\"", ""});
  // Values go in as plain strings; escaping is the writer's work.
  EXPECT_EQ(p.Xml(),
            "<p x=\"&lt;&amp;&quot;\" y=\"\"><!--[v]--><q "
            "b=\"&lt;&amp;&quot;\">t&lt;&amp;\"</q></p>");
}

TEST(SubstitutionTest, AFailureEndsOnlyThatNode) {
  RecordingUi ui;
  ScopedUi scoped(ui);
  // A placeholder without its value fails on each text and value it meets:
  // text t, text u, then value a, which ends p before b.
  SubstituteInTree(FindElementInXml("<p a=\"1\" b=\"2\"><q>t</q>u</p>", "p"),
                   {"[v]"});
  const RecordingUi::Box failed{
      "Error",
      "Internal Error in Form Wizard: 203\r\n9: Subscript out of range"};
  EXPECT_EQ(ui.boxes, std::vector<RecordingUi::Box>(3, failed));
}

}  // namespace
}  // namespace formwiz
