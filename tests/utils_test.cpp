// The shared module: the internal error report and the hidden form fields.
#include "component/utils.h"

#include <gtest/gtest.h>

#include "toolkit/ui.h"

namespace formwiz {
namespace {

TEST(ReportInternalError, CodeAloneOrWithASecondLine) {
  const struct {
    int32_t number;
    const char* description;
    const char* text;
  } cases[] = {
      {0, "", "Internal Error in Form Wizard: 105"},
      {0, "x", "Internal Error in Form Wizard: 105\r\n0: x"},
      {91, "", "Internal Error in Form Wizard: 105\r\n91: "},
      {-2147024809, "Bad",
       "Internal Error in Form Wizard: 105\r\n-2147024809: Bad"},
  };
  for (const auto& c : cases) {
    RecordingUi ui;
    ScopedUi scope(ui);
    ReportInternalError(105, c.number, c.description);
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].title, "Error");
    EXPECT_EQ(ui.boxes[0].text, c.text);
  }
}

TEST(Trapped, ReportsTheFailureWithTheCodeAndEndsTheBodyOnly) {
  RecordingUi ui;
  ScopedUi scope(ui);
  bool after = false;
  EXPECT_FALSE(Trapped(201, [&] {
    KelXmlNode().FirstChild();
    after = true;
  }));
  EXPECT_FALSE(after);
  EXPECT_FALSE(Trapped(202, [] { throw std::bad_alloc(); }));
  EXPECT_TRUE(Trapped(203, [] {}));
  ASSERT_EQ(ui.boxes.size(), 2u);
  EXPECT_EQ(ui.boxes[0].text,
            "Internal Error in Form Wizard: 201\r\n91: Object variable or With "
            "block variable not set");
  EXPECT_EQ(ui.boxes[1].text,
            "Internal Error in Form Wizard: 202\r\n7: Out of memory");
}

KelXmlElement Form(KelXmlDocument& doc, std::string_view xml) {
  EXPECT_TRUE(doc.LoadXml(xml));
  return doc.Root().FirstChild();
}

TEST(HiddenField, ReadsTheFirstMatchWithAValue) {
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
    KelXmlDocument doc;
    EXPECT_EQ(GetHiddenField(Form(doc, c.form), "f"), c.value) << c.form;
  }
  // A failure reads as an absent field.
  EXPECT_EQ(GetHiddenField(KelXmlNode(), "f"), "");
}

TEST(HiddenField, NewFieldsGoFirstInReverseOrderAndExistingOnesStay) {
  RecordingUi ui;
  ScopedUi scope(ui);
  KelXmlDocument doc;
  KelXmlElement form =
      Form(doc,
           "<form><input type=\"hidden\" name=\"b\" value=\"\"/>"
           "<input type=\"hidden\" name=\"b\" value=\"x\"/><table/></form>");
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
  KelXmlDocument empty;
  KelXmlElement bare = Form(empty, "<form/>");
  SetHiddenField(bare, "f", "v", false);
  EXPECT_EQ(bare.Xml(),
            "<form><input type=\"hidden\" name=\"f\" value=\"v\"></input>"
            "</form>");
  EXPECT_TRUE(ui.boxes.empty());
  // A failure is reported as 301.
  SetHiddenField(KelXmlElement(), "f", "v", false);
  ASSERT_EQ(ui.boxes.size(), 1u);
  EXPECT_EQ(ui.boxes[0].text,
            "Internal Error in Form Wizard: 301\r\n91: Object variable or With "
            "block variable not set");
}

}  // namespace
}  // namespace formwiz
