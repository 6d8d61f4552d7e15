// The application's string table: every caption and message text that the
// component's code shows by number.
#pragma once

#include <cstdint>
#include <string_view>

namespace formwiz {

inline constexpr int32_t kStrSizeWidth = 2001;       // "Field Width:"
inline constexpr int32_t kStrSizeMaxChars = 2002;    // "Max No. of characters:"
inline constexpr int32_t kStrSizeCols = 2003;        // "Width:"
inline constexpr int32_t kStrSizeRows = 2004;        // "Height:"
inline constexpr int32_t kStrActionEmail = 2005;     // e-mail action
inline constexpr int32_t kStrActionCustom = 2006;    // custom action
inline constexpr int32_t kStrOptionsCaption = 2007;  // "Form Orb Options"
inline constexpr int32_t kStrErrorTitle = 2008;      // "Error"
inline constexpr int32_t kStrInternalError = 2009;   // "Internal Error in ..."
inline constexpr int32_t kStrCannotEdit = 2010;      // "This Form Orb can ..."

// The text of string `id`; empty for an id the table does not hold.
std::string_view LoadResString(int32_t id);

}  // namespace formwiz
