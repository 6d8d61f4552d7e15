// The editor's main window: a page of paragraphs and form orbs, its file,
// and a preview of the HTML it saves. Inserting an orb and opening one run
// the form wizard component exactly as the editor hosts it: by ProgID, on
// the page's document, with the Qt Ui current.
#pragma once

#include <QMainWindow>
#include <QMessageBox>
#include <QString>
#include <QTimer>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "host/orb_catalog.h"
#include "host/page.h"

class QAction;
class QTemporaryDir;
class QPlainTextEdit;

namespace formwiz::editor {

class PageView;

class EditorWindow : public QMainWindow {
  Q_OBJECT

 public:
  // `orbs` fill Insert ▸ Form Orb.
  explicit EditorWindow(std::vector<host::BundledOrb> orbs,
                        QWidget* parent = nullptr);
  ~EditorWindow() override;

  // Opens a page file in place of the page, without asking about unsaved
  // changes. A file that cannot be read or is no page is refused with the
  // reason, and the page stays as it was. False when refused.
  bool OpenFile(const QString& path);
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
  void OpenInBrowser();
  // File ▸ Properties: the page's title, in a modal dialog.
  void EditProperties();

  const host::Page& page() const { return page_; }
  const QString& path() const { return path_; }
  bool IsModified() const { return modified_; }
  PageView* view() const { return view_; }
  QPlainTextEdit* preview() const { return preview_; }

 protected:
  // What the window asks a person, in one place so that a test can answer.
  // Save, Discard or Cancel for a page with unsaved changes.
  virtual QMessageBox::StandardButton AskSaveChanges();
  // A file name; empty when the person cancels.
  virtual QString AskOpenPath(const QString& title, const QString& filter);
  virtual QString AskSavePath();
  virtual void ShowError(const QString& title, const QString& text);

  void closeEvent(QCloseEvent* event) override;

 private:
  void BuildMenus();
  void BuildOrbMenu(QMenu* menu);
  // True when the page may be replaced: nothing unsaved, saved now, or
  // discarded.
  bool MayDropPage();
  void SetPage(host::Page page, QString path);
  void MarkModified();
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
  bool modified_ = false;
  std::vector<host::BundledOrb> orbs_;
  PageView* view_;
  QPlainTextEdit* preview_;
  QTimer preview_timer_;
  QAction* edit_object_action_ = nullptr;
  QAction* delete_action_ = nullptr;
  // Holds the page that Open in Browser shows, for the window's life: the
  // browser may read it long after the call.
  std::unique_ptr<QTemporaryDir> browser_dir_;
};

}  // namespace formwiz::editor
