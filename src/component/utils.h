// The shared module: the one internal error report, the trap helper every
// trapped operation uses, and the hidden form fields that carry a form's
// settings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "component/failure.h"
#include "formdoc/kelxml.h"

namespace formwiz {

// Shows "Internal Error in Form Wizard: <code>", and when `number` is not 0
// or `description` is not empty a CR LF second line "<number>: <description>",
// in a message box titled "Error" through the current Ui.
void ReportInternalError(int32_t code, int32_t number,
                         std::string_view description);

// Runs `body` under a trap: a failure inside it is reported with `code` and
// ends the body only. Gives true when the body ran through.
template <typename Body>
bool Trapped(int32_t code, Body&& body) {
  if (auto failure = Catch(std::forward<Body>(body))) {
    ReportInternalError(code, failure->number, failure->description);
    return false;
  }
  return true;
}

// The value of the first hidden input child of `elem` named `name` whose
// value is not empty; empty when there is none. Lets no failure out: a
// failure reads as the empty string.
std::string GetHiddenField(const KelXmlNode& elem, std::string_view name);

// Writes `value` into the first hidden input child of `elem` named `name`,
// or creates one as the first child of `elem` (attributes type, name, value;
// with the no-end-tag mark when `bNoEndTag`). A failure is reported as 301.
void SetHiddenField(const KelXmlElement& elem, std::string_view name,
                    std::string_view value, bool bNoEndTag);

// The form index stored in the hidden field qln_FormIndex of `form`, read
// as the runtime reads a number from text (its leading number, 0 when there
// is none) and rounded. A value that does not fit 16 bits raises Failure 6.
// The commit and the wizard's reopening both read it so.
int16_t ReadFormIndex(const KelXmlNode& form);

// Internal error codes, by the operation that reports them.
namespace code {
inline constexpr int32_t kNoSelection = 101;
inline constexpr int32_t kOnCommand = 102;
inline constexpr int32_t kNoDocument = 103;
inline constexpr int32_t kOnOpen = 104;  // also RewriteExistingObject
inline constexpr int32_t kInsert = 105;  // also a failed assembly
inline constexpr int32_t kFieldOrder = 106;
inline constexpr int32_t kAssemble = 201;  // also SaveSettings
inline constexpr int32_t kExpandField = 202;
inline constexpr int32_t kSubstitute = 203;
// A failure inside a dialog's event handler while a person uses it.
inline constexpr int32_t kEventFailure = 204;
inline constexpr int32_t kHiddenField = 301;
}  // namespace code

}  // namespace formwiz
