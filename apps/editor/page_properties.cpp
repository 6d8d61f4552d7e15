#include "page_properties.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <string>

#include "host/page.h"

namespace formwiz::editor {

PagePropertiesDialog::PagePropertiesDialog(const QString& title,
                                           bool can_have_title, QWidget* parent)
    : QDialog(parent),
      title_(new QLineEdit(title)),
      problem_(new QLabel),
      buttons_(new QDialogButtonBox(
          can_have_title ? QDialogButtonBox::Ok | QDialogButtonBox::Cancel
                         : QDialogButtonBox::Close)) {
  setWindowTitle(tr("Page Properties"));
  setModal(true);
  auto* form = new QFormLayout;
  form->addRow(tr("&Title:"), title_);
  auto* hint =
      new QLabel(tr("Shown in the browser's tab, its history and bookmarks."));
  hint->setWordWrap(true);
  form->addRow(QString(), hint);
  problem_->setWordWrap(true);
  // The message names the <title> element; it is text, not markup.
  problem_->setTextFormat(Qt::PlainText);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(form);
  layout->addWidget(problem_);
  layout->addWidget(buttons_);
  title_->setMinimumWidth(320);
  title_->selectAll();
  connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  if (!can_have_title) {
    title_->clear();
    title_->setEnabled(false);
    problem_->setText(
        tr("This page has no <title> element (it is a part of a page, such as "
           "a template, or its head has none), so there is no title to set "
           "here. The page it becomes part of gives the title."));
    return;
  }
  connect(title_, &QLineEdit::textChanged, this, &PagePropertiesDialog::Check);
  Check();
}

QString PagePropertiesDialog::Title() const { return title_->text(); }

void PagePropertiesDialog::Check() {
  const std::string why = host::PageTitleProblem(Title().toStdString());
  problem_->setText(QString::fromStdString(why));
  problem_->setVisible(!why.empty());
  buttons_->button(QDialogButtonBox::Ok)->setEnabled(why.empty());
}

}  // namespace formwiz::editor
