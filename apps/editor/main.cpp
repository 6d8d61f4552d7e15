// formwiz-editor [PAGE]: the page editor. PAGE may be any HTML page, or a
// file not made yet: the editor starts a new page that is saved there. With
// --grab FILE it shows the page, saves a picture of the window to FILE and
// quits, which is how the documentation's screenshots are made.
#include <unistd.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QPixmap>
#include <QTimer>
#include <cstdio>
#include <memory>

#include "editor_window.h"
#include "formwiz/version.h"
#include "host/orb_catalog.h"
#include "page_view.h"
#include "page_web_view.h"

namespace {

// Under --grab nobody is there to close a message box: errors go to
// standard error instead.
class GrabbingWindow : public formwiz::editor::EditorWindow {
 public:
  using EditorWindow::EditorWindow;

 protected:
  void ShowError(const QString& title, const QString& text) override {
    std::fprintf(stderr, "%s: %s\n", qPrintable(title), qPrintable(text));
  }
};

}  // namespace

int main(int argc, char** argv) {
  // Chromium's sandbox will not start for root, and the page view would
  // then stay blank. The view shows only the page being edited, with its
  // scripts off, so as root it runs without the sandbox rather than not at
  // all; anyone else keeps it.
  if (geteuid() == 0 &&
      qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX")) {
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
  }
  // Before the application object: the web view's scheme is read then.
  formwiz::editor::PageWebView::RegisterScheme();
  QApplication app(argc, argv);
  QApplication::setApplicationName("formwiz-editor");
  QApplication::setApplicationVersion(FORMWIZ_VERSION);

  QCommandLineParser parser;
  parser.setApplicationDescription("Edits web pages that hold form orbs.");
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument(
      "page", "The page to open, or to start when it does not exist yet.",
      "[PAGE]");
  const QCommandLineOption grab(
      "grab", "Save a picture of the window to FILE (PNG) and quit.", "FILE");
  parser.addOption(grab);
  const QCommandLineOption select(
      "select", "With --grab: make block N (from 0) the current one.", "N");
  parser.addOption(select);
  parser.process(app);
  const QStringList pages = parser.positionalArguments();
  if (pages.size() > 1) {
    std::fputs("formwiz-editor: one page at a time\n", stderr);
    return 2;
  }

  const auto orbs = formwiz::host::ListOrbs(formwiz::host::FindOrbsFolder(
      QApplication::applicationDirPath().toStdString()));
  std::unique_ptr<formwiz::editor::EditorWindow> made =
      parser.isSet(grab)
          ? std::make_unique<GrabbingWindow>(orbs)
          : std::make_unique<formwiz::editor::EditorWindow>(orbs);
  formwiz::editor::EditorWindow& window = *made;
  window.show();
  // A page that cannot be opened has been refused with its reason; the
  // editor goes on with an empty page, as after File ▸ Open.
  const bool opened = pages.isEmpty() || window.OpenOrStart(pages.front());

  if (parser.isSet(grab)) {
    if (!opened) return 1;
    if (parser.isSet(select)) {
      window.view()->FocusBlock(parser.value(select).toULong());
    }
    // The page is rendered by another process: wait for it (bounded), and
    // a moment more for the outline of the current block to be painted.
    const formwiz::editor::PageWebView& web = *window.web_view();
    QDeadlineTimer rendered(30000);
    while (!web.IsReady() && !rendered.hasExpired()) {
      QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    QDeadlineTimer settle(500);
    while (!settle.hasExpired()) {
      QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    if (!web.IsReady()) std::fputs("formwiz-editor: not rendered\n", stderr);
    return web.IsReady() && window.grab().save(parser.value(grab)) ? 0 : 1;
  }
  return QApplication::exec();
}
