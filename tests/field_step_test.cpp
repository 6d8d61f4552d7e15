// Step 3 of the wizard: the field list and the boxes of the current field.
// The event chains between the controls are the behaviour, so the tests
// drive the controls and read the tree.
#include <gtest/gtest.h>

#include <string>

#include "component/failure.h"
#include "formdoc/kelxml.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

// A field in front of the table, fields in it with a hidden one and HTML
// between them, and one behind it, which the walk never reaches.
constexpr char kOrb[] =
    "<impl><form uitype='orb'> <section name='Lead' included='yy'/> <table> "
    "<section name='A' prompt='Your A:' size='30' maxlength='60' "
    "included='yn'/> <section name='H' included='hh'/> <section name='B' "
    "included='ny'/> <tr/> <section name='C' included='yy'/> </table> "
    "<section name='Behind' included='yy'/></form></impl>";
// Rows A, B, C with the hidden H between A and B.
constexpr char kFlat[] =
    "<impl><form><section name='A' included='y'/> <section name='H' "
    "included='h'/> <section name='B'/> <section name='C' included='y'/>"
    "</form></impl>";

class FieldStepTest : public ::testing::Test {
 protected:
  ~FieldStepTest() override { wiz.Unload(); }

  // A fresh wizard on `xml`, step 3 loaded for `index`, row `row` current.
  void Open(const std::string& xml, int16_t index = 1, int row = 0) {
    wiz.Unload();
    wiz.Load();
    ASSERT_TRUE(doc.LoadXml(xml));
    wiz.elemImpl = doc.Root().FirstChild();
    wiz.nFormIndex = index;
    wiz.LoadFieldList();
    if (row >= 0) Ctl("lstFields").SetListIndex(row);
  }
  tk::Control& Ctl(const char* name, int index = -1) {
    return wiz.Ctl(name, index);
  }
  void Type(tk::Control& box, const std::string& text) {
    for (char c : text) box.SetText(box.Text() + c);
  }
  // "text+" ticked, "text-" not, the current row in brackets, space-joined.
  // Checks that row r and colFields[r] stand for the same field.
  std::string Rows() {
    tk::Control& lst = Ctl("lstFields");
    EXPECT_EQ(wiz.colFields.size(), static_cast<size_t>(lst.ListCount()));
    std::string rows;
    for (int r = 0; r < lst.ListCount(); ++r) {
      EXPECT_EQ(wiz.colFields.at(r).GetAttribute("name"), lst.List(r));
      std::string row = lst.List(r) + (lst.Selected(r) ? "+" : "-");
      rows += (r ? " " : "") + (r == lst.ListIndex() ? "[" + row + "]" : row);
    }
    return rows;
  }
  // Each field node in document order as "name@parent", or one attribute of
  // each, space-joined.
  std::string Tree(const char* attr = nullptr) {
    std::string fields;
    const KelXmlNodeList all = wiz.elemImpl.GetElementsByTagName("section");
    for (int32_t i = 0; i < all.Count(); ++i) {
      const KelXmlNode f = all.Item(i);
      fields += (i ? " " : "") + (attr ? f.GetAttribute(attr)
                                       : f.GetAttribute("name") + "@" +
                                             f.ParentNode().TagName());
    }
    return fields;
  }
  // `xml` as parsed, with nothing written to it.
  static std::string Pristine(const std::string& xml) {
    KelXmlDocument d;
    EXPECT_TRUE(d.LoadXml(xml));
    return d.Root().FirstChild().Xml();
  }

  frmWizard& wiz = frmWizard::Instance();
  KelXmlDocument doc;
};

TEST_F(FieldStepTest, ListsTheReachedFieldsAndWritesNothing) {
  const std::string hidden_first =
      "<impl><form><section name='X' included='hy'/></form></impl>";
  const struct {
    std::string xml;
    int16_t index;
    const char* rows;
  } cases[] = {
      // The walk of the first choice is a scenario
      // (field-moves-renames-sizes.json).
      {kOrb, 2, "[Lead+] A- B+ C+"},
      {hidden_first, 1, ""},
      {hidden_first, 2, "[X+]"},
      {"<impl><form><section included='y'/><section name='S' included='y'/>"
       "<section name='T'/></form></impl>",
       2, "[S-] T-"},
      {"<impl><form uitype='sectioned'><section name='P' included='y'/>"
       "<table><section name='Q' included='y'/></table></form></impl>",
       1, "[P+]"},
      // One table is entered, once.
      {"<impl><form uitype='orb'><table><table><section name='D'/></table>"
       "<section name='E'/></table></form></impl>",
       1, "[E-]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml + " @" + std::to_string(c.index));
    Open(c.xml, c.index, -1);
    EXPECT_EQ(Rows(), c.rows);
    // Row 0 is current and shown in the boxes.
    EXPECT_EQ(Ctl("txtFieldName").Text(),
              *c.rows ? Ctl("lstFields").List(0) : "");
    Ctl("lstFields").SetListIndex(-1);
    tk::RunEvent(Ctl("cmdShift", 1).on_click);  // No current row: nothing.
    EXPECT_EQ(wiz.elemImpl.Xml(), Pristine(c.xml));
  }
  ASSERT_TRUE(doc.LoadXml("<impl/>"));
  wiz.elemImpl = doc.Root().FirstChild();
  EXPECT_THROW(wiz.LoadFieldList(), Failure);  // A stored form without form.
}

// Ticks, and moves into the table, are a scenario
// (field-moves-renames-sizes.json).
TEST_F(FieldStepTest, MovesPassOneListedFieldAndTakeItsParent) {
  const struct {
    const char* xml;
    int row;
    int button;
    const char* tree;  // empty: nothing moves
    const char* rows;
  } cases[] = {
      {kFlat, 1, 0, "B@form A@form H@form C@form", "[B-] A+ C+"},
      {kFlat, 0, 1, "H@form B@form A@form C@form", "B- [A+] C+"},
      // C is the last child: B is appended behind it.
      {kFlat, 1, 1, "A@form H@form C@form B@form", "A+ C+ [B-]"},
      {kOrb, 1, 0, "A@form Lead@form H@table B@table C@table Behind@form",
       "[A+] Lead+ B- C+"},
      {kFlat, 0, 0, "", ""},
      {kFlat, 2, 1, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.row) + "," + std::to_string(c.button));
    Open(c.xml, 1, c.row);
    tk::RunEvent(Ctl("cmdShift", c.button).on_click);
    if (*c.tree == '\0') {
      EXPECT_EQ(wiz.elemImpl.Xml(), Pristine(c.xml));
      continue;
    }
    EXPECT_EQ(Tree(), c.tree);
    EXPECT_EQ(Rows(), c.rows);
    const int current = Ctl("lstFields").ListIndex();
    // The boxes still show the moved field.
    EXPECT_EQ(Ctl("txtFieldName").Text(), Ctl("lstFields").List(current));
    wiz.LoadFieldList();  // A rebuild from the tree shows the same list.
    Ctl("lstFields").SetListIndex(current);
    EXPECT_EQ(Rows(), c.rows);
  }
}

