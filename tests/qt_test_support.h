// What the programs that drive the Qt views share: a person at the modal
// dialogs, lookups of their widgets, the bundled orb, pictures of what a
// person sees, and a main that needs no screen.
#pragma once

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "component/cls_form_wiz.h"
#include "host/page_document.h"
#include "qtui/form_view.h"

namespace formwiz::qtui {

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

inline void Click(FormView& view, const char* name) {
  auto* button = Get<QAbstractButton>(view, name);
  // At the left edge, where a radio button's indicator is.
  QTest::mouseClick(button, Qt::LeftButton, {},
                    QPoint(6, button->height() / 2));
}

#ifdef FORMWIZ_SHOT_DIR
// Saves what the dialog shows as `name`.png into the build tree (the Qt
// view programs' folder), once the layouts have caught up with the last
// changes in the event loop.
inline void Shot(FormView& view, const char* name) {
  QApplication::processEvents();
  QDir().mkpath(FORMWIZ_SHOT_DIR);
  EXPECT_TRUE(view.grab().save(QString(FORMWIZ_SHOT_DIR "/") + name + ".png"));
}
#endif

// Inserts the bundled orb on `page` (an empty one if none) while the
// person's steps run; gives the component, its Result read.
inline std::unique_ptr<clsFormWiz> InsertBundledOrb(
    std::shared_ptr<host::PageDocument> page = nullptr) {
  if (!page) page = std::make_shared<host::PageDocument>();
  page->RegisterRoles();
  std::stringstream text;
  text << std::ifstream(FORMWIZ_SOURCE_DIR "/orbs/form/form.qlo").rdbuf();
  auto inserter = std::make_unique<clsFormWiz>();
  inserter->SetImpl(FindElementInXml(text.str(), "impl"));
  inserter->SetPath(FORMWIZ_SOURCE_DIR "/orbs/form");
  inserter->OnCommand(page, 0, "");
  return inserter;
}

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
