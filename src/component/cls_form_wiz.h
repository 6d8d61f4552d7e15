// clsFormWiz: all that the editor sees of the form wizard. The editor creates
// one, sets its properties and calls OnCommand (a new form orb) or OnOpen (an
// orb already in the page); both return normally whatever happened, and
// Result is the only answer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "component/host_roles.h"
#include "formdoc/kelxml.h"

namespace formwiz {

// Values of Result, shared with frmWizard.Result and frmActionOptions.
enum FormWizResult : int32_t {
  kResultNone = 0,       // nothing has set it
  kResultFinished = 1,   // finished, or accepted
  kResultCancelled = 2,  // nothing to commit
};

// The last `form` child of `impl`, walking all children; null when there is
// none. With `placeholder_src`, the `src` of the last `placeholder` child goes
// there; a definition without one leaves it as it was.
KelXmlElement LastFormChild(const KelXmlNode& impl,
                            std::string* placeholder_src);

// The uitype by which OnCommand decides: the attribute, or "orb" when it is
// empty and the form has no `action` attribute. Only the local copy changes.
std::string EffectiveUiType(const KelXmlNode& form);

// Whether OnCommand runs the wizard for that uitype.
inline bool WizardRunsFor(std::string_view uitype) {
  return uitype == "orb" || uitype == "sectioned";
}

class clsFormWiz : public HostObject {
 public:
  // Impl: the `impl` element, held by reference and edited in place.
  void SetImpl(const KelXmlElement& impl) { mvarImpl = impl; }
  int32_t Result() const { return mvarResult; }
  void SetDisplayName(std::string name) { mvarDisplayName = std::move(name); }
  const std::string& DisplayName() const { return mvarDisplayName; }
  // The folder of the orb's files, without a trailing separator.
  void SetPath(std::string path) { mvarPath = std::move(path); }
  const std::string& Path() const { return mvarPath; }

  // The person asked for a new form orb in the document `docObj`. `hwnd` and
  // `docPath` are accepted and never used.
  void OnCommand(const HostObjectPtr& docObj, int32_t hwnd,
                 const std::string& docPath);
  // The person opened the orb whose HTML object is `HTMLobj`. `docObj` and
  // `hwnd` are accepted and never used.
  void OnOpen(const std::shared_ptr<HtmlObject>& HTMLobj,
              const HostObjectPtr& docObj, int32_t hwnd);

 private:
  friend class clsFormWizTestPeer;

  // OnOpen from the guard on: read, parse, decide, run.
  void OpenStoredObject(const std::shared_ptr<HtmlObject>& HTMLobj);

  // What each call leads to once the decision is made: the dialog, then what
  // its outcome commits.
  void RunOnCommand(const std::shared_ptr<TextSelection>& selection,
                    const KelXmlElement& form, const std::string& uitype);
  void RunStoredForm(const std::shared_ptr<HtmlObject>& HTMLobj,
                     const KelXmlElement& form);
  void RunStoredDefinition(const std::shared_ptr<HtmlObject>& HTMLobj,
                           const KelXmlElement& impl);

  // After the wizard of OnCommand: a finished "orb" is placed in the page.
  void CommitOnCommand(const std::shared_ptr<TextSelection>& selection,
                       const KelXmlElement& form, const std::string& uitype);
  // After the wizard on a stored definition: a finished one is rewritten.
  void CommitStoredDefinition(const std::shared_ptr<HtmlObject>& HTMLobj,
                              const KelXmlElement& form);
  // After changed options on a stored form: the form is written back as
  // both the stored data and the HTML.
  void RewriteStoredForm(const std::shared_ptr<HtmlObject>& HTMLobj,
                         const KelXmlElement& form);

  // The commits.
  void RewriteExistingObject(const std::shared_ptr<HtmlObject>& HTMLobj,
                             const KelXmlElement& node);
  void InsertNewObject(const std::shared_ptr<TextSelection>& selection,
                       const KelXmlElement& node);
  // The name of the placeholder picture file.
  std::string PlaceholderFileName() const;

  int16_t mvarFormIndex = 0;
  KelXmlElement mvarImpl;
  int32_t mvarResult = kResultNone;
  std::string mvarDisplayName;
  std::string mvarPath;
  std::string mvarPlaceholderSrc;
};

}  // namespace formwiz
