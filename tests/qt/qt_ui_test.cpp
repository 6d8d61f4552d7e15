// The Qt views driven through their real widgets, headless: a whole
// insertion by mouse, with the field list after moves, ticks, renames and a
// reload; then the keyboard alone. What a person sees is saved as PNG into
// the build tree.
#include "qtui/qt_ui.h"

#include <gtest/gtest.h>

#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "../qt_test_support.h"
#include "actionoptions/frm_action_options.h"
#include "wizard/frm_wizard.h"

namespace formwiz::qtui {
namespace {

struct Row {
  std::string name;
  bool ticked;
  bool operator==(const Row&) const = default;
};

std::vector<Row> Shown(const QListView& list) {
  std::vector<Row> rows;
  const QAbstractItemModel& model = *list.model();
  for (int i = 0; i < model.rowCount(); ++i) {
    const QModelIndex index = model.index(i, 0);
    rows.push_back({index.data().toString().toStdString(),
                    index.data(Qt::CheckStateRole) == Qt::Checked});
  }
  return rows;
}

std::vector<Row> Held(const tk::Control& list) {
  std::vector<Row> rows;
  for (const tk::ListRow& r : list.Rows()) rows.push_back({r.text, r.checked});
  return rows;
}

// The view and the toolkit list both show `expected`, with `current` the
// current and only selected row.
void ExpectShows(const QListView& list, const tk::Control& held,
                 const std::vector<Row>& expected, int current) {
  EXPECT_EQ(Shown(list), expected);
  EXPECT_EQ(Held(held), expected);
  EXPECT_EQ(held.ListIndex(), current);
  EXPECT_EQ(list.currentIndex().row(), current);
  const QModelIndexList selected = list.selectionModel()->selectedIndexes();
  ASSERT_EQ(selected.size(), 1);
  EXPECT_EQ(selected[0].row(), current);
}

// Selects the name box's text and types `text` over it, in one key event
// as an input method gives it (QTest types Latin-1 only).
void Rename(QLineEdit& box, const QString& text) {
  box.setFocus();
  box.selectAll();
  QKeyEvent key(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, text);
  QApplication::sendEvent(&box, &key);
}

TEST(QtUiTest, InsertThroughTheWidgets) {
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
    // The field list's view follows the toolkit list row by row.
    auto* list = Get<QListView>(view, "lstFields");
    auto* name = Get<QLineEdit>(view, "txtFieldName");
    const tk::Control& held = wiz.Ctl("lstFields");
    std::vector<Row> rows = Held(held);
    ASSERT_GE(rows.size(), 5u);
    ExpectShows(*list, held, rows, 0);

    const QRect third = list->visualRect(list->model()->index(2, 0));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      third.center() + QPoint(20, 0));
    ExpectShows(*list, held, rows, 2);
    // The view is told of each row that changed, never of all of them.
    QAbstractItemModel* model = list->model();
    QSignalSpy resets(model, &QAbstractItemModel::modelReset);
    QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    Click(view, "cmdShift(0)");
    std::swap(rows[1], rows[2]);
    ExpectShows(*list, held, rows, 1);
    ASSERT_EQ(removed.size(), 1);
    EXPECT_EQ(removed[0][1].toInt(), 2);
    Click(view, "cmdShift(1)");
    Click(view, "cmdShift(1)");
    std::swap(rows[1], rows[2]);
    std::swap(rows[2], rows[3]);
    ExpectShows(*list, held, rows, 3);
    list->setFocus();
    changed.clear();
    QTest::keyClick(list, Qt::Key_Space);
    rows[3].ticked = !rows[3].ticked;
    ExpectShows(*list, held, rows, 3);
    ASSERT_EQ(changed.size(), 1);
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 3);
    EXPECT_EQ(changed[0][1].toModelIndex().row(), 3);
    QTest::keyClick(list, Qt::Key_Up);
    ExpectShows(*list, held, rows, 2);

    // Names at the box's limit, of wide letters: the row shows each whole
    // and the scroll bar reaches its end; a short name again gives the
    // width back.
    for (const QString& wide : {QString(80, 'W'), QString(80, QChar(0x0416))}) {
      Rename(*name, wide);
      rows[2].name = wide.toStdString();
      ExpectShows(*list, held, rows, 2);
      QApplication::processEvents();
      const int text_width = list->fontMetrics().horizontalAdvance(wide);
      EXPECT_GE(list->visualRect(list->model()->index(2, 0)).width(),
                text_width);
      EXPECT_GE(
          list->horizontalScrollBar()->maximum() + list->viewport()->width(),
          text_width);
    }
    list->horizontalScrollBar()->setValue(
        list->horizontalScrollBar()->maximum());
    Shot(view, "field-list-long-name");
    Rename(*name, "Short");
    rows[2].name = "Short";
    ExpectShows(*list, held, rows, 2);
    QApplication::processEvents();
    EXPECT_EQ(list->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(resets.size(), 0);

    // Back and Next list the fields again from the tree, which holds every
    // change made here.
    Click(view, "cmdNav(2)");
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
    Click(view, "cmdNav(3)");
    ExpectShows(*list, held, rows, 0);
    EXPECT_EQ(resets.size(), 1);
    EXPECT_EQ(inserted.size(), 0);
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
  EXPECT_EQ(InsertBundledOrb(page)->Result(), kResultFinished);
  ASSERT_EQ(page->objects.size(), 1u);
  const std::string html = page->objects[0]->html_source.value_or("");
  EXPECT_NE(html.find(typed), std::string::npos);
  EXPECT_NE(html.find("Your street"), std::string::npos);
  EXPECT_TRUE(person.Done());
}

// A person with the keyboard alone: every key goes to the widget that has
// the focus, as a real keyboard's would, so the tests see where focus lands
// after each step change and what Enter and Space press from there.
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
