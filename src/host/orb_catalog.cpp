#include "orb_catalog.h"

#include <algorithm>
#include <system_error>

#include "input_file.h"

namespace formwiz::host {

namespace fs = std::filesystem;

namespace {

bool IsDirectory(const fs::path& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

}  // namespace

bool ReadOrb(const fs::path& file, Orb& orb, std::string& error) {
  // "-" would be standard input to ReadInputFile; an orb is always a file.
  const fs::path name = file == "-" ? fs::path(".") / file : file;
  const auto text = ReadInputFile(name.string(), kMaxOrbFileSize, error);
  if (!text) return false;
  KelXmlDocument document;
  if (!document.LoadXml(*text)) {
    error = "is not one well-formed XML document";
    return false;
  }
  KelXmlElement impl = FindElementInXml(*text, "impl");
  if (!impl) {
    error = "holds no impl element";
    return false;
  }
  orb.impl = impl;
  orb.display_name.clear();
  for (KelXmlNode node = document.Root().FirstChild(); node;
       node = node.NextSibling()) {
    if (node.NodeType() == kElementNode) {
      orb.display_name = node.GetAttribute("name");
      break;
    }
  }
  if (orb.display_name.empty()) orb.display_name = file.stem().string();
  std::error_code ec;
  const fs::path absolute = fs::absolute(file, ec);
  orb.folder = (ec ? file : absolute).parent_path().lexically_normal().string();
  if (orb.folder.size() > 1 && orb.folder.back() == '/') orb.folder.pop_back();
  return true;
}

fs::path FindOrbsFolder(const fs::path& binary_dir) {
  if (IsDirectory(binary_dir / "orbs")) {
    return (binary_dir / "orbs").lexically_normal();
  }
  // bin/ is one level below the prefix; a build tree's programs are two
  // (apps/<program>/) and its tests' up to three below the build folder.
  constexpr int kLevels = 3;
  fs::path above = binary_dir;
  for (int level = 1; level <= kLevels; ++level) {
    above /= "..";
    const fs::path folder = above / "share" / "formwiz" / "orbs";
    if (IsDirectory(folder)) return folder.lexically_normal();
  }
  return {};
}

fs::path RunningProgramFolder() {
  std::error_code ec;
  const fs::path program = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : program.parent_path();
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
      // An unreadable orb is left out of the menu; naming its file still
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

fs::path ResolveOrb(const std::string& name, const fs::path& orbs_folder) {
  std::error_code ec;
  const bool bare = !name.empty() && name != "." && name != ".." &&
                    name.find('/') == std::string::npos;
  if (!bare || orbs_folder.empty() || fs::exists(name, ec)) return name;
  const fs::path bundled = orbs_folder / name / (name + ".qlo");
  return fs::is_regular_file(bundled, ec) ? bundled : fs::path(name);
}

}  // namespace formwiz::host
