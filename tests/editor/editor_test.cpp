// The editor's window on real page files and on someone else's page,
// offscreen, with the questions it asks a person answered by the test.
#include <gtest/gtest.h>

#include <QDialogButtonBox>
#include <QDropEvent>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUndoStack>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "../qt_test_support.h"
#include "component/identity.h"
#include "editor_window.h"
#include "formdoc/parse_ahead.h"
#include "page_properties.h"
#include "page_view.h"
#include "page_web_view.h"

namespace formwiz::editor {
namespace {

namespace fs = std::filesystem;

const fs::path kOrbs = fs::path(FORMWIZ_SOURCE_DIR) / "orbs";

// The recent files go to a folder of the test's own, never to the
// settings of the person who runs it.
class IsolatedSettings : public ::testing::Environment {
 public:
  void SetUp() override {
    QStandardPaths::setTestModeEnabled(true);
    dir_ = std::make_unique<QTemporaryDir>();
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       dir_->path());
  }
  void TearDown() override { dir_.reset(); }
  static QString Folder() { return dir_->path(); }

 private:
  static inline std::unique_ptr<QTemporaryDir> dir_;
};
[[maybe_unused]] ::testing::Environment* const kSettings =
    ::testing::AddGlobalTestEnvironment(new IsolatedSettings);

// The window's page view has a URL scheme that Qt WebEngine must know
// before the shared main makes the application.
[[maybe_unused]] const bool kSchemeRegistered =
    (PageWebView::RegisterScheme(), true);

class TestWindow : public EditorWindow {
 public:
  TestWindow() : EditorWindow({}) {}
  std::deque<QMessageBox::StandardButton> answers;
  int questions = 0;
  int save_paths_asked = 0;
  QStringList errors;
  bool open_changed = false;
  QStringList changed;  // what each question about a changed file said

