#include "editor_window.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QSplitter>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QUrl>
#include <QVBoxLayout>
#include <exception>

#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "page_properties.h"
#include "page_view.h"
#include "qtui/qt_ui.h"
#include "toolkit/ui.h"

namespace formwiz::editor {

namespace {

constexpr char kPageFilter[] = "Pages (*.html *.htm);;All files (*)";
constexpr char kOrbFilter[] = "Orb files (*.qlo);;All files (*)";
constexpr int kPreviewDelayMs = 200;

}  // namespace

EditorWindow::EditorWindow(std::vector<host::BundledOrb> orbs, QWidget* parent)
    : QMainWindow(parent),
      orbs_(std::move(orbs)),
      view_(new PageView),
      preview_(new QPlainTextEdit) {
  auto* preview_pane = new QWidget;
  auto* preview_layout = new QVBoxLayout(preview_pane);
  preview_layout->setContentsMargins(0, 0, 0, 0);
  auto* preview_bar = new QHBoxLayout;
  preview_bar->addWidget(new QLabel(tr("Page HTML")), 1);
  auto* browser_button = new QPushButton(tr("Open in Browser"));
  preview_bar->addWidget(browser_button);
  preview_layout->addLayout(preview_bar);
  preview_layout->addWidget(preview_);
  // The pane shows the HTML the page file holds, as text: a widget that
  // renders HTML would show the form without its boxes and mislead. The
  // browser button shows the page as visitors see it.
  preview_->setReadOnly(true);
  preview_->setLineWrapMode(QPlainTextEdit::NoWrap);
  preview_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

  auto* splitter = new QSplitter;
  splitter->addWidget(view_);
  splitter->addWidget(preview_pane);
  splitter->setStretchFactor(0, 3);
  splitter->setStretchFactor(1, 2);
  // The first split follows the stretch; the size hints alone would give
  // the page a sliver.
  splitter->setSizes({560, 400});
  setCentralWidget(splitter);

  // Typing refreshes the preview once the person pauses, not per key.
  preview_timer_.setSingleShot(true);
  preview_timer_.setInterval(kPreviewDelayMs);
  connect(&preview_timer_, &QTimer::timeout, this,
          &EditorWindow::UpdatePreview);
  connect(browser_button, &QPushButton::clicked, this,
          &EditorWindow::OpenInBrowser);

  connect(view_, &PageView::CurrentChanged, this, &EditorWindow::UpdateActions);
  connect(view_, &PageView::ParagraphEdited, this,
          [this](size_t index, const QString& text) {
            if (index >= page_.blocks.size()) return;
            page_.blocks[index].text = text.toStdString();
            MarkModified();
          });
  connect(view_, &PageView::ParagraphFinished, this,
          &EditorWindow::InsertParagraph);
  connect(view_, &PageView::ObjectActivated, this, &EditorWindow::EditObject);
  connect(view_, &PageView::DeleteRequested, this, &EditorWindow::DeleteBlock);

  BuildMenus();
  SetPage(host::Page(), {});
  resize(960, 600);
}

EditorWindow::~EditorWindow() = default;

void EditorWindow::BuildMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  file->addAction(tr("&New"), QKeySequence::New, this, &EditorWindow::NewPage);
  file->addAction(tr("&Open…"), QKeySequence::Open, this, &EditorWindow::Open);
  file->addAction(tr("&Save"), QKeySequence::Save, this, &EditorWindow::Save);
  file->addAction(tr("Save &As…"), QKeySequence::SaveAs, this,
                  &EditorWindow::SaveAs);
  file->addSeparator();
  file->addAction(tr("P&roperties…"), this, &EditorWindow::EditProperties);
  file->addSeparator();
  file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  edit_object_action_ =
      edit->addAction(tr("&Edit Object"), QKeySequence(tr("Ctrl+E")), this,
                      &EditorWindow::EditObject);
  // No window-wide Delete shortcut: it would delete the current block while
  // the person is in the preview. An object row takes Delete itself, and a
  // paragraph keeps the key for its text.
  delete_action_ =
      edit->addAction(tr("&Delete"), this, &EditorWindow::DeleteBlock);

  QMenu* insert = menuBar()->addMenu(tr("&Insert"));
  BuildOrbMenu(insert->addMenu(tr("Form &Orb")));
  insert->addAction(tr("&Paragraph"), QKeySequence(tr("Ctrl+Return")), this,
                    &EditorWindow::InsertParagraph);
}

void EditorWindow::BuildOrbMenu(QMenu* menu) {
  for (const host::BundledOrb& orb : orbs_) {
    const std::filesystem::path file = orb.file;
    menu->addAction(QString::fromStdString(orb.display_name), this,
                    [this, file] { InsertOrb(file); });
  }
  if (!orbs_.empty()) menu->addSeparator();
  menu->addAction(tr("Other orb file…"), this, &EditorWindow::InsertOtherOrb);
}

