// The editor's window on real page files, offscreen, with the questions it
// asks a person answered by the test.
#include <gtest/gtest.h>

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "../qt_test_support.h"
#include "component/identity.h"
#include "editor_window.h"
#include "host/orb_catalog.h"
#include "page_properties.h"
#include "page_view.h"

namespace formwiz::editor {
namespace {

namespace fs = std::filesystem;

const fs::path kOrbs = fs::path(FORMWIZ_SOURCE_DIR) / "orbs";

class TestWindow : public EditorWindow {
 public:
  TestWindow() : EditorWindow({}) {}
  std::deque<QMessageBox::StandardButton> answers;
  int questions = 0;
  QStringList errors;

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
};

std::vector<uint8_t> ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
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

TEST(EditorWindowTest, OpensEditsDeletesAsksAndRefusesADamagedFile) {
  QTemporaryDir dir;
  const QString file = dir.filePath("page.html");
  const std::string text = WriteSamplePage(file);
  TestWindow window;
  window.show();
  ASSERT_TRUE(window.OpenFile(file)) << window.errors.join("\n").toStdString();
  PageView& view = *window.view();

  ASSERT_EQ(view.BlockCount(), 3u);
  EXPECT_EQ(ParagraphText(view, 0), "Before the form");
  EXPECT_EQ(view.Row(1)->findChild<QLabel*>("name")->text(), "Contact us");
  EXPECT_FALSE(view.Row(1)->findChild<QLabel*>("picture")->pixmap().isNull());
  EXPECT_TRUE(window.preview()->toPlainText().contains("After"));
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

  // A file cut inside the object's markers is refused with the reader's
  // reason, and the page stays.
  const std::string damaged = text.substr(0, text.find("<form") + 3);
  const QString bad = dir.filePath("bad.html");
  std::ofstream(bad.toStdString(), std::ios::binary) << damaged;
  host::Page probe;
  std::string reason;
  ASSERT_FALSE(host::ReadPageFile(damaged, probe, reason));
  EXPECT_FALSE(window.OpenFile(bad));
  ASSERT_EQ(window.errors.size(), 1);
  EXPECT_TRUE(window.errors[0].contains(QString::fromStdString(reason)));
  EXPECT_EQ(window.page().blocks.size(), 2u);
  EXPECT_EQ(window.path(), QFileInfo(file).absoluteFilePath());
}

TEST(EditorWindowTest, InsertsTheBundledOrbAfterTheCurrentBlock) {
  TestWindow window;
  window.show();
  window.InsertParagraph();
  window.InsertParagraph();
  window.view()->FocusBlock(0);
  qtui::Person person;
  person.At("frmWizard", [](qtui::FormView& view) {
    qtui::Click(view, "optForm(1)");
    qtui::Click(view, "cmdNav(3)");
    QTest::keyClicks(qtui::Get<QLineEdit>(view, "txtEmailAddr"),
                     "sales@example.org");
    for (const char* next : {"cmdNav(3)", "cmdNav(3)", "cmdNav(4)"}) {
      qtui::Click(view, next);
    }
  });
  window.InsertOrb(kOrbs / "form" / "form.qlo");
  EXPECT_TRUE(person.Done());

  const auto& blocks = window.page().blocks;
  ASSERT_EQ(blocks.size(), 3u);
  ASSERT_NE(blocks[1].object, nullptr);
  EXPECT_EQ(blocks[1].object->display_name, "Form");
  EXPECT_EQ(blocks[1].object->html_picture,
            ReadBytes(kOrbs / "form" / "form.png"));
  EXPECT_EQ(window.view()->Current(), 1u);

  // A double-click opens the object again; closing the wizard keeps it.
  const std::string html = *blocks[1].object->html_source;
  qtui::Person closer;
  closer.At("frmWizard", [](qtui::FormView& view) { view.close(); });
  QTest::mouseDClick(window.view()->Row(1), Qt::LeftButton);
  EXPECT_TRUE(closer.Done());
  EXPECT_EQ(blocks[1].object->html_source, html);
  EXPECT_TRUE(window.errors.isEmpty());
}

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

TEST(EditorWindowTest, PropertiesSetTheTitleOnlyWhenAcceptedAndValid) {
  QTemporaryDir dir;
  const QString file = dir.filePath("page.html");
  WriteSamplePage(file);
  TestWindow window;
  window.show();
  ASSERT_TRUE(window.OpenFile(file));
  QPushButton* ok = nullptr;

  // Cancel keeps the title, typed or not.
  WhenPropertiesShown(&window, [](PagePropertiesDialog& dialog) {
    EXPECT_TRUE(dialog.isModal());
    EXPECT_EQ(dialog.Title(), "Page");
    dialog.title_edit()->setText("Something else");
    dialog.reject();
  });
  window.EditProperties();
  EXPECT_EQ(window.page().title, "Page");
  EXPECT_FALSE(window.IsModified());

  // OK is there only for a title with something to read.
  const QString title = QString::fromUtf8("Ask <for> our caf\xC3\xA9 & more");
  WhenPropertiesShown(&window, [&](PagePropertiesDialog& dialog) {
    ok = dialog.buttons()->button(QDialogButtonBox::Ok);
    dialog.title_edit()->clear();
    EXPECT_FALSE(ok->isEnabled());
    QTest::keyClicks(dialog.title_edit(), "   ");
    EXPECT_FALSE(ok->isEnabled());
    dialog.title_edit()->clear();
    // Typed as far as QTest types; the rest pasted.
    QTest::keyClicks(dialog.title_edit(), "Ask <for> our caf");
    dialog.title_edit()->insert(title.mid(17));
    EXPECT_EQ(dialog.Title(), title);
    EXPECT_TRUE(ok->isEnabled());
    QTest::mouseClick(ok, Qt::LeftButton);
  });
  window.EditProperties();
  ASSERT_NE(ok, nullptr);
  EXPECT_EQ(window.page().title, title.toStdString());
  EXPECT_TRUE(window.IsModified());
  ASSERT_TRUE(window.Save());
  host::Page saved;
  std::string error;
  std::ifstream in(file.toStdString(), std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  ASSERT_TRUE(host::ReadPageFile(text, saved, error)) << error;
  EXPECT_EQ(saved.title, title.toStdString());
  EXPECT_NE(
      text.find("<title>Ask &lt;for&gt; our caf\xC3\xA9 &amp; more</title>"),
      std::string::npos);
}

}  // namespace
}  // namespace formwiz::editor
