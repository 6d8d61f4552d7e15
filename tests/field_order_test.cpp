#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formdoc/form_doc.h"
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
