#include "page_commands.h"

#include <QCoreApplication>
#include <utility>

#include "host/source_summary.h"

namespace formwiz::editor {

namespace {

QString Tr(const char* text) {
  return QCoreApplication::translate("PageCommands", text);
}

// Distinct from every other command's id (-1: never merged).
constexpr int kParagraphTextId = 1;

bool SameData(const std::optional<Variant>& a,
              const std::optional<Variant>& b) {
  if (a.has_value() != b.has_value()) return false;
  if (!a) return true;
  return a->kind == b->kind && a->text == b->text && a->number == b->number &&
         a->object == b->object;
}

}  // namespace

QString BlockName(const host::PageBlock& block) {
  if (block.object) {
    const std::string name = block.object->display_name.value_or("");
    return name.empty() ? Tr("Object") : QString::fromStdString(name);
  }
  if (block.source) {
    const host::SourceSummary summary = host::SummarizeSource(*block.source);
    return summary.tag.empty()
               ? Tr("Text")
               : QString::fromStdString("<" + summary.tag + ">");
  }
  return Tr("Paragraph");
}

// Insert.

InsertBlocksCommand::InsertBlocksCommand(PageEditor& editor, size_t position,
                                         std::vector<host::PageBlock> blocks,
                                         const QString& name)
    : QUndoCommand(Tr("Insert %1").arg(name)),
      editor_(editor),
      position_(position),
      blocks_(std::move(blocks)),
      count_(blocks_.size()) {}

void InsertBlocksCommand::redo() {
  host::Page& page = editor_.EditedPage();
  for (size_t i = 0; i < count_; ++i) {
    page.InsertBlock(position_ + i, std::move(blocks_[i]));
  }
  blocks_.clear();
  editor_.BlocksChanged(position_ + count_ - 1);
}

void InsertBlocksCommand::undo() {
  host::Page& page = editor_.EditedPage();
  for (size_t i = 0; i < count_; ++i) {
    blocks_.push_back(page.TakeBlock(position_));
  }
  std::optional<size_t> current;
  if (!page.blocks.empty()) {
    current = position_ > 0 ? position_ - 1 : size_t{0};
  }
  editor_.BlocksChanged(current);
}

// Delete.

DeleteBlockCommand::DeleteBlockCommand(PageEditor& editor, size_t index)
    : editor_(editor), index_(index) {
  setText(Tr("Delete %1").arg(BlockName(editor.EditedPage().blocks.at(index))));
}

void DeleteBlockCommand::redo() {
  host::Page& page = editor_.EditedPage();
  block_ = page.TakeBlock(index_);
  std::optional<size_t> next;
  if (!page.blocks.empty()) next = std::min(index_, page.blocks.size() - 1);
  editor_.BlocksChanged(next);
}

void DeleteBlockCommand::undo() {
  editor_.EditedPage().InsertBlock(index_, std::move(*block_));
  block_.reset();
  editor_.BlocksChanged(index_);
}

// Move.

MoveBlockCommand::MoveBlockCommand(PageEditor& editor, size_t from, size_t to,
                                   const QString& name)
    : QUndoCommand(name), editor_(editor), from_(from), to_(to) {}

void MoveBlockCommand::redo() {
  editor_.EditedPage().MoveBlock(from_, to_);
  editor_.BlocksChanged(to_);
}

void MoveBlockCommand::undo() {
  editor_.EditedPage().MoveBlock(to_, from_);
  editor_.BlocksChanged(from_);
}

// Reopen.

ObjectState ObjectState::Of(const host::PageObject& object) {
  return {object.prog_id, object.display_name, object.html_source,
          object.html_data, object.html_picture};
}

void ObjectState::ApplyTo(host::PageObject& object) const {
  object.prog_id = prog_id;
  object.display_name = display_name;
  object.html_source = html_source;
  object.html_data = html_data;
  object.html_picture = html_picture;
}

bool ObjectState::operator==(const ObjectState& other) const {
  return prog_id == other.prog_id && display_name == other.display_name &&
         html_source == other.html_source &&
         SameData(html_data, other.html_data) &&
         html_picture == other.html_picture;
}

EditObjectCommand::EditObjectCommand(PageEditor& editor,
                                     std::shared_ptr<host::PageObject> object,
                                     ObjectState before, ObjectState after)
    : editor_(editor),
      object_(std::move(object)),
      before_(std::move(before)),
      after_(std::move(after)) {
  const std::string name = after_.display_name.value_or("");
  setText(Tr("Edit %1").arg(name.empty() ? Tr("Object")
                                         : QString::fromStdString(name)));
}

void EditObjectCommand::redo() { Apply(after_); }

void EditObjectCommand::undo() { Apply(before_); }

void EditObjectCommand::Apply(const ObjectState& state) {
  state.ApplyTo(*object_);
  const auto& blocks = editor_.EditedPage().blocks;
  std::optional<size_t> at;
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (blocks[i].object == object_) at = i;
  }
  editor_.BlocksChanged(at);
}

// Typing.

ParagraphTextCommand::ParagraphTextCommand(PageEditor& editor, size_t index,
                                           std::string before,
                                           std::string after)
    : QUndoCommand(Tr("Typing")),
      editor_(editor),
      index_(index),
      before_(std::move(before)),
      after_(std::move(after)) {}

void ParagraphTextCommand::redo() { Apply(after_); }

void ParagraphTextCommand::undo() { Apply(before_); }

int ParagraphTextCommand::id() const { return kParagraphTextId; }

bool ParagraphTextCommand::mergeWith(const QUndoCommand* other) {
  const auto* next = static_cast<const ParagraphTextCommand*>(other);
  if (next->index_ != index_) return false;
  after_ = next->after_;
  // Typed and taken back: the stack drops the step.
  setObsolete(after_ == before_);
  return true;
}

void ParagraphTextCommand::Apply(const std::string& text) {
  editor_.EditedPage().blocks.at(index_).text = text;
  editor_.ParagraphChanged(index_);
}

// Title.

TitleCommand::TitleCommand(PageEditor& editor, std::string before,
                           std::string after)
    : QUndoCommand(Tr("Change Title")),
      editor_(editor),
      before_(std::move(before)),
      after_(std::move(after)) {}

void TitleCommand::redo() {
  editor_.EditedPage().title = after_;
  editor_.TitleChanged();
}

void TitleCommand::undo() {
  editor_.EditedPage().title = before_;
  editor_.TitleChanged();
}

}  // namespace formwiz::editor
