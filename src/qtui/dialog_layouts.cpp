#include "qtui/dialog_layouts.h"

#include <QBoxLayout>
#include <QDialog>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <set>

#include "toolkit/form.h"

namespace formwiz::qtui {
namespace {

// Hands out the widgets by control name and remembers which were placed.
class Placer {
 public:
  Placer(const tk::Form& form, const WidgetMap& widgets)
      : form_(form), widgets_(widgets) {}

  // The widget of `name`, now placed; null when the dialog has none.
  QWidget* Take(std::string_view name) {
    const auto it = widgets_.find(name);
    if (it == widgets_.end()) return nullptr;
    placed_.insert(it->second);
    return it->second;
  }
  // The widgets of the controls standing on frame `frame` that are not
  // placed yet, in tab order.
  std::vector<QWidget*> Rest(std::string_view frame) const {
    std::vector<QWidget*> rest;
    for (const tk::Control* c : form_.Controls()) {
      const tk::Control* on = c->Container();
      const bool match =
          frame.empty() ? on == nullptr : on != nullptr && on->Name() == frame;
      QWidget* w = widgets_.at(c->Name());
      if (match && !placed_.contains(w)) rest.push_back(w);
    }
    return rest;
  }
  const tk::Form& form() const { return form_; }

 private:
  const tk::Form& form_;
  const WidgetMap& widgets_;
  std::set<const QWidget*> placed_;
};

// Adds `w` to `box` when the dialog has it.
void Add(QBoxLayout* box, QWidget* w, int stretch = 0,
         Qt::Alignment align = {}) {
  if (w != nullptr) box->addWidget(w, stretch, align);
}

void AddAt(QGridLayout* grid, QWidget* w, int row, int col, int row_span = 1,
           int col_span = 1) {
  if (w != nullptr) grid->addWidget(w, row, col, row_span, col_span);
}

// Puts what the layout did not place at the end of its frame.
void AddRest(Placer& p, QWidget* frame, std::string_view frame_name) {
  const std::vector<QWidget*> rest = p.Rest(frame_name);
  if (rest.empty()) return;
  auto* box = qobject_cast<QBoxLayout*>(frame->layout());
  if (box == nullptr) return;  // every frame of a known dialog has one
  for (QWidget* w : rest) box->addWidget(w);
}

QVBoxLayout* Column(QWidget* parent, int spacing = -1) {
  auto* box = new QVBoxLayout(parent);
  box->setContentsMargins(0, 0, 0, 0);
  if (spacing >= 0) box->setSpacing(spacing);
  return box;
}

void SetBold(QWidget* w, double scale = 1.0) {
  if (w == nullptr) return;
  QFont font = w->font();
  font.setBold(true);
  if (scale != 1.0) font.setPointSizeF(font.pointSizeF() * scale);
  w->setFont(font);
}

void Wrap(QWidget* w) {
  if (auto* label = qobject_cast<QLabel*>(w)) label->setWordWrap(true);
}

// Keeps a widget's place in the layout while hidden, so that its
// neighbours do not move when it comes and goes.
void KeepPlace(QWidget* w) {
  if (w == nullptr) return;
  QSizePolicy policy = w->sizePolicy();
  policy.setRetainSizeWhenHidden(true);
  w->setSizePolicy(policy);
}

// --- frmWizard ---------------------------------------------------------------

constexpr int kWizardSteps = 4;

std::string Step(int i) { return "fraStep(" + std::to_string(i) + ")"; }

// Step 1: the two forms on the left, the description of the one under the
// pointer or chosen on the right.
void LayOutFormChoice(Placer& p, QVBoxLayout* panel) {
  auto* row = new QHBoxLayout;
  row->setSpacing(16);
  auto* options = new QVBoxLayout;
  options->setSpacing(8);
  Add(options, p.Take("optForm(0)"));
  Add(options, p.Take("optForm(1)"));
  options->addStretch();
  row->addLayout(options);
  auto* desc = qobject_cast<QLabel*>(p.Take("lblFormDesc"));
  if (desc != nullptr) {
    desc->setWordWrap(true);
    desc->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    desc->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    desc->setMargin(8);
    desc->setMinimumHeight(120);
    row->addWidget(desc, 1, Qt::AlignTop);
  }
  panel->addLayout(row);
}

void LayOutAction(Placer& p, QVBoxLayout* panel) {
  Add(panel, p.Take("lblEmailAddr"));
  Add(panel, p.Take("txtEmailAddr"));
  panel->addSpacing(12);
  QWidget* desc = p.Take("lblActionDesc");
  Wrap(desc);
  Add(panel, desc);
  Add(panel, p.Take("cmdActionOptions"), 0, Qt::AlignLeft);
}

void LayOutResponse(Placer& p, QVBoxLayout* panel) {
  Add(panel, p.Take("Label1"));
  Add(panel, p.Take("txtResponse"));
  panel->addSpacing(12);
  QWidget* note = p.Take("Label3");
  Wrap(note);
  Add(panel, note);
}

// Step 4: the list with its shift buttons, and the boxes that edit the
// field of the current row.
void LayOutFields(Placer& p, QVBoxLayout* panel) {
  QWidget* intro = p.Take("Label6");
  Wrap(intro);
  Add(panel, intro);
  auto* row = new QHBoxLayout;
  Add(row, p.Take("lstFields"), 1);

  auto* shift = new QVBoxLayout;
  const QStyle::StandardPixmap arrows[] = {QStyle::SP_ArrowUp,
                                           QStyle::SP_ArrowDown};
  for (int i = 0; i < 2; ++i) {
    auto* button = qobject_cast<QPushButton*>(
        p.Take("cmdShift(" + std::to_string(i) + ")"));
    if (button == nullptr) continue;
    // The model gives these no caption; they show arrows.
    button->setIcon(button->style()->standardIcon(arrows[i]));
    button->setToolTip(i == 0 ? "Move up" : "Move down");
    button->setFixedWidth(button->sizeHint().height() + 8);
    shift->addWidget(button);
  }
  shift->addStretch();
  row->addLayout(shift);

  auto* detail = new QGridLayout;
  detail->setVerticalSpacing(4);
  detail->setColumnStretch(2, 1);
  AddAt(detail, p.Take("Label4"), 0, 0, 1, 3);
  AddAt(detail, p.Take("txtFieldName"), 1, 0, 1, 3);
  detail->setRowMinimumHeight(2, 6);
  AddAt(detail, p.Take("Label5"), 3, 0, 1, 3);
  AddAt(detail, p.Take("txtFieldPrompt"), 4, 0, 1, 3);
  detail->setRowMinimumHeight(5, 6);
  // The size boxes come and go with the field; their place stays.
  for (int i = 1; i <= 2; ++i) {
    QWidget* label = p.Take("lblParam" + std::to_string(i));
    QWidget* box = p.Take("txtParam(" + std::to_string(i) + ")");
    KeepPlace(label);
    KeepPlace(box);
    if (box != nullptr) box->setFixedWidth(56);
    AddAt(detail, label, 5 + i, 0);
    AddAt(detail, box, 5 + i, 1);
  }
  detail->setRowStretch(8, 1);
  auto* detail_box = new QWidget;
  detail_box->setLayout(detail);
  detail->setContentsMargins(8, 0, 0, 0);
  detail_box->setFixedWidth(250);
  row->addWidget(detail_box);
  panel->addLayout(row, 1);
}

void LayOutStep(Placer& p, int step, QWidget* panel) {
  auto* box = Column(panel, 6);
  // The heading is the label standing on the panel whose name says so.
  for (QWidget* w : p.Rest(Step(step))) {
    if (w->objectName().startsWith("lblStep(")) {
      SetBold(p.Take(w->objectName().toStdString()), 1.25);
      box->addWidget(w);
      box->addSpacing(8);
    }
  }
  switch (step) {
    case 0:
      LayOutFormChoice(p, box);
      break;
    case 1:
      LayOutAction(p, box);
      break;
    case 2:
      LayOutResponse(p, box);
      break;
    default:
      LayOutFields(p, box);
      break;
  }
  AddRest(p, panel, Step(step));
  if (step != 3) box->addStretch();
}

// A classic wizard: the step panels in one place, the one that is not
// parked on show; an etched rule; the button strip.
void LayOutWizard(QDialog& dialog, Placer& p) {
  auto* root = new QVBoxLayout(&dialog);
  root->setContentsMargins(12, 12, 12, 10);
  auto* steps = new QGridLayout;
  for (int step = 0; step < kWizardSteps; ++step) {
    QWidget* panel = p.Take(Step(step));
    if (panel == nullptr) continue;
    LayOutStep(p, step, panel);
    // Every panel counts for the size, so the dialog keeps it from step to
    // step.
    KeepPlace(panel);
    steps->addWidget(panel, 0, 0);
  }
  steps->setColumnMinimumWidth(0, 560);
  steps->setRowMinimumHeight(0, 300);
  root->addLayout(steps, 1);

  // Line1 of the designed window: drawing only, so not in the model.
  auto* rule = new QFrame(&dialog);
  rule->setObjectName("Line1");
  rule->setFrameShape(QFrame::HLine);
  rule->setFrameShadow(QFrame::Sunken);
  root->addWidget(rule);

  if (QWidget* strip = p.Take("picNav")) {
    auto* row = new QHBoxLayout(strip);
    row->setContentsMargins(0, 4, 0, 0);
    row->addStretch();
    Add(row, p.Take("cmdNav(0)"));
    Add(row, p.Take("cmdNav(1)"));
    row->addSpacing(12);
    Add(row, p.Take("cmdNav(2)"));
    row->setSpacing(0);
    Add(row, p.Take("cmdNav(3)"));
    row->addSpacing(12);
    Add(row, p.Take("cmdNav(4)"));
    // Equal buttons, as in every wizard.
    for (QWidget* w : strip->findChildren<QPushButton*>()) {
      w->setMinimumWidth(84);
    }
    AddRest(p, strip, "picNav");
    root->addWidget(strip);
  }
  for (QWidget* w : p.Rest("")) root->addWidget(w);
  root->setSizeConstraint(QLayout::SetFixedSize);
}

// --- frmActionOptions
// -----------------------------------------------------------

// A small fixed dialog: the e-mail settings under their option, the script
// under its option, OK and Cancel at the bottom right.
void LayOutActionOptions(QDialog& dialog, Placer& p) {
  auto* root = new QVBoxLayout(&dialog);
  root->setContentsMargins(12, 12, 12, 12);
  SetBold(p.Take("Label2"));
  Add(root, p.Take("Label2"));
  Add(root, p.Take("optActionEmail"));

  auto* email = new QGridLayout;
  email->setContentsMargins(20, 0, 0, 0);
  AddAt(email, p.Take("Label8"), 0, 0);
  AddAt(email, p.Take("txtEmailAddr"), 0, 1);
  AddAt(email, p.Take("Label9"), 1, 0);
  AddAt(email, p.Take("txtEmailSubj"), 1, 1);
  email->setColumnMinimumWidth(1, 260);
  if (QWidget* frame = p.Take("Frame1")) {
    auto* formats = new QVBoxLayout(frame);
    Add(formats, p.Take("optFormatHumanReadable"));
    Add(formats, p.Take("optFormatCSV"));
    AddRest(p, frame, "Frame1");
    AddAt(email, frame, 2, 0, 1, 2);
  }
  root->addLayout(email);

  Add(root, p.Take("optActionCustom"));
  auto* custom = new QGridLayout;
  custom->setContentsMargins(20, 0, 0, 0);
  AddAt(custom, p.Take("Label3"), 0, 0);
  AddAt(custom, p.Take("txtActionURL"), 0, 1);
  root->addLayout(custom);

  for (QWidget* w : p.Rest("")) {
    if (qobject_cast<QPushButton*>(w) == nullptr) root->addWidget(w);
  }
  root->addSpacing(8);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  Add(buttons, p.Take("cmdOK"));
  Add(buttons, p.Take("cmdCancel"));
  for (QWidget* w : p.Rest("")) buttons->addWidget(w);
  root->addLayout(buttons);
  root->setSizeConstraint(QLayout::SetFixedSize);
}

// Any other dialog: its controls in tab order, frames holding theirs.
void LayOutColumn(QDialog& dialog, Placer& p) {
  auto* root = new QVBoxLayout(&dialog);
  for (const tk::Control* c : p.form().Controls()) {
    if (c->kind() == tk::ControlKind::kFrame) {
      new QVBoxLayout(p.Take(c->Name()));
    }
  }
  for (const tk::Control* c : p.form().Controls()) {
    const tk::Control* frame = c->Container();
    QWidget* parent = frame ? p.Take(frame->Name()) : nullptr;
    QWidget* w = p.Take(c->Name());
    auto* box = parent ? qobject_cast<QBoxLayout*>(parent->layout()) : root;
    box->addWidget(w);
  }
}

}  // namespace

bool IsPlainPanel(const tk::Form& form, const tk::Control& /*frame*/) {
  // The wizard's step panels and button strip carry no box: the step's
  // heading names it.
  return form.name() == "frmWizard";
}

void LayOut(QDialog& dialog, const tk::Form& form, const WidgetMap& widgets) {
  Placer p(form, widgets);
  if (form.name() == "frmWizard") {
    LayOutWizard(dialog, p);
  } else if (form.name() == "frmActionOptions") {
    LayOutActionOptions(dialog, p);
  } else {
    LayOutColumn(dialog, p);
  }
}

}  // namespace formwiz::qtui
