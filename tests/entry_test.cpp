// clsFormWiz's two calls up to the decision on what to show: refusals,
// reports and the Result each way leaves.
#include <gtest/gtest.h>

#include "component_test_support.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

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

class EntryTest : public ComponentTest {
 protected:
  ~EntryTest() override {
    frmWizard::Instance().Unload();
    frmActionOptions::Instance().Unload();
  }
  std::shared_ptr<host::PageObject> Stored(const std::string& data) {
    auto object = page->AddObject();
    object->html_data = Variant::String(data);
    return object;
  }
  clsFormWiz wiz;
};

// The text selection that cannot be made is a scenario
// (fault-create-selection-*.json).
TEST_F(EntryTest, OnCommandRefusesOrReportsBeforeAnyDialog) {
  const struct {
    const char* impl;  // null: Impl never set
    std::vector<std::string> texts;
  } cases[] = {
      {"<impl><placeholder src='p'/></impl>", {}},
      {"<impl><form action='a'/></impl>", {}},
      {nullptr,
       {InternalError(
           "102\r\n91: Object variable or With block variable not set")}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.impl ? c.impl : "no Impl");
    ui.boxes.clear();
    clsFormWiz fresh;
    if (c.impl) fresh.SetImpl(FindElementInXml(c.impl, "impl"));
    fresh.OnCommand(page, 0, "");
    EXPECT_EQ(Texts(), c.texts);
    EXPECT_EQ(fresh.Result(), kResultCancelled);
    EXPECT_TRUE(page->objects.empty());
  }
}

TEST_F(EntryTest, OnCommandTakesTheLastPlaceholderOnItsWalk) {
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

// What stored strings lead to is hostile_input_test's.
TEST_F(EntryTest, OnOpenRefusesNoObjectAndDoesNothingWhileTheGuardIsUp) {
  wiz.OnOpen(nullptr, page, 0);
  EXPECT_EQ(Boxes(), (std::vector<std::string>{
                         "QlnFormOrbWiz: This Form Orb can not be edited."}));
  ui.boxes.clear();
  page->calls.clear();
  frmActionOptions::Instance().bInUse = true;
  clsFormWizTestPeer::SetResult(wiz, kResultFinished);
  wiz.OnOpen(Stored("x"), page, 0);  // would be refused
  EXPECT_TRUE(ui.boxes.empty());
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(page->calls.empty()) << "not even HTMLData is read";
}

const Failure kRunFailure{5, "Invalid procedure call or argument"};
const std::string kRunFailureText = "\r\n5: Invalid procedure call or argument";

TEST_F(EntryTest, AFailureInTheRunOfOnCommandStillUnloadsTheWizard) {
  ui.act = [](tk::Form&) { Raise(kRunFailure); };
  wiz.SetImpl(FindElementInXml("<impl><form/></impl>", "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(Texts(), (std::vector{InternalError("102" + kRunFailureText)}));
  EXPECT_FALSE(frmWizard::Instance().Loaded());
  EXPECT_FALSE(frmActionOptions::Instance().Loaded()) << "its Form_Unload";
  EXPECT_EQ(wiz.Result(), kResultCancelled) << "failed before it returned";
}

TEST_F(EntryTest, AFailureInARunOfOnOpenLeavesItsDialogLoaded) {
  ui.act = [](tk::Form&) { Raise(kRunFailure); };
  auto form = Stored("<form><input type='hidden' name='qln_EmailTo'/></form>");
  wiz.OnOpen(form, page, 0);
  EXPECT_TRUE(frmActionOptions::Instance().Loaded());
  EXPECT_FALSE(form->html_source);

  frmActionOptions::Instance().Unload();
  wiz.OnOpen(Stored("<impl><form/></impl>"), page, 0);
  EXPECT_TRUE(frmWizard::Instance().Loaded());
  EXPECT_FALSE(clsFormWizTestPeer::Impl(wiz).IsNull()) << "held to the end";
  EXPECT_EQ(wiz.Result(), kResultCancelled);
  EXPECT_EQ(Texts(), (std::vector<std::string>(
                         2, InternalError("104" + kRunFailureText))));
}

TEST_F(EntryTest, EveryRunStartsOnAFreshDialogAfterAFinishedOnOpen) {
  std::vector<std::string> shown;  // each dialog as it comes up
  ui.act = [&](tk::Form& form) {
    const frmWizard& wizard = frmWizard::Instance();
    shown.push_back(form.name() +
                    (wizard.Loaded()
                         ? " on step " + std::to_string(wizard.nCurStep)
                         : " alone"));
    if (&form == &frmWizard::Instance()) Click(form, "cmdNav(4)");
  };
  const std::string impl =
      "<impl><forminfo/><form><input type='hidden' name='qln_FormIndex' "
      "value='1'/><section name='A' included='y'/></form></impl>";
  wiz.SetImpl(FindElementInXml("<impl/>", "impl"));
  wiz.OnOpen(Stored(impl), page, 0);
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(clsFormWizTestPeer::Impl(wiz).IsNull()) << "dropped at the end";
  EXPECT_TRUE(frmWizard::Instance().Loaded()) << "Finish only hides";
  EXPECT_TRUE(frmActionOptions::Instance().Loaded());

  // A stored form next: the leftover goes first, its options dialog too.
  wiz.OnOpen(Stored("<form/>"), page, 0);
  EXPECT_FALSE(frmWizard::Instance().Loaded());
  EXPECT_EQ(frmActionOptions::Instance().Caption(), "Form Orb Options");

  wiz.OnOpen(Stored(impl), page, 0);
  wiz.SetImpl(FindElementInXml(impl, "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(shown, (std::vector<std::string>{
                       "frmWizard on step 3", "frmActionOptions alone",
                       "frmWizard on step 3", "frmWizard on step 0"}));
  EXPECT_TRUE(ui.boxes.empty());
}

}  // namespace
}  // namespace formwiz
