#include "editor_window.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSaveFile>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QUndoStack>
#include <QUrl>
#include <QVBoxLayout>
#include <exception>
#include <utility>

#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "page_properties.h"
#include "page_view.h"
#include "page_web_view.h"
#include "preview_server.h"
#include "qtui/qt_ui.h"
#include "toolkit/ui.h"

namespace formwiz::editor {

namespace {

constexpr char kPageFilter[] =
    "HTML pages (*.html *.htm *.shtml);;All files (*)";
constexpr char kOrbFilter[] = "Orb files (*.qlo);;All files (*)";
constexpr int kPreviewDelayMs = 200;
// Where the recent files are kept: the editor's own settings, under names
// that do not depend on what the application object was told.
constexpr char kSettingsOrganization[] = "formwiz";
constexpr char kSettingsApplication[] = "formwiz-editor";
constexpr char kRecentFilesKey[] = "recentFiles";

}  // namespace

EditorWindow::EditorWindow(std::vector<host::BundledOrb> orbs, QWidget* parent)
    : QMainWindow(parent),
      undo_stack_(new QUndoStack(this)),
      orbs_(std::move(orbs)),
      view_(new PageView),
      web_view_(new PageWebView) {
  auto* preview_pane = new QWidget;
  auto* preview_layout = new QVBoxLayout(preview_pane);
  preview_layout->setContentsMargins(0, 0, 0, 0);
  auto* preview_bar = new QHBoxLayout;
  preview_bar->addWidget(new QLabel(tr("Page as visitors see it")), 1);
  auto* browser_button = new QPushButton(tr("Preview in Browser"));
  preview_bar->addWidget(browser_button);
  preview_layout->addLayout(preview_bar);
  preview_layout->addWidget(web_view_);

  auto* splitter = new QSplitter;
  splitter->addWidget(view_);
  splitter->addWidget(preview_pane);
  // The outline is narrow; the page takes the rest.
  splitter->setStretchFactor(0, 1);
  splitter->setStretchFactor(1, 2);
  // The first split follows the stretch; the size hints alone would give
  // the page a sliver.
  splitter->setSizes({320, 640});
  setCentralWidget(splitter);

  // Typing refreshes the preview once the person pauses, not per key.
  preview_timer_.setSingleShot(true);
  preview_timer_.setInterval(kPreviewDelayMs);
  connect(&preview_timer_, &QTimer::timeout, this,
          &EditorWindow::UpdatePreview);
  connect(browser_button, &QPushButton::clicked, this,
          &EditorWindow::OpenInBrowser);
  // Both views show the same current block. A block picked in the page
  // becomes current in the outline, and the keys go on to the page.
  connect(view_, &PageView::CurrentChanged, this,
          [this] { web_view_->SetCurrent(view_->Current()); });
  const auto pick = [this](size_t index) {
    if (index >= page_.blocks.size()) return false;
    view_->FocusBlock(index);
    web_view_->setFocus();
    return true;
  };
  connect(web_view_, &PageWebView::BlockSelected, this, pick);
  connect(web_view_, &PageWebView::BlockActivated, this,
          [this, pick](size_t index) {
            if (pick(index)) EditObject();
          });
  connect(web_view_, &PageWebView::DeleteRequested, this,
          [this, pick](size_t index) {
            if (pick(index)) DeleteBlock();
          });

  connect(view_, &PageView::CurrentChanged, this, &EditorWindow::UpdateActions);
  connect(view_, &PageView::ParagraphEdited, this,
          [this](size_t index, const QString& text) {
            if (index >= page_.blocks.size()) return;
            std::string after = text.toStdString();
            if (after == page_.blocks[index].text) return;
            undo_stack_->push(new ParagraphTextCommand(
                *this, index, page_.blocks[index].text, std::move(after)));
          });
  connect(view_, &PageView::ParagraphFinished, this,
          &EditorWindow::InsertParagraph);
  connect(view_, &PageView::ObjectActivated, this, &EditorWindow::EditObject);
  connect(view_, &PageView::DeleteRequested, this, &EditorWindow::DeleteBlock);
  connect(
      view_, &PageView::MoveRequested, this, [this](size_t from, size_t to) {
        if (from >= page_.blocks.size()) return;
        MoveBlock(from, to, tr("Move %1").arg(BlockName(page_.blocks[from])));
      });
  connect(undo_stack_, &QUndoStack::indexChanged, this,
          &EditorWindow::StackChanged);
  connect(undo_stack_, &QUndoStack::cleanChanged, this,
          &EditorWindow::UpdateTitle);

  BuildMenus();
  SetPage(host::Page(), {});
  resize(960, 600);
}

EditorWindow::~EditorWindow() {
  // The stack clears itself as it goes, and rows give up the focus as they
  // go: neither may call back into a window that is no longer whole.
  undo_stack_->disconnect(this);
  view_->disconnect(this);
}

void EditorWindow::BuildMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  file->addAction(tr("&New"), QKeySequence::New, this, &EditorWindow::NewPage);
  file->addAction(tr("&Open…"), QKeySequence::Open, this, &EditorWindow::Open);
  recent_menu_ = file->addMenu(tr("Open &Recent"));
  FillRecentMenu();
  file->addAction(tr("&Save"), QKeySequence::Save, this, &EditorWindow::Save);
  file->addAction(tr("Save &As…"), QKeySequence::SaveAs, this,
                  &EditorWindow::SaveAs);
  file->addSeparator();
  file->addAction(tr("P&roperties…"), this, &EditorWindow::EditProperties);
  file->addSeparator();
  file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  // The actions name the step they take back or do again ("Undo Delete
  // Contact us"). The keys are set here rather than taken from the
  // platform's list, so they are the same everywhere: Ctrl+Z, and both
  // Ctrl+Shift+Z and Ctrl+Y for redo, as people know them from either
  // family of programs.
  QAction* undo = undo_stack_->createUndoAction(this, tr("&Undo"));
  undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
  edit->addAction(undo);
  QAction* redo = undo_stack_->createRedoAction(this, tr("&Redo"));
  redo->setShortcuts({QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z),
                      QKeySequence(Qt::CTRL | Qt::Key_Y)});
  edit->addAction(redo);
  edit->addSeparator();
  edit_object_action_ =
      edit->addAction(tr("&Edit Object"), QKeySequence(tr("Ctrl+E")), this,
                      &EditorWindow::EditObject);
  // No window-wide Delete shortcut: it would delete the current block while
  // the person is in the preview. An object row takes Delete itself, and a
  // paragraph keeps the key for its text.
  delete_action_ =
      edit->addAction(tr("&Delete"), this, &EditorWindow::DeleteBlock);
  edit->addSeparator();
  // Alt+Up and Alt+Down, as code editors move a line: no text box, the
  // paragraphs' included, gives these keys a meaning, whereas
  // Ctrl+Shift+Up/Down select to a paragraph's start or end in text
  // widgets on some platforms and would be taken from the person typing.
  move_up_action_ = edit->addAction(tr("Move &Up"), QKeySequence(tr("Alt+Up")),
                                    this, &EditorWindow::MoveUp);
  move_down_action_ =
      edit->addAction(tr("Move Do&wn"), QKeySequence(tr("Alt+Down")), this,
                      &EditorWindow::MoveDown);

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
  // One byte past the limit is enough to know a file is too large, and no
  // more than that is ever read.
  const QByteArray bytes =
      file.read(static_cast<qint64>(host::kMaxPageFileSize) + 1);
  host::Page page;
  std::string error;
  std::string changed;
  bool read = false;
  if (static_cast<size_t>(bytes.size()) > host::kMaxPageFileSize) {
    error = "larger than the " + std::to_string(host::kMaxPageFileSize >> 20) +
            " MiB a page may have";
  } else {
    read = host::ReadPage(std::string_view(bytes.constData(), bytes.size()),
                          page, error, &changed);
  }
  if (!read) {
    ShowError(title, tr("%1 is no page this editor can open: %2")
                         .arg(QDir::toNativeSeparators(path),
                              QString::fromStdString(error)));
    return false;
  }
  if (!changed.empty() &&
      !AskOpenChanged(path, QString::fromStdString(changed))) {
    return false;
  }
  const QString absolute = QFileInfo(path).absoluteFilePath();
  SetPage(std::move(page), absolute);
  AddRecentFile(absolute);
  return true;
}