TEST_F(FieldStepTest, RenamesNeverEmptyANameAndKeepTheRow) {
  Open(kOrb, 1, 1);
  tk::Control& name = Ctl("txtFieldName");
  name.SetText("");
  Type(name, "Mail");
  EXPECT_EQ(Tree("name") + " " + Tree("included"),
            "Lead Mail H B C Behind yy yn hh ny yy yy");
  EXPECT_EQ(Rows(), "Lead+ [Mail+] B- C+");
  name.SetText("");  // Leaving and coming back restores the name.
  Ctl("lstFields").SetListIndex(2);
  name.SetText("Mail");  // A duplicate is accepted.
  Ctl("lstFields").SetListIndex(1);
  EXPECT_EQ(name.Text(), "Mail");
  EXPECT_EQ(Rows(), "Lead+ [Mail+] Mail- C+");
}

TEST_F(FieldStepTest, SizeBoxesFollowTheAttributesPresent) {
  const struct {
    const char* attrs;
    const char* boxes;  // "caption=text" of each shown box
  } cases[] = {
      // Each attribute alone and the pairs are a scenario
      // (field-moves-renames-sizes.json).
      {"size=''", "Field Width:=|"},
      {"", "|"},
      // Of a pair the later wins the box, and nothing is copied.
      {"size='1' cols='2' maxlength='3' rows='4'", "Width:=2|Height:=4"},
  };
  auto shown = [&](int i) -> std::string {
    tk::Control& box = Ctl("txtParam", i);
    tk::Control& label = Ctl(i == 1 ? "lblParam1" : "lblParam2");
    EXPECT_EQ(box.Visible(), label.Visible());
    return box.Visible() ? label.Caption() + "=" + box.Text() : "";
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.attrs);
    const std::string xml = std::string("<impl><form><section name='F' ") +
                            c.attrs + "/><section name='G'/></form></impl>";
    Open(xml, 1, 1);
    Ctl("lstFields").SetListIndex(0);
    EXPECT_EQ(shown(1) + "|" + shown(2), c.boxes);
    EXPECT_EQ(wiz.elemImpl.Xml(), Pristine(xml));
  }
  // The pair's box edits the attribute that won it; a prompt can be empty.
  Ctl("txtParam", 1).SetText("");
  Type(Ctl("txtParam", 1), "7x");
  Ctl("txtFieldPrompt").SetText("P");
  Ctl("txtFieldPrompt").SetText("");
  EXPECT_EQ(Tree("cols") + Tree("size"), "7x 1 ");
  EXPECT_FALSE(wiz.colFields[0].GetAttributeNode("prompt").IsNull());
  Ctl("lstFields").SetListIndex(-1);  // Typed text now goes nowhere.
  Type(Ctl("txtParam", 2), "9");
  Type(Ctl("txtFieldName"), "N");
  Type(Ctl("txtFieldPrompt"), "Q");
  EXPECT_EQ(Tree("prompt") + Tree("rows") + Tree("name"), " 4 F G");
}

TEST_F(FieldStepTest, TabOrderAndLimitsOfTheStep) {
  wiz.Load();
  std::string order;
  for (tk::Control* c : wiz.Controls()) {
    if (c->Container() == &Ctl("fraStep", 3) &&
        c->kind() != tk::ControlKind::kLabel) {
      order += c->Name() + std::to_string(c->MaxLength()) + " ";
    }
  }
  EXPECT_EQ(order,
            "lstFields0 txtFieldName80 txtFieldPrompt256 txtParam(1)3 "
            "txtParam(2)3 cmdShift(0)0 cmdShift(1)0 ");
}

}  // namespace
}  // namespace formwiz
