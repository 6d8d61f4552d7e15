// The dialog toolkit as plain values: controls with the system's names,
// whose state the dialogs' logic reads and writes, and whose events run
// synchronously inside the assignment that changes them.
//
// The rule every setter follows: assigning a text, an option value, a tick
// or a current row that differs from the present one runs that control's
// handler at once, inside the assignment; an equal value runs nothing. Adding
// or removing a list row raises nothing. Captions, visibility, enabled state,
// position and tag raise nothing either.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/list_observer.h"

namespace formwiz::tk {

class Form;

enum class ControlKind { kLabel, kText, kOption, kList, kButton, kFrame };

// A frame whose Left is at or below this is parked: outside the dialog,
// where a person cannot reach it.
inline constexpr int kParkedLeft = -10000;

// One row of a list with tick boxes.
struct ListRow {
  std::string text;
  bool checked = false;
  int32_t item_data = 0;
};

class Control {
 public:
  Control(Form* form, ControlKind kind, std::string name, int index = -1);
  // Tells a list's observer that the list is gone.
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

  Form& form() const { return *form_; }
  ControlKind kind() const { return kind_; }
  // The base name ("cmdNav") and the index in its control array (-1: none).
  const std::string& base_name() const { return name_; }
  int index() const { return index_; }
  // The full name as scripts and snapshots write it: "cmdNav(3)", "lstFields".
  std::string Name() const;

  // --- every kind -------------------------------------------------------
  bool Visible() const { return visible_; }
  void SetVisible(bool v) { visible_ = v; }
  bool Enabled() const { return enabled_; }
  void SetEnabled(bool e) { enabled_ = e; }
  // Label, option, button and frame caption.
  const std::string& Caption() const { return caption_; }
  void SetCaption(std::string_view c) { caption_ = c; }
  // The frame (panel) this control stands on; null for the dialog itself.
  Control* Container() const { return container_; }
  void SetContainer(Control* frame) { container_ = frame; }
  // A frame's horizontal position; kParkedLeft and below is parked.
  int Left() const { return left_; }
  void SetLeft(int left) { left_ = left; }
  // A free string; the wizard binds size boxes to attributes through it.
  const std::string& Tag() const { return tag_; }
  void SetTag(std::string_view tag) { tag_ = tag; }
  // Position in the dialog's tab order (the order controls were added, by
  // default).
  int TabIndex() const { return tab_index_; }
  void SetTabIndex(int t) { tab_index_ = t; }
  // Whether a person can reach the control now: it and every frame it stands
  // on are visible, enabled and not parked. Gives the reason when not.
  bool Reachable(std::string* why = nullptr) const;

  // --- text box -----------------------------------------------------------
  const std::string& Text() const { return text_; }
  // Runs on_change when the text differs. The limit does not apply here:
  // it limits typing only, and nothing the program sets is ever cut.
  void SetText(std::string_view text);
  // Most characters (code points) a person can type; 0 for no limit.
  int MaxLength() const { return max_length_; }
  void SetMaxLength(int n) { max_length_ = n; }

  // --- option button ------------------------------------------------------
  bool Value() const { return value_; }
  // Selecting clears the other options of its group and runs on_click of
  // this one; clearing runs nothing.
  void SetValue(bool value);
  // Options with the same group number on the same form exclude each other.
  int Group() const { return group_; }
  void SetGroup(int g) { group_ = g; }

  // --- list with tick boxes -----------------------------------------------
  int ListCount() const { return static_cast<int>(rows_.size()); }
  const std::vector<ListRow>& Rows() const { return rows_; }
  const std::string& List(int row) const;
  // Inserts a row at `row` (-1: at the end); the current row moves along.
  void AddItem(std::string_view text, int row = -1);
  // Removes a row; removing the current row leaves no current row.
  void RemoveItem(int row);
  // Removes every row; no current row.
  void Clear();
  bool Selected(int row) const;
  // Sets a row's tick; runs on_item_check(row) when it changes.
  void SetSelected(int row, bool checked);
  int32_t ItemData(int row) const;
  void SetItemData(int row, int32_t data);
  // The current row, -1 for none.
  int ListIndex() const { return list_index_; }
  // Runs on_click when the current row changes.
  void SetListIndex(int row);
  // The one view told of every change to the rows (null: none). Item data,
  // which no row shows, and the current row are not told: a view reads them.
  void SetListObserver(ListObserver* observer) { observer_ = observer; }

  // --- command button -----------------------------------------------------
  // The default button is pressed by Enter, the cancel button by Escape.
  bool IsDefault() const { return default_; }
  void SetDefault(bool d) { default_ = d; }
  bool IsCancel() const { return cancel_; }
  void SetCancel(bool c) { cancel_ = c; }

  // --- events ---------------------------------------------------------------
  std::function<void()> on_change;         // text box
  std::function<void()> on_click;          // button, option, list row
  std::function<void(int)> on_item_check;  // list: the row whose tick changed
  std::function<void()> on_mouse_move;     // any kind

 private:
  // Raises Failure 5 for a row the list does not have.
  void CheckRow(int row) const;

  Form* form_;
  ControlKind kind_;
  std::string name_;
  int index_;
  bool visible_ = true;
  bool enabled_ = true;
  std::string caption_;
  Control* container_ = nullptr;
  int left_ = 0;
  std::string tag_;
  int tab_index_ = 0;
  std::string text_;
  int max_length_ = 0;
  bool value_ = false;
  int group_ = 0;
  std::vector<ListRow> rows_;
  int list_index_ = -1;
  ListObserver* observer_ = nullptr;
  bool default_ = false;
  bool cancel_ = false;
};

// Runs an event handler, if there is one. The form that owns the control
// may be unloaded inside it; its controls are kept until no handler runs.
void RunEvent(const std::function<void()>& handler);

// Number of code points in a UTF-8 string.
int CodePointCount(std::string_view s);

}  // namespace formwiz::tk