// Files.

bool EditorWindow::OpenFile(const QString& path) {
  QFile file(path);
  const QString title = tr("Open Page");
  if (!file.open(QIODevice::ReadOnly)) {
    ShowError(title,
              tr("%1 cannot be read: %2.")
                  .arg(QDir::toNativeSeparators(path), file.errorString()));
    return false;
  }
  const QByteArray bytes = file.readAll();
  host::Page page;
  std::string error;
  if (!host::ReadPageFile(std::string_view(bytes.constData(), bytes.size()),
                          page, error)) {
    ShowError(title, tr("%1 is no page this editor can open: %2")
                         .arg(QDir::toNativeSeparators(path),
                              QString::fromStdString(error)));
    return false;
  }
  SetPage(std::move(page), QFileInfo(path).absoluteFilePath());
  return true;
}

bool EditorWindow::SaveFile(const QString& path) {
  const std::string text = host::WritePageFile(page_);
  // QSaveFile writes beside the target and renames: a failed save leaves
  // the old file whole.
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) ||
      file.write(text.data(), static_cast<qint64>(text.size())) !=
          static_cast<qint64>(text.size()) ||
      !file.commit()) {
    ShowError(tr("Save Page"),
              tr("%1 cannot be written: %2.")
                  .arg(QDir::toNativeSeparators(path), file.errorString()));
    return false;
  }
  path_ = QFileInfo(path).absoluteFilePath();
  modified_ = false;
  UpdateTitle();
  statusBar()->showMessage(tr("Saved %1").arg(QFileInfo(path).fileName()),
                           3000);
  return true;
}

void EditorWindow::NewPage() {
  if (MayDropPage()) SetPage(host::Page(), {});
}

void EditorWindow::Open() {
  if (!MayDropPage()) return;
  const QString path = AskOpenPath(tr("Open Page"), tr(kPageFilter));
  if (!path.isEmpty()) OpenFile(path);
}

bool EditorWindow::Save() {
  return path_.isEmpty() ? SaveAs() : SaveFile(path_);
}

bool EditorWindow::SaveAs() {
  const QString path = AskSavePath();
  return !path.isEmpty() && SaveFile(path);
}

bool EditorWindow::MayDropPage() {
  if (!modified_) return true;
  switch (AskSaveChanges()) {
    case QMessageBox::Save:
      return Save();
    case QMessageBox::Discard:
      return true;
    default:
      return false;
  }
}

void EditorWindow::closeEvent(QCloseEvent* event) {
  if (MayDropPage()) {
    event->accept();
  } else {
    event->ignore();
  }
}

// Blocks.

void EditorWindow::InsertOrb(const std::filesystem::path& orb_file) {
  // The file is read for each insertion: the component edits the tree it is
  // given, and each new object starts from the orb as it is on disk.
  host::Orb orb;
  std::string error;
  if (!host::ReadOrb(orb_file, orb, error)) {
    ShowError(tr("Insert Form Orb"),
              tr("%1: %2").arg(QString::fromStdString(orb_file.string()),
                               QString::fromStdString(error)));
    return;
  }
  const size_t position = InsertPosition();
  RunComponent([&] {
    auto wiz = AsRole<clsFormWiz>(CreateObject(kProgId));
    Deref(wiz).SetImpl(orb.impl);
    wiz->SetDisplayName(orb.display_name);
    wiz->SetPath(orb.folder);
    wiz->OnCommand(page_.document, 0, path_.toStdString());
  });
  const size_t placed = page_.AdoptNewObjects(position);
  if (placed == 0) return;
  MarkModified();
  view_->ShowPage(page_, position + placed - 1);
}

void EditorWindow::InsertOtherOrb() {
  const QString path = AskOpenPath(tr("Insert Form Orb"), tr(kOrbFilter));
  if (!path.isEmpty()) InsertOrb(std::filesystem::path(path.toStdString()));
}

void EditorWindow::InsertParagraph() {
  const size_t position = InsertPosition();
  page_.blocks.insert(page_.blocks.begin() + static_cast<ptrdiff_t>(position),
                      host::PageBlock{});
  MarkModified();
  view_->ShowPage(page_, position);
}

void EditorWindow::EditObject() {
  const auto current = view_->Current();
  if (!current || *current >= page_.blocks.size()) return;
  const std::shared_ptr<host::PageObject> object =
      page_.blocks[*current].object;
  if (!object) return;
  // Whatever the outcome, the page counts as changed when its file would.
  const std::string before = host::WritePageFile(page_);
  RunComponent([&] {
    auto wiz = AsRole<clsFormWiz>(CreateObject(
        object->prog_id.empty() ? std::string(kProgId) : object->prog_id));
    Deref(wiz).SetDisplayName(object->display_name.value_or(""));
    wiz->OnOpen(object, page_.document, 0);
  });
  // An OnOpen nested in the editor's UpdateItem may have added objects.
  page_.AdoptNewObjects(*current + 1);
  if (host::WritePageFile(page_) != before) MarkModified();
  view_->ShowPage(page_, *current);
}

