// Step 3, "Customize the form": the boxes that edit the field of the current
// row of lstFields. Every keystroke goes straight into the tree.
//
// Each txtParam box is bound to an attribute of the field node by its Tag;
// an empty Tag binds it to nothing, so it writes nothing and is hidden. The
// set of boxes follows from which size attributes the field has.
#include <algorithm>
#include <string>
#include <vector>

#include "component/failure.h"
#include "component/strings.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

// A size attribute, the box that edits it and the caption of that box.
struct SizeAttribute {
  const char* name;
  int box;
  int32_t caption_id;
};

// In the order in which lstFields_Click binds them: of a pair sharing a box,
// the later one wins it.
constexpr SizeAttribute kSizeAttributes[] = {
    {"size", 1, kStrSizeWidth},
    {"maxlength", 2, kStrSizeMaxChars},
    {"cols", 1, kStrSizeCols},
    {"rows", 2, kStrSizeRows},
};

// Gives `controls` the tab positions they hold between them, in the order
// listed, so that the step's order does not depend on which Build function
// added which control first, and no control outside the list moves.
void OrderTabs(const std::vector<tk::Control*>& controls) {
  std::vector<int> slots;
  for (const tk::Control* c : controls) slots.push_back(c->TabIndex());
  std::sort(slots.begin(), slots.end());
  for (size_t i = 0; i < controls.size(); ++i) {
    controls[i]->SetTabIndex(slots[i]);
  }
}

}  // namespace

void frmWizard::BuildFieldDetailControls() {
  tk::Control* panel = &Ctl("fraStep", 3);
  auto add = [&](tk::ControlKind kind, const char* name, int index = -1) {
    tk::Control& c = Add(kind, name, index);
    c.SetContainer(panel);
    return &c;
  };

  add(tk::ControlKind::kLabel, "Label4")
      ->SetCaption("Field Name (not visible to users):");
  tk::Control* name_box = add(tk::ControlKind::kText, "txtFieldName");
  name_box->SetMaxLength(80);
  name_box->on_change = [this] { txtFieldName_Change(); };

  add(tk::ControlKind::kLabel, "Label5")
      ->SetCaption("Field Prompt (appears on your form):");
  tk::Control* prompt_box = add(tk::ControlKind::kText, "txtFieldPrompt");
  prompt_box->SetMaxLength(256);
  prompt_box->on_change = [this] { txtFieldPrompt_Change(); };

  // The array has no element 0. Captions stand in until a field binds them.
  add(tk::ControlKind::kLabel, "lblParam1")->SetCaption("P1:");
  tk::Control* param1 = add(tk::ControlKind::kText, "txtParam", 1);
  add(tk::ControlKind::kLabel, "lblParam2")->SetCaption("P2:");
  tk::Control* param2 = add(tk::ControlKind::kText, "txtParam", 2);
  for (tk::Control* box : {param1, param2}) {
    box->SetMaxLength(3);
    const int index = box->index();
    box->on_change = [this, index] { txtParam_Change(index); };
  }

  // The shift buttons stand beside the list but come last in the tab order.
  OrderTabs({&Ctl("lstFields"), name_box, prompt_box, param1, param2,
             &Ctl("cmdShift", 0), &Ctl("cmdShift", 1)});
}

void frmWizard::lstFields_Click() {
  tk::Control& name_box = Ctl("txtFieldName");
  tk::Control& prompt_box = Ctl("txtFieldPrompt");
  const KelXmlNode node = CurrentFieldNode();
  if (!node) {
    // The size boxes keep their state; with no current row nothing that is
    // typed reaches a node.
    name_box.SetText("");
    prompt_box.SetText("");
    return;
  }
  // An equal name is not assigned again, so that the rename that raised
  // this event leaves the box, and the typing in it, alone.
  const std::string name = node.GetAttribute("name");
  if (name_box.Text() != name) name_box.SetText(name);
  prompt_box.SetText(node.GetAttribute("prompt"));

  tk::Control& param1 = Ctl("txtParam", 1);
  tk::Control& param2 = Ctl("txtParam", 2);
  param1.SetTag("");
  param2.SetTag("");
  // Presence decides, not content: an empty value shows its box, empty.
  // Each text is assigned while the box is bound to nothing, so the change
  // it raises writes nothing, and only then is the box bound. A field with
  // both attributes of a pair (size and cols, or maxlength and rows) lies
  // outside the vocabulary; the Tag is cleared before every assignment, not
  // only once above, so the later attribute's value is never copied into
  // the earlier one. The later attribute wins the box.
  for (const SizeAttribute& attr : kSizeAttributes) {
    if (!node.GetAttributeNode(attr.name)) continue;
    tk::Control& box = Ctl("txtParam", attr.box);
    Ctl(attr.box == 1 ? "lblParam1" : "lblParam2")
        .SetCaption(LoadResString(attr.caption_id));
    box.SetTag("");
    box.SetText(node.GetAttribute(attr.name));
    box.SetTag(attr.name);
  }
  // Shown or hidden, never disabled.
  const bool bound1 = !param1.Tag().empty();
  param1.SetVisible(bound1);
  Ctl("lblParam1").SetVisible(bound1);
  const bool bound2 = !param2.Tag().empty();
  param2.SetVisible(bound2);
  Ctl("lblParam2").SetVisible(bound2);
}

void frmWizard::txtFieldName_Change() {
  const std::string s = Ctl("txtFieldName").Text();
  // A name is never emptied: the field keeps its last name and the row its
  // text, and typing again renames from there.
  if (s.empty()) return;
  const KelXmlNode node = CurrentFieldNode();
  if (!node) return;
  if (s == node.GetAttribute("name")) return;
  // No check of the characters and none of uniqueness: two fields may carry
  // the same name.
  node.SetAttribute("name", s);
  // Raises lstFields_Click for the same row, which finds the box equal to
  // the name and leaves it alone.
  ReplaceListItem(Ctl("lstFields"), Ctl("txtFieldName").Text());
}

void frmWizard::txtFieldPrompt_Change() {
  // Failures are passed over and nothing is reported. One catch covers the
  // handler: past a failing step the rest would either find no node or
  // write a text that was never read, so ending there is the safe reading.
  (void)Catch([&] {
    const std::string s = Ctl("txtFieldPrompt").Text();
    const KelXmlNode node = CurrentFieldNode();
    if (!node) return;
    // An empty prompt is stored like any other.
    if (s != node.GetAttribute("prompt")) node.SetAttribute("prompt", s);
  });
}

void frmWizard::txtParam_Change(int index) {
  tk::Control& box = Ctl("txtParam", index);
  const std::string s = box.Text();
  const std::string strAttr = box.Tag();
  if (strAttr.empty()) return;
  const KelXmlNode node = CurrentFieldNode();
  if (!node) return;
  // The value is opaque text: letters and an empty box are stored as they
  // are, and the attribute, and so the box, stays.
  if (s != node.GetAttribute(strAttr)) node.SetAttribute(strAttr, s);
}

}  // namespace formwiz
