// The page as a visitor's browser shows it: the HTML the editor saves,
// rendered by Qt WebEngine, with each block selectable. A click selects a
// block, the current block is outlined, a double-click or Enter on a form
// reopens it and Delete asks to delete the selected block. The page's own
// scripts never run here, its forms do not submit and its links go nowhere:
// the editor's own script runs beside the page, in a world of its own, and
// talks back through a web channel.
#pragma once

#include <QByteArray>
#include <QString>
#include <QWidget>
#include <optional>
#include <vector>

#include "host/page.h"

class QWebEngineView;

namespace formwiz::editor {

class ViewBridge;
class ViewPage;
class ViewSchemeHandler;

class PageWebView : public QWidget {
  Q_OBJECT

 public:
  // Registers the URL scheme that pages too large for setHtml() are served
  // from. It must run before the QApplication is made (Qt WebEngine reads
  // its schemes then): main() and every test and benchmark main call it.
  static void RegisterScheme();

  explicit PageWebView(QWidget* parent = nullptr);
  ~PageWebView() override;

  // The folder that relative stylesheets, pictures and links of the page
  // are resolved against: the page file's folder. Empty for a page that
  // has no file yet. Takes effect at the next ShowPage.
  void SetBaseFolder(const QString& folder);

  // Renders `page` anew, as WritePage writes it, keeping the scroll
  // position, and outlines `current`.
  void ShowPage(const host::Page& page, std::optional<size_t> current);
  // Outlines another block (the outline selected it) and scrolls it into
  // view; nothing is rendered anew.
  void SetCurrent(std::optional<size_t> current);
  std::optional<size_t> Current() const { return current_; }

  // True once the last ShowPage is rendered and the block script is ready:
  // clicks and keys map to blocks from then on.
  bool IsReady() const { return ready_; }
  // The browser view inside, for tests that run script on the page or send
  // it input.
  QWebEngineView* engine() const { return engine_; }
  // The block at the top of the view, as the script last reported it once
  // the person (or a render) scrolled: what the next render scrolls back
  // to.
  std::optional<size_t> TopBlock() const {
    return anchor_ ? std::optional<size_t>(anchor_->block) : std::nullopt;
  }
  // The HTML of the last ShowPage, as the view loads it.
  const QByteArray& ShownHtml() const { return shown_html_; }

 signals:
  // A click in the view on a block.
  void BlockSelected(size_t index);
  // A double-click or Enter on a form block: reopen it.
  void BlockActivated(size_t index);
  // Delete on the selected block.
  void DeleteRequested(size_t index);
  // The last ShowPage is rendered and the block script is ready.
  void Rendered();

 private:
  friend class ViewBridge;

  // From the script, through the bridge.
  void OnScriptReady(int generation);
  void OnBlockClicked(int index);
  void OnBlockActivated(int index);
  void OnDeletePressed(int index);
  void OnScrolled(int generation, int index, double offset, double y);
  void OnLoadFinished(bool ok);
  void MaybeRendered();
  // Outlines current_ in the page, scrolling it into view when asked.
  void PushCurrent(bool scroll);
  std::optional<size_t> Checked(int index) const;

  QWebEngineView* engine_;
  ViewPage* page_;
  ViewBridge* bridge_;
  ViewSchemeHandler* scheme_handler_;
  QString base_folder_;
  QByteArray shown_html_;
  std::optional<size_t> current_;
  // Which blocks are forms: only those are reopened.
  std::vector<bool> is_form_;
  // Which ShowPage the view shows; a call of the script of an older one is
  // dropped.
  int generation_ = 0;
  bool loaded_ = false;
  bool script_ready_ = false;
  bool ready_ = false;
  // The page's scroll position, restored after each render: by the block
  // at the top of the view where the script's report of it is current,
  // else by pixels.
  double scroll_y_ = 0;
  struct Anchor {
    size_t block;
    // How far the view's top is below the block's top.
    double offset;
    // The scroll position when it was reported.
    double y;
  };
  std::optional<Anchor> anchor_;
};

}  // namespace formwiz::editor
