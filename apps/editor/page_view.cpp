#include "page_view.h"

#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QVBoxLayout>

namespace formwiz::editor {

namespace {

constexpr char kBlockProperty[] = "formwizBlock";
constexpr char kObjectProperty[] = "formwizObject";
constexpr int kPictureHeight = 64;

// The row frame's look: a highlighted border marks the current block; the
// others keep a transparent one of the same width, so nothing moves.
void StyleRow(QFrame* row, bool current) {
  row->setStyleSheet(current ? "QFrame#block { border: 2px solid "
                               "palette(highlight); border-radius: 4px; }"
                             : "QFrame#block { border: 2px solid transparent; "
                               "border-radius: 4px; }");
}

}  // namespace

PageView::PageView(QWidget* parent)
    : QScrollArea(parent), canvas_(new QWidget), layout_(nullptr) {
  layout_ = new QVBoxLayout(canvas_);
  layout_->setSpacing(4);
  layout_->addStretch(1);
  setWidget(canvas_);
  setWidgetResizable(true);
  canvas_->setBackgroundRole(QPalette::Base);
  canvas_->setAutoFillBackground(true);
}

void PageView::ShowPage(const host::Page& page, std::optional<size_t> current) {
  for (QFrame* row : rows_) {
    row->removeEventFilter(this);
    row->deleteLater();
    row->hide();
  }
  rows_.clear();
  current_.reset();
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    const host::PageBlock& block = page.blocks[i];
    QFrame* row = block.object ? MakeObjectRow(i, *block.object)
                               : MakeParagraphRow(i, block);
    row->setObjectName("block");
    row->setProperty(kBlockProperty, static_cast<qulonglong>(i));
    StyleRow(row, false);
    // The stretch stays last, so rows gather at the top.
    layout_->insertWidget(layout_->count() - 1, row);
    rows_.push_back(row);
  }
  if (current && *current < rows_.size()) {
    FocusBlock(*current);
  } else {
    emit CurrentChanged();
  }
}

void PageView::RefreshObjects(const host::Page& page) {
  for (size_t i = 0; i < rows_.size() && i < page.blocks.size(); ++i) {
    if (page.blocks[i].object) FillObjectRow(rows_[i], *page.blocks[i].object);
  }
}

QFrame* PageView::MakeParagraphRow(size_t index, const host::PageBlock& block) {
  auto* row = new QFrame;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(4, 4, 4, 4);
  auto* edit = new QLineEdit(QString::fromStdString(block.text));
  edit->setPlaceholderText(tr("Type a paragraph"));
  edit->setFrame(false);
  edit->installEventFilter(this);
  layout->addWidget(edit);
  // textEdited, not textChanged: only the person's typing changes the page.
  connect(edit, &QLineEdit::textEdited, this,
          [this, index](const QString& text) {
            emit ParagraphEdited(index, text);
          });
  connect(edit, &QLineEdit::returnPressed, this,
          [this, index] { emit ParagraphFinished(index); });
  row->setFocusProxy(edit);
  return row;
}

QFrame* PageView::MakeObjectRow(size_t /*index*/,
                                const host::PageObject& object) {
  auto* row = new QFrame;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(6, 6, 6, 6);
  auto* picture = new QLabel;
  picture->setObjectName("picture");
  picture->setMinimumSize(kPictureHeight, kPictureHeight);
  picture->setAlignment(Qt::AlignCenter);
  auto* name = new QLabel;
  name->setObjectName("name");
  QFont bold = name->font();
  bold.setBold(true);
  name->setFont(bold);
  auto* hint = new QLabel(tr("Double-click to edit"));
  hint->setForegroundRole(QPalette::PlaceholderText);
  auto* texts = new QVBoxLayout;
  texts->addWidget(name);
  texts->addWidget(hint);
  texts->addStretch(1);
  layout->addWidget(picture);
  layout->addLayout(texts, 1);
  row->setProperty(kObjectProperty, true);
  row->setFocusPolicy(Qt::StrongFocus);
  row->installEventFilter(this);
  picture->installEventFilter(this);
  name->installEventFilter(this);
  hint->installEventFilter(this);
  FillObjectRow(row, object);
  return row;
}

void PageView::FillObjectRow(QFrame* row, const host::PageObject& object) {
  auto* picture = row->findChild<QLabel*>("picture");
  auto* name = row->findChild<QLabel*>("name");
  if (!picture || !name) return;
  QPixmap pixmap;
  const auto& bytes = object.html_picture;
  if (bytes && !bytes->empty() &&
      pixmap.loadFromData(bytes->data(), static_cast<uint>(bytes->size()))) {
    if (pixmap.height() > kPictureHeight) {
      pixmap = pixmap.scaledToHeight(kPictureHeight, Qt::SmoothTransformation);
    }
    picture->setPixmap(pixmap);
  } else {
    // No picture, or bytes that are no image the platform knows.
    picture->setText(tr("[object]"));
  }
  const std::string display = object.display_name.value_or("");
  name->setText(display.empty() ? tr("(unnamed object)")
                                : QString::fromStdString(display));
}

void PageView::FocusBlock(size_t index) {
  if (index >= rows_.size()) return;
  SetCurrent(index);
  rows_[index]->setFocus(Qt::OtherFocusReason);
  ensureWidgetVisible(rows_[index]);
}

void PageView::SetCurrent(std::optional<size_t> index) {
  if (index == current_) return;
  if (current_ && *current_ < rows_.size()) StyleRow(rows_[*current_], false);
  current_ = index;
  if (current_) StyleRow(rows_[*current_], true);
  emit CurrentChanged();
}

bool PageView::IsObjectRow(size_t index) const {
  return index < rows_.size() &&
         rows_[index]->property(kObjectProperty).toBool();
}

std::optional<size_t> PageView::BlockOf(QObject* widget) const {
  for (QObject* at = widget; at; at = at->parent()) {
    const QVariant block = at->property(kBlockProperty);
    if (block.isValid()) return static_cast<size_t>(block.toULongLong());
  }
  return std::nullopt;
}

bool PageView::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::FocusIn:
    case QEvent::MouseButtonPress:
      if (auto block = BlockOf(watched)) SetCurrent(block);
      break;
    case QEvent::MouseButtonDblClick:
      // A paragraph keeps its double-click: it selects a word there.
      if (auto block = BlockOf(watched); block && IsObjectRow(*block)) {
        SetCurrent(block);
        emit ObjectActivated(*block);
        return true;
      }
      break;
    case QEvent::KeyPress: {
      const int key = static_cast<QKeyEvent*>(event)->key();
      // Only the object rows' own keys: a paragraph's Enter is its
      // returnPressed.
      const auto block = BlockOf(watched);
      if (!block || !IsObjectRow(*block)) break;
      if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        emit ObjectActivated(*block);
        return true;
      }
      // Also here, not only as Edit ▸ Delete's shortcut: the key reaches
      // the row whether or not the menu's shortcut is live.
      if (key == Qt::Key_Delete || key == Qt::Key_Backspace) {
        emit DeleteRequested(*block);
        return true;
      }
      break;
    }
    default:
      break;
  }
  return QScrollArea::eventFilter(watched, event);
}

}  // namespace formwiz::editor
