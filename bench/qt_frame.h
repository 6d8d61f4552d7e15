// What the Qt benchmarks share: the frame an action is timed to, the
// dialog on show, and the size of the large definition they open.
#pragma once

#include <QAbstractItemView>
#include <QApplication>
#include <QCoreApplication>

#include "qtui/form_view.h"

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

}  // namespace formwiz::bench
