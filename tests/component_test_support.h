// What the tests of clsFormWiz share: the peer that reaches the steps behind
// the dialogs, and a fixture with a page of the host stand-in, a recording
// Ui and a guard that starts down.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "host/page_document.h"
#include "toolkit/ui.h"

namespace formwiz {

// Stands in for the dialogs: sets the Result a dialog would leave and calls
// what follows it.
class clsFormWizTestPeer {
 public:
  static void SetResult(clsFormWiz& wiz, int32_t result) {
    wiz.mvarResult = result;
  }
  static void CommitOnCommand(clsFormWiz& wiz,
                              const std::shared_ptr<TextSelection>& selection,
                              const KelXmlElement& form,
                              const std::string& uitype) {
    wiz.CommitOnCommand(selection, form, uitype);
  }
  static void CommitStoredDefinition(clsFormWiz& wiz,
                                     const std::shared_ptr<HtmlObject>& object,
                                     const KelXmlElement& form) {
    wiz.CommitStoredDefinition(object, form);
  }
  static void RewriteStoredForm(clsFormWiz& wiz,
                                const std::shared_ptr<HtmlObject>& object,
                                const KelXmlElement& form) {
    wiz.RewriteStoredForm(object, form);
  }
  static const KelXmlElement& Impl(const clsFormWiz& wiz) {
    return wiz.mvarImpl;
  }
  static const std::string& PlaceholderSrc(const clsFormWiz& wiz) {
    return wiz.mvarPlaceholderSrc;
  }
  static void SetPlaceholderSrc(clsFormWiz& wiz, std::string src) {
    wiz.mvarPlaceholderSrc = std::move(src);
  }
};

inline std::string InternalError(const std::string& rest) {
  return "Internal Error in Form Wizard: " + rest;
}

class ComponentTest : public ::testing::Test {
 protected:
  ComponentTest() {
    page->RegisterRoles();
    frmActionOptions::Instance().bInUse = false;
  }
  ~ComponentTest() override { frmActionOptions::Instance().bInUse = false; }

  // The texts of the message boxes shown so far.
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& box : ui.boxes) texts.push_back(box.text);
    return texts;
  }
  // The message boxes shown so far, as "title: text".
  std::vector<std::string> Boxes() const {
    std::vector<std::string> boxes;
    for (const auto& box : ui.boxes)
      boxes.push_back(box.title + ": " + box.text);
    return boxes;
  }

  // A text selection given the page, as OnCommand makes one.
  std::shared_ptr<TextSelection> Selection() {
    auto selection = AsRole<TextSelection>(CreateObject(kTextSelectionProgId));
    selection->PutQuillanDO(page);
    return selection;
  }

  RecordingUi ui;
  ScopedUi scoped_ui{ui};
  std::shared_ptr<host::PageDocument> page =
      std::make_shared<host::PageDocument>();
};

}  // namespace formwiz
