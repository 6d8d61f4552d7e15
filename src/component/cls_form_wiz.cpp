// The two calls of the editor, up to the decision on what to show, and what
// each dialog's outcome leads to.
#include "component/cls_form_wiz.h"

#include <utility>

#include "actionoptions/frm_action_options.h"
#include "component/commit.h"
#include "component/identity.h"
#include "component/strings.h"
#include "component/utils.h"
#include "toolkit/ui.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

// Characters, not bytes: a stored string of one non-ASCII character is still
// too short to hold a definition.
size_t CountCharacters(std::string_view utf8) {
  size_t count = 0;
  for (unsigned char byte : utf8) {
    if ((byte & 0xC0) != 0x80) ++count;
  }
  return count;
}

// HTMLData of the object as a string. The read is the one step whose
// failures are no failure of OnOpen: whatever goes wrong, or a value without
// text, leaves the string empty and ends in the refusal.
std::string ReadStoredString(const std::shared_ptr<HtmlObject>& HTMLobj) {
  std::string stored;
  (void)Catch([&] { Deref(HTMLobj).GetHTMLData().ToText(stored); });
  return stored;
}

std::shared_ptr<TextSelection> CreateTextSelection() {
  return AsRole<TextSelection>(CreateObject(kTextSelectionProgId));
}

std::shared_ptr<XmlDocumentObject> CreateXmlDocument() {
  return AsRole<XmlDocumentObject>(CreateObject(kXmlDocumentProgId));
}

// Every run needs the dialogs in their first state. OnCommand ends with the
// wizard unloaded, but a finished OnOpen leaves it loaded and hidden, with
// frmActionOptions loaded under it and the parsed tree held: Finish only
// hides, and the flow of a stored definition has no Unload. That flow keeps
// its shape; the leftover is closed at the start of the next run instead, so
// that Load really loads and Form_Load runs again. A wizard on show belongs
// to a run still going on further out, and is left alone.
void CloseLeftoverWizard() {
  frmWizard& wizard = frmWizard::Instance();
  if (wizard.Loaded() && !wizard.Shown()) wizard.Unload();
}

// One run of the wizard on `impl`, from loading to the Result it leaves.
// Failures go to the caller's trap.
int32_t RunWizard(bool from_scratch, const KelXmlElement& impl) {
  CloseLeftoverWizard();
  frmWizard& wizard = frmWizard::Instance();
  wizard.Load();
  // FromScratch first: Impl decides by it whether to load stored settings.
  wizard.SetFromScratch(from_scratch);
  wizard.SetImpl(impl);
  wizard.ShowModal(nullptr);
  return wizard.Result();
}

}  // namespace

KelXmlElement LastFormChild(const KelXmlNode& impl,
                            std::string* placeholder_src) {
  KelXmlElement form;
  for (KelXmlNode child = impl.FirstChild(); child;
       child = child.NextSibling()) {
    const std::string tag = child.TagName();
    if (tag == "form") {
      form = child;
    } else if (tag == "placeholder" && placeholder_src) {
      *placeholder_src = child.GetAttribute("src");
    }
  }
  return form;
}

std::string EffectiveUiType(const KelXmlNode& form) {
  std::string uitype = form.GetAttribute("uitype");
  const bool has_action = !form.GetAttributeNode("action").IsNull();
  // A definition that never says what it is, and was never finished, is
  // taken for an orb; one that has an action already is someone's own form.
  if (uitype.empty() && !has_action) uitype = "orb";
  return uitype;
}

void clsFormWiz::OnCommand(const HostObjectPtr& docObj, int32_t /*hwnd*/,
                           const std::string& /*docPath*/) {
  std::shared_ptr<TextSelection> selection;
  KelXmlElement form;
  bool no_selection = false;
  Trapped(code::kOnCommand, [&] {
    mvarResult = kResultCancelled;
    selection = CreateTextSelection();
    if (!selection) {
      no_selection = true;
      return;
    }
    selection->PutQuillanDO(docObj);
    form = LastFormChild(mvarImpl, &mvarPlaceholderSrc);
    if (!form) return;
    const std::string uitype = EffectiveUiType(form);
    if (WizardRunsFor(uitype)) RunOnCommand(selection, form, uitype);
  });
  // A creation that gave no object and raised nothing is the one way out
  // that does not pass the close.
  if (no_selection) {
    ReportInternalError(code::kNoSelection, 0, {});
    return;
  }
  // The close of OnCommand, also after a failure: the references go, and
  // frmWizard is unloaded here whether it was shown or not. Its Form_Unload
  // lets no failure out.
  form = KelXmlElement();
  selection.reset();
  frmWizard::Instance().Unload();
}

