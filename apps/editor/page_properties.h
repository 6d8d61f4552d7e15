// File ▸ Properties: what a page says about itself rather than shows in its
// body. Today that is its title, which a browser shows in its tab, its
// history and its bookmarks.
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
  explicit PagePropertiesDialog(const QString& title,
                                QWidget* parent = nullptr);

  QString Title() const;
  QLineEdit* title_edit() const { return title_; }
  QDialogButtonBox* buttons() const { return buttons_; }

 private:
  // OK only for a title a page can have; the reason shows otherwise.
  void Check();

  QLineEdit* title_;
  QLabel* problem_;
  QDialogButtonBox* buttons_;
};

}  // namespace formwiz::editor