bool EditorWindow::OpenOrStart(const QString& path) {
  const QFileInfo info(path);
  // A link that leads nowhere is there all the same: saving through it
  // would write where the person did not look. OpenFile refuses it.
  if (info.exists() || info.isSymLink()) return OpenFile(path);
  if (!info.absoluteDir().exists()) {
    ShowError(tr("Open Page"),
              tr("%1 cannot be made: its folder %2 does not exist.")
                  .arg(QDir::toNativeSeparators(path),
                       QDir::toNativeSeparators(info.absolutePath())));
    return false;
  }
  SetPage(host::Page(), info.absoluteFilePath());
  statusBar()->showMessage(
      tr("New page: %1 is written when you save.").arg(info.fileName()));
  return true;
}

bool EditorWindow::SaveFile(const QString& path) {
  // A page read from someone else's file goes back in its own shape.
  const std::string text = host::WritePage(page_);
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
  undo_stack_->setClean();
  UpdateTitle();
  AddRecentFile(path_);
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
  if (!IsModified()) return true;
  switch (AskSaveChanges()) {
    case QMessageBox::Save:
      return Save();
    case QMessageBox::Discard:
      return true;
    default:
      return false;
  }
}

// Recent files.

QStringList EditorWindow::RecentFiles() const {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  QStringList files = settings.value(kRecentFilesKey).toStringList();
  // A hand-edited settings file may hold more.
  if (files.size() > kRecentFileCount) files.resize(kRecentFileCount);
  return files;
}