void EditorWindow::DeleteBlock() {
  const auto current = view_->Current();
  if (!current || *current >= page_.blocks.size()) return;
  page_.DeleteBlock(*current);
  MarkModified();
  std::optional<size_t> next;
  if (!page_.blocks.empty()) next = std::min(*current, page_.blocks.size() - 1);
  view_->ShowPage(page_, next);
}

size_t EditorWindow::InsertPosition() const {
  const auto current = view_->Current();
  return current ? std::min(*current + 1, page_.blocks.size())
                 : page_.blocks.size();
}

void EditorWindow::RunComponent(const std::function<void()>& call) {
  qtui::QtUi ui(this);
  ScopedUi scoped(ui);
  try {
    // Registered before each call: the page's document changes with New
    // and Open, and the selection must place objects into this one.
    page_.document->RegisterRoles();
    call();
  } catch (const Failure& failure) {
    ShowError(tr("Form Orb"),
              tr("The form orb failed: %1 (%2).")
                  .arg(QString::fromStdString(failure.description))
                  .arg(failure.number));
  } catch (const std::exception& e) {
    ShowError(tr("Form Orb"), tr("The form orb failed: %1.").arg(e.what()));
  }
}

// The page's state.

void EditorWindow::SetPage(host::Page page, QString path) {
  page_ = std::move(page);
  path_ = std::move(path);
  modified_ = false;
  view_->ShowPage(page_, std::nullopt);
  UpdateTitle();
  UpdateActions();
  UpdatePreview();
}

void EditorWindow::MarkModified() {
  if (!modified_) {
    modified_ = true;
    UpdateTitle();
  }
  preview_timer_.start();
}

void EditorWindow::EditProperties() {
  PagePropertiesDialog dialog(QString::fromStdString(page_.title), this);
  if (dialog.exec() != QDialog::Accepted) return;
  const std::string title = dialog.Title().toStdString();
  if (title == page_.title) return;
  page_.title = title;
  MarkModified();
}

void EditorWindow::UpdateTitle() {
  const QString name =
      path_.isEmpty() ? tr("Untitled") : QFileInfo(path_).fileName();
  setWindowTitle(tr("%1[*] — formwiz editor").arg(name));
  setWindowModified(modified_);
}

void EditorWindow::UpdateActions() {
  const auto current = view_->Current();
  const bool any = current && *current < page_.blocks.size();
  edit_object_action_->setEnabled(any && page_.blocks[*current].object);
  delete_action_->setEnabled(any);
}

void EditorWindow::UpdatePreview() {
  preview_timer_.stop();
  preview_->setPlainText(QString::fromStdString(host::WritePageFile(page_)));
}

void EditorWindow::OpenInBrowser() {
  if (!browser_dir_) browser_dir_ = std::make_unique<QTemporaryDir>();
  const QString file = browser_dir_->filePath("preview.html");
  const std::string text = host::WritePageFile(page_);
  QFile out(file);
  if (!browser_dir_->isValid() || !out.open(QIODevice::WriteOnly) ||
      out.write(text.data(), static_cast<qint64>(text.size())) !=
          static_cast<qint64>(text.size())) {
    ShowError(
        tr("Open in Browser"),
        tr("The preview file cannot be written: %1.").arg(out.errorString()));
    return;
  }
  out.close();
  if (!QDesktopServices::openUrl(QUrl::fromLocalFile(file))) {
    ShowError(tr("Open in Browser"), tr("No browser could be started for %1.")
                                         .arg(QDir::toNativeSeparators(file)));
  }
}

// The questions.

QMessageBox::StandardButton EditorWindow::AskSaveChanges() {
  const QString name =
      path_.isEmpty() ? tr("Untitled") : QFileInfo(path_).fileName();
  return QMessageBox::question(
      this, tr("formwiz editor"),
      tr("Save the changes to %1 before closing it?").arg(name),
      QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel,
      QMessageBox::Save);
}

QString EditorWindow::AskOpenPath(const QString& title, const QString& filter) {
  return QFileDialog::getOpenFileName(this, title, {}, filter);
}

QString EditorWindow::AskSavePath() {
  QString path = QFileDialog::getSaveFileName(this, tr("Save Page"), path_,
                                              tr(kPageFilter));
  if (!path.isEmpty() && QFileInfo(path).suffix().isEmpty()) path += ".html";
  return path;
}

void EditorWindow::ShowError(const QString& title, const QString& text) {
  QMessageBox::warning(this, title, text);
}

}  // namespace formwiz::editor