void clsFormWiz::OnOpen(const std::shared_ptr<HtmlObject>& HTMLobj,
                        const HostObjectPtr& /*docObj*/, int32_t /*hwnd*/) {
  // A failure ends the call on the spot: mvarImpl keeps what it held, and a
  // dialog that was loaded stays loaded.
  Trapped(code::kOnOpen, [&] { OpenStoredObject(HTMLobj); });
}

void clsFormWiz::OpenStoredObject(const std::shared_ptr<HtmlObject>& HTMLobj) {
  // The commit of a new object raises this around UpdateItem, and the editor
  // may call OnOpen from inside that call, on this or any other object.
  if (frmActionOptions::Instance().bInUse) return;

  const std::string stored = ReadStoredString(HTMLobj);
  if (CountCharacters(stored) < 2) {
    CurrentUi().MsgBox(LoadResString(kStrCannotEdit), kDefaultMsgBoxTitle);
    return;
  }
  std::shared_ptr<XmlDocumentObject> document = CreateXmlDocument();
  if (!document) {
    ReportInternalError(code::kNoDocument, 0, {});
    return;
  }
  if (!document->document.LoadXml(stored)) {
    ReportInternalError(code::kOnOpen, 0, {});
    return;
  }
  // The top node is whatever comes first, a comment as well: only an element
  // named form or impl leads anywhere.
  const KelXmlNode top = document->document.Root().FirstChild();
  const std::string tag = top.TagName();
  if (tag == "form") {
    RunStoredForm(HTMLobj, top);
  } else if (tag == "impl") {
    RunStoredDefinition(HTMLobj, top);
  }
  // The parsed definition ends with this call.
  mvarImpl = KelXmlElement();
}

void clsFormWiz::RunOnCommand(const std::shared_ptr<TextSelection>& selection,
                              const KelXmlElement& form,
                              const std::string& uitype) {
  mvarResult = RunWizard(true, mvarImpl);
  CommitOnCommand(selection, form, uitype);
}

void clsFormWiz::CommitOnCommand(
    const std::shared_ptr<TextSelection>& selection, const KelXmlElement& form,
    const std::string& uitype) {
  // A finished "sectioned" definition goes back to the host as the edited
  // tree and Result 1; only an orb becomes an object in the page.
  if (mvarResult != kResultFinished || uitype != "orb") return;
  mvarFormIndex = ReadFormIndex(form);
  InsertNewObject(selection, form);
}

void clsFormWiz::RunStoredForm(const std::shared_ptr<HtmlObject>& HTMLobj,
                               const KelXmlElement& form) {
  // The options dialog alone. Closing a leftover wizard also unloads the
  // frmActionOptions it had loaded, so this one starts afresh as well.
  CloseLeftoverWizard();
  frmActionOptions& options = frmActionOptions::Instance();
  options.Load();
  options.GetOptionsFromForm(form);
  options.SetCaption(LoadResString(kStrOptionsCaption));
  options.ShowModal(nullptr);
  // Only an OK that changed something is written; Result is left alone
  // either way. A failure before this point leaves the dialog loaded.
  if (options.mvarResult == kResultFinished && options.mvarModified) {
    options.SetOptionsIntoForm(form);
    RewriteStoredForm(HTMLobj, form);
  }
  options.Unload();
}

void clsFormWiz::RunStoredDefinition(const std::shared_ptr<HtmlObject>& HTMLobj,
                                     const KelXmlElement& impl) {
  mvarImpl = impl;
  // The placeholder is not looked at: the picture of an existing object
  // stays as it is.
  const KelXmlElement form = LastFormChild(mvarImpl, nullptr);
  // 2 until the wizard returns, so that a failure in the run leaves it.
  mvarResult = kResultCancelled;
  // An edit opens on the last step. The dialog is not unloaded here: a
  // finished run leaves it hidden, and the next run closes it first.
  mvarResult = RunWizard(false, mvarImpl);
  CommitStoredDefinition(HTMLobj, form);
}

void clsFormWiz::CommitStoredDefinition(
    const std::shared_ptr<HtmlObject>& HTMLobj, const KelXmlElement& form) {
  if (mvarResult != kResultFinished) return;
  mvarFormIndex = ReadFormIndex(form);
  RewriteExistingObject(HTMLobj, form);
}

}  // namespace formwiz
