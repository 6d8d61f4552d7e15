#include <gtest/gtest.h>

#include "formdoc/form_doc.h"

namespace formwiz {
namespace {

TEST(IncludedTest, ReadsAndRewritesTheCharacterAtTheIndex) {
  struct Case {
    const char* before;  // nullptr: no `included` attribute
    int32_t index;
    bool included;
    bool tick;
    const char* after;
  } cases[] = {
      {"yh", 1, true, false, "nh"},
      {"yh", 2, false, true, "yy"},
      {"y", 2, false, true, "yy"},
      {nullptr, 2, false, true, "y"},
      {"n", 5, false, true, "ny"},    // Grows by one, never padded.
      {"yn", 0, false, true, "yyn"},  // Index 0 reads the whole value.
      {"y", 0, true, false, "n"},
      {"\xC3\xA9yn", 2, true, false, "\xC3\xA9nn"},  // Counts characters.
  };
  for (const Case& c : cases) {
    const KelXmlElement field = FindElementInXml("<section/>", "section");
    if (c.before) field.SetAttribute("included", c.before);
    EXPECT_EQ(IsIncluded(field, c.index), c.included) << c.before;
    SetFieldIncluded(field, c.index, c.tick);
    EXPECT_EQ(field.GetAttribute("included"), c.after) << c.before;
  }
  EXPECT_TRUE(IsFieldHidden(FindElementInXml("<s included=\"yh\"/>", "s"), 2));
  EXPECT_FALSE(IsIncluded(KelXmlNode(), 1));  // Lets no failure out.
}

}  // namespace
}  // namespace formwiz
