// A person with the keyboard alone: every key goes to the widget that has
// the focus, as a real keyboard's would, so the tests see where focus lands
// after each step change and what Enter and Space press from there.
#include <gtest/gtest.h>

#include <QPushButton>
#include <functional>
#include <vector>

#include "../qt_test_support.h"
#include "actionoptions/frm_action_options.h"
#include "qtui/qt_ui.h"
#include "wizard/frm_wizard.h"

namespace formwiz::qtui {
namespace {

std::string Focused(FormView& view) {
  const QWidget* w = view.focusWidget();
  return w == nullptr ? "" : w->objectName().toStdString();
}

void Key(FormView& view, int key, Qt::KeyboardModifiers mods = {}) {
  QWidget* w = view.focusWidget();
  QTest::keyClick(w != nullptr ? w : &view, Qt::Key(key), mods);
}

void Type(FormView& view, const char* text) {
  Key(view, Qt::Key_A, Qt::ControlModifier);  // select all: the box's own
  QTest::keyClicks(view.focusWidget(), text);
}

// Alt and the underlined letter of a button's caption. The button shows
// itself pressed for a moment and clicks after it, as on a screen.
void Mnemonic(FormView& view, char letter) {
  Key(view, letter, Qt::AltModifier);
  for (QPushButton* b : view.findChildren<QPushButton*>()) {
    if (b->text().contains(QString("&") + QChar(letter), Qt::CaseInsensitive)) {
      EXPECT_TRUE(QTest::qWaitFor([b] { return !b->isDown(); }));
    }
  }
}

TEST(KeyboardTest, AKeyboardOnlyRunKeepsEveryChoiceAsTyped) {
  QtUi ui;
  ScopedUi scoped{ui};
  Person person;
  frmWizard& wiz = frmWizard::Instance();
  std::string unticked_name;
  person.At("frmWizard", [&](FormView& view) {
    ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    // Step 1: the chosen form is the focused option; an arrow chooses the
    // next one.
    EXPECT_EQ(Focused(view), "optForm(0)");
    Key(view, Qt::Key_Down);
    EXPECT_EQ(wiz.nFormIndex, 2);
    Mnemonic(view, 'N');
    // Step 2: the address is typed where the focus is. What keys press
    // after a step change is the next test's.
    EXPECT_EQ(Focused(view), "txtEmailAddr");
    QTest::keyClicks(view.focusWidget(), "me@example.org");
    Key(view, Qt::Key_Tab);
    EXPECT_EQ(Focused(view), "cmdActionOptions");
    Key(view, Qt::Key_Space);  // the options, until their OK
    // A window manager makes the wizard active again; offscreen has none.
    view.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    EXPECT_EQ(Focused(view), "cmdActionOptions");
    Mnemonic(view, 'N');
    // Step 3.
    EXPECT_EQ(Focused(view), "txtResponse");
    Shot(view, "keyboard-step3-focus");
    Type(view, "See you there");
    Key(view, Qt::Key_Return);
    Mnemonic(view, 'N');
    // Step 4: the list first; arrows move the current row, the boxes follow
    // it, Space unticks.
    EXPECT_EQ(Focused(view), "lstFields");
    for (int i = 0; i < 2 && wiz.Ctl("lstFields").ListIndex() < 1; ++i) {
      Key(view, Qt::Key_Down);
    }
    ASSERT_EQ(wiz.Ctl("lstFields").ListIndex(), 1);
    Key(view, Qt::Key_Tab);
    EXPECT_EQ(Focused(view), "txtFieldName");
    Type(view, "street");
    Key(view, Qt::Key_Tab);
    Type(view, "Your street");
    Key(view, Qt::Key_Tab, Qt::ShiftModifier);
    Key(view, Qt::Key_Tab, Qt::ShiftModifier);
    EXPECT_EQ(Focused(view), "lstFields");
    // Down to the next ticked field below.
    const tk::Control& list = wiz.Ctl("lstFields");
    do {
      Key(view, Qt::Key_Down);
    } while (!list.Selected(list.ListIndex()) &&
             list.ListIndex() + 1 < list.ListCount());
    const int row = list.ListIndex();
    ASSERT_GT(row, 1);
    ASSERT_TRUE(list.Selected(row));
    unticked_name = wiz.Ctl("txtFieldName").Text();
    Key(view, Qt::Key_Space);
    EXPECT_FALSE(list.Selected(row));
    Mnemonic(view, 'F');
  });
  person.At("frmActionOptions", [&](FormView& view) {
    ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    EXPECT_EQ(Focused(view), "txtEmailAddr");
    EXPECT_EQ(frmActionOptions::Instance().Ctl("txtEmailAddr").Text(),
              "me@example.org");
    Key(view, Qt::Key_Tab);
    Type(view, "Party RSVP");
    Key(view, Qt::Key_Tab);
    EXPECT_EQ(Focused(view), "optFormatHumanReadable");
    // An arrow moves among options through the application's focus widget,
    // which is the active window's. Offscreen there is no window manager to
    // keep the modal dialog active: the wizard's activation asked for above
    // can still be in force here, so the dialog is made active at once.
    QApplication::setActiveWindow(&view);
    ASSERT_EQ(QApplication::activeWindow(), &view);
    Key(view, Qt::Key_Down);
    EXPECT_EQ(Focused(view), "optFormatCSV");
    Key(view, Qt::Key_Return);  // OK, the default button
  });

  const auto page = std::make_shared<host::PageDocument>();
  EXPECT_EQ(InsertBundledOrb(page)->Result(), kResultFinished);
  EXPECT_TRUE(person.Done());
  ASSERT_EQ(page->objects.size(), 1u);
  const std::string html = page->objects[0]->html_source.value_or("");
  for (const char* choice : {
           R"(name="qln_FormIndex" value="2")",
           R"(name="qln_OKMessage" value="See you there")",
           R"(name="qln_EmailTo" value="me@example.org")",
           R"(name="qln_Subject" value="Party RSVP")",
           R"(name="qln_SendMode" value="2")",
           R"(name="street")",
           "Your street",
       }) {
    EXPECT_NE(html.find(choice), std::string::npos) << choice << "\n" << html;
  }
  ASSERT_FALSE(unticked_name.empty());
  EXPECT_EQ(html.find("name=\"" + unticked_name + "\""), std::string::npos)
      << html;
}

// Whatever a person presses right after a step change lands on the panel
// now on show: it never reaches Cancel or Finish, nor moves the step again,
// however the change was made. Finish is enabled all along, so a stray
// press would end the run.
TEST(KeyboardTest, KeysAfterAStepChangeNeverPressCancelOrFinish) {
  QtUi ui;
  ScopedUi scoped{ui};
  Person person;
  frmWizard& wiz = frmWizard::Instance();
  using Change = std::function<void(FormView&, char mnemonic, int button)>;
  const auto on_button = [](int key) -> Change {
    // The person has tabbed to the button and presses it.
    return [key](FormView& view, char, int button) {
      view.Widget("cmdNav(" + std::to_string(button) + ")")
          ->setFocus(Qt::TabFocusReason);
      Key(view, key);
    };
  };
  const struct {
    const char* name;
    Change change;
  } changes[] = {
      {"Alt and the mnemonic",
       [](FormView& view, char mnemonic, int) { Mnemonic(view, mnemonic); }},
      {"Space on the button", on_button(Qt::Key_Space)},
      {"Enter on the button", on_button(Qt::Key_Return)},
  };
  const struct {
    const char* name;
    std::vector<int> keys;
  } afters[] = {
      {"Enter", {Qt::Key_Return}},
      {"Space", {Qt::Key_Space}},
      {"Enter, Enter", {Qt::Key_Return, Qt::Key_Return}},
      {"Space, Space", {Qt::Key_Space, Qt::Key_Space}},
      {"typing, Enter", {Qt::Key_X, Qt::Key_Return}},
      {"Down, Space, Enter", {Qt::Key_Down, Qt::Key_Space, Qt::Key_Return}},
      {"Up, Enter, Space", {Qt::Key_Up, Qt::Key_Return, Qt::Key_Space}},
  };
  // A tour from step 2 forward to the end, back to the start and forward.
  const struct {
    char mnemonic;
    int button;
    int to;
  } tour[] = {{'N', 3, 2}, {'N', 3, 3}, {'B', 2, 2},
              {'B', 2, 1}, {'B', 2, 0}, {'N', 3, 1}};

  person.At("frmWizard", [&](FormView& view) {
    ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    Mnemonic(view, 'N');
    QTest::keyClicks(view.focusWidget(), "me@example.org");
    ASSERT_TRUE(view.Widget("cmdNav(4)")->isEnabled());
    for (const auto& change : changes) {
      for (const auto& after : afters) {
        for (const auto& move : tour) {
          SCOPED_TRACE(std::string(change.name) + " to step " +
                       std::to_string(move.to + 1) + ", then " + after.name);
          change.change(view, move.mnemonic, move.button);
          ASSERT_EQ(wiz.nCurStep, move.to);
          for (int key : after.keys) Key(view, key);
          ASSERT_TRUE(wiz.Shown());
          ASSERT_EQ(wiz.Result(), kResultNone);
          ASSERT_EQ(wiz.nCurStep, move.to);
        }
      }
    }
    Key(view, Qt::Key_Escape);  // presses Cancel
  });

  EXPECT_EQ(InsertBundledOrb()->Result(), kResultCancelled);
  EXPECT_TRUE(person.Done());
}

}  // namespace
}  // namespace formwiz::qtui
