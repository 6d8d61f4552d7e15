#include "qtui/tick_list_view.h"

#include <QEvent>
#include <QStyledItemDelegate>
#include <cmath>

namespace formwiz::qtui {
namespace {

// Sizes every row as the row with the widest text: with uniform row sizes
// the view asks for one size hint per layout, and this one is it.
class WidestRowDelegate : public QStyledItemDelegate {
 public:
  WidestRowDelegate(const ListRowsModel& rows, QObject* parent)
      : QStyledItemDelegate(parent), rows_(rows) {}

  QSize sizeHint(const QStyleOptionViewItem& option,
                 const QModelIndex& index) const override {
    const int widest = rows_.widths().WidestRow();
    if (widest < 0) return QStyledItemDelegate::sizeHint(option, index);
    const QModelIndex row = rows_.index(widest);
    QSize size = QStyledItemDelegate::sizeHint(option, row);
    // The widths are estimates where kerning is left out; should the text
    // laid out come out narrower than its estimate, the row keeps the
    // estimate, since the widest text might be another by a few pixels.
    const double laid_out =
        QFontMetricsF(option.font)
            .horizontalAdvance(row.data(Qt::DisplayRole).toString());
    const double missing = rows_.widths().Widest() - laid_out;
    if (missing > 0) size.rwidth() += static_cast<int>(std::ceil(missing));
    return size;
  }

 private:
  const ListRowsModel& rows_;
};

}  // namespace

TickListView::TickListView(QWidget* parent)
    : QListView(parent), rows_(new ListRowsModel(this)) {
  setUniformItemSizes(true);
  rows_->SetFont(font());
  setItemDelegate(new WidestRowDelegate(*rows_, this));
  setModel(rows_);
}

int TickListView::CurrentRow() const { return currentIndex().row(); }

void TickListView::SetCurrentRow(int row) {
  QItemSelectionModel* selection = selectionModel();
  // The view may have moved its current row itself (a removed current row
  // hands it on), and may then show it unselected.
  if (row == CurrentRow() &&
      (row < 0 || selection->isRowSelected(row, QModelIndex()))) {
    return;
  }
  if (row < 0) {
    selection->clear();
    return;
  }
  selection->setCurrentIndex(rows_->index(row),
                             QItemSelectionModel::ClearAndSelect);
}

void TickListView::currentChanged(const QModelIndex& current,
                                  const QModelIndex& previous) {
  QListView::currentChanged(current, previous);
  emit currentRowChanged(current.row());
}

void TickListView::changeEvent(QEvent* event) {
  if (event->type() == QEvent::FontChange) rows_->SetFont(font());
  QListView::changeEvent(event);
}

}  // namespace formwiz::qtui
