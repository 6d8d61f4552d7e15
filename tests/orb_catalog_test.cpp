// Where the bundled orbs are found and how a person names one: the editor's
// menu and `formwiz page insert --orb` read them through the same catalog.
#include "host/orb_catalog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "component_test_support.h"

namespace formwiz {
namespace {

namespace fs = std::filesystem;

const fs::path kOrbs = fs::path(FORMWIZ_SOURCE_DIR) / "orbs";

TEST(OrbCatalogTest, ListsEveryBundledOrbByItsNameAndResolvesBareNames) {
  // Every folder of orbs/ holds one orb of the folder's name, which the
  // listing shows under the orb's own name.
  const auto listed = host::ListOrbs(kOrbs);
  size_t folders = 0;
  for (const auto& dir : fs::directory_iterator(kOrbs)) {
    const std::string name = dir.path().filename().string();
    SCOPED_TRACE(name);
    ++folders;
    const fs::path file = host::ResolveOrb(name, kOrbs);
    EXPECT_EQ(file, dir.path() / (name + ".qlo"));
    host::Orb orb;
    std::string error;
    ASSERT_TRUE(host::ReadOrb(file, orb, error)) << error;
    EXPECT_NE(orb.display_name, name) << "the orb has no name of its own";
    EXPECT_EQ(fs::path(orb.folder), dir.path().lexically_normal());
    EXPECT_EQ(std::count_if(listed.begin(), listed.end(),
                            [&](const host::BundledOrb& b) {
                              return b.display_name == orb.display_name &&
                                     b.file == file;
                            }),
              1);
  }
  EXPECT_EQ(listed.size(), folders);
  EXPECT_TRUE(std::is_sorted(
      listed.begin(), listed.end(),
      [](auto& a, auto& b) { return a.display_name < b.display_name; }));

  // A file that exists is taken as named, even under a bundled orb's name;
  // a name that is neither stays as given, for the reader to refuse.
  const std::string here = TempPath("form");
  std::ofstream(here) << "<orb name=\"X\"><form/></orb>";
  EXPECT_EQ(host::ResolveOrb(here, kOrbs), fs::path(here));
  EXPECT_EQ(host::ResolveOrb("no-such-orb", kOrbs), fs::path("no-such-orb"));
  EXPECT_EQ(host::ResolveOrb("../form", kOrbs), fs::path("../form"));
  host::Orb orb;
  std::string error;
  EXPECT_FALSE(host::ReadOrb(here, orb, error));
  EXPECT_EQ(error, "holds no impl element");
  EXPECT_FALSE(host::ReadOrb("no-such-orb", orb, error));
  EXPECT_TRUE(error.starts_with("cannot read")) << error;
  fs::remove(here);
}

// The programs look for the orbs only relative to their own folder, so an
// install moved to any prefix finds its own, and a build tree its link.
TEST(OrbCatalogTest, FindsTheOrbsRelativeToTheProgramsFolder) {
  const fs::path root = TempPath("prefix");
  fs::remove_all(root);
  struct Case {
    const char* orbs;     // the orbs folder made under root; "" for none
    const char* program;  // the program's folder under root
    const char* found;    // what the lookup gives, under root; "" for none
  };
  const Case cases[] = {
      {"opt/fw/share/formwiz/orbs", "opt/fw/bin", "opt/fw/share/formwiz/orbs"},
      {"build/share/formwiz/orbs", "build/apps/formwiz",
       "build/share/formwiz/orbs"},
      {"build/share/formwiz/orbs", "build/tests/a/b",
       "build/share/formwiz/orbs"},
      {"app/orbs", "app", "app/orbs"},
      // Four levels up is no longer the program's tree.
      {"x/share/formwiz/orbs", "x/a/b/c/d", ""},
      {"", "usr/bin", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.program);
    fs::remove_all(root);
    fs::create_directories(root / c.program);
    if (*c.orbs) fs::create_directories(root / c.orbs);
    const fs::path found = host::FindOrbsFolder(root / c.program);
    EXPECT_EQ(found,
              *c.found ? (root / c.found).lexically_normal() : fs::path());
  }
  fs::remove_all(root);
}

}  // namespace
}  // namespace formwiz
