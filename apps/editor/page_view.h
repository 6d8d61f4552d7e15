// The page as a person edits it: one row per block, top to bottom. A
// paragraph is a line of text typed in place; a page object shows its
// placeholder picture and display name and is opened by a double-click or
// Enter. One block at a time is current: new blocks go after it, and Edit
// acts on it.
#pragma once

#include <QScrollArea>
#include <optional>
#include <vector>

#include "host/page.h"

class QFrame;
class QVBoxLayout;

namespace formwiz::editor {

class PageView : public QScrollArea {
  Q_OBJECT

 public:
  explicit PageView(QWidget* parent = nullptr);

  // Builds the rows anew from `page`, making `current` current.
  void ShowPage(const host::Page& page, std::optional<size_t> current);
  // Refreshes the rows of objects (picture and name) without touching the
  // paragraphs being typed.
  void RefreshObjects(const host::Page& page);

  std::optional<size_t> Current() const { return current_; }
  // Makes a block current and gives it the keyboard focus.
  void FocusBlock(size_t index);
  size_t BlockCount() const { return rows_.size(); }
  // The row of a block, for a test to look at or click.
  QFrame* Row(size_t index) const { return rows_.at(index); }

 signals:
  void CurrentChanged();
  void ParagraphEdited(size_t index, const QString& text);
  // Enter in a paragraph: the person wants a new one after it.
  void ParagraphFinished(size_t index);
  void ObjectActivated(size_t index);
  // Delete or Backspace on an object row.
  void DeleteRequested(size_t index);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QFrame* MakeParagraphRow(size_t index, const host::PageBlock& block);
  QFrame* MakeObjectRow(size_t index, const host::PageObject& object);
  void FillObjectRow(QFrame* row, const host::PageObject& object);
  void SetCurrent(std::optional<size_t> index);
  bool IsObjectRow(size_t index) const;
  // The block whose row holds `widget`, if any.
  std::optional<size_t> BlockOf(QObject* widget) const;

  QWidget* canvas_;
  QVBoxLayout* layout_;
  std::vector<QFrame*> rows_;
  std::optional<size_t> current_;
};

}  // namespace formwiz::editor
