#include "qtui/list_rows_model.h"

#include "toolkit/control.h"

namespace formwiz::qtui {

ListRowsModel::ListRowsModel(QObject* parent) : QAbstractListModel(parent) {}

ListRowsModel::~ListRowsModel() {
  if (list_ != nullptr) list_->SetListObserver(nullptr);
}

void ListRowsModel::Attach(tk::Control* list) {
  if (list == list_) return;
  if (!resetting_) beginResetModel();
  if (list_ != nullptr) list_->SetListObserver(nullptr);
  list_ = list;
  if (list_ != nullptr) list_->SetListObserver(this);
  resetting_ = true;
  Settle();
}

void ListRowsModel::Settle() {
  if (!resetting_) return;
  widths_.Reset(list_ != nullptr ? list_->Rows() : std::vector<tk::ListRow>());
  count_ = list_ != nullptr ? list_->ListCount() : 0;
  resetting_ = false;
  endResetModel();
}

void ListRowsModel::SetFont(const QFont& font) {
  widths_.SetFont(font);
  if (list_ != nullptr) widths_.Reset(list_->Rows());
}

const tk::ListRow* ListRowsModel::Row(int row) const {
  // Also asked while a reset is under way, should a nested dialog's event
  // loop draw the list meanwhile: rows are looked up, never assumed.
  if (list_ == nullptr || row < 0 || row >= count_ ||
      row >= list_->ListCount()) {
    return nullptr;
  }
  return &list_->Rows()[static_cast<size_t>(row)];
}

int ListRowsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : count_;
}

QVariant ListRowsModel::data(const QModelIndex& index, int role) const {
  const tk::ListRow* row = Row(index.row());
  if (row == nullptr) return {};
  switch (role) {
    case Qt::DisplayRole:
      return QString::fromStdString(row->text);
    case Qt::CheckStateRole:
      return row->checked ? Qt::Checked : Qt::Unchecked;
    default:
      return {};
  }
}

Qt::ItemFlags ListRowsModel::flags(const QModelIndex& index) const {
  if (Row(index.row()) == nullptr) return Qt::NoItemFlags;
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable |
         Qt::ItemNeverHasChildren;
}

bool ListRowsModel::setData(const QModelIndex& index, const QVariant& value,
                            int role) {
  if (role != Qt::CheckStateRole || Row(index.row()) == nullptr) return false;
  const bool checked = value.toInt() == Qt::Checked;
  const int row = index.row();
  emit TickRequested(row, checked);
  // The row may be gone: the tick's handler may have done anything.
  const tk::ListRow* now = Row(row);
  return now != nullptr && now->checked == checked;
}

void ListRowsModel::RowInserted(int row) {
  if (resetting_) return;
  // The toolkit row is there already; the count the views see grows only
  // between the two calls, as Qt has it.
  beginInsertRows(QModelIndex(), row, row);
  widths_.Insert(row, list_->Rows()[static_cast<size_t>(row)].text);
  ++count_;
  endInsertRows();
}

void ListRowsModel::RowRemoved(int row) {
  if (resetting_) return;
  beginRemoveRows(QModelIndex(), row, row);
  widths_.Remove(row);
  --count_;
  endRemoveRows();
}

void ListRowsModel::RowChanged(int row) {
  if (resetting_) return;
  const QModelIndex changed = index(row);
  emit dataChanged(changed, changed, {Qt::CheckStateRole});
}

void ListRowsModel::RowsReset() {
  if (resetting_) return;
  beginResetModel();
  resetting_ = true;
}

void ListRowsModel::ListDestroyed() {
  if (!resetting_) beginResetModel();
  list_ = nullptr;
  resetting_ = true;
  Settle();
}

}  // namespace formwiz::qtui
