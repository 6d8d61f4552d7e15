// The form orbs the editor offers: the bundled ones in the orbs folder and
// any orb file a person picks, read the way the editor hands them to the
// component.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "formdoc/kelxml.h"

namespace formwiz::editor {

// One orb file as the component is to see it.
struct Orb {
  // The `impl` element: a tree of its own, which the dialogs edit in place.
  KelXmlElement impl;
  // The top element's `name` attribute, or the file's base name.
  std::string display_name;
  // The folder of the orb's files (its placeholder picture among them).
  std::string folder;
};

// Reads an orb file (.qlo). False, with a one-line reason in `error`, when
// the file cannot be read or holds no `impl` element.
bool ReadOrb(const std::filesystem::path& file, Orb& orb, std::string& error);

// A bundled orb, listed by the name the menu shows.
struct BundledOrb {
  std::string display_name;
  std::filesystem::path file;
};

// The folder of the bundled orbs. The first of these that exists wins:
//   <binary's folder>/orbs                 orbs copied beside the program,
//   <binary's folder>/../share/formwiz/orbs  an installed program,
//   <source tree>/orbs                     a program run from its build tree.
// Empty when there is none.
std::filesystem::path FindOrbsFolder(const std::filesystem::path& binary_dir);

// The orbs of that folder: every readable *.qlo one level below it (one
// folder per orb, with its pictures), sorted by display name.
std::vector<BundledOrb> ListOrbs(const std::filesystem::path& orbs_folder);

}  // namespace formwiz::editor
