// What the Qt benchmarks share: the frame an action is timed to, the
// dialog on show, the size of the large definition they open, and the
// timing of an open to the wizard's first frame.
#pragma once

#include <QAbstractItemView>
#include <QApplication>
#include <QCoreApplication>
#include <QTest>
#include <QTimer>
#include <chrono>
#include <functional>
#include <optional>

#include "qtui/form_view.h"
#include "wizard/frm_wizard.h"

namespace formwiz::bench {

// One frame at 60 Hz: the target of every action on the field list.
inline constexpr double kFrameSeconds = 0.016;

// Rows of the large field list. One field in seven is not offered for the
// first form choice and gets no row: kLargeFields fields give kRows rows.
inline constexpr int kRows = 10000;
inline constexpr int kLargeFields = 11667;

// Everything the event loop does before the next frame is shown: posted
// events (layout requests, the list's delayed relayout, whose timer is due
// at once) and the paint of what was marked dirty, which may post more.
inline void FinishFrame() {
  for (int i = 0; i < 3; ++i) {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
  }
}

// The dialog on show, when it is one of the Qt Ui's.
inline qtui::FormView* ActiveView() {
  return qobject_cast<qtui::FormView*>(QApplication::activeModalWidget());
}

// The field step's list of `view`.
inline QAbstractItemView* List(qtui::FormView& view) {
  return qobject_cast<QAbstractItemView*>(view.Widget("lstFields"));
}

// Calls `open`, which runs the wizard, and gives the seconds from the call
// to the end of the wizard's first frame on its field step with the list
// filled; Cancel then closes it. Nothing when that step was not shown.
inline std::optional<double> SecondsToFieldStep(
    const std::function<void()>& open) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  Clock::time_point shown;
  bool seen = false;
  std::function<void()> look = [&] {
    qtui::FormView* view = ActiveView();
    if (view == nullptr) {
      QTimer::singleShot(0, look);
      return;
    }
    FinishFrame();
    shown = Clock::now();
    seen = frmWizard::Instance().nCurStep == 3 && List(*view) != nullptr &&
           List(*view)->model()->rowCount() > 0;
    QTest::mouseClick(view->Widget("cmdNav(1)"), Qt::LeftButton);
  };
  QTimer::singleShot(0, look);
  open();
  if (!seen) return std::nullopt;
  return std::chrono::duration<double>(shown - start).count();
}

}  // namespace formwiz::bench
