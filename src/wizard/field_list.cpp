// Step 3, "Customize the form": the list of the fields of the chosen form.
//
// The list is a view of the tree. Row r of lstFields and colFields[r] stand
// for the same field node, a row's text is the node's `name`, its tick is
// the node's `included` character at nFormIndex, and the rows follow the
// order of the field walk. Every tick and every move goes into the tree at
// once. Since ticking a row or making it current runs handlers that read
// colFields, colFields is always brought up to date before lstFields is
// touched.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "component/failure.h"
#include "formdoc/form_doc.h"
#include "wizard/frm_wizard.h"

namespace formwiz {

using std::string_view_literals::operator""sv;
namespace {

// The field at `position` (from 1) of colFields; Failure 9 for a position
// the collection does not have, as the classic collection does.
KelXmlNode FieldAt(const std::vector<KelXmlNode>& fields, int position) {
  if (position < 1 || static_cast<size_t>(position) > fields.size()) {
    Raise(err::kSubscriptOutOfRange);
  }
  return fields[static_cast<size_t>(position) - 1];
}

// Moves the field of the current row one listed field up (`index` 0) or
// down (1), in the tree, in colFields and in lstFields, in that order.
// Lets failures out; cmdShift_Click swallows them.
void ShiftCurrentField(frmWizard& wiz, int index) {
  tk::Control& lst = wiz.Ctl("lstFields");
  // Without a current row this asks for position 0, which fails: a press
  // without a current row does nothing.
  const int nOldPos = lst.ListIndex() + 1;
  const KelXmlNode node = FieldAt(wiz.colFields, nOldPos);
  const std::string text = lst.List(nOldPos - 1);
  const bool ticked = lst.Selected(nOldPos - 1);
  if (!node) return;

  // The field passes exactly one listed field. Whatever lies between the
  // two in the tree without a row (hidden fields, unnamed fields, HTML) is
  // jumped over and keeps its place, and the moved field always takes the
  // neighbour's parent, so it can cross into or out of the table.
  const int count = static_cast<int>(wiz.colFields.size());
  int nNewPos = 0;
  KelXmlNode other;
  KelXmlNode new_parent;
  KelXmlNode ref_node;
  if (index == 0 && nOldPos > 1) {
    nNewPos = nOldPos - 1;
    other = FieldAt(wiz.colFields, nNewPos);
    if (!other) return;
    new_parent = other.ParentNode();
    ref_node = other;  // Lands directly in front of the field above.
  } else if (index == 1 && nOldPos + 1 <= count) {
    nNewPos = nOldPos + 1;
    other = FieldAt(wiz.colFields, nNewPos);
    if (!other) return;
    new_parent = other.ParentNode();
    // Lands directly behind the field below; null appends.
    ref_node = other.NextSibling();
  } else {
    return;  // Top row up, bottom row down: nothing wraps round.
  }
  const KelXmlNode old_parent = node.ParentNode();
  if (!old_parent || !new_parent) return;

  old_parent.RemoveChild(node);
  new_parent.InsertBefore(node, ref_node);

  wiz.colFields.erase(wiz.colFields.begin() + (nOldPos - 1));
  wiz.colFields.insert(wiz.colFields.begin() + (nNewPos - 1), node);

  // Removing and adding rows raise nothing; making the row current shows
  // the same field again, and ticking it writes "y" over "y".
  lst.RemoveItem(nOldPos - 1);
  lst.AddItem(text, nNewPos - 1);
  lst.SetListIndex(nNewPos - 1);
  if (ticked) lst.SetSelected(nNewPos - 1, true);
}

}  // namespace

void frmWizard::BuildFieldListControls() {
  tk::Control* panel = &Ctl("fraStep", 3);

  tk::Control& label = Add(tk::ControlKind::kLabel, "Label6");
  label.SetCaption(
      "Choose the fields to include on your form.  You can edit the name and "
      "the prompt for each field.");
  label.SetContainer(panel);

  tk::Control& lst = Add(tk::ControlKind::kList, "lstFields");
  lst.SetContainer(panel);
  lst.on_click = [this] { lstFields_Click(); };
  lst.on_item_check = [this](int row) { lstFields_ItemCheck(row); };

  // Up arrow, then down arrow; they show pictures, no caption. Their place
  // in the tab order, behind the detail boxes, is set by
  // BuildFieldDetailControls.
  for (int index = 0; index <= 1; ++index) {
    tk::Control& button = Add(tk::ControlKind::kButton, "cmdShift", index);
    button.SetContainer(panel);
    button.on_click = [this, index] { cmdShift_Click(index); };
  }
}

void frmWizard::LoadFieldList() {
  tk::Control& lst = Ctl("lstFields");
  lst.Clear();
  colFields.clear();

  // A stored definition without a `form` child fails here (Failure 91 on
  // the null element) and the failure goes on to the caller's trap.
  const KelXmlElement form = FirstFormChild(elemImpl);
  KelXmlNode node = form.FirstChild();
  // The same walk as assembly: the children of `form` and, for an "orb"
  // form, the children of its first `table`, entered once and never left.
  bool bEnterTable = form.GetAttribute("uitype") == "orb"sv;
  while (node) {
    const std::string tag = node.TagName();
    if (tag == "section"sv) {
      // Read in place: the row takes its own copy.
      const std::string_view name = node.AttributeView("name");
      if (!name.empty() && !IsFieldHidden(node)) {
        lst.AddItem(name);
        colFields.push_back(node);
        // The tick comes last: a tick that changes runs lstFields_ItemCheck,
        // which finds the node in colFields.
        lst.SetSelected(lst.ListCount() - 1, IsFieldIncluded(node));
      }
    }
    if (bEnterTable && tag == "table"sv) {
      node = node.FirstChild();
      bEnterTable = false;
    } else {
      node = node.NextSibling();
    }
  }
  // Shows the first field in the detail boxes.
  if (lst.ListCount() > 0) lst.SetListIndex(0);
}

bool frmWizard::IsFieldIncluded(const KelXmlNode& node) const {
  return ::formwiz::IsFieldIncluded(node, nFormIndex);
}

bool frmWizard::IsFieldHidden(const KelXmlNode& node) const {
  return ::formwiz::IsFieldHidden(node, nFormIndex);
}

void frmWizard::SetFieldIncluded(const KelXmlNode& node, bool bInclude) {
  ::formwiz::SetFieldIncluded(node, nFormIndex, bInclude);
}

void frmWizard::ReplaceListItem(tk::Control& lst, const std::string& strText) {
  const int n = lst.ListIndex();
  const bool ticked = lst.Selected(n);
  const int32_t data = lst.ItemData(n);
  // The new row goes in behind the old one, so removing the old one brings
  // it to the same place.
  lst.AddItem(strText, n + 1);
  lst.RemoveItem(n);
  lst.SetItemData(n, data);
  lst.SetSelected(n, ticked);
  lst.SetListIndex(n);
}

void frmWizard::lstFields_ItemCheck(int Item) {
  const bool ticked = Ctl("lstFields").Selected(Item);
  const KelXmlNode node = FieldAt(colFields, Item + 1);
  // Only the tree changes: an unticked field stays listed and in the
  // definition, and leaves the output only at assembly.
  if (node) SetFieldIncluded(node, ticked);
}

void frmWizard::cmdShift_Click(int index) {
  // Any failure ends the move silently, leaving what was done so far; a
  // move has nothing to report that a person could act on.
  (void)Catch([&] { ShiftCurrentField(*this, index); });
}

KelXmlNode frmWizard::CurrentFieldNode() {
  const int row = Ctl("lstFields").ListIndex();
  if (row < 0) return KelXmlNode();
  // A current row without a node would break the list's bond with
  // colFields; that fails (9) rather than editing nothing in silence.
  return FieldAt(colFields, row + 1);
}

}  // namespace formwiz
