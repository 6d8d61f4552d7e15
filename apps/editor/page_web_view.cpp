#include "page_web_view.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QUrlQuery>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineUrlSchemeHandler>
#include <QWebEngineView>
#include <cmath>

#include "page_web_view_script.h"
#include "view_html.h"

namespace formwiz::editor {
namespace {

// The page is served from this scheme rather than given to setHtml(),
// which takes at most 2 MB. Its URL is the page file's own path, so that
// relative stylesheets and pictures resolve as they would from the file.
constexpr char kScheme[] = "formwiz-view";
constexpr char kHost[] = "page";
// The name the page has in the view while it has no file, and the folder
// it then seems to be in (which holds nothing).
constexpr char kUnsavedFolder[] = "/formwiz-unsaved";
constexpr char kUnsavedName[] = "page.html";
// A stylesheet or picture of the page larger than this is not shown.
constexpr qint64 kMaxResourceSize = qint64{64} << 20;
// How far, in pixels, the view may be from where the script last reported
// the block at its top for that report to still hold (positions are
// fractional on scaled screens).
constexpr double kScrollSlack = 1.0;

}  // namespace

// Serves the page being shown at its own path, and the files beside it
// from the file system, as a browser reading the file would find them.
class ViewSchemeHandler : public QWebEngineUrlSchemeHandler {
 public:
  using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;

  void Set(QString path, QByteArray html) {
    path_ = std::move(path);
    html_ = std::move(html);
  }

  void requestStarted(QWebEngineUrlRequestJob* job) override {
    if (job->requestMethod() != "GET") {
      job->fail(QWebEngineUrlRequestJob::RequestDenied);
      return;
    }
    const QString path = job->requestUrl().path(QUrl::FullyDecoded);
    if (path == path_) {
      Reply(job, "text/html;charset=utf-8", html_);
      return;
    }
    QFile file(path);
    const QFileInfo info(file);
    if (!info.isFile() || info.size() > kMaxResourceSize ||
        !file.open(QIODevice::ReadOnly)) {
      job->fail(QWebEngineUrlRequestJob::UrlNotFound);
      return;
    }
    const QMimeType type =
        QMimeDatabase().mimeTypeForFile(info, QMimeDatabase::MatchExtension);
    Reply(job, type.name().toUtf8(), file.read(kMaxResourceSize));
  }

 private:
  static void Reply(QWebEngineUrlRequestJob* job, const QByteArray& type,
                    const QByteArray& bytes) {
    // The job owns the buffer: WebEngine may read it after this returns.
    auto* buffer = new QBuffer(job);
    buffer->setData(bytes);
    job->reply(type, buffer);
  }

  QString path_;
  QByteArray html_;
};

// The view's page: loads only what the editor asks for. A link followed
// or a form sent would replace the page being edited.
class ViewPage : public QWebEnginePage {
 public:
  using QWebEnginePage::QWebEnginePage;

 protected:
  bool acceptNavigationRequest(const QUrl& url, NavigationType type,
                               bool is_main_frame) override {
    if (type == NavigationTypeLinkClicked ||
        type == NavigationTypeFormSubmitted ||
        type == NavigationTypeBackForward) {
      return false;
    }
    // Frames inside the page load what they load in a browser; the page
    // itself is always the editor's.
    return !is_main_frame || url.scheme() == QLatin1String(kScheme);
  }
};

// What the script may call. Each call checks its index against the page
// the view shows: the script is not trusted to be right.
class ViewBridge : public QObject {
  Q_OBJECT

 public:
  explicit ViewBridge(PageWebView* view) : QObject(view), view_(view) {}

  Q_INVOKABLE void ready(int generation) { view_->OnScriptReady(generation); }
  Q_INVOKABLE void blockClicked(int index) { view_->OnBlockClicked(index); }
  Q_INVOKABLE void blockActivated(int index) { view_->OnBlockActivated(index); }
  Q_INVOKABLE void deletePressed(int index) { view_->OnDeletePressed(index); }
  Q_INVOKABLE void scrolled(int generation, int index, double offset,
                            double y) {
    view_->OnScrolled(generation, index, offset, y);
  }