void EditorWindow::AddRecentFile(const QString& path) {
  QStringList files = RecentFiles();
  files.removeAll(path);
  files.prepend(path);
  if (files.size() > kRecentFileCount) files.resize(kRecentFileCount);
  QSettings(kSettingsOrganization, kSettingsApplication)
      .setValue(kRecentFilesKey, files);
  FillRecentMenu();
}

void EditorWindow::RemoveRecentFile(const QString& path) {
  QStringList files = RecentFiles();
  files.removeAll(path);
  QSettings(kSettingsOrganization, kSettingsApplication)
      .setValue(kRecentFilesKey, files);
  FillRecentMenu();
}

void EditorWindow::FillRecentMenu() {
  recent_menu_->clear();
  const QStringList files = RecentFiles();
  for (int i = 0; i < files.size(); ++i) {
    const QString path = files[i];
    // &1 to &8: a key each, and the folder to tell two index.html apart.
    QAction* action = recent_menu_->addAction(
        // An "&" in a name is a letter, not a mnemonic.
        tr("&%1 %2").arg(i + 1).arg(
            QFileInfo(path).fileName().replace("&", "&&")),
        this, [this, path] { OpenRecent(path); });
    action->setToolTip(QDir::toNativeSeparators(path));
    action->setStatusTip(QDir::toNativeSeparators(path));
  }
  recent_menu_->setEnabled(!files.isEmpty());
}

void EditorWindow::OpenRecent(const QString& path) {
  if (!QFileInfo::exists(path)) {
    RemoveRecentFile(path);
    ShowError(tr("Open Recent"),
              tr("%1 is no longer there, so it has been taken off the "
                 "recent files.")
                  .arg(QDir::toNativeSeparators(path)));
    return;
  }
  if (MayDropPage()) OpenFile(path);
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
  // Taken out again at once, so that the command puts them in: the page
  // before the push is the page that undo gives back.
  std::vector<host::PageBlock> blocks;
  for (size_t i = 0; i < placed; ++i) {
    blocks.push_back(page_.TakeBlock(position));
  }
  const QString name = BlockName(blocks.front());
  undo_stack_->push(
      new InsertBlocksCommand(*this, position, std::move(blocks), name));
}

