// The outline of a page, at the left of the window: one row per block, top
// to bottom. A paragraph is a line of text typed in place; a page object
// shows its placeholder picture and display name and is opened by a
// double-click or Enter; a block of someone else's page shows what element
// it is and its first words, and is only moved or deleted. One block at a
// time is current: new blocks go after it, and Edit acts on it. Rows are
// dragged by their grip (or anywhere but a paragraph's text) to another
// place.
#pragma once

#include <QPixmap>
#include <QPoint>
#include <QScrollArea>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/page.h"

class QFrame;
class QMimeData;
class QVBoxLayout;

namespace formwiz::editor {

class PageView : public QScrollArea {
  Q_OBJECT

 public:
  // The type of the data a dragged row carries: its block's index, as
  // decimal text. Only rows of this view understand it.
  static constexpr char kBlockMimeType[] = "application/x-formwiz-block";

  explicit PageView(QWidget* parent = nullptr);

  // Builds the rows anew from `page`, making `current` current.
  void ShowPage(const host::Page& page, std::optional<size_t> current);
  // Refreshes the rows of objects (picture and name) without touching the
  // paragraphs being typed.
  void RefreshObjects(const host::Page& page);
  // Shows a paragraph's new text unless its row shows it already: the row
  // being typed in keeps its caret.
  void SetParagraphText(size_t index, const QString& text);

  std::optional<size_t> Current() const { return current_; }
  // Makes a block current and gives it the keyboard focus.
  void FocusBlock(size_t index);
  size_t BlockCount() const { return rows_.size(); }
  // The row of a block, for a test to look at or click.
  QFrame* Row(size_t index) const { return rows_.at(index); }
  // The widget the rows stand on, which takes the drops.
  QWidget* canvas() const { return canvas_; }
  // What a drag of block `index` carries.
  static QMimeData* MimeFor(size_t index);

 signals:
  void CurrentChanged();
  void ParagraphEdited(size_t index, const QString& text);
  // Enter in a paragraph: the person wants a new one after it.
  void ParagraphFinished(size_t index);
  void ObjectActivated(size_t index);
  // Delete or Backspace on a row that is not a paragraph.
  void DeleteRequested(size_t index);
  // A row dropped so that its block ends up at index `to`.
  void MoveRequested(size_t from, size_t to);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QFrame* MakeParagraphRow(size_t index, const host::PageBlock& block);
  QFrame* MakeObjectRow(const host::PageObject& object);
  QFrame* MakeForeignRow(const std::string& source);
  void FillObjectRow(QFrame* row, const host::PageObject& object);
  // An object's picture at the outline's height; null when it has none
  // or its bytes are no image.
  QPixmap Picture(const host::PageObject& object);
  void SetCurrent(std::optional<size_t> index);
  bool IsParagraphRow(size_t index) const;
  bool IsObjectRow(size_t index) const;
  // The block whose row holds `widget`, if any.
  std::optional<size_t> BlockOf(QObject* widget) const;
  // Handles the drag and drop events that reach the canvas.
  bool CanvasDragEvent(QEvent* event);
  // The gap between rows nearest to `y` on the canvas: 0 above the first
  // row, BlockCount() below the last.
  size_t GapAt(int y) const;
  void StartDrag(size_t index);

  QWidget* canvas_;
  QVBoxLayout* layout_;
  // The line that shows where a dragged row would land.
  QFrame* drop_marker_;
  std::vector<QFrame*> rows_;
  // Pictures by their bytes, decoded and scaled, of the page shown; while
  // ShowPage builds the rows, also those of the page before.
  std::unordered_map<std::string, QPixmap> pictures_;
  const std::unordered_map<std::string, QPixmap>* pictures_before_ = nullptr;
  std::optional<size_t> current_;
  // A press that may become a drag.
  std::optional<size_t> press_block_;
  QPoint press_at_;
  // A drag of this view's own is running, and the move its drop asked for.
  bool dragging_ = false;
  std::optional<std::pair<size_t, size_t>> dropped_move_;
};

}  // namespace formwiz::editor
