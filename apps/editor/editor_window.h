// The editor's main window: a page of paragraphs, form orbs and blocks of
// someone else's page, its file, the outline of its blocks and a view of
// the page. Inserting an orb and opening one run the form wizard component
// exactly as the editor hosts it: by ProgID, on the page's document, with
// the Qt Ui current. Every change to the page is a command on the undo
// stack, and the page counts as modified exactly when the stack is not at
// the state last saved or opened.
#pragma once

#include <QMainWindow>
#include <QMessageBox>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "definitions_ahead.h"
#include "host/orb_catalog.h"
#include "host/page.h"
#include "page_commands.h"

class QAction;
class QUndoStack;

namespace formwiz::editor {

class PageView;
class PageWebView;
class PreviewServer;

class EditorWindow : public QMainWindow, private PageEditor {
  Q_OBJECT

 public:
  // `orbs` fill Insert ▸ Form Orb.
  explicit EditorWindow(std::vector<host::BundledOrb> orbs,
                        QWidget* parent = nullptr);
  ~EditorWindow() override;

  // How many files File ▸ Open Recent offers.
  static constexpr int kRecentFileCount = 8;

  // Opens a page (a page file or any UTF-8 HTML page) in place of the page,
  // without asking about unsaved changes. A file that cannot be read or is
  // no page is refused with the reason, and the page stays as it was. False
  // when refused.
  bool OpenFile(const QString& path);
  // The command line's page: opened when it is there; when nothing is at
  // `path`, a new empty page that Save writes there without asking. A path
  // that is there but cannot be read, or whose folder is missing, is
  // refused as OpenFile refuses.
  bool OpenOrStart(const QString& path);
  // Writes the page to `path` and makes it the page's file. False, after
  // telling the person, when it cannot be written.
  bool SaveFile(const QString& path);

  // The menu commands.
  void NewPage();
  void Open();
  bool Save();
  bool SaveAs();
  void InsertOrb(const std::filesystem::path& orb_file);
  void InsertOtherOrb();
  void InsertParagraph();
  void EditObject();
  void DeleteBlock();
  void MoveUp();
  void MoveDown();
  // Moves a block so that it ends up at `to`, as one undoable step.
  void MoveBlock(size_t from, size_t to, const QString& name);
  // File ▸ Open Recent's entry for `path`; a file that is gone leaves the
  // list, with a word to the person.
  void OpenRecent(const QString& path);
  void OpenInBrowser();
  // File ▸ Properties: the page's title, in a modal dialog.
  void EditProperties();

  const host::Page& page() const { return page_; }
  const QString& path() const { return path_; }
  bool IsModified() const;
  QUndoStack* undo_stack() const { return undo_stack_; }
  // Most recent first, as File ▸ Open Recent shows them.
  QStringList RecentFiles() const;
  PageView* view() const { return view_; }
  // The page rendered as a browser shows it.
  PageWebView* web_view() const { return web_view_; }
  // The page's stored definitions, parsed ahead on a worker thread.
  DefinitionsAhead& definitions_ahead() { return definitions_ahead_; }

 protected:
  // What the window asks a person, in one place so that a test can answer.
  // Save, Discard or Cancel for a page with unsaved changes.
  virtual QMessageBox::StandardButton AskSaveChanges();
  // A file name; empty when the person cancels.
  virtual QString AskOpenPath(const QString& title, const QString& filter);
  virtual QString AskSavePath();
  virtual void ShowError(const QString& title, const QString& text);
  // Whether to open a page file that was changed since formwiz wrote it
  // (`why` is what the page file's reader found) as an HTML page.
  virtual bool AskOpenChanged(const QString& path, const QString& why);

  void closeEvent(QCloseEvent* event) override;

 private:
  void BuildMenus();
  void BuildOrbMenu(QMenu* menu);
  // True when the page may be replaced: nothing unsaved, saved now, or
  // discarded.
  bool MayDropPage();
  void SetPage(host::Page page, QString path);
  // What the commands tell the window (PageEditor).
  host::Page& EditedPage() override { return page_; }
  void BlocksChanged(std::optional<size_t> current) override;
  void ParagraphChanged(size_t index) override;
  void TitleChanged() override;
  // After every step of the undo stack, done, undone or redone.
  void StackChanged();
  void AddRecentFile(const QString& path);
  void RemoveRecentFile(const QString& path);
  void FillRecentMenu();
  void UpdateTitle();
  void UpdateActions();
  void UpdatePreview();
  // Where a new block goes: after the current one, else at the end.
  size_t InsertPosition() const;
  // Runs a component call with the Qt Ui current and the page's roles
  // registered. The component lets no failure out; should one come all the
  // same, the person is told and the editor goes on.
  void RunComponent(const std::function<void()>& call);

  host::Page page_;
  QString path_;
  QUndoStack* undo_stack_;
  std::vector<host::BundledOrb> orbs_;
  PageView* view_;
  PageWebView* web_view_;
  QTimer preview_timer_;
  QAction* edit_object_action_ = nullptr;
  QAction* delete_action_ = nullptr;
  QAction* move_up_action_ = nullptr;
  QAction* move_down_action_ = nullptr;
  QMenu* recent_menu_ = nullptr;
  // Serves the page that Preview in Browser shows, for the window's life:
  // the browser may read it, and send its form, long after the call.
  std::unique_ptr<PreviewServer> preview_server_;
  DefinitionsAhead definitions_ahead_;
};

}  // namespace formwiz::editor
