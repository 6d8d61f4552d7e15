// The page file: hostile contents come back byte for byte, and damaged or
// foreign files are refused without touching the page. `formwiz page` on a
// file is cli_test's.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/page.h"

namespace formwiz::host {
namespace {

std::string Replaced(std::string text, const std::string& from,
                     const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// A page holding `s` in every place a page can hold text.
Page PageOf(const std::string& s) {
  Page page;
  page.title = s;
  page.blocks.push_back({s, nullptr});
  const auto object = page.document->AddObject();
  object->prog_id = s;
  object->display_name = s;
  object->html_source = s;
  object->html_data = Variant::String(s);
  object->html_picture.emplace(s.begin(), s.end());
  page.AdoptNewObjects(1);
  return page;
}

TEST(PageFileTest, HostileContentsRoundTripByteForByte) {
  // clang-format off
  const std::vector<std::string> hostile = {
      // Lengths 0 to 5 take every base64 padding.
      "", "--", "-->", " -->\n", "\n<!--/formwiz-object-->\n",
      "<!--formwiz-object progid= name=- -->",
      "</script><script>alert(1)</script>", "\"'&amp;&lt;<>",
      "\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80", "a\r\nb\rc\n",
      "\xFF\xFE\x80 not UTF-8", std::string("nul\0byte", 8)};
  // clang-format on
  for (const std::string& s : hostile) {
    SCOPED_TRACE(testing::PrintToString(s));
    const std::string file = WritePageFile(PageOf(s));
    Page read;
    std::string error;
    ASSERT_TRUE(ReadPageFile(file, read, error)) << error;
    ASSERT_EQ(read.blocks.size(), 2u);
    const auto& object = read.blocks[1].object;
    ASSERT_TRUE(object);
    EXPECT_EQ(read.document->objects, std::vector{object});
    // Every place holds `s` again: the same page writes the same file.
    EXPECT_EQ(read.title + read.blocks[0].text + *object->html_source,
              s + s + s);
    EXPECT_EQ(WritePageFile(read), file);
  }
}

// A page file as formwiz wrote it before pages had titles: a paragraph and
// an object with every property.
constexpr std::string_view kVersion1 =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<meta name=\"generator\" content=\"formwiz page 1\">\n"
    "<title>Page</title>\n<style>p { white-space: pre-wrap; }</style>\n"
    "</head>\n<body>\n<p>a &lt;b&gt; &amp; c\nd</p>\n"
    "<!--formwiz-object progid=UWxuRm9ybU9yYldpei5jbHNGb3JtV2l6 "
    "name=Rm9ybQ== data=s:PGltcGw+PC9pbXBsPg== source=13 picture=iVBORw== -->\n"
    "<form></form>\n<!--/formwiz-object-->\n</body>\n</html>\n";

TEST(PageFileTest, VersionOneFilesReadAndAreWrittenAsVersionTwo) {
  Page page;
  std::string error;
  int version = 0;
  ASSERT_TRUE(ReadPageFile(kVersion1, page, error, &version)) << error;
  EXPECT_EQ(version, 1);
  EXPECT_EQ(page.title, "Page");
  ASSERT_EQ(page.blocks.size(), 2u);
  EXPECT_EQ(page.blocks[0].text, "a <b> & c\nd");
  const auto& object = page.blocks[1].object;
  ASSERT_TRUE(object);
  EXPECT_EQ(object->prog_id, "QlnFormOrbWiz.clsFormWiz");
  EXPECT_EQ(object->display_name, "Form");
  EXPECT_EQ(object->html_data->text, "<impl></impl>");
  EXPECT_EQ(object->html_source, "<form></form>");
  EXPECT_EQ(object->html_picture, (std::vector<uint8_t>{0x89, 'P', 'N', 'G'}));

  // Saved, it is a version 2 file with the same blocks, the header a phone
  // needs, and the page inside <main>.
  const std::string saved = WritePageFile(page);
  EXPECT_NE(saved.find("<meta name=\"viewport\" content=\"width=device-width, "
                       "initial-scale=1\">\n<title>Page</title>\n<style>\n"),
            std::string::npos)
      << saved;
  EXPECT_NE(saved.find("<main>\n<p>a &lt;b&gt; &amp; c\nd</p>\n"),
            std::string::npos);
  EXPECT_TRUE(saved.ends_with(
      "<form></form>\n<!--/formwiz-object-->\n</main>\n</body>\n</html>\n"));
  Page again;
  ASSERT_TRUE(ReadPageFile(saved, again, error, &version)) << error;
  EXPECT_EQ(version, kPageFileVersion);
  EXPECT_EQ(again.title, "Page");
  ASSERT_EQ(again.blocks.size(), 2u);
  EXPECT_EQ(again.blocks[0].text, page.blocks[0].text);
  EXPECT_EQ(again.blocks[1].object->html_source, object->html_source);
  EXPECT_EQ(WritePageFile(again), saved);
}

TEST(PageFileTest, TitlesAreOneLineWithSomethingToRead) {
  for (const auto& [title, ok] : std::vector<std::pair<std::string, bool>>{
           {"Ask for our catalog", true},
           {"<script>&amp;\"'", true},
           {"Caf\xC3\xA9 \xE6\xBC\xA2", true},
           {"x", true},
           {"", false},
           {"   ", false},
           {"two\nlines", false},
           {"tab\there", false},
           {"cr\r", false},
           {"del\x7f", false}}) {
    SCOPED_TRACE(testing::PrintToString(title));
    EXPECT_EQ(PageTitleProblem(title).empty(), ok);
  }
}

TEST(PageFileTest, EveryKindOfStoredDataAndAbsentPropertiesSurvive) {
  const std::vector<std::optional<Variant>> kinds = {
      std::nullopt,           Variant{},
      Variant::Null(),        Variant::Object(nullptr),
      Variant::Number(1.5),   Variant::Number(-0.1),
      Variant::Number(1e300), Variant::Number(NAN),
  };
  Page page;
  for (const auto& data : kinds) page.document->AddObject()->html_data = data;
  page.AdoptNewObjects(0);
  const std::string file = WritePageFile(page);
  Page read;
  std::string error;
  ASSERT_TRUE(ReadPageFile(file, read, error)) << error;
  ASSERT_EQ(read.blocks.size(), kinds.size());
  for (size_t i = 0; i < kinds.size(); ++i) {
    SCOPED_TRACE(i);
    const PageObject& object = *read.blocks[i].object;
    EXPECT_FALSE(object.display_name || object.html_source ||
                 object.html_picture);
    ASSERT_EQ(object.html_data.has_value(), kinds[i].has_value());
    if (!kinds[i]) continue;
    EXPECT_EQ(object.html_data->kind, kinds[i]->kind);
    if (!std::isnan(kinds[i]->number)) {
      EXPECT_EQ(object.html_data->number, kinds[i]->number);
    }
  }
  EXPECT_EQ(WritePageFile(read), file);
}

TEST(PageFileTest, DamagedOrForeignFilesAreRefusedAndThePageKept) {
  const std::string good = WritePageFile(PageOf("body"));
  std::string crlf;
  for (char c : good)
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  // clang-format off
  const std::vector<std::string> damaged = {
      "", "<!DOCTYPE html>\n<html><body><p>hi</p></body></html>\n", crlf,
      good + "\n",
      Replaced(good, "source=4", "source=5"),
      Replaced(good, "source=4", "source=04"),
      Replaced(good, "source=4", "source=99999999999999999999999"),
      Replaced(good, "name=Ym9keQ==", "name=Ym9keQ"),
      Replaced(good, "name=Ym9keQ==", "name=Ym9keR=="),
      Replaced(good, "data=s:", "data=x:"), Replaced(good, " -->\n", "-->\n"),
      Replaced(good, "<!--/formwiz-object-->", "<!--/formwiz-obj-->"),
      Replaced(good, "<p>body", "<p><b>body"),
      Replaced(good, "<p>body", "<p>&quot;body"),
      Replaced(good, "<title>body", "<title>body>"),
      Replaced(good, "<title>body", "<title>&#98;ody"),
      Replaced(good, "</title>", "</title >"),
      Replaced(good, "formwiz page 2", "formwiz page 3"),
      Replaced(good, "initial-scale=1", "initial-scale=2"),
      Replaced(good, "min-height: 2.75rem", "min-height: 44px"),
      Replaced(good, "<main>\n", ""),
      Replaced(good, "</main>\n", ""),
      // A version 1 header with a version 2 body, and the reverse.
      Replaced(Replaced(good, "formwiz page 2", "formwiz page 1"),
               "<title>body", "<title>Page"),
      Replaced(std::string(kVersion1), "<p>", "<main>\n<p>")};
  // clang-format on
  std::vector<std::string> cases = damaged;
  for (size_t n = 0; n < good.size(); ++n) cases.push_back(good.substr(0, n));
  // Huge input is refused by its size alone.
  cases.push_back(std::string(kMaxPageFileSize + 1, ' '));
  for (const std::string& file : cases) {
    SCOPED_TRACE(file.substr(0, 400));
    Page page = PageOf("kept");
    const std::string before = WritePageFile(page);
    const auto objects = page.document->objects;
    std::string error;
    EXPECT_FALSE(ReadPageFile(file, page, error));
    EXPECT_FALSE(error.empty() || error.find('\n') != std::string::npos);
    EXPECT_EQ(WritePageFile(page), before);
    EXPECT_EQ(page.document->objects, objects);
  }
}

}  // namespace
}  // namespace formwiz::host
