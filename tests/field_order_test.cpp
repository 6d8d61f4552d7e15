#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

TEST(FieldOrderTest, RecordsDataFieldsAndMarksHtmlElements) {
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

TEST(FieldOrderTest, FragmentsNestedBeyondTheReadersLimitAreFilledAndOrdered) {
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
  RecordingUi ui;
  ScopedUi scoped(ui);
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

TEST(FieldOrderTest, AFailureIsReportedAndKeepsTheOrderSoFar) {
  RecordingUi ui;
  ScopedUi scoped(ui);
  std::string order = "a";
  CollectFieldOrder(KelXmlNode(), order);
  EXPECT_EQ(order, "a");
  EXPECT_EQ(ui.boxes, (std::vector<RecordingUi::Box>{
                          {"Error",
                           "Internal Error in Form Wizard: 106\r\n91: "
                           "Object variable or With block variable "
                           "not set"}}));
}

}  // namespace
}  // namespace formwiz