 protected:
  QMessageBox::StandardButton AskSaveChanges() override {
    ++questions;
    if (answers.empty()) return QMessageBox::Cancel;
    const auto answer = answers.front();
    answers.pop_front();
    return answer;
  }
  void ShowError(const QString&, const QString& text) override {
    errors << text;
  }
  QString AskSavePath() override {
    ++save_paths_asked;
    return {};
  }
  bool AskOpenChanged(const QString&, const QString& why) override {
    changed << why;
    return open_changed;
  }
};

std::string ReadText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
std::vector<uint8_t> ReadBytes(const fs::path& file) {
  const std::string text = ReadText(file);
  return {text.begin(), text.end()};
}

// A page of a paragraph, a form object with the bundled picture and a
// second paragraph, saved to `file`; gives the file's text.
std::string WriteSamplePage(const QString& file) {
  host::Page page;
  auto object = page.document->AddObject();
  object->prog_id = kProgId;
  object->display_name = "Contact us";
  object->html_source = "<form action=\"x\"><input name=\"a\"></form>";
  object->html_data = Variant::String("<impl><form></form></impl>");
  object->html_picture = ReadBytes(kOrbs / "form" / "form.png");
  page.blocks = {
      {"Before the form", nullptr}, {"", object}, {"After", nullptr}};
  const std::string text = host::WritePageFile(page);
  std::ofstream(file.toStdString(), std::ios::binary) << text;
  return text;
}

QString ParagraphText(PageView& view, size_t index) {
  return view.Row(index)->findChild<QLineEdit*>()->text();
}

void ShowActive(QWidget& window) {
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
}

// A window on the sample page, saved in a folder of the test's own; active,
// for the keys that go through the focus.
class EditorWindowTest : public ::testing::Test {
 protected:
  void OpenSample() {
    text = WriteSamplePage(file);
    ShowActive(window);
    ASSERT_TRUE(window.OpenFile(file))
        << window.errors.join("\n").toStdString();
  }
  QTemporaryDir dir;
  const QString file = dir.filePath("page.html");
  std::string text;
  TestWindow window;
};

// Acts on File ▸ Properties once its modal dialog is up, from the event
// loop of its exec().
void WhenPropertiesShown(QObject* context,
                         std::function<void(PagePropertiesDialog&)> act) {
  QTimer::singleShot(10, context, [context, act] {
    auto* dialog =
        qobject_cast<PagePropertiesDialog*>(QApplication::activeModalWidget());
    if (dialog == nullptr) return WhenPropertiesShown(context, act);
    act(*dialog);
  });
}

TEST_F(EditorWindowTest, OpensEditsDeletesAndAsksBeforeOpeningAChangedFile) {
  OpenSample();
  PageView& view = *window.view();

  ASSERT_EQ(view.BlockCount(), 3u);
  EXPECT_EQ(ParagraphText(view, 0), "Before the form");
  EXPECT_EQ(view.Row(1)->findChild<QLabel*>("name")->text(), "Contact us");
  EXPECT_FALSE(view.Row(1)->findChild<QLabel*>("picture")->pixmap().isNull());
  EXPECT_TRUE(window.web_view()->ShownHtml().contains("After"));
  EXPECT_FALSE(window.IsModified());

  // Typing reaches the page; deleting the object takes it from the document.
  view.FocusBlock(2);
  QTest::keyClicks(view.Row(2)->findChild<QLineEdit*>(), " all");
  // Delete in a paragraph edits its text; it deletes no block.
  QTest::keyClick(view.Row(2)->findChild<QLineEdit*>(), Qt::Key_Home);
  QTest::keyClick(view.Row(2)->findChild<QLineEdit*>(), Qt::Key_Delete);
  EXPECT_EQ(window.page().blocks[2].text, "fter all");
  ASSERT_EQ(window.page().blocks.size(), 3u);
  view.FocusBlock(1);
  QTest::keyClick(view.Row(1), Qt::Key_Delete);
  ASSERT_EQ(view.BlockCount(), 2u);
  EXPECT_TRUE(window.page().document->objects.empty());
  EXPECT_EQ(ParagraphText(view, 1), "fter all");

  // Cancel keeps the page; Save writes it to its file and goes on.
  window.answers = {QMessageBox::Cancel, QMessageBox::Save};
  EXPECT_FALSE(window.close());
  EXPECT_EQ(window.page().blocks.size(), 2u);
  window.NewPage();
  EXPECT_EQ(window.questions, 2);
  EXPECT_TRUE(window.page().blocks.empty());

  ASSERT_TRUE(window.OpenFile(file));
  EXPECT_EQ(window.page().blocks.back().text, "fter all");
  // Discard drops the changes without writing them.
  window.InsertParagraph();
  window.answers = {QMessageBox::Discard};
  window.NewPage();
  EXPECT_EQ(window.questions, 3);
  ASSERT_TRUE(window.OpenFile(file));
  EXPECT_EQ(window.page().blocks.size(), 2u);

  // A page file cut short is no page file: the person is asked, with the
  // page file reader's reason, before it opens as an HTML page; Cancel
  // keeps the page open now.
  const std::string cut = text.substr(0, text.find("<form") + 3);
  const QString bad = dir.filePath("bad.html");
  std::ofstream(bad.toStdString(), std::ios::binary) << cut;
  host::Page probe;
  std::string reason;
  ASSERT_FALSE(host::ReadPageFile(cut, probe, reason));
  EXPECT_FALSE(window.OpenFile(bad));
  ASSERT_EQ(window.changed.size(), 1);
  EXPECT_TRUE(window.changed[0].contains(QString::fromStdString(reason)));
  EXPECT_EQ(window.page().blocks.size(), 2u);
  EXPECT_EQ(window.path(), QFileInfo(file).absoluteFilePath());
  window.open_changed = true;
  ASSERT_TRUE(window.OpenFile(bad));
  EXPECT_EQ(window.path(), QFileInfo(bad).absoluteFilePath());
  EXPECT_TRUE(window.page().frame);
  EXPECT_EQ(window.page().blocks[0].text, "Before the form");
  EXPECT_TRUE(window.errors.isEmpty());

  // A page without a title says so, and has nothing to change.
  const QString plain = dir.filePath("plain.html");
  std::ofstream(plain.toStdString())
      << "<section>\n<h2>Contact</h2>\n</section>\n";
  ASSERT_TRUE(window.OpenFile(plain)) << window.errors.join("\n").toStdString();
  WhenPropertiesShown(&window, [](PagePropertiesDialog& dialog) {
    EXPECT_FALSE(dialog.title_edit()->isEnabled());
    EXPECT_TRUE(dialog.problem()->text().contains("no <title>"));
    EXPECT_EQ(dialog.buttons()->button(QDialogButtonBox::Ok), nullptr);
    dialog.accept();
  });
  window.EditProperties();
  EXPECT_FALSE(window.undo_stack()->canUndo());
  EXPECT_FALSE(window.IsModified());
}

// What undo must give back: the page as it would be saved, and its
// document's objects in their order.
std::string Snapshot(const host::Page& page) {
  std::string out = host::WritePage(page);
  for (const auto& object : page.document->objects) {
    out += "|" + object->display_name.value_or("?");
  }
  return out;
}

// A key as a person presses it: to whatever has the focus, so that the
// shortcuts of the window and the widget's own keys meet as they do; to the
// window when a dialog has just closed and nothing has it yet.
void Press(QWidget& window, QKeyCombination key) {
  QWidget* target = QApplication::focusWidget();
  QTest::keyClick(target ? target : &window, key.key(),
                  key.keyboardModifiers());
}

QAction* ActionWithShortcut(QWidget& window, const QKeySequence& keys) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->shortcuts().contains(keys)) return action;
  }
  return nullptr;
}

