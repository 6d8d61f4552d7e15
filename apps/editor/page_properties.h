// File ▸ Properties: what a page says about itself rather than shows in its
// body. Today that is its title, which a browser shows in its tab, its
// history and its bookmarks. A page of someone else's without a <title>
// (a fragment, a template partial) has no place to write one: the dialog
// says so instead of offering a title that would not be saved.
#pragma once

#include <QDialog>
#include <QString>

class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace formwiz::editor {

class PagePropertiesDialog : public QDialog {
  Q_OBJECT

 public:
  // `can_have_title` false: the page has nowhere to hold a title.
  PagePropertiesDialog(const QString& title, bool can_have_title,
                       QWidget* parent = nullptr);

  QString Title() const;
  QLineEdit* title_edit() const { return title_; }
  QDialogButtonBox* buttons() const { return buttons_; }
  // The reason the title cannot be set or is refused; hidden when none.
  QLabel* problem() const { return problem_; }

 private:
  // OK only for a title a page can have; the reason shows otherwise.
  void Check();

  QLineEdit* title_;
  QLabel* problem_;
  QDialogButtonBox* buttons_;
};

}  // namespace formwiz::editor