 private:
  PageWebView* view_;
};

void PageWebView::RegisterScheme() {
  QWebEngineUrlScheme scheme(kScheme);
  scheme.setSyntax(QWebEngineUrlScheme::Syntax::Host);
  // The page may name files by file: URLs, as it may when opened from disk.
  scheme.setFlags(QWebEngineUrlScheme::LocalScheme |
                  QWebEngineUrlScheme::LocalAccessAllowed);
  QWebEngineUrlScheme::registerScheme(scheme);
}

PageWebView::PageWebView(QWidget* parent)
    : QWidget(parent),
      engine_(new QWebEngineView(this)),
      // A profile of its own, kept off the disk: nothing of the page
      // outlives the view, two editors never share (or lock) a store,
      // and the view's scheme handler is the only one on it.
      page_(new ViewPage(new QWebEngineProfile(this), engine_)),
      bridge_(new ViewBridge(this)),
      scheme_handler_(new ViewSchemeHandler(this)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(engine_);
  setFocusProxy(engine_);

  // The page's scripts stay off: the page is being edited, not run, and
  // its scripts could rearrange the very blocks the editor points at.
  // The editor's script runs in its own world, which this does not touch.
  page_->settings()->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
  page_->settings()->setAttribute(
      QWebEngineSettings::LocalContentCanAccessFileUrls, true);

  // The web channel's client comes with Qt WebChannel, as a resource.
  QFile channel_js(":/qtwebchannel/qwebchannel.js");
  if (!channel_js.open(QIODevice::ReadOnly)) {
    qWarning("formwiz-editor: no qwebchannel.js; the page view cannot select");
  }
  QWebEngineScript script;
  script.setName("formwiz-view");
  script.setInjectionPoint(QWebEngineScript::DocumentReady);
  script.setWorldId(QWebEngineScript::ApplicationWorld);
  script.setRunsOnSubFrames(false);
  script.setSourceCode(QString::fromUtf8(channel_js.readAll()) +
                       QString::fromUtf8(kViewScript));
  page_->scripts().insert(script);
  QWebEngineScript early;
  early.setName("formwiz-view-early");
  early.setInjectionPoint(QWebEngineScript::DocumentCreation);
  early.setWorldId(QWebEngineScript::ApplicationWorld);
  early.setRunsOnSubFrames(false);
  early.setSourceCode(QString::fromUtf8(kViewEarlyScript));
  page_->scripts().insert(early);

  auto* channel = new QWebChannel(this);
  channel->registerObject("bridge", bridge_);
  page_->setWebChannel(channel, QWebEngineScript::ApplicationWorld);

  page_->profile()->installUrlSchemeHandler(kScheme, scheme_handler_);

  engine_->setPage(page_);
  connect(page_, &QWebEnginePage::loadFinished, this,
          &PageWebView::OnLoadFinished);
}

PageWebView::~PageWebView() {
  // The page goes before its profile and the handler it loads from.
  engine_->setPage(nullptr);
  delete page_;
  page_ = nullptr;
}

void PageWebView::SetBaseFolder(const QString& folder) {
  base_folder_ = folder;
}

void PageWebView::ShowPage(const host::Page& page,
                           std::optional<size_t> current) {
  is_form_.assign(page.blocks.size(), false);
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    is_form_[i] = page.blocks[i].object != nullptr;
  }
  current_ = current && *current < page.blocks.size() ? current : std::nullopt;
  // Where the person has scrolled to; while a render is still loading,
  // the place the last one was to restore.
  if (ready_) {
    scroll_y_ = page_->scrollPosition().y();
    // A report still on its way leaves the last one behind where the view
    // is now: the pixels are then the better guess.
    if (anchor_ && std::abs(anchor_->y - scroll_y_) > kScrollSlack) {
      anchor_.reset();
    }
  }
  ++generation_;
  loaded_ = script_ready_ = ready_ = false;

  const QString folder =
      base_folder_.isEmpty() ? QString(kUnsavedFolder) : base_folder_;
  const QString path = folder + "/" + kUnsavedName;
  const std::string html = ViewHtml(page);
  shown_html_ = QByteArray(html.data(), qsizetype(html.size()));
  scheme_handler_->Set(path, shown_html_);
  // Each render is a new document, so the whole page is laid out as a
  // browser lays it out: a block of someone else's page can restyle what
  // follows it (sibling selectors, counters, floats), which patching one
  // block would miss. The scroll position goes along in the URL.
  QUrl url;
  url.setScheme(kScheme);
  url.setHost(kHost);
  url.setPath(path);
  QUrlQuery query;
  query.addQueryItem("g", QString::number(generation_));
  query.addQueryItem("y", QString::number(scroll_y_));
  if (anchor_) {
    query.addQueryItem("a", QString::number(qulonglong(anchor_->block)));
    query.addQueryItem("o", QString::number(anchor_->offset));
  }
  url.setQuery(query);
  page_->load(url);
}

void PageWebView::SetCurrent(std::optional<size_t> current) {
  if (current && *current >= is_form_.size()) current.reset();
  if (current == current_) return;
  current_ = current;
  PushCurrent(true);
}

void PageWebView::PushCurrent(bool scroll) {
  if (!script_ready_) return;  // the script takes it when it is ready
  const QString code =
      QString("window.formwizView && window.formwizView.setCurrent(%1, %2);")
          .arg(current_ ? qlonglong(*current_) : -1)
          .arg(scroll ? "true" : "false");
  page_->runJavaScript(code, QWebEngineScript::ApplicationWorld);
}

std::optional<size_t> PageWebView::Checked(int index) const {
  if (!ready_ || index < 0 || size_t(index) >= is_form_.size()) return {};
  return size_t(index);
}

void PageWebView::OnScriptReady(int generation) {
  if (generation != generation_) return;
  script_ready_ = true;
  PushCurrent(false);
  MaybeRendered();
}

void PageWebView::OnScrolled(int generation, int index, double offset,
                             double y) {
  if (generation != generation_ || index < 0 ||
      size_t(index) >= is_form_.size() || !std::isfinite(offset) ||
      !std::isfinite(y)) {
    return;
  }
  anchor_ = Anchor{size_t(index), offset, y};
}

void PageWebView::OnLoadFinished(bool ok) {
  // A load that a newer one cut short reports failure; only the newest
  // counts.
  const int shown = QUrlQuery(page_->url()).queryItemValue("g").toInt();
  if (!ok || shown != generation_) return;
  loaded_ = true;
  MaybeRendered();
}

void PageWebView::MaybeRendered() {
  if (ready_ || !loaded_ || !script_ready_) return;
  ready_ = true;
  emit Rendered();
}

void PageWebView::OnBlockClicked(int index) {
  const auto block = Checked(index);
  if (!block) return;
  current_ = block;
  emit BlockSelected(*block);
}

void PageWebView::OnBlockActivated(int index) {
  const auto block = Checked(index);
  if (block && is_form_[*block]) emit BlockActivated(*block);
}

void PageWebView::OnDeletePressed(int index) {
  const auto block = Checked(index);
  if (block) emit DeleteRequested(*block);
}

}  // namespace formwiz::editor

#include "page_web_view.moc"