void EditorWindow::InsertOtherOrb() {
  const QString path = AskOpenPath(tr("Insert Form Orb"), tr(kOrbFilter));
  if (!path.isEmpty()) InsertOrb(std::filesystem::path(path.toStdString()));
}

void EditorWindow::InsertParagraph() {
  std::vector<host::PageBlock> blocks(1);
  undo_stack_->push(new InsertBlocksCommand(
      *this, InsertPosition(), std::move(blocks), tr("Paragraph")));
}

void EditorWindow::EditObject() {
  const auto current = view_->Current();
  if (!current || *current >= page_.blocks.size()) return;
  const std::shared_ptr<host::PageObject> object =
      page_.blocks[*current].object;
  if (!object) return;
  // A reopen that is cancelled, or finished with nothing changed, is no
  // step: what the wizard writes is compared, not whether it ran.
  const ObjectState before = ObjectState::Of(*object);
  RunComponent([&] {
    auto wiz = AsRole<clsFormWiz>(CreateObject(
        object->prog_id.empty() ? std::string(kProgId) : object->prog_id));
    Deref(wiz).SetDisplayName(object->display_name.value_or(""));
    wiz->OnOpen(object, page_.document, 0);
  });
  const ObjectState after = ObjectState::Of(*object);
  // The open took the tree parsed ahead, whether or not anything changed.
  definitions_ahead_.Queue(page_);
  // An OnOpen nested in the editor's UpdateItem may have added objects;
  // they are put in by a command, as an insertion is.
  const size_t at = *current + 1;
  const size_t placed = page_.AdoptNewObjects(at);
  std::vector<host::PageBlock> added;
  for (size_t i = 0; i < placed; ++i) added.push_back(page_.TakeBlock(at));
  const bool edited = !(before == after);
  if (!edited && added.empty()) return;
  // Both at once are one step for the person.
  const bool both = edited && !added.empty();
  if (both) {
    undo_stack_->beginMacro(
        tr("Edit %1").arg(BlockName(page_.blocks[*current])));
  }
  if (edited) {
    undo_stack_->push(new EditObjectCommand(*this, object, before, after));
  }
  if (!added.empty()) {
    const QString name = BlockName(added.front());
    undo_stack_->push(
        new InsertBlocksCommand(*this, at, std::move(added), name));
  }
  if (both) undo_stack_->endMacro();
}

void EditorWindow::DeleteBlock() {
  const auto current = view_->Current();
  if (!current || *current >= page_.blocks.size()) return;
  undo_stack_->push(new DeleteBlockCommand(*this, *current));
}

void EditorWindow::MoveUp() {
  const auto current = view_->Current();
  if (current && *current > 0 && *current < page_.blocks.size()) {
    MoveBlock(*current, *current - 1, tr("Move Up"));
  }
}

void EditorWindow::MoveDown() {
  const auto current = view_->Current();
  if (current && *current + 1 < page_.blocks.size()) {
    MoveBlock(*current, *current + 1, tr("Move Down"));
  }
}

void EditorWindow::MoveBlock(size_t from, size_t to, const QString& name) {
  if (from >= page_.blocks.size() || to >= page_.blocks.size() || from == to) {
    return;
  }
  undo_stack_->push(new MoveBlockCommand(*this, from, to, name));
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
  // The steps of the page before make no sense on this one.
  undo_stack_->clear();
  definitions_ahead_.Forget();
  page_ = std::move(page);
  path_ = std::move(path);
  // The rendered view first: Chromium lays the page out in processes of
  // its own while the outline is built here. No block is current yet.
  preview_timer_.stop();
  web_view_->SetBaseFolder(path_.isEmpty() ? QString()
                                           : QFileInfo(path_).absolutePath());
  web_view_->ShowPage(page_, std::nullopt);
  view_->ShowPage(page_, std::nullopt);
  UpdateTitle();
  UpdateActions();
  definitions_ahead_.Queue(page_);
}

