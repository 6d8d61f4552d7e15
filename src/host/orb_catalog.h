// The form orbs a host offers: the bundled ones in the orbs folder and any
// orb file a person names, read the way a host hands them to the component.
// The editor's Insert ▸ Form Orb and `formwiz page insert --orb` share it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "formdoc/kelxml.h"

namespace formwiz::host {

// One orb file as the component is to see it.
struct Orb {
  // The `impl` element: a tree of its own, which the dialogs edit in place.
  KelXmlElement impl;
  // The top element's `name` attribute, or the file's base name.
  std::string display_name;
  // The folder of the orb's files (its placeholder picture among them), as
  // an absolute path without a trailing separator: the component joins the
  // picture's name to it with "/", and the host's working folder is no
  // business of the component's.
  std::string folder;
};

// Orb files are at most this long.
inline constexpr size_t kMaxOrbFileSize = size_t{16} << 20;

// Reads an orb file (.qlo). False, with a few words of reason in `error`
// ("cannot read: ...", "is not one well-formed XML document", "holds no impl
// element"), when the file cannot be read or holds no `impl` element.
bool ReadOrb(const std::filesystem::path& file, Orb& orb, std::string& error);

// A bundled orb, listed by the name the menu shows.
struct BundledOrb {
  std::string display_name;
  std::filesystem::path file;
};

// The folder of the bundled orbs. The first of these that exists wins:
//   <binary's folder>/orbs                   orbs copied beside the program,
//   <binary's folder>/../share/formwiz/orbs  an installed program,
//   share/formwiz/orbs two or three levels up  a program run from its build
//                                            tree, where the build links it
//                                            to the sources' orbs.
// Only paths relative to the program: an install moved elsewhere (a DESTDIR,
// /opt) finds its own orbs, and no program carries the path it was built at.
// Empty when there is none.
std::filesystem::path FindOrbsFolder(const std::filesystem::path& binary_dir);

// The folder of the running program (from /proc/self/exe); empty when the
// system does not say.
std::filesystem::path RunningProgramFolder();

// The orbs of that folder: every readable *.qlo one level below it (one
// folder per orb, with its pictures), sorted by display name.
std::vector<BundledOrb> ListOrbs(const std::filesystem::path& orbs_folder);

// The orb file a person means by `name`: a file path as given, or, when no
// such file exists and `name` is a bare word, the bundled orb of that folder
// (`contact` is <orbs>/contact/contact.qlo). The path as given otherwise, so
// that reading it reports why it fails.
std::filesystem::path ResolveOrb(const std::string& name,
                                 const std::filesystem::path& orbs_folder);

}  // namespace formwiz::host