// Drags the row of block `from` onto the outline at `at` (canvas
// coordinates), through the events a real drop sends.
void DropRow(PageView& view, size_t from, QPoint at) {
  view.canvas()->layout()->activate();
  const std::unique_ptr<QMimeData> mime(PageView::MimeFor(from));
  QDragEnterEvent enter(at, Qt::MoveAction, mime.get(), Qt::LeftButton, {});
  QApplication::sendEvent(view.canvas(), &enter);
  QDragMoveEvent move(at, Qt::MoveAction, mime.get(), Qt::LeftButton, {});
  QApplication::sendEvent(view.canvas(), &move);
  QDropEvent drop(at, Qt::MoveAction, mime.get(), Qt::LeftButton, {});
  QApplication::sendEvent(view.canvas(), &drop);
}

QPoint BelowLastRow(PageView& view) {
  view.canvas()->layout()->activate();
  return {10, view.Row(view.BlockCount() - 1)->geometry().bottom() + 2};
}

TEST_F(EditorWindowTest, EachStepHasItsNameAndUndoGivesBackEachPage) {
  OpenSample();
  PageView& view = *window.view();
  QUndoStack& stack = *window.undo_stack();
  // File ▸ Properties, the window active again after it, as for a person.
  const auto properties = [&](std::function<void(PagePropertiesDialog&)> act) {
    WhenPropertiesShown(&window, act);
    window.EditProperties();
    ShowActive(window);
  };
  std::vector<std::string> pages = {Snapshot(window.page())};
  // Cancel keeps the title, typed or not: no step.
  properties([](PagePropertiesDialog& dialog) {
    EXPECT_TRUE(dialog.isModal());
    EXPECT_EQ(dialog.Title(), "Page");
    dialog.title_edit()->setText("Something else");
    dialog.reject();
  });
  EXPECT_TRUE(Snapshot(window.page()) == pages[0]);
  // OK is there only for a title with something to read.
  const QString title = QString::fromUtf8("Ask <for> our caf\xC3\xA9 & more");
  const auto retitle = [&](PagePropertiesDialog& dialog) {
    QPushButton* ok = dialog.buttons()->button(QDialogButtonBox::Ok);
    dialog.title_edit()->clear();
    EXPECT_FALSE(ok->isEnabled());
    // Typed as far as QTest types; the rest pasted.
    QTest::keyClicks(dialog.title_edit(), "Ask <for> our caf");
    dialog.title_edit()->insert(title.mid(17));
    EXPECT_TRUE(ok->isEnabled());
    QTest::mouseClick(ok, Qt::LeftButton);
  };
  struct Step {
    const char* name;
    std::function<void()> act;
  };
  // Blocks: Before the form, Contact us, After.
  const std::vector<Step> steps = {
      {"Insert Paragraph",
       [&] {
         view.FocusBlock(0);
         Press(window, Qt::CTRL | Qt::Key_Return);
       }},
      // Three keys, one step.
      {"Typing", [&] { QTest::keyClicks(QApplication::focusWidget(), "new"); }},
      {"Move Down", [&] { Press(window, Qt::ALT | Qt::Key_Down); }},
      {"Move Up", [&] { Press(window, Qt::ALT | Qt::Key_Up); }},
      {"Move Paragraph", [&] { DropRow(view, 0, BelowLastRow(view)); }},
      {"Delete Contact us",
       [&] {
         view.FocusBlock(1);
         Press(window, QKeyCombination(Qt::Key_Delete));
       }},
      {"Change Title", [&] { properties(retitle); }},
  };
  for (size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE(steps[i].name);
    steps[i].act();
    ASSERT_EQ(stack.count(), static_cast<int>(i + 1));
    EXPECT_EQ(stack.undoText(), steps[i].name);
    EXPECT_TRUE(window.IsModified());
    pages.push_back(Snapshot(window.page()));
    EXPECT_TRUE(pages.back() != pages[pages.size() - 2]);
  }
  const auto& blocks = window.page().blocks;
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(blocks[0].text, "new");
  EXPECT_EQ(blocks[2].text, "Before the form");
  EXPECT_TRUE(window.page().document->objects.empty());
  EXPECT_EQ(window.page().title, title.toStdString());
  // Neither a drop on the row's own place nor a title as it is makes a step.
  DropRow(view, 1, view.Row(1)->geometry().center());
  properties(retitle);
  EXPECT_EQ(stack.count(), static_cast<int>(steps.size()));

  QAction* undo =
      ActionWithShortcut(window, QKeySequence(Qt::CTRL | Qt::Key_Z));
  QAction* redo =
      ActionWithShortcut(window, QKeySequence(Qt::CTRL | Qt::Key_Y));
  ASSERT_NE(undo, nullptr);
  ASSERT_NE(redo, nullptr);
  EXPECT_TRUE(redo->shortcuts().contains(
      QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)));
  for (size_t i = steps.size(); i-- > 0;) {
    SCOPED_TRACE(steps[i].name);
    EXPECT_EQ(undo->text().toStdString(),
              std::string("&Undo ") + steps[i].name);
    Press(window, Qt::CTRL | Qt::Key_Z);
    EXPECT_TRUE(Snapshot(window.page()) == pages[i]);
    EXPECT_EQ(redo->text().toStdString(),
              std::string("&Redo ") + steps[i].name);
  }
  EXPECT_FALSE(window.IsModified());
  EXPECT_FALSE(undo->isEnabled());
  for (size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE(steps[i].name);
    Press(window, i % 2 ? QKeyCombination(Qt::CTRL | Qt::Key_Y)
                        : QKeyCombination(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    EXPECT_TRUE(Snapshot(window.page()) == pages[i + 1]);
  }
  // The outline follows: the rows are those of the page.
  ASSERT_EQ(view.BlockCount(), 3u);
  EXPECT_EQ(ParagraphText(view, 0), "new");

  // Keys merge within one paragraph only, and not across the saved state.
  const int base = stack.count();
  struct Typing {
    size_t block;
    QString keys;
    int steps_after;
  };
  const std::vector<Typing> typings = {
      {0, "ab", 1},
      {2, "cd", 2},
      // The same paragraph as the first, but after another: a new step.
      {0, "ef", 3},
      {0, "gh", 3},
      // A key typed and taken back is no step at all.
      {2, "x\b", 3},
  };
  for (const Typing& typing : typings) {
    SCOPED_TRACE(typing.keys.toStdString());
    view.FocusBlock(typing.block);
    auto* edit = view.Row(typing.block)->findChild<QLineEdit*>();
    edit->end(false);
    QTest::keyClicks(edit, typing.keys);
    EXPECT_EQ(stack.count(), base + typing.steps_after);
  }
  EXPECT_EQ(window.page().blocks[0].text, "newabefgh");
  stack.undo();
  EXPECT_EQ(window.page().blocks[0].text, "newab");
  EXPECT_EQ(ParagraphText(view, 0), "newab");
  // The saved state is a border: typing after it is a step of its own, and
  // undoing that is the saved page again.
  stack.redo();
  ASSERT_TRUE(window.Save());
  view.FocusBlock(0);
  QTest::keyClicks(view.Row(0)->findChild<QLineEdit*>(), "i");
  EXPECT_EQ(stack.count(), base + 4);
  EXPECT_TRUE(window.IsModified());
  stack.undo();
  EXPECT_FALSE(window.IsModified());
}

// Someone else's page, with what such pages hold around their blocks: a
// head with a script and a style, CR LF line ends, a comment, non-ASCII.
const std::string kForeignPage =
    "<!DOCTYPE html>\r\n<html lang=\"fr\">\r\n<head>\r\n"
    "<meta charset=\"utf-8\">\r\n<title>Caf\xC3\xA9 du Port</title>\r\n"
    "<style>h1 { color: teal }</style>\r\n"
    "<script>var opened = 9;</script>\r\n</head>\r\n"
    "<body class=\"home\">\r\n<h1>Bienvenue</h1>\r\n<!-- the hours -->\r\n"
    "<p>Ouvert <b>tous</b> les jours.</p>\r\n"
    "<div class=\"map\">Plan d'acc\xC3\xA8s</div>\r\n</body>\r\n</html>\r\n";

// Drives the wizard: opened on the last step (an edit) it goes back to the
// address first; Finish with `address`.
void FinishWithAddress(qtui::Person& person, bool reopened,
                       const char* address) {
  person.At("frmWizard", [=](qtui::FormView& wizard) {
    const char* moves[] = {"optForm(1)", "cmdNav(3)"};
    if (reopened) moves[0] = moves[1] = "cmdNav(2)";
    for (const char* move : moves) qtui::Click(wizard, move);
    auto* box = qtui::Get<QLineEdit>(wizard, "txtEmailAddr");
    box->selectAll();
    QTest::keyClicks(box, address);
    qtui::Click(wizard, "cmdNav(4)");
  });
}

TEST_F(EditorWindowTest, AForeignPageComesBackByteForByteOnceAllIsUndone) {
  std::ofstream(file.toStdString(), std::ios::binary) << kForeignPage;
  ShowActive(window);
  ASSERT_TRUE(window.OpenFile(file)) << window.errors.join("\n").toStdString();
  PageView& view = *window.view();
  QUndoStack& stack = *window.undo_stack();
  const auto& blocks = window.page().blocks;
  ASSERT_EQ(blocks.size(), 3u);
  // Each block of the page is a row of its own, summed up, never typed in.
  for (size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_TRUE(blocks[i].source.has_value());
    EXPECT_EQ(view.Row(i)->findChild<QLineEdit*>(), nullptr);
  }
  EXPECT_EQ(view.Row(1)->findChild<QLabel*>("tag")->text(), "<p>");
  EXPECT_EQ(view.Row(1)->findChild<QLabel*>("words")->text(),
            "Ouvert tous les jours.");

  // The bundled form after the current block, with its picture.
  view.FocusBlock(0);
  qtui::Person person;
  FinishWithAddress(person, false, "port@example.org");
  window.InsertOrb(kOrbs / "form" / "form.qlo");
  ASSERT_TRUE(person.Done());
  ASSERT_EQ(blocks.size(), 4u);
  const std::shared_ptr<host::PageObject> form = blocks[1].object;
  ASSERT_NE(form, nullptr);
  EXPECT_EQ(form->display_name, "Form");
  EXPECT_EQ(form->html_picture, ReadBytes(kOrbs / "form" / "form.png"));
  EXPECT_EQ(view.Current(), 1u);
  EXPECT_EQ(stack.undoText(), "Insert Form");
  // After each change the stored definition is parsed ahead again, so that
  // the next open finds it ready.
  const auto parsed_ahead = [&] {
    window.definitions_ahead().Wait();
    std::string text;
    return form->html_data->ToText(text) && IsParsedAhead(text);
  };
  EXPECT_TRUE(parsed_ahead());

  // A double-click opens it again; closing the wizard is no step.
  const std::string inserted = *form->html_source;
  const int steps = stack.count();
  qtui::Person closer;
  closer.At("frmWizard", [](qtui::FormView& wizard) { wizard.close(); });
  QTest::mouseDClick(view.Row(1), Qt::LeftButton);
  EXPECT_TRUE(closer.Done());
  EXPECT_EQ(form->html_source, inserted);
  EXPECT_EQ(stack.count(), steps);
  EXPECT_TRUE(parsed_ahead());
  // Finished with another address: one step, undone and redone.
  qtui::Person editor;
  FinishWithAddress(editor, true, "orders@example.org");
  window.EditObject();
  EXPECT_TRUE(editor.Done());
  const std::string changed = *form->html_source;
  EXPECT_NE(changed.find("orders@example.org"), std::string::npos);
  ASSERT_EQ(stack.count(), steps + 1);
  EXPECT_EQ(stack.undoText(), "Edit Form");
  stack.undo();
  EXPECT_EQ(form->html_source, inserted);
  EXPECT_TRUE(parsed_ahead());
  stack.redo();
  EXPECT_EQ(form->html_source, changed);
  ShowActive(window);

  // A paragraph after it; the map moved up above the opening hours.
  const ObjectState defined = ObjectState::Of(*form);
  window.InsertParagraph();
  QTest::keyClicks(view.Row(2)->findChild<QLineEdit*>(), "Appelez-nous");
  view.FocusBlock(4);
  Press(window, Qt::ALT | Qt::Key_Up);
  ASSERT_EQ(blocks.size(), 5u);
  EXPECT_EQ(blocks[2].text, "Appelez-nous");
  EXPECT_EQ(view.Row(3)->findChild<QLabel*>("tag")->text(), "<div>");
  const std::string edited = host::WritePage(window.page());
  EXPECT_NE(edited.find("<script>var opened = 9;</script>\r\n"),
            std::string::npos);

  // The form deleted and brought back: the same object with the same
  // definition, at its place and in the document.
  view.FocusBlock(1);
  Press(window, QKeyCombination(Qt::Key_Delete));
  ASSERT_EQ(blocks.size(), 4u);
  EXPECT_TRUE(window.page().document->objects.empty());
  Press(window, Qt::CTRL | Qt::Key_Z);
  ASSERT_EQ(blocks.size(), 5u);
  EXPECT_EQ(blocks[1].object, form);
  EXPECT_TRUE(ObjectState::Of(*form) == defined);
  EXPECT_EQ(window.page().document->objects,
            std::vector<std::shared_ptr<host::PageObject>>{form});
  EXPECT_EQ(host::WritePage(window.page()), edited);
  Press(window, Qt::CTRL | Qt::Key_Y);
  EXPECT_TRUE(window.page().document->objects.empty());

  WhenPropertiesShown(&window, [](PagePropertiesDialog& dialog) {
    EXPECT_TRUE(dialog.title_edit()->isEnabled());
    EXPECT_EQ(dialog.Title(), QString::fromUtf8("Caf\xC3\xA9 du Port"));
    dialog.title_edit()->setText("Contact");
    dialog.accept();
  });
  window.EditProperties();
  ShowActive(window);
  EXPECT_EQ(window.page().title, "Contact");

  // Everything undone: the page is as it was opened, and saves as the very
  // same bytes.
  while (stack.canUndo()) Press(window, Qt::CTRL | Qt::Key_Z);
  EXPECT_FALSE(window.IsModified());
  ASSERT_TRUE(window.Save());
  EXPECT_EQ(ReadText(file.toStdString()), kForeignPage);
  EXPECT_TRUE(window.errors.isEmpty());
}

TEST(EditorFilesTest, RecentFilesKeepTheLastEightAndDropVanishedOnes) {
  QTemporaryDir dir;
  // Never the person's own settings.
  ASSERT_TRUE(QSettings("formwiz", "formwiz-editor")
                  .fileName()
                  .startsWith(IsolatedSettings::Folder()));
  QStringList files;
  for (int i = 0; i < 10; ++i) {
    files << QFileInfo(dir.filePath(QString("page%1.html").arg(i)))
                 .absoluteFilePath();
    WriteSamplePage(files.back());
  }
  {
    TestWindow window;
    for (const QString& file : files) ASSERT_TRUE(window.OpenFile(file));
    // Opened again: to the top, once.
    ASSERT_TRUE(window.OpenFile(files[5]));
  }
  TestWindow window;
  const QStringList expected = {files[5], files[9], files[8], files[7],
                                files[6], files[4], files[3], files[2]};
  EXPECT_EQ(window.RecentFiles(), expected);
  QMenu* recent = nullptr;
  for (QMenu* candidate : window.findChildren<QMenu*>()) {
    if (candidate->title() == "Open &Recent") recent = candidate;
  }
  ASSERT_NE(recent, nullptr);
  ASSERT_EQ(recent->actions().size(), EditorWindow::kRecentFileCount);

  // Chosen from the menu: opened.
  recent->actions()[2]->trigger();
  EXPECT_EQ(window.path(), files[8]);
  // A file that has gone is taken off, and the page stays.
  ASSERT_TRUE(QFile::remove(files[7]));
  window.OpenRecent(files[7]);
  ASSERT_EQ(window.errors.size(), 1);
  EXPECT_TRUE(window.errors[0].contains("page7.html"));
  EXPECT_EQ(window.path(), files[8]);
  EXPECT_FALSE(window.RecentFiles().contains(files[7]));
  EXPECT_EQ(recent->actions().size(), EditorWindow::kRecentFileCount - 1);
}

TEST(EditorFilesTest, APathThatIsNotThereStartsANewPageSavedThere) {
  QTemporaryDir dir;
  const QString fresh = dir.filePath("NEW.html");
  ASSERT_TRUE(QDir(dir.path()).mkdir("folder"));
  ASSERT_TRUE(
      QFile::link(dir.filePath("nowhere.html"), dir.filePath("dangling.html")));
  struct Case {
    QString path;
    bool started;
  };
  const std::vector<Case> cases = {
      {fresh, true},
      {dir.filePath("missing/NEW.html"), false},
      // There, but no page to read.
      {dir.filePath("folder"), false},
      {dir.filePath("dangling.html"), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path.toStdString());
    TestWindow window;
    window.show();
    EXPECT_EQ(window.OpenOrStart(c.path), c.started);
    EXPECT_EQ(window.errors.size(), c.started ? 0 : 1);
    EXPECT_EQ(window.path(),
              c.started ? QFileInfo(c.path).absoluteFilePath() : QString());
    EXPECT_TRUE(window.page().blocks.empty());
    EXPECT_FALSE(window.IsModified());
    if (!c.started) continue;
    EXPECT_FALSE(QFileInfo::exists(fresh));
    window.InsertParagraph();
    QTest::keyClicks(window.view()->Row(0)->findChild<QLineEdit*>(), "Hello");
    ASSERT_TRUE(window.Save());
    EXPECT_EQ(window.save_paths_asked, 0);
    EXPECT_NE(ReadText(fresh.toStdString()).find("Hello"), std::string::npos);
  }
}

}  // namespace
}  // namespace formwiz::editor
