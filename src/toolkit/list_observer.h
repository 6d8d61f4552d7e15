// What a view of a list with tick boxes is told when the list's rows change,
// so that it can follow one row at a time instead of reading them all again.
// Each call comes at once, inside the assignment that made the change, after
// the rows hold it and before any handler the change runs.
#pragma once

namespace formwiz::tk {

class ListObserver {
 public:
  // A row was inserted at `row`; the rows from there on moved down one.
  virtual void RowInserted(int row) = 0;
  // The row at `row` was removed; the rows behind it moved up one.
  virtual void RowRemoved(int row) = 0;
  // The tick of the row at `row` changed.
  virtual void RowChanged(int row) = 0;
  // Every row was removed at once.
  virtual void RowsReset() = 0;
  // The list is being destroyed; nothing more comes.
  virtual void ListDestroyed() = 0;

 protected:
  ~ListObserver() = default;
};

}  // namespace formwiz::tk
