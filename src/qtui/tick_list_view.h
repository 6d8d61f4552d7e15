// The Qt view of a toolkit list with tick boxes, for lists of any length.
// Every row has the height of the first one measured, so that a change to
// one row never makes the view measure all of them again; every row is as
// wide as the widest text, which the model keeps track of, so a long name
// still shows whole and the horizontal scroll bar reaches its end.
#pragma once

#include <QListView>

#include "qtui/list_rows_model.h"

namespace formwiz::qtui {

class TickListView : public QListView {
  Q_OBJECT

 public:
  explicit TickListView(QWidget* parent);

  ListRowsModel& rows() const { return *rows_; }
  // The current row, -1 for none.
  int CurrentRow() const;
  // Makes `row` current (-1: none) and the only one selected; nothing to
  // do when it is so already.
  void SetCurrentRow(int row);

 signals:
  // The current row changed, by a person or by the view itself (a removed
  // current row). Blocked while the model's changes come in.
  void currentRowChanged(int row);

 protected:
  void currentChanged(const QModelIndex& current,
                      const QModelIndex& previous) override;
  void changeEvent(QEvent* event) override;

 private:
  ListRowsModel* rows_;
};

}  // namespace formwiz::qtui
