// The edits of a page as undoable steps: one command class per kind of
// change. Every change to the page goes through a command on the window's
// undo stack, so the page after any run of undo and redo is a page the
// person has seen before, and the indices the commands hold stay right.
#pragma once

#include <QUndoCommand>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/page.h"

namespace formwiz::editor {

// What the commands edit, and whom they tell what changed so that the views
// follow.
class PageEditor {
 public:
  virtual ~PageEditor() = default;
  virtual host::Page& EditedPage() = 0;
  // Blocks came, went or moved, or an object changed: `current` is the block
  // the person should be at.
  virtual void BlocksChanged(std::optional<size_t> current) = 0;
  // The text of paragraph `index` changed.
  virtual void ParagraphChanged(size_t index) = 0;
  virtual void TitleChanged() = 0;
};

// What a person calls a block in a command's name: the form's display name,
// "Paragraph", or the element of someone else's page ("<div>").
QString BlockName(const host::PageBlock& block);

// Blocks put in at one place: a new paragraph, or the blocks a form orb
// made. Built with the blocks out of the page; redo puts them in.
class InsertBlocksCommand : public QUndoCommand {
 public:
  InsertBlocksCommand(PageEditor& editor, size_t position,
                      std::vector<host::PageBlock> blocks, const QString& name);
  void redo() override;
  void undo() override;

 private:
  PageEditor& editor_;
  size_t position_;
  // Held here while the blocks are out of the page.
  std::vector<host::PageBlock> blocks_;
  size_t count_;
};

// A block taken out, object, definition and all, and put back by undo at
// its place (also in the document's objects).
class DeleteBlockCommand : public QUndoCommand {
 public:
  DeleteBlockCommand(PageEditor& editor, size_t index);
  void redo() override;
  void undo() override;

 private:
  PageEditor& editor_;
  size_t index_;
  std::optional<host::PageBlock> block_;
};

class MoveBlockCommand : public QUndoCommand {
 public:
  MoveBlockCommand(PageEditor& editor, size_t from, size_t to,
                   const QString& name);
  void redo() override;
  void undo() override;

 private:
  PageEditor& editor_;
  size_t from_;
  size_t to_;
};

// What the form wizard writes into a page object.
struct ObjectState {
  std::string prog_id;
  std::optional<std::string> display_name;
  std::optional<std::string> html_source;
  std::optional<Variant> html_data;
  std::optional<std::vector<uint8_t>> html_picture;

  static ObjectState Of(const host::PageObject& object);
  void ApplyTo(host::PageObject& object) const;
  bool operator==(const ObjectState& other) const;
};

// A form reopened and finished: its properties before and after.
class EditObjectCommand : public QUndoCommand {
 public:
  EditObjectCommand(PageEditor& editor,
                    std::shared_ptr<host::PageObject> object,
                    ObjectState before, ObjectState after);
  void redo() override;
  void undo() override;

 private:
  void Apply(const ObjectState& state);

  PageEditor& editor_;
  std::shared_ptr<host::PageObject> object_;
  ObjectState before_;
  ObjectState after_;
};

// Typing in a paragraph. Keystrokes in one paragraph, one after the other,
// merge into one step; typing that ends where it began is no step at all.
class ParagraphTextCommand : public QUndoCommand {
 public:
  ParagraphTextCommand(PageEditor& editor, size_t index, std::string before,
                       std::string after);
  void redo() override;
  void undo() override;
  int id() const override;
  bool mergeWith(const QUndoCommand* other) override;

 private:
  void Apply(const std::string& text);

  PageEditor& editor_;
  size_t index_;
  std::string before_;
  std::string after_;
};

class TitleCommand : public QUndoCommand {
 public:
  TitleCommand(PageEditor& editor, std::string before, std::string after);
  void redo() override;
  void undo() override;

 private:
  PageEditor& editor_;
  std::string before_;
  std::string after_;
};

}  // namespace formwiz::editor
