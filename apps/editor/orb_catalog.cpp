#include "orb_catalog.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <system_error>

namespace formwiz::editor {

namespace fs = std::filesystem;

namespace {

bool ReadText(const fs::path& file, std::string& text) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = std::move(buffer).str();
  return !in.bad();
}

// The `name` of the document's top element; empty when it has none or the
// text does not parse.
std::string TopElementName(std::string_view text) {
  KelXmlDocument document;
  if (!document.LoadXml(text)) return {};
  for (KelXmlNode node = document.Root().FirstChild(); node;
       node = node.NextSibling()) {
    if (node.NodeType() == kElementNode) return node.GetAttribute("name");
  }
  return {};
}

bool IsDirectory(const fs::path& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

}  // namespace

bool ReadOrb(const fs::path& file, Orb& orb, std::string& error) {
  std::string text;
  if (!ReadText(file, text)) {
    error = "The orb file cannot be read.";
    return false;
  }
  KelXmlElement impl = FindElementInXml(text, "impl");
  if (!impl) {
    error = "The file is no orb: it holds no impl element.";
    return false;
  }
  orb.impl = impl;
  orb.display_name = TopElementName(text);
  if (orb.display_name.empty()) orb.display_name = file.stem().string();
  // The component joins picture names to the folder itself, so it gets the
  // folder without a trailing separator, as an absolute path: the editor's
  // working folder is no business of the component's.
  std::error_code ec;
  const fs::path absolute = fs::absolute(file, ec);
  orb.folder = (ec ? file : absolute).parent_path().string();
  return true;
}

fs::path FindOrbsFolder(const fs::path& binary_dir) {
  const fs::path candidates[] = {
      binary_dir / "orbs",
      binary_dir / ".." / "share" / "formwiz" / "orbs",
      fs::path(FORMWIZ_SOURCE_DIR) / "orbs",
  };
  for (const fs::path& folder : candidates) {
    if (IsDirectory(folder)) return folder.lexically_normal();
  }
  return {};
}

std::vector<BundledOrb> ListOrbs(const fs::path& orbs_folder) {
  std::vector<BundledOrb> orbs;
  if (orbs_folder.empty() || !IsDirectory(orbs_folder)) return orbs;
  std::error_code ec;
  for (const auto& dir : fs::directory_iterator(orbs_folder, ec)) {
    if (!dir.is_directory(ec)) continue;
    for (const auto& entry : fs::directory_iterator(dir.path(), ec)) {
      if (entry.path().extension() != ".qlo") continue;
      Orb orb;
      std::string error;
      // An unreadable orb is left out of the menu; "Other orb file…" still
      // reaches it and tells why it fails.
      if (ReadOrb(entry.path(), orb, error)) {
        orbs.push_back({orb.display_name, entry.path()});
      }
    }
  }
  std::sort(orbs.begin(), orbs.end(), [](const auto& a, const auto& b) {
    return a.display_name != b.display_name ? a.display_name < b.display_name
                                            : a.file < b.file;
  });
  return orbs;
}

}  // namespace formwiz::editor
