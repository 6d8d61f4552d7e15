#include "component/strings.h"

namespace formwiz {

std::string_view LoadResString(int32_t id) {
  switch (id) {
    case kStrSizeWidth:
      return "Field Width:";
    case kStrSizeMaxChars:
      return "Max No. of characters:";
    case kStrSizeCols:
      return "Width:";
    case kStrSizeRows:
      return "Height:";
    case kStrActionEmail:
      return "The form will send you an e-mail when someone fills it out.";
    case kStrActionCustom:
      return "This form will submit its data to the CGI script you specified.";
    case kStrOptionsCaption:
      return "Form Orb Options";
    case kStrErrorTitle:
      return "Error";
    case kStrInternalError:
      return "Internal Error in Form Wizard: ";
    case kStrCannotEdit:
      return "This Form Orb can not be edited.";
    default:
      return {};
  }
}

}  // namespace formwiz
