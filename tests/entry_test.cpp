// clsFormWiz's two calls up to the decision on what to show: refusals,
// reports and the Result each way leaves.
#include <gtest/gtest.h>

#include "component_test_support.h"

namespace formwiz {
namespace {

using host::Fault;

TEST(Variant, ConvertsLikeTheRuntime) {
  const struct {
    Variant value;
    const char* text;  // null: no text
  } cases[] = {
      {Variant::String("<a/>"), "<a/>"},
      {Variant::Number(3), "3"},
      {Variant::Number(1.5), "1.5"},
      {Variant::Number(-0.0), "0"},
      {Variant::Number(1.0 / 3), "0.333333333333333"},
      {Variant::Number(1e15), "1E+15"},
      {Variant::Number(0.00001), "1E-05"},
      {Variant{}, nullptr},
      {Variant::Null(), nullptr},
      {Variant::Object(std::make_shared<HostObject>()), nullptr},
  };
  for (const auto& c : cases) {
    std::string text = "untouched";
    EXPECT_EQ(c.value.ToText(text), c.text != nullptr);
    EXPECT_EQ(text, c.text ? c.text : "untouched");
  }
}

TEST(Decision, UiTypeAndActionChooseTheWizardOnTheLastForm) {
  const struct {
    const char* impl;
    bool runs;
  } cases[] = {
      {"<impl><form uitype='orb'/></impl>", true},
      {"<impl><form uitype='sectioned' action='x'/></impl>", true},
      {"<impl><form uitype=''/></impl>", true},
      {"<impl><form action=''/></impl>", false},  // present, though empty
      {"<impl><form uitype='Orb'/></impl>", false},
      {"<impl><form uitype='orb'/><form uitype='x'/></impl>", false},
      {"<impl><form uitype='x'/><form/></impl>", true},
  };
  for (const auto& c : cases) {
    const KelXmlElement form =
        LastFormChild(FindElementInXml(c.impl, "impl"), nullptr);
    const std::string before = form.Xml();
    EXPECT_EQ(WizardRunsFor(EffectiveUiType(form)), c.runs) << c.impl;
    EXPECT_EQ(form.Xml(), before) << "the tree keeps what it has";
  }
}

class OnCommandTest : public ComponentTest {};

TEST_F(OnCommandTest, RefusesOrReportsBeforeAnyDialog) {
  const struct {
    const char* impl;  // null: Impl never set
    std::optional<Fault> create_selection;
    std::vector<std::string> texts;
  } cases[] = {
      {"<impl><placeholder src='p'/></impl>", {}, {}},
      {"<impl><form action='a'/></impl>", {}, {}},
      {"<impl><form/></impl>", Fault::NoObject(), {InternalError("101")}},
      {"<impl><form/></impl>",
       Fault::Raising({429, "ActiveX component can't create object"}),
       {InternalError("102\r\n429: ActiveX component can't create object")}},
      {nullptr,
       {},
       {InternalError(
           "102\r\n91: Object variable or With block variable not set")}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.impl ? c.impl : "no Impl");
    ui.boxes.clear();
    page->faults.clear();
    if (c.create_selection)
      page->faults["createSelection"] = *c.create_selection;
    clsFormWiz wiz;
    if (c.impl) wiz.SetImpl(FindElementInXml(c.impl, "impl"));
    wiz.OnCommand(page, 0, "");
    EXPECT_EQ(Texts(), c.texts);
    EXPECT_EQ(wiz.Result(), kResultCancelled);
    EXPECT_TRUE(page->objects.empty());
  }
}

TEST_F(OnCommandTest, TakesTheLastPlaceholderOnItsWalk) {
  clsFormWiz wiz;
  wiz.SetImpl(FindElementInXml(
      "<impl><placeholder src='a'/><form/><placeholder src='b'/></impl>",
      "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(clsFormWizTestPeer::PlaceholderSrc(wiz), "b");
  wiz.SetImpl(FindElementInXml("<impl><form/></impl>", "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(clsFormWizTestPeer::PlaceholderSrc(wiz), "b") << "none: unchanged";
  EXPECT_TRUE(ui.boxes.empty());
}

class OnOpenTest : public ComponentTest {
 protected:
  // OnOpen on a new object whose HTMLData is `data` (never written: none).
  void Open(std::optional<Variant> data) {
    auto object = page->AddObject();
    object->html_data = std::move(data);
    wiz.OnOpen(object, page, 0);
  }
  clsFormWiz wiz;
};

const std::string kRefusal = "QlnFormOrbWiz: This Form Orb can not be edited.";

TEST_F(OnOpenTest, StoredDataDecidesWhatFollows) {
  const std::string report104 = "Error: " + InternalError("104");
  const struct {
    std::optional<Variant> data;
    std::vector<std::string> boxes;
    int32_t result;
  } cases[] = {
      {std::nullopt, {kRefusal}, 0},
      {Variant::Null(), {kRefusal}, 0},
      {Variant::Object(std::make_shared<HostObject>()), {kRefusal}, 0},
      {Variant::String("<"), {kRefusal}, 0},
      {Variant::String("\xC3\xA9"), {kRefusal}, 0},  // one character
      {Variant::Number(3), {kRefusal}, 0},
      {Variant::String("ab"), {report104}, 0},
      {Variant::Number(12), {report104}, 0},
      {Variant::String("<form/>"), {}, 0},
      {Variant::String("<impl><form/></impl>"), {}, 2},
      {Variant::String("<!--x--><impl/>"), {}, 0},
      {Variant::String("<?impl x?><impl/>"), {}, 0},
      {Variant::String("<Impl/>"), {}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.data && c.data->kind == Variant::Kind::kString
                     ? c.data->text
                     : "no string");
    ui.boxes.clear();
    wiz = clsFormWiz();
    Open(c.data);
    EXPECT_EQ(Boxes(), c.boxes);
    EXPECT_EQ(wiz.Result(), c.result);
  }
}

TEST_F(OnOpenTest, AnUnreadableObjectIsRefusedNotReported) {
  auto object = page->AddObject();
  object->html_data_read_fault = Failure{7, "x"};
  wiz.OnOpen(object, page, 0);
  wiz.OnOpen(nullptr, page, 0);
  EXPECT_EQ(Boxes(), (std::vector{kRefusal, kRefusal}));
}

TEST_F(OnOpenTest, TheDocumentObjectMustBeThere) {
  page->faults["createDocument"] = Fault::NoObject();
  Open(Variant::String("<impl/>"));
  page->faults["createDocument"] = Fault::Raising({5, "No parser"});
  Open(Variant::String("<impl/>"));
  EXPECT_EQ(Texts(), (std::vector{InternalError("103"),
                                  InternalError("104\r\n5: No parser")}));
  EXPECT_EQ(wiz.Result(), kResultNone);
}

TEST_F(OnOpenTest, AStoredDefinitionIsDroppedAtTheEnd) {
  wiz.SetImpl(FindElementInXml("<impl/>", "impl"));
  Open(Variant::String("<impl><form/></impl>"));
  EXPECT_TRUE(clsFormWizTestPeer::Impl(wiz).IsNull());
  EXPECT_FALSE(page->objects[0]->html_source) << "nothing finished";
}

TEST_F(OnOpenTest, DoesNothingWhileTheGuardIsUpOnAnyObject) {
  frmActionOptions::Instance().bInUse = true;
  clsFormWiz other;
  clsFormWizTestPeer::SetResult(other, kResultFinished);
  auto object = page->AddObject();
  object->html_data = Variant::String("x");  // would be refused
  other.OnOpen(object, page, 0);
  EXPECT_TRUE(ui.boxes.empty());
  EXPECT_EQ(other.Result(), kResultFinished);
  EXPECT_TRUE(page->calls.empty()) << "not even HTMLData is read";
}

}  // namespace
}  // namespace formwiz
