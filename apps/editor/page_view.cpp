#include "page_view.h"

#include <QApplication>
#include <QDrag>
#include <QDropEvent>
#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QPixmap>
#include <QStyle>
#include <QVBoxLayout>
#include <string>
#include <utility>

#include "host/source_summary.h"

namespace formwiz::editor {

namespace {

constexpr char kBlockProperty[] = "formwizBlock";
constexpr char kKindProperty[] = "formwizKind";
constexpr char kObjectKind[] = "object";
constexpr char kForeignKind[] = "foreign";
constexpr int kPictureHeight = 48;
// How much of a foreign block its tooltip shows.
constexpr qsizetype kTooltipBytes = 400;

constexpr char kCurrentProperty[] = "formwizCurrent";

// The rows' look, one style sheet for all of them on the canvas: a
// highlighted border marks the current block; the others keep a
// transparent one of the same width, so nothing moves. A style sheet per
// row cost a style of its own for each of hundreds of rows.
constexpr char kRowsStyle[] =
    "QFrame#block { border: 2px solid transparent; border-radius: 4px; }\n"
    "QFrame#block[formwizCurrent=\"true\"] { border-color: "
    "palette(highlight); }";

void StyleRow(QFrame* row, bool current) {
  row->setProperty(kCurrentProperty, current);
  // A style sheet reads properties when it polishes: the row is polished
  // again to show the new border.
  row->style()->unpolish(row);
  row->style()->polish(row);
  row->update();
}

// The handle a row is dragged by.
QLabel* MakeGrip() {
  auto* grip = new QLabel(QString::fromUtf8("\xE2\x89\xA1"));  // ≡
  grip->setObjectName("grip");
  grip->setForegroundRole(QPalette::PlaceholderText);
  grip->setCursor(Qt::OpenHandCursor);
  grip->setToolTip(QObject::tr("Drag to move"));
  return grip;
}

// Undo and redo belong to the page, not to the line a person types in: a
// paragraph's own undo would take back text behind the page's back.
bool IsPageUndoKey(const QKeyEvent& key) {
  const QKeyCombination combination = key.keyCombination();
  return key.matches(QKeySequence::Undo) || key.matches(QKeySequence::Redo) ||
         combination == QKeyCombination(Qt::ControlModifier, Qt::Key_Z) ||
         combination == QKeyCombination(Qt::ControlModifier, Qt::Key_Y) ||
         combination == QKeyCombination(Qt::ControlModifier | Qt::ShiftModifier,
                                        Qt::Key_Z);
}

}  // namespace

PageView::PageView(QWidget* parent)
    : QScrollArea(parent),
      canvas_(new QWidget),
      layout_(nullptr),
      drop_marker_(nullptr) {
  layout_ = new QVBoxLayout(canvas_);
  layout_->setSpacing(4);
  layout_->addStretch(1);
  setWidget(canvas_);
  setWidgetResizable(true);
  canvas_->setBackgroundRole(QPalette::Base);
  canvas_->setAutoFillBackground(true);
  canvas_->setAcceptDrops(true);
  canvas_->setStyleSheet(kRowsStyle);
  canvas_->installEventFilter(this);
  // Outside the layout: it is placed by hand over the gap a drop would fill.
  drop_marker_ = new QFrame(canvas_);
  drop_marker_->setObjectName("dropMarker");
  drop_marker_->setFixedHeight(2);
  drop_marker_->setAutoFillBackground(true);
  QPalette marker = drop_marker_->palette();
  marker.setColor(QPalette::Window, marker.color(QPalette::Highlight));
  drop_marker_->setPalette(marker);
  drop_marker_->hide();
}

void PageView::ShowPage(const host::Page& page, std::optional<size_t> current) {
  for (QFrame* row : rows_) {
    row->removeEventFilter(this);
    row->deleteLater();
    row->hide();
  }
  rows_.clear();
  current_.reset();
  press_block_.reset();
  // The pictures of this page only: those of the page before that are
  // still shown are taken over, the rest are let go.
  std::unordered_map<std::string, QPixmap> pictures_before;
  pictures_before.swap(pictures_);
  pictures_before_ = &pictures_before;
  // Nothing is painted while hundreds of rows come in; the canvas is
  // painted once with all of them.
  canvas_->setUpdatesEnabled(false);
  // Nor is the column laid out again for each row that comes in (each
  // time over all the rows before it): once, when all are in.
  layout_->setEnabled(false);
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    const host::PageBlock& block = page.blocks[i];
    QFrame* row = block.object   ? MakeObjectRow(*block.object)
                  : block.source ? MakeForeignRow(*block.source)
                                 : MakeParagraphRow(i, block);
    row->setObjectName("block");
    row->setProperty(kBlockProperty, static_cast<qulonglong>(i));
    // The stretch stays last, so rows gather at the top.
    layout_->insertWidget(layout_->count() - 1, row);
    // Shown now, not by the layout's queued show: a hidden row cannot take
    // the focus that FocusBlock gives it below.
    row->show();
    rows_.push_back(row);
  }
  pictures_before_ = nullptr;
  layout_->setEnabled(true);
  layout_->activate();
  canvas_->setUpdatesEnabled(true);
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

void PageView::SetParagraphText(size_t index, const QString& text) {
  if (!IsParagraphRow(index)) return;
  auto* edit = rows_[index]->findChild<QLineEdit*>();
  if (edit && edit->text() != text) edit->setText(text);
}

QFrame* PageView::MakeParagraphRow(size_t index, const host::PageBlock& block) {
  auto* row = new QFrame;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(4, 4, 4, 4);
  QLabel* grip = MakeGrip();
  grip->installEventFilter(this);
  auto* edit = new QLineEdit(QString::fromStdString(block.text));
  // A line edit starts with its caret at the end; a long paragraph in the
  // narrow outline would then show only its last words.
  edit->setCursorPosition(0);
  edit->setPlaceholderText(tr("Type a paragraph"));
  edit->setFrame(false);
  edit->installEventFilter(this);
  layout->addWidget(grip);
  layout->addWidget(edit, 1);
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

QFrame* PageView::MakeObjectRow(const host::PageObject& object) {
  auto* row = new QFrame;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(4, 6, 6, 6);
  auto* picture = new QLabel;
  picture->setObjectName("picture");
  picture->setMinimumSize(kPictureHeight, kPictureHeight);
  picture->setAlignment(Qt::AlignCenter);
  auto* name = new QLabel;
  name->setObjectName("name");
  name->setTextFormat(Qt::PlainText);
  QFont bold = name->font();
  bold.setBold(true);
  name->setFont(bold);
  auto* hint = new QLabel(tr("Double-click to edit"));
  hint->setForegroundRole(QPalette::PlaceholderText);
  auto* texts = new QVBoxLayout;
  texts->addWidget(name);
  texts->addWidget(hint);
  texts->addStretch(1);
  layout->addWidget(MakeGrip());
  layout->addWidget(picture);
  layout->addLayout(texts, 1);
  row->setProperty(kKindProperty, kObjectKind);
  row->setFocusPolicy(Qt::StrongFocus);
  row->installEventFilter(this);
  for (QLabel* label : row->findChildren<QLabel*>()) {
    label->installEventFilter(this);
  }
  FillObjectRow(row, object);
  return row;
}

QFrame* PageView::MakeForeignRow(const std::string& source) {
  const host::SourceSummary summary = host::SummarizeSource(source);
  auto* row = new QFrame;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(4, 4, 6, 4);
  auto* tag = new QLabel(summary.tag.empty()
                             ? tr("text")
                             : QString::fromStdString("<" + summary.tag + ">"));
  tag->setObjectName("tag");
  // What a page says is shown as text: "<h1>" is a name here, not markup.
  tag->setTextFormat(Qt::PlainText);
  tag->setForegroundRole(QPalette::PlaceholderText);
  auto* words = new QLabel(QString::fromStdString(summary.words));
  words->setObjectName("words");
  words->setTextFormat(Qt::PlainText);
  // Long words are cut by the summary; the row never widens the outline.
  words->setMinimumWidth(0);
  words->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  layout->addWidget(MakeGrip());
  layout->addWidget(tag);
  layout->addWidget(words, 1);
  // The block's own HTML, for a person who wants to know exactly which.
  QString tip =
      QString::fromUtf8(source.data(),
                        std::min<qsizetype>(source.size(), kTooltipBytes))
          .trimmed();
  if (static_cast<qsizetype>(source.size()) > kTooltipBytes) {
    tip += QString::fromUtf8("\xE2\x80\xA6");
  }
  row->setToolTip(tr("Kept as it is in the page:\n%1").arg(tip));
  row->setProperty(kKindProperty, kForeignKind);
  row->setFocusPolicy(Qt::StrongFocus);
  row->installEventFilter(this);
  for (QLabel* label : row->findChildren<QLabel*>()) {
    label->installEventFilter(this);
  }
  return row;
}

void PageView::FillObjectRow(QFrame* row, const host::PageObject& object) {
  auto* picture = row->findChild<QLabel*>("picture");
  auto* name = row->findChild<QLabel*>("name");
  if (!picture || !name) return;
  const QPixmap pixmap = Picture(object);
  if (!pixmap.isNull()) {
    picture->setPixmap(pixmap);
  } else {
    // No picture, or bytes that are no image the platform knows.
    picture->setText(tr("[object]"));
  }
  const std::string display = object.display_name.value_or("");
  name->setText(display.empty() ? tr("(unnamed object)")
                                : QString::fromStdString(display));
}

QPixmap PageView::Picture(const host::PageObject& object) {
  const auto& bytes = object.html_picture;
  if (!bytes || bytes->empty()) return {};
  // Most objects of a page share a few pictures (the placeholder of each
  // kind): each is decoded and scaled once.
  std::string key(bytes->begin(), bytes->end());
  if (const auto found = pictures_.find(key); found != pictures_.end()) {
    return found->second;
  }
  QPixmap pixmap;
  if (pictures_before_) {
    if (const auto found = pictures_before_->find(key);
        found != pictures_before_->end()) {
      pixmap = found->second;
    }
  }
  if (pixmap.isNull() &&
      pixmap.loadFromData(bytes->data(), static_cast<uint>(bytes->size())) &&
      pixmap.height() > kPictureHeight) {
    pixmap = pixmap.scaledToHeight(kPictureHeight, Qt::SmoothTransformation);
  }
  // Bytes that are no image the platform knows are kept too, as a null
  // pixmap: they are not decoded again either.
  pictures_.emplace(std::move(key), pixmap);
  return pixmap;
}

void PageView::FocusBlock(size_t index) {
  if (index >= rows_.size()) return;
  SetCurrent(index);
  // A paragraph taken up from the keyboard or made new goes on at its end.
  if (IsParagraphRow(index)) {
    if (auto* edit = rows_[index]->findChild<QLineEdit*>()) edit->end(false);
  }
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

bool PageView::IsParagraphRow(size_t index) const {
  return index < rows_.size() &&
         !rows_[index]->property(kKindProperty).isValid();
}

bool PageView::IsObjectRow(size_t index) const {
  return index < rows_.size() &&
         rows_[index]->property(kKindProperty).toString() == kObjectKind;
}

std::optional<size_t> PageView::BlockOf(QObject* widget) const {
  for (QObject* at = widget; at; at = at->parent()) {
    const QVariant block = at->property(kBlockProperty);
    if (block.isValid()) return static_cast<size_t>(block.toULongLong());
  }
  return std::nullopt;
}

QMimeData* PageView::MimeFor(size_t index) {
  auto* mime = new QMimeData;
  mime->setData(kBlockMimeType, QByteArray::number(qulonglong{index}));
  return mime;
}

void PageView::StartDrag(size_t index) {
  if (index >= rows_.size()) return;
  auto* drag = new QDrag(this);
  drag->setMimeData(MimeFor(index));
  drag->setPixmap(rows_[index]->grab());
  // The drop lands inside exec's own event loop, while the row that started
  // the drag is still handling its mouse move: the move, which rebuilds the
  // rows, waits until exec has returned.
  dragging_ = true;
  drag->exec(Qt::MoveAction);
  dragging_ = false;
  if (const auto move = std::exchange(dropped_move_, std::nullopt)) {
    emit MoveRequested(move->first, move->second);
  }
}

size_t PageView::GapAt(int y) const {
  for (size_t i = 0; i < rows_.size(); ++i) {
    if (y < rows_[i]->geometry().center().y()) return i;
  }
  return rows_.size();
}

bool PageView::CanvasDragEvent(QEvent* event) {
  if (event->type() == QEvent::DragLeave) {
    drop_marker_->hide();
    return true;
  }
  auto* drop = static_cast<QDropEvent*>(event);
  bool ok = false;
  const size_t from = static_cast<size_t>(
      drop->mimeData()->data(kBlockMimeType).toULongLong(&ok));
  // Another program's drop, or a stale index: not ours.
  if (!drop->mimeData()->hasFormat(kBlockMimeType) || !ok ||
      from >= rows_.size()) {
    drop->ignore();
    drop_marker_->hide();
    return true;
  }
  const size_t gap = GapAt(drop->position().toPoint().y());
  if (event->type() == QEvent::Drop) {
    drop_marker_->hide();
    drop->setDropAction(Qt::MoveAction);
    drop->accept();
    // The gap below the block itself leaves it where it is.
    const size_t to = gap > from ? gap - 1 : gap;
    if (to == from) return true;
    if (dragging_) {
      dropped_move_.emplace(from, to);
    } else {
      emit MoveRequested(from, to);
    }
    return true;
  }
  drop->setDropAction(Qt::MoveAction);
  drop->accept();
  const int y =
      gap < rows_.size()
          ? rows_[gap]->geometry().top() - layout_->spacing() / 2
          : rows_.back()->geometry().bottom() + layout_->spacing() / 2;
  drop_marker_->setGeometry(0, y - 1, canvas_->width(), 2);
  drop_marker_->raise();
  drop_marker_->show();
  return true;
}

bool PageView::eventFilter(QObject* watched, QEvent* event) {
  if (watched == canvas_) {
    switch (event->type()) {
      case QEvent::DragEnter:
      case QEvent::DragMove:
      case QEvent::DragLeave:
      case QEvent::Drop:
        return CanvasDragEvent(event);
      default:
        return QScrollArea::eventFilter(watched, event);
    }
  }
  switch (event->type()) {
    case QEvent::FocusIn:
      if (auto block = BlockOf(watched)) SetCurrent(block);
      break;
    case QEvent::MouseButtonPress:
      if (auto block = BlockOf(watched)) {
        SetCurrent(block);
        // A paragraph's text keeps its own dragging: it selects there.
        if (!qobject_cast<QLineEdit*>(watched) &&
            static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
          press_block_ = block;
          press_at_ =
              static_cast<QMouseEvent*>(event)->globalPosition().toPoint();
        }
      }
      break;
    case QEvent::MouseButtonRelease:
      press_block_.reset();
      break;
    case QEvent::MouseMove: {
      auto* mouse = static_cast<QMouseEvent*>(event);
      if (press_block_ && (mouse->buttons() & Qt::LeftButton) &&
          (mouse->globalPosition().toPoint() - press_at_).manhattanLength() >=
              QApplication::startDragDistance()) {
        const size_t block = *press_block_;
        press_block_.reset();
        StartDrag(block);
        return true;
      }
      break;
    }
    case QEvent::MouseButtonDblClick:
      // A paragraph keeps its double-click: it selects a word there.
      if (auto block = BlockOf(watched); block && IsObjectRow(*block)) {
        SetCurrent(block);
        emit ObjectActivated(*block);
        return true;
      }
      break;
    case QEvent::ShortcutOverride:
      // Left to the window's Undo and Redo, which the line would take.
      if (qobject_cast<QLineEdit*>(watched) &&
          IsPageUndoKey(*static_cast<QKeyEvent*>(event))) {
        return true;
      }
      break;
    case QEvent::KeyPress: {
      const int key = static_cast<QKeyEvent*>(event)->key();
      // Only the keys of rows without text: a paragraph's Enter is its
      // returnPressed, and its Delete deletes a character.
      const auto block = BlockOf(watched);
      if (!block || IsParagraphRow(*block)) break;
      if (IsObjectRow(*block) &&
          (key == Qt::Key_Return || key == Qt::Key_Enter)) {
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
