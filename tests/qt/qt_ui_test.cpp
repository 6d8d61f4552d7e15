// The Qt views driven through their real widgets, headless: keys, typing,
// a whole insertion and a reopen. Each flow also saves what a person sees at
// each dialog as PNG into the build tree.
#include "qtui/qt_ui.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>
#include <sstream>

#include "actionoptions/frm_action_options.h"
#include "component/cls_form_wiz.h"
#include "host/page_document.h"
#include "qtui/form_view.h"
#include "wizard/frm_wizard.h"

namespace formwiz::qtui {
namespace {

// Plays the person: each step waits until its dialog is the active modal
// one, then acts on it. A step that opens a dialog returns only when that
// closes, so every step is looked for by a timer of its own; QTest's clicks
// turn the event loop too, so a dialog that a step is acting on already
// waits for that step to end.
class Person {
 public:
  using Act = std::function<void(FormView&)>;
  // Looks for the first step once the event loop runs: in the modal show.
  Person() {
    QTimer::singleShot(0, &context_, [this] { Poll(); });
  }
  void At(std::string dialog, Act act) {
    steps_.push_back({std::move(dialog), std::move(act)});
  }
  bool Done() const { return steps_.empty(); }

 private:
  struct Step {
    std::string dialog;
    Act act;
  };
  void Poll() {
    QWidget* modal = QApplication::activeModalWidget();
    if (steps_.empty() && modal == nullptr) return;
    QTimer::singleShot(10, &context_, [this] { Poll(); });
    auto* view = qobject_cast<FormView*>(modal);
    const bool acting =
        std::find(acting_.begin(), acting_.end(), view) != acting_.end();
    if (!steps_.empty() && view != nullptr && !acting &&
        view->objectName().toStdString() == steps_.front().dialog) {
      const Step step = std::move(steps_.front());
      steps_.pop_front();
      acting_.push_back(view);
      step.act(*view);
      acting_.pop_back();
    } else if (deadline_.hasExpired() && modal != nullptr) {
      // Whatever stands in the way is closed so that the test ends.
      if (!steps_.empty())
        ADD_FAILURE() << "never shown: " << steps_.front().dialog;
      steps_.clear();
      if (auto* dialog = qobject_cast<QDialog*>(modal)) dialog->done(0);
    }
  }
  std::deque<Step> steps_;
  std::vector<FormView*> acting_;
  QDeadlineTimer deadline_{10000};
  // Owns the polling timers: they die with the person, so none fires into a
  // later test.
  QObject context_;
};

template <typename T>
T* Get(FormView& view, const char* name) {
  T* w = qobject_cast<T*>(view.Widget(name));
  EXPECT_NE(w, nullptr) << name;
  return w;
}

void Click(FormView& view, const char* name) {
  auto* button = Get<QAbstractButton>(view, name);
  // At the left edge, where a radio button's indicator is.
  QTest::mouseClick(button, Qt::LeftButton, {},
                    QPoint(6, button->height() / 2));
}

void Shot(FormView& view, const char* name) {
  // Layouts catch up with the last changes in the event loop.
  QApplication::processEvents();
  QDir().mkpath(FORMWIZ_SHOT_DIR);
  EXPECT_TRUE(view.grab().save(QString(FORMWIZ_SHOT_DIR "/") + name + ".png"));
}

KelXmlElement OrbImpl() {
  std::stringstream text;
  text << std::ifstream(FORMWIZ_SOURCE_DIR "/orbs/form/form.qlo").rdbuf();
  return FindElementInXml(text.str(), "impl");
}

TEST(QtUiTest, InsertThroughTheWidgetsThenReopenAndCancel) {
  QtUi ui;
  ScopedUi scoped{ui};
  const auto page = std::make_shared<host::PageDocument>();
  page->RegisterRoles();
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

    auto* list = Get<QListWidget>(view, "lstFields");
    ASSERT_GT(list->count(), 1);
    const QRect row = list->visualItemRect(list->item(1));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      row.center() + QPoint(20, 0));
    EXPECT_EQ(wiz.Ctl("lstFields").ListIndex(), 1);
    const bool ticked = wiz.Ctl("lstFields").Selected(1);
    QTest::keyClick(list, Qt::Key_Space);
    EXPECT_NE(wiz.Ctl("lstFields").Selected(1), ticked);
    QTest::keyClick(list, Qt::Key_Space);
    auto* prompt = Get<QLineEdit>(view, "txtFieldPrompt");
    prompt->setFocus();
    prompt->selectAll();
    QTest::keyClicks(prompt, "Your street");
    EXPECT_EQ(list->item(1)->text(),
              QString::fromStdString(wiz.Ctl("lstFields").List(1)));
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

  clsFormWiz inserter;
  inserter.SetImpl(OrbImpl());
  inserter.SetPath(FORMWIZ_SOURCE_DIR "/orbs/form");
  inserter.OnCommand(page, 0, "");
  EXPECT_EQ(inserter.Result(), kResultFinished);
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

int main(int argc, char** argv) {
  // The tests never need a screen.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
