// The Ui of a scripted run: it plays the person at the dialogs. Each modal
// show takes the script's actions, in order, until the dialog closes; when
// none is left it closes the dialog with the close box. Every message box is
// recorded and answered with its only button.
#pragma once

#include <string>

#include "script/script.h"
#include "toolkit/form.h"
#include "toolkit/ui.h"

namespace formwiz::script {

class ScriptedUi : public Ui {
 public:
  // Where the actions come from.
  class Feed {
   public:
    virtual ~Feed() = default;
    // The next step, when it is an action for the dialogs (a do step or a
    // snapshot); null when the next step is a call or there is none.
    virtual const Step* NextAction() = 0;
    // Why NextAction gave none, for the transcript.
    virtual std::string WhyNoAction() const = 0;
  };

  // Events go to the array `events`.
  ScriptedUi(Json& events, Feed& feed) : events_(events), feed_(feed) {}

  void MsgBox(std::string_view text, std::string_view title) override;
  void RunModal(tk::Form& form, tk::Form* owner) override;

  // Takes one action or snapshot on `form`, the innermost dialog on show, or
  // on none (null).
  void Apply(const Step& step, tk::Form* form);

 private:
  Json& events_;
  Feed& feed_;
};

// The state of a dialog as a person sees it, and its fields.
Json Snapshot(const tk::Form& form);

}  // namespace formwiz::script
