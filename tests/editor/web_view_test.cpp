// The rendered page view offscreen: what it shows, what clicks and keys on
// it do, and that it never leaves the page being edited.
#include <gtest/gtest.h>
#include <signal.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineView>
#include <functional>
#include <string>

#include "editor_window.h"
#include "page_view.h"
#include "page_web_view.h"
#include "preview_server.h"

namespace formwiz::editor {
namespace {

constexpr int kWaitMs = 20000;

// Whether `done` comes true within kWaitMs, the event loop turning.
bool Soon(const std::function<bool()>& done) {
  return QTest::qWaitFor(done, kWaitMs);
}

// Runs script in the editor's world and gives its result, waiting at most
// kWaitMs.
QVariant Script(PageWebView& view, const QString& code) {
  QVariant result;
  bool done = false;
  view.engine()->page()->runJavaScript(code, QWebEngineScript::ApplicationWorld,
                                       [&](const QVariant& value) {
                                         result = value;
                                         done = true;
                                       });
  EXPECT_TRUE(Soon([&] { return done; })) << qPrintable(code);
  return result;
}

void ShowAndWait(PageWebView& view, const host::Page& page,
                 std::optional<size_t> current) {
  view.ShowPage(page, current);
  ASSERT_TRUE(Soon([&] { return view.IsReady(); }));
}

// The middle of a block, where the view's widget takes a click.
QPoint Middle(PageWebView& view, size_t index) {
  const QVariantMap rect =
      Script(view, QString("formwizView.rect(%1)").arg(index)).toMap();
  return QPoint(int(rect["x"].toDouble() + rect["width"].toDouble() / 2),
                int(rect["y"].toDouble() + rect["height"].toDouble() / 2));
}

QWidget* Input(PageWebView& view) { return view.engine()->focusProxy(); }

// The tag names of the elements `selector` finds, comma-joined.
QString Tags(PageWebView& view, const QString& selector) {
  return Script(view, QString("[...document.querySelectorAll('%1')]"
                              ".map(e => e.tagName).join()")
                          .arg(selector))
      .toString();
}

// Writes `bytes` to `name` in `dir`; gives the file's path.
QString WriteFile(const QTemporaryDir& dir, const QString& name,
                  const QByteArray& bytes) {
  QFile out(dir.filePath(name));
  EXPECT_TRUE(out.open(QIODevice::WriteOnly));
  out.write(bytes);
  return out.fileName();
}

// Two clicks in a row on one spot, as a person double-clicks. QTest's
// clicks carry times far enough apart never to count as one, and the view
// counts clicks by those times.
void DoubleClick(PageWebView& view, QPoint at) {
  static ulong time = 1000000;
  time += 10000;
  for (const QEvent::Type type :
       {QEvent::MouseButtonPress, QEvent::MouseButtonRelease,
        QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
    QMouseEvent event(
        type, at, Input(view)->mapToGlobal(at), Qt::LeftButton,
        type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton, {});
    event.setTimestamp(time += 20);
    QApplication::sendEvent(Input(view), &event);
  }
}

host::Page FormPage() {
  host::Page page;
  page.blocks.push_back({"Before the form", nullptr});
  auto object = page.document->AddObject();
  object->html_source =
      "<form action=\"/send\" method=\"post\"><input name=\"who\" "
      "value=\"Ann\"><button type=\"submit\">Send</button></form>";
  page.blocks.push_back({"", object});
  page.blocks.push_back({"After the form", nullptr});
  return page;
}

// A view of its own on show.
class PageWebViewTest : public ::testing::Test {
 protected:
  PageWebViewTest() {
    view.resize(800, 600);
    view.show();
  }
  PageWebView view;
};

TEST_F(PageWebViewTest, ShowsTheFormAndMapsClicksAndKeysToBlocks) {
  const host::Page page = FormPage();
  ShowAndWait(view, page, 1);

  EXPECT_EQ(Script(view, "document.querySelector('input[name=who]').value")
                .toString(),
            "Ann");
  EXPECT_EQ(Script(view, "formwizView.blockCount()").toInt(), 3);
  // The current block is outlined, and only it.
  EXPECT_EQ(Tags(view, "[data-formwiz-current]"), "FORM");

  QSignalSpy selected(&view, &PageWebView::BlockSelected);
  QSignalSpy activated(&view, &PageWebView::BlockActivated);
  QSignalSpy deleting(&view, &PageWebView::DeleteRequested);

  QTest::mouseClick(Input(view), Qt::LeftButton, {}, Middle(view, 2));
  ASSERT_TRUE(Soon([&] { return selected.count() == 1; }));
  EXPECT_EQ(selected.at(0).at(0).value<size_t>(), 2u);
  EXPECT_EQ(view.Current(), std::optional<size_t>(2));

  // A paragraph is not reopened; a form is, by double-click or Enter.
  DoubleClick(view, Middle(view, 0));
  DoubleClick(view, Middle(view, 1));
  ASSERT_TRUE(Soon([&] { return activated.count() == 1; }));
  EXPECT_EQ(activated.at(0).at(0).value<size_t>(), 1u);
  QTest::keyClick(Input(view), Qt::Key_Return);
  ASSERT_TRUE(Soon([&] { return activated.count() == 2; }));
  EXPECT_EQ(activated.at(1).at(0).value<size_t>(), 1u);
  QTest::keyClick(Input(view), Qt::Key_Delete);
  ASSERT_TRUE(Soon([&] { return deleting.count() == 1; }));
  EXPECT_EQ(deleting.at(0).at(0).value<size_t>(), 1u);
}

// A page of many paragraphs with a form in the middle that holds a link.
host::Page LongPage() {
  host::Page page;
  for (int i = 0; i < 80; ++i) {
    page.blocks.push_back({"Paragraph " + std::to_string(i), nullptr});
  }
  auto object = page.document->AddObject();
  object->html_source =
      "<form action=\"/send\" method=\"post\"><input name=\"who\">"
      "<button type=\"submit\">Send</button> <a id=\"away\" "
      "href=\"http://127.0.0.1:9/away\">away</a></form>";
  page.blocks.insert(page.blocks.begin() + 40, {"", object});
  return page;
}

// Clicks the element `selector` finds, once it is scrolled into view.
void ClickElement(PageWebView& view, const QString& selector) {
  const QVariantMap rect =
      Script(view, QString("(() => { const e = document.querySelector('%1');"
                           " e.scrollIntoView({block: 'center'});"
                           " const r = e.getBoundingClientRect();"
                           " return {x: r.x + r.width / 2, y: r.y + "
                           "r.height / 2}; })()")
                       .arg(selector))
          .toMap();
  QTest::mouseClick(
      Input(view), Qt::LeftButton, {},
      QPoint(int(rect["x"].toDouble()), int(rect["y"].toDouble())));
}

TEST_F(PageWebViewTest, NothingLeavesThePage) {
  const host::Page page = LongPage();
  ShowAndWait(view, page, std::nullopt);

  // The send button and the link stay in this page: the same document (its
  // script's state is still there), at the same address.
  const QUrl shown = view.engine()->url();
  Script(view, "window.stillHere = true");
  QSignalSpy selected(&view, &PageWebView::BlockSelected);
  ClickElement(view, "button");
  ClickElement(view, "#away");
  ASSERT_TRUE(Soon([&] { return selected.count() == 2; }));
  EXPECT_EQ(selected.at(0).at(0).value<size_t>(), 40u);
  // A navigation, had one started, would have been under way by now.
  QTest::qWait(500);
  EXPECT_EQ(view.engine()->url(), shown);
  EXPECT_TRUE(Script(view, "window.stillHere === true").toBool());
}

// Forms off screen are not laid out and stand in at an estimated height,
// so pixels above the view differ between renders: a render keeps the
// block at the top of the view where it was. The forms above were laid out
// (as when scrolled through) in the first render and are not in the next.
TEST_F(PageWebViewTest, AnEditKeepsTheBlockAtTheTopBelowFormsNotLaidOut) {
  host::Page page;
  for (int i = 0; i < 30; ++i) {
    page.blocks.push_back({"Paragraph " + std::to_string(i), nullptr});
    auto object = page.document->AddObject();
    object->html_source =
        "<form><input name=\"f" + std::to_string(i) + "\"></form>";
    page.blocks.push_back({"", object});
  }
  constexpr size_t kTop = 41;
  ShowAndWait(view, page, std::nullopt);
  Script(view,
         "document.querySelectorAll('form').forEach("
         "f => f.style.contentVisibility = 'visible')");
  Script(view,
         QString("window.scrollBy(0, formwizView.rect(%1).y + 10)").arg(kTop));
  ASSERT_TRUE(Soon([&] { return view.TopBlock() == kTop; }));
  const double before =
      Script(view, QString("formwizView.rect(%1).y").arg(kTop)).toDouble();

  // The edited block is current, off the view: it is not scrolled to.
  page.blocks[0].text = "Edited at the top";
  ShowAndWait(view, page, 0);
  EXPECT_TRUE(
      Script(view, "document.body.innerText.includes('Edited at the top')")
          .toBool());
  // Where the forms above it were laid out, the block would be well off.
  ASSERT_TRUE(Soon([&] { return view.TopBlock() == kTop; }));
  EXPECT_NEAR(
      Script(view, QString("formwizView.rect(%1).y").arg(kTop)).toDouble(),
      before, 1.0);
}

// Runs formwiz with `args`, waiting a bounded time; gives its exit code.
int Formwiz(const QStringList& args) {
  QProcess process;
  process.start(FORMWIZ_BIN, args);
  if (!process.waitForFinished(60000)) {
    process.kill();
    process.waitForFinished();
    return -1;
  }
  return process.exitCode();
}

struct Reply {
  int status = 0;
  QByteArray body;
};

Reply Fetch(const QUrl& url, const QByteArray& post = {}) {
  QNetworkAccessManager network;
  network.setTransferTimeout(kWaitMs);
  QNetworkRequest request(url);
  request.setRawHeader("Accept", "application/json");
  QNetworkReply* reply;
  if (post.isNull()) {
    reply = network.get(request);
  } else {
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      "application/x-www-form-urlencoded");
    reply = network.post(request, post);
  }
  EXPECT_TRUE(Soon([&] { return reply->isFinished(); }));
  Reply got{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
            reply->readAll()};
  delete reply;
  return got;
}

// Someone else's page with the bundled form, put in as a person does on the
// command line (mailing sales@example.org), beside the files it loads.
TEST(PreviewServerTest, ServesThePageAndItsFilesTakesItsFormStartsAgain) {
  QTemporaryDir dir;
  ASSERT_TRUE(QDir(dir.path()).mkpath("site/style"));
  WriteFile(dir, "secret.txt", "outside");
  WriteFile(dir, "site/style/site.css", "p { color: red }");
  WriteFile(dir, "site/logo big.png", "PNG");
  WriteFile(dir, "site/private.txt", "private");
  WriteFile(dir, "site/contact us.html", "the saved page");
  ASSERT_TRUE(
      QFile::link(dir.filePath("secret.txt"), dir.filePath("site/link.css")));
  const QString file = WriteFile(
      dir, "site/contact.html",
      "<!DOCTYPE html>\n<html><head><title>Contact</title>\n"
      "<link rel=stylesheet href=\"style/site.css?v=2\">"
      "<link rel=stylesheet href=\"link.css\"></head>\n<body>\n"
      "<h1>Write to us</h1>\n<p><img src=\"logo%20big.png\" alt=\"\">"
      "<img src=\"../secret.txt\" alt=\"\"><img src=\"/private.txt\" "
      "alt=\"\"><a href=\"private.txt\">p</a></p>\n"
      "<iframe src=\"contact%20us.html\"></iframe>\n</body></html>\n");
  ASSERT_EQ(Formwiz({"page", "insert", file, "--script",
                     FORMWIZ_SOURCE_DIR "/examples/new-form.json"}),
            0);
  QFile page_file(file);
  ASSERT_TRUE(page_file.open(QIODevice::ReadOnly));
  const QByteArray html = page_file.readAll();

  PreviewServer server(FORMWIZ_BIN);
  QString error;
  const QString folder = dir.filePath("site");
  const auto url = server.Publish("contact us.html", html, error, folder);
  ASSERT_TRUE(url) << error.toStdString();
  EXPECT_EQ(url->host(), "127.0.0.1");
  const struct {
    const char* path;
    const char* body;  // null: not served
  } cases[] = {
      {"contact%20us.html", html.constData()},  // the edited page, not its file
      {"style/site.css", "p { color: red }"},
      {"logo%20big.png", "PNG"},
      {"link.css", nullptr},  // leads out of the folder
      {"secret.txt", nullptr},
      {"private.txt", nullptr},  // only linked to, or named from the root
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    const Reply reply = Fetch(url->resolved(QUrl(c.path)));
    EXPECT_EQ(reply.status, c.body ? 200 : 404);
    if (c.body) {
      EXPECT_EQ(reply.body, c.body);
    }
  }
  // The form is sent as a browser sends it, and kept.
  const Reply sent =
      Fetch(url->resolved(QUrl("/cgi-bin/formmail")),
            "qln_EmailTo=sales%40example.org&FullName=Ann&Email=ann%40"
            "example.org&Request=A+catalog");
  EXPECT_EQ(sent.status, 200) << sent.body.toStdString();
  EXPECT_TRUE(sent.body.contains("\"id\"")) << sent.body.toStdString();

  // The same page again: the same server, with the files as they are now.
  // A server that died is started again; so is one whose page changed (it
  // reads the page's recipients when it starts).
  const qint64 first = server.ProcessId();
  WriteFile(dir, "site/style/site.css", "p { color: blue }");
  EXPECT_EQ(server.Publish("contact us.html", html, error, folder), url);
  EXPECT_EQ(server.ProcessId(), first);
  EXPECT_EQ(Fetch(url->resolved(QUrl("style/site.css"))).body,
            "p { color: blue }");
  ::kill(pid_t(first), SIGKILL);
  ASSERT_TRUE(Soon([&] { return !server.IsRunning(); }));
  const auto again = server.Publish("contact us.html", html, error);
  ASSERT_TRUE(again) << error.toStdString();
  EXPECT_EQ(Fetch(*again).body, html);
  const qint64 second = server.ProcessId();
  const auto changed =
      server.Publish("contact us.html", html + "<!-- more -->", error);
  ASSERT_TRUE(changed) << error.toStdString();
  EXPECT_NE(server.ProcessId(), second);
  EXPECT_EQ(Fetch(*changed).body, html + "<!-- more -->");
  server.Stop();
  EXPECT_FALSE(server.IsRunning());
}

// The window says why there is no preview: here, with no formwiz program
// beside the test, the server cannot start; and a program that is no
// server does not say where it listens.
class ErrorWindow : public EditorWindow {
 public:
  ErrorWindow() : EditorWindow({}) {}
  QStringList errors;

