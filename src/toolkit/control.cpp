#include "toolkit/control.h"

#include "component/failure.h"
#include "toolkit/form.h"

namespace formwiz::tk {

int CodePointCount(std::string_view s) {
  int n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

Control::Control(Form* form, ControlKind kind, std::string name, int index)
    : form_(form), kind_(kind), name_(std::move(name)), index_(index) {}

Control::~Control() {
  if (observer_ != nullptr) observer_->ListDestroyed();
}

std::string Control::Name() const {
  return index_ < 0 ? name_ : name_ + "(" + std::to_string(index_) + ")";
}

bool Control::Reachable(std::string* why) const {
  for (const Control* c = this; c != nullptr; c = c->container_) {
    const char* reason =
        !c->visible_   ? "hidden"
        : !c->enabled_ ? "disabled"
        : c->kind_ == ControlKind::kFrame && c->left_ <= kParkedLeft ? "parked"
                                                                     : nullptr;
    if (reason != nullptr) {
      if (why != nullptr) *why = reason;
      return false;
    }
  }
  return true;
}

void Control::SetText(std::string_view text) {
  if (text == text_) return;
  text_ = text;
  RunEvent(on_change);
}

void Control::SetValue(bool value) {
  if (value == value_) return;
  value_ = value;
  if (!value) return;
  // An option that becomes selected clears the others of its group.
  for (Control* other : form_->Controls()) {
    if (other != this && other->kind_ == ControlKind::kOption &&
        other->group_ == group_) {
      other->value_ = false;
    }
  }
  RunEvent(on_click);
}

void Control::CheckRow(int row) const {
  if (row < 0 || row >= ListCount()) Raise(err::kInvalidArgument);
}

const std::string& Control::List(int row) const {
  CheckRow(row);
  return rows_[static_cast<size_t>(row)].text;
}

void Control::AddItem(std::string_view text, int row) {
  if (row == -1) row = ListCount();
  if (row < 0 || row > ListCount()) Raise(err::kInvalidArgument);
  rows_.insert(rows_.begin() + row, ListRow{std::string(text), false, 0});
  if (list_index_ >= row) ++list_index_;
  if (observer_ != nullptr) observer_->RowInserted(row);
}

void Control::RemoveItem(int row) {
  CheckRow(row);
  rows_.erase(rows_.begin() + row);
  if (list_index_ == row) {
    list_index_ = -1;
  } else if (list_index_ > row) {
    --list_index_;
  }
  if (observer_ != nullptr) observer_->RowRemoved(row);
}

void Control::Clear() {
  const bool had_rows = !rows_.empty();
  rows_.clear();
  list_index_ = -1;
  if (had_rows && observer_ != nullptr) observer_->RowsReset();
}

bool Control::Selected(int row) const {
  CheckRow(row);
  return rows_[static_cast<size_t>(row)].checked;
}

void Control::SetSelected(int row, bool checked) {
  CheckRow(row);
  bool& tick = rows_[static_cast<size_t>(row)].checked;
  if (tick == checked) return;
  tick = checked;
  if (observer_ != nullptr) observer_->RowChanged(row);
  if (on_item_check) RunEvent([this, row] { on_item_check(row); });
}

int32_t Control::ItemData(int row) const {
  CheckRow(row);
  return rows_[static_cast<size_t>(row)].item_data;
}

void Control::SetItemData(int row, int32_t data) {
  CheckRow(row);
  rows_[static_cast<size_t>(row)].item_data = data;
}

void Control::SetListIndex(int row) {
  if (row < -1 || row >= ListCount()) Raise(err::kInvalidArgument);
  if (row == list_index_) return;
  list_index_ = row;
  RunEvent(on_click);
}

}  // namespace formwiz::tk
