// The Qt views driven through their real widgets, headless: a whole
// insertion and a reopen, saving what a person sees at each dialog as PNG
// into the build tree. The field list's own behaviour is
// field_list_view_test's, the keyboard's keyboard_test's.
#include "qtui/qt_ui.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "../qt_test_support.h"
#include "actionoptions/frm_action_options.h"
#include "wizard/frm_wizard.h"

namespace formwiz::qtui {
namespace {

TEST(QtUiTest, InsertThroughTheWidgetsThenReopenAndCancel) {
  QtUi ui;
  ScopedUi scoped{ui};
  const auto page = std::make_shared<host::PageDocument>();
  Person person;
  frmWizard& wiz = frmWizard::Instance();
  person.At("frmWizard", [&](FormView& view) {
    Shot(view, "wizard-step1-form");
    // The pointer over a choice shows its description.
    QTest::mouseMove(view.Widget("optForm(1)"));
    EXPECT_TRUE(Get<QLabel>(view, "lblFormDesc")->text().contains("request"));
    Click(view, "optForm(1)");
    EXPECT_EQ(wiz.nFormIndex, 2);
    Click(view, "cmdNav(3)");
    auto* addr = Get<QLineEdit>(view, "txtEmailAddr");
    EXPECT_TRUE(addr->isVisible());
    EXPECT_FALSE(Get<QPushButton>(view, "cmdNav(3)")->isEnabled());
    addr->setFocus();
    QTest::keyClicks(addr, "me@example.org");
    EXPECT_TRUE(Get<QPushButton>(view, "cmdNav(3)")->isEnabled());
    QTest::keyClick(addr, Qt::Key_Return);  // no wizard button is default
    EXPECT_EQ(wiz.nCurStep, 1);
    Shot(view, "wizard-step2-address");
    Click(view, "cmdActionOptions");  // runs the next step, nested
    EXPECT_EQ(wiz.nCurStep, 1);
    Click(view, "cmdNav(3)");
    Shot(view, "wizard-step3-response");
    Click(view, "cmdNav(3)");
    auto* prompt = Get<QLineEdit>(view, "txtFieldPrompt");
    prompt->setFocus();
    prompt->selectAll();
    QTest::keyClicks(prompt, "Your street");
    Shot(view, "wizard-step4-fields");
    Click(view, "cmdNav(4)");
  });
  const std::string typed(256, 'a');
  person.At("frmActionOptions", [&](FormView& view) {
    auto* addr = Get<QLineEdit>(view, "txtEmailAddr");
    EXPECT_EQ(addr->text(), "me@example.org");
    Shot(view, "action-options");
    // Typing stops at the limit, in the middle of a full box too.
    addr->setFocus();
    addr->selectAll();
    QTest::keyClicks(addr, QString(260, 'a'));
    addr->setCursorPosition(10);
    QTest::keyClick(addr, 'b');
    EXPECT_EQ(addr->text().toStdString(), typed);
    EXPECT_EQ(frmActionOptions::Instance().Ctl("txtEmailAddr").Text(), typed);
    QTest::keyClick(&view, Qt::Key_Escape);  // no cancel button here
    EXPECT_TRUE(view.isVisible());
    QTest::keyClick(&view, Qt::Key_Return);  // OK is the default
  });
  person.At("frmWizard", [&](FormView& view) {
    // The edit opens on the last step.
    EXPECT_TRUE(Get<QWidget>(view, "fraStep(3)")->isVisible());
    EXPECT_FALSE(Get<QWidget>(view, "fraStep(0)")->isVisible());
    QTest::keyClick(&view, Qt::Key_Escape);  // presses Cancel
  });

  EXPECT_EQ(InsertBundledOrb(page)->Result(), kResultFinished);
  ASSERT_EQ(page->objects.size(), 1u);
  const auto object = page->objects[0];
  const std::string html = object->html_source.value_or("");
  EXPECT_NE(html.find(typed), std::string::npos);
  EXPECT_NE(html.find("Your street"), std::string::npos);

  clsFormWiz opener;
  opener.OnOpen(object, page, 0);
  EXPECT_TRUE(person.Done());
  EXPECT_EQ(opener.Result(), kResultCancelled);
  EXPECT_EQ(object->html_source, html);
}

}  // namespace
}  // namespace formwiz::qtui
