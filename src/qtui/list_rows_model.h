// The rows of a toolkit list with tick boxes as a Qt item model. The rows
// are read in place from the toolkit list, which tells this model of each
// change (ListObserver); the model passes each on as the one Qt signal that
// says it, so that a view redraws one row, not all of them.
//
// A list cleared and filled again (the field step entered anew) is one
// reset: the model begins it when the list is cleared and ends it at
// Settle, once the input that refilled the list is over, with no signal
// for the rows in between.
//
// A person's tick does not change the rows here: it is asked of the toolkit
// list (TickRequested), which tells the model what came of it.
#pragma once

#include <QAbstractListModel>
#include <QFont>

#include "qtui/row_widths.h"
#include "toolkit/list_observer.h"

namespace formwiz::tk {
class Control;
}

namespace formwiz::qtui {

class ListRowsModel : public QAbstractListModel, public tk::ListObserver {
  Q_OBJECT

 public:
  explicit ListRowsModel(QObject* parent);
  ~ListRowsModel() override;

  // Shows the rows of `list` (null: none) from now on. Showing the list
  // already shown does nothing.
  void Attach(tk::Control* list);
  // Ends a reset begun by the list being cleared.
  void Settle();
  // The font the rows are drawn in, for their widths.
  void SetFont(const QFont& font);
  const RowWidths& widths() const { return widths_; }

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  // A tick or untick by a person: asked of the toolkit list, never stored.
  bool setData(const QModelIndex& index, const QVariant& value,
               int role) override;

 signals:
  void TickRequested(int row, bool checked);

 private:
  void RowInserted(int row) override;
  void RowRemoved(int row) override;
  void RowChanged(int row) override;
  void RowsReset() override;
  void ListDestroyed() override;

  // The toolkit row at `row`, or null when there is none.
  const tk::ListRow* Row(int row) const;

  tk::Control* list_ = nullptr;
  // The rows the views know of: the toolkit list's count, except inside a
  // change being told, where it follows Qt's begin and end calls.
  int count_ = 0;
  bool resetting_ = false;
  RowWidths widths_;
};

}  // namespace formwiz::qtui
