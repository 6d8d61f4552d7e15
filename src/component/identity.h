// The identity under which the editor knows this component and the objects
// it asks the editor for.
#pragma once

#include <cstdint>

namespace formwiz {

inline constexpr char kProgId[] = "QlnFormOrbWiz.clsFormWiz";
inline constexpr char kTypeLibName[] = "QlnFormOrbWiz";
inline constexpr char kTypeLibGuid[] = "{BAFAA0F7-DDA9-11D3-80C9-005004ABE52B}";
inline constexpr int kTypeLibMajor = 1;
inline constexpr int kTypeLibMinor = 1;
inline constexpr int32_t kTypeLibLocale = 0x409;
inline constexpr char kClassGuid[] = "{BAFAA0F2-DDA9-11D3-80C9-005004ABE52B}";
inline constexpr char kInterfaceName[] = "_clsFormWiz";
inline constexpr char kInterfaceGuid[] =
    "{5FB29C2D-E099-11D3-80CA-005004ABE52B}";
// The interface's earlier identity, hidden alias clsFormWiz___v0; the class
// answers to it as well.
inline constexpr char kInterfaceGuidV0[] =
    "{BAFAA0F1-DDA9-11D3-80C9-005004ABE52B}";

// Dispatch ids of the interface's members, in interface order.
namespace dispid {
inline constexpr int32_t kImpl = 0x68030003;
inline constexpr int32_t kResult = 0x68030002;
inline constexpr int32_t kDisplayName = 0x68030001;
inline constexpr int32_t kPath = 0x68030000;
inline constexpr int32_t kOnCommand = 0x60030004;
inline constexpr int32_t kOnOpen = 0x60030005;
}  // namespace dispid

// What the component creates by ProgID through the host's registry.
inline constexpr char kTextSelectionProgId[] = "QlnHTMLUtils.QlnTextSelection";
inline constexpr char kXmlDocumentProgId[] = "KelXml.KelXmlDocument";

// The title of a message box that names none: the component's own name.
inline constexpr char kDefaultMsgBoxTitle[] = "QlnFormOrbWiz";

}  // namespace formwiz