bool EditorWindow::IsModified() const { return !undo_stack_->isClean(); }

void EditorWindow::BlocksChanged(std::optional<size_t> current) {
  view_->ShowPage(page_, current);
}

void EditorWindow::ParagraphChanged(size_t index) {
  view_->SetParagraphText(index,
                          QString::fromStdString(page_.blocks.at(index).text));
  view_->FocusBlock(index);
}

void EditorWindow::TitleChanged() {}

void EditorWindow::StackChanged() {
  UpdateActions();
  definitions_ahead_.Queue(page_);
  preview_timer_.start();
}

void EditorWindow::EditProperties() {
  // A page of someone else's holds a title only where its <title> is.
  const bool can_have_title = host::CanSetTitle(page_);
  PagePropertiesDialog dialog(QString::fromStdString(page_.title),
                              can_have_title, this);
  if (dialog.exec() != QDialog::Accepted || !can_have_title) return;
  std::string title = dialog.Title().toStdString();
  if (title == page_.title) return;
  undo_stack_->push(new TitleCommand(*this, page_.title, std::move(title)));
}

void EditorWindow::UpdateTitle() {
  const QString name =
      path_.isEmpty() ? tr("Untitled") : QFileInfo(path_).fileName();
  setWindowTitle(tr("%1[*] — formwiz editor").arg(name));
  setWindowModified(IsModified());
}

void EditorWindow::UpdateActions() {
  const auto current = view_->Current();
  const bool any = current && *current < page_.blocks.size();
  edit_object_action_->setEnabled(any && page_.blocks[*current].object);
  delete_action_->setEnabled(any);
  move_up_action_->setEnabled(any && *current > 0);
  move_down_action_->setEnabled(any && *current + 1 < page_.blocks.size());
}

void EditorWindow::UpdatePreview() {
  preview_timer_.stop();
  // Relative stylesheets and pictures are looked for beside the page file.
  web_view_->SetBaseFolder(path_.isEmpty() ? QString()
                                           : QFileInfo(path_).absolutePath());
  web_view_->ShowPage(page_, view_->Current());
}

void EditorWindow::OpenInBrowser() {
  if (!preview_server_) {
    preview_server_ =
        std::make_unique<PreviewServer>(PreviewServer::FindProgram());
  }
  // The page keeps its file's name, so that it looks the same in the
  // browser's tab and address.
  const QString name = path_.isEmpty() ? QStringLiteral("page.html")
                                       : QFileInfo(path_).fileName();
  const std::string text = host::WritePage(page_);
  QString error;
  const std::optional<QUrl> url = preview_server_->Publish(
      name, QByteArray(text.data(), qsizetype(text.size())), error,
      path_.isEmpty() ? QString() : QFileInfo(path_).absolutePath());
  if (!url) {
    ShowError(tr("Preview in Browser"),
              tr("The page cannot be served: %1.").arg(error));
    return;
  }
  if (!QDesktopServices::openUrl(*url)) {
    ShowError(tr("Preview in Browser"),
              tr("No browser could be started for %1. The page is served "
                 "there while the editor runs.")
                  .arg(url->toString()));
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
  // Next to the page open now: a site's pages and orbs lie together.
  const QString folder =
      path_.isEmpty() ? QString() : QFileInfo(path_).absolutePath();
  return QFileDialog::getOpenFileName(this, title, folder, filter);
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

bool EditorWindow::AskOpenChanged(const QString& path, const QString& why) {
  QMessageBox box(QMessageBox::Warning, tr("Open Page"),
                  tr("%1 was changed since formwiz wrote it: %2.")
                      .arg(QDir::toNativeSeparators(path), why),
                  QMessageBox::Open | QMessageBox::Cancel, this);
  box.setInformativeText(
      tr("It can be opened as an HTML page: what formwiz cannot read is "
         "kept as it stands, the forms it can read stay editable, and "
         "saving writes the page back in its own shape."));
  box.setDefaultButton(QMessageBox::Open);
  return box.exec() == QMessageBox::Open;
}

}  // namespace formwiz::editor