 protected:
  void ShowError(const QString&, const QString& text) override {
    errors << text;
  }
};

TEST(PreviewServerTest, SaysWhyItCannotStart) {
  ErrorWindow window;
  window.OpenInBrowser();
  ASSERT_EQ(window.errors.size(), 1);
  EXPECT_TRUE(window.errors[0].contains("formwiz"))
      << window.errors[0].toStdString();

  QString error;
  PreviewServer not_a_server("/bin/true");
  EXPECT_FALSE(not_a_server.Publish("page.html", "<p>x</p>", error));
  EXPECT_TRUE(error.contains("did not start")) << error.toStdString();
}

// Someone else's page in the window: its stylesheet beside the file
// applies, its scripts do not run, its blocks are the top-level elements of
// its body. The page and the outline show the same current block, and
// Delete in the page deletes it as one step that can be undone.
TEST(EditorWebViewTest, ShowsTheFileAsItLooksAndSharesTheCurrentBlock) {
  QTemporaryDir dir;
  WriteFile(dir, "site.css", "h1 { color: rgb(1, 2, 3); }");
  const QString file =
      WriteFile(dir, "page.html",
                "<!DOCTYPE html>\n<html><head><title>Shop</title>\n"
                "<link rel=\"stylesheet\" href=\"site.css\">\n"
                "<script>document.title = 'ran';</script>\n</head>\n<body>\n"
                "<h1>Tools</h1>\n<!-- between -->\n<p>Open <b>daily</b></p>\n"
                "<div id=\"three\">Map</div>\n</body>\n</html>\n");
  ErrorWindow window;
  window.resize(1000, 700);
  window.show();
  ASSERT_TRUE(window.OpenFile(file)) << window.errors.join("").toStdString();
  PageWebView& web = *window.web_view();
  ASSERT_TRUE(Soon([&] { return web.IsReady(); }));
  EXPECT_EQ(Script(web, "getComputedStyle(document.querySelector('h1')).color")
                .toString(),
            "rgb(1, 2, 3)");
  EXPECT_EQ(Script(web, "document.title").toString(), "Shop");
  EXPECT_EQ(Tags(web, "[data-formwiz-block]"), "H1,P,DIV");

  QTest::mouseClick(Input(web), Qt::LeftButton, {}, Middle(web, 1));
  ASSERT_TRUE(Soon([&] { return window.view()->Current() == 1u; }));
  window.view()->FocusBlock(2);
  EXPECT_TRUE(Soon([&] {
    return Script(web, "document.querySelector('[data-formwiz-current]')?.id")
               .toString() == "three";
  }));

  QTest::mouseClick(Input(web), Qt::LeftButton, {}, Middle(web, 0));
  ASSERT_TRUE(Soon([&] { return window.view()->Current() == 0u; }));
  QTest::keyClick(Input(web), Qt::Key_Delete);
  ASSERT_TRUE(Soon([&] { return window.page().blocks.size() == 2; }));
  ASSERT_TRUE(Soon([&] {
    return web.IsReady() &&
           Script(web, "document.querySelector('h1') === null").toBool();
  }));
  window.undo_stack()->undo();
  EXPECT_EQ(window.page().blocks.size(), 3u);
}

}  // namespace
}  // namespace formwiz::editor
