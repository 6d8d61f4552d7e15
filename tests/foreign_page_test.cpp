// Pages formwiz did not write: real-world shapes open into blocks and save
// byte for byte; edits change only the blocks edited and read back the
// same; files in another encoding, binary files and plain text are refused
// and the page kept. `formwiz page` on such a page is cli_test's.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "component/identity.h"
#include "host/page.h"
#include "host/source_summary.h"

namespace formwiz::host {
namespace {

std::string ReadCorpus(const std::string& name) {
  std::ifstream in(
      std::string(FORMWIZ_SOURCE_DIR) + "/tests/data/foreign_pages/" + name,
      std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  EXPECT_TRUE(in.good() || in.eof()) << name;
  return bytes.str();
}

// The blocks' kinds: o object, p paragraph, s someone else's bytes.
std::string Kinds(const Page& page) {
  std::string kinds;
  for (const PageBlock& block : page.blocks) {
    kinds += block.object ? 'o' : block.source ? 's' : 'p';
  }
  return kinds;
}

Page Read(const std::string& text) {
  Page page;
  std::string error;
  EXPECT_TRUE(ReadPage(text, page, error)) << error;
  return page;
}

struct CorpusPage {
  const char* file;
  const char* kinds;
  const char* title;  // empty: the page has no <title>
  const char* newline;
};

// Each file's blocks as a person sees them: its top-level body elements and
// texts, with the paragraphs that are exactly as formwiz writes them.
const CorpusPage kCorpus[] = {
    {"fragment.html", "sss", "", "\n"},
    // Comments on a line of their own open the block after them.
    {"full-document.html", "sspsss", "Acme & Sons Shop", "\n"},
    {"crlf.html", "sps", "Windows page", "\r\n"},
    {"template-partial.html", "ssssss", "", "\n"},
    {"comments-and-templates.html", "ssss", "Rows", "\n"},
    {"non-ascii.html", "spp",
     "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x80\x93 \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E "
     "\xE2\x80\x93 \xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA"
     "\xCE\xAC",
     "\n"},
    {"bom.html", "p", "With a byte order mark", "\n"},
    // Unclosed elements run to the end; what stood after </body> is moved
    // into the open <div> by the parser, so the block runs past </body>.
    {"unclosed.html", "sss", "Sloppy", "\n"},
};

TEST(ForeignPageTest, RealPagesOpenIntoBlocksAndSaveByteForByte) {
  for (const CorpusPage& c : kCorpus) {
    SCOPED_TRACE(c.file);
    const std::string text = ReadCorpus(c.file);
    const Page page = Read(text);
    ASSERT_TRUE(page.frame);
    EXPECT_EQ(Kinds(page), c.kinds);
    EXPECT_EQ(page.title, c.title);
    EXPECT_EQ(CanSetTitle(page), *c.title != '\0');
    EXPECT_EQ(page.frame->newline, c.newline);
    EXPECT_EQ(WritePage(page), text);
  }
  // A comment on a line of its own heads the block after it; one on the
  // line where a block ends stays with that block.
  const Page page = Read(ReadCorpus("full-document.html"));
  EXPECT_TRUE(page.blocks[0].source->starts_with("<!-- Site header -->\n"));
  EXPECT_NE(page.blocks[0].source->find("</header> <!-- /header -->\n"),
            std::string::npos);
}

// What a person does in the editor: a form and a paragraph between blocks,
// a move and a delete.
void Edit(Page& page, const std::string& newline) {
  const auto form = std::make_shared<PageObject>(page.document);
  form->prog_id = kProgId;
  form->display_name = "Contact";
  form->html_data = Variant::String("<impl><form name=\"a\"/></impl>");
  form->html_source = "<form action=\"/send\">" + newline +
                      "<input name=\"a\"></form>" + newline;
  form->html_picture = std::vector<uint8_t>{0x89, 'P', 'N', 'G'};
  page.InsertBlock(page.blocks.size() / 2, {{}, form});
  page.InsertBlock(0, {"New <text> & more", nullptr});
  page.MoveBlock(page.blocks.size() - 1, 1);
  page.DeleteBlock(page.blocks.size() - 1);
}

// The page as runs of blocks: each paragraph and object with all it holds,
// and each run of someone else's blocks as its bytes. Runs, because two of
// someone else's texts that an edit puts side by side are one text to any
// HTML parser.
std::vector<std::string> Runs(const Page& page) {
  std::vector<std::string> runs;
  bool in_source = false;
  for (const PageBlock& block : page.blocks) {
    if (block.source) {
      if (!in_source) runs.push_back("source: ");
      runs.back() += *block.source;
    } else if (block.object) {
      const PageObject& o = *block.object;
      runs.push_back(
          "object: " + o.prog_id + "|" + *o.display_name + "|" +
          o.html_data->text + "|" + *o.html_source + "|" +
          std::string(o.html_picture->begin(), o.html_picture->end()));
    } else {
      runs.push_back("paragraph: " + block.text);
    }
    in_source = block.source.has_value();
  }
  return runs;
}

TEST(ForeignPageTest, EditsChangeOnlyTheBlocksEditedAndReadBack) {
  for (const CorpusPage& c : kCorpus) {
    SCOPED_TRACE(c.file);
    const std::string text = ReadCorpus(c.file);
    Page page = Read(text);
    Edit(page, c.newline);
    const std::string saved = WritePage(page);
    // The frame is untouched, and every block that was kept stands in it
    // byte for byte.
    EXPECT_TRUE(saved.starts_with(page.frame->before));
    EXPECT_TRUE(saved.ends_with(page.frame->after));
    for (const PageBlock& block : page.blocks) {
      if (block.source) {
        EXPECT_NE(saved.find(*block.source), std::string::npos);
      }
    }
    // A CR LF page stays all CR LF.
    if (std::string(c.newline) == "\r\n") {
      for (size_t at = saved.find('\n'); at != std::string::npos;
           at = saved.find('\n', at + 1)) {
        ASSERT_EQ(saved[at - 1], '\r') << at;
      }
    }
    // Read back: the same blocks, the form re-editable with everything the
    // component stored in it, and the same bytes when saved again.
    const Page again = Read(saved);
    EXPECT_EQ(Runs(again), Runs(page));
    EXPECT_EQ(again.document->objects.size(),
              std::count_if(again.blocks.begin(), again.blocks.end(),
                            [](const PageBlock& b) { return b.object; }));
    EXPECT_EQ(again.frame->before, page.frame->before);
    EXPECT_EQ(again.frame->after, page.frame->after);
    EXPECT_EQ(WritePage(again), saved);
  }
}

TEST(ForeignPageTest, OnlyAChangedTitleChangesItsBytes) {
  const std::string text = ReadCorpus("full-document.html");
  Page page = Read(text);
  page.title = "Tools & <more>";
  const size_t from = text.find("<title>") + 7, to = text.find("</title>");
  EXPECT_EQ(WritePage(page), text.substr(0, from) + "Tools &amp; &lt;more&gt;" +
                                 text.substr(to));
  EXPECT_EQ(Read(WritePage(page)).title, "Tools & <more>");
  // A fragment takes its title from the page that includes it: none is
  // written into it.
  const std::string fragment = ReadCorpus("fragment.html");
  Page partial = Read(fragment);
  partial.title = "Ignored";
  EXPECT_EQ(WritePage(partial), fragment);
}

// Shapes the parser rebuilds: blocks follow the bytes, never the tree.
TEST(ForeignPageTest, ReparentedAndImpliedNodesStayInPlace) {
  const struct {
    std::string html;
    const char* kinds;
    const char* after;
  } kCases[] = {
      // Text inside a table is put before it: one block.
      {"<table><tr><td>1</td></tr>X<tr><td>2</td></tr></table>\n<p>p</p>\n",
       "sp", ""},
      // What follows </body> is moved into the body; it stays after it.
      {"<body>\n<div>a</div>\n</body>\n<p>late</p>\n", "s",
       "</body>\n<p>late</p>\n"},
      // An element open across </body> keeps its bytes in its block.
      {"<body><div>a</body>b</div>\n", "s", "</body>b</div>\n"},
      // A marker formwiz did not write is a comment, kept with its block.
      {"<body>\n<!--formwiz-object progid=x -->\n<form></form>\n"
       "<!--/formwiz-object-->\n</body>",
       "s", "</body>"},
      // Near misses of a paragraph stay someone else's bytes.
      {"<p class=x>a</p>\n<p>a &quot;</p>\n<P>a</P>\n<p>a</p><p>b</p>\n",
       "ssssp", ""},
      // Nothing in the body: an insertion goes before </body>.
      {"<!DOCTYPE html><html><head><title>t</title></head><body></body>"
       "</html>",
       "", "</body></html>"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.html);
    Page page = Read(c.html);
    EXPECT_EQ(Kinds(page), c.kinds);
    EXPECT_EQ(page.frame->after, c.after);
    EXPECT_EQ(WritePage(page), c.html);
    page.InsertBlock(0, {"x", nullptr});
    EXPECT_EQ(Kinds(Read(WritePage(page))), "p" + std::string(c.kinds));
  }
}

TEST(ForeignPageTest, OtherEncodingsBinaryAndPlainTextAreRefused) {
  const struct {
    std::string bytes;
    const char* why;
  } kCases[] = {
      {"<p>caf\xE9</p>", "not UTF-8"},
      {"<html><head><meta charset=\"ISO-8859-1\"></head><p>x</p>",
       "ISO-8859-1"},
      {"<head><meta http-equiv=\"content-type\" content=\"text/html; "
       "charset = 'windows-1252'\"></head><p>x</p>",
       "windows-1252"},
      {std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16), "binary"},
      {std::string("<p>a\0b</p>", 10), "binary"},
      {"Just some words.\nNo markup at all.\n", "not an HTML page"},
      {" \n", "empty"},
      {"<html><frameset><frame src=a></frameset></html>", "frameset"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.why);
    Page page = Read(ReadCorpus("bom.html"));
    const std::string before = WritePage(page);
    std::string error;
    EXPECT_FALSE(ReadPage(c.bytes, page, error));
    EXPECT_NE(error.find(c.why), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_EQ(WritePage(page), before);
  }
}

// A page file with a paragraph and a form, as formwiz writes it.
std::string PageFileWithAForm() {
  Page page;
  page.title = "Contact";
  page.blocks.push_back({"Write to us.", nullptr});
  const auto object = page.document->AddObject();
  object->prog_id = "QlnFormOrbWiz.clsFormWiz";
  object->display_name = "Form";
  object->html_source = "<form action=\"/cgi-bin/formmail\">\n</form>";
  object->html_data = Variant::String("<impl><form/></impl>");
  page.AdoptNewObjects(1);
  return WritePageFile(page);
}

std::string Replaced(std::string text, std::string_view from,
                     std::string_view to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(ForeignPageTest, APageFileChangedSinceFormwizWroteItOpensAsAnHtmlPage) {
  const std::string file = PageFileWithAForm();
  std::string crlf;
  for (char c : file)
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  const struct {
    const char* what;
    std::string bytes;
    const char* kinds;  // the blocks of <main>, as Kinds gives them
    const char* said;   // what `changed` says; empty: nothing to say
  } kCases[] = {
      // The common hand edit: a stylesheet and a site header; the form is
      // intact and stays a form.
      {"edited by hand",
       Replaced(Replaced(file, "</head>",
                         "<link rel=\"stylesheet\" href=\"site.css\">\n"
                         "</head>"),
                "<main>", "<header>Acme</header>\n<main>"),
       "po", ""},
      // Converted line ends change the form's bytes: it is kept as HTML.
      {"CR LF", crlf, "ps", "1 form is no longer readable"},
      // Cut short before the form's end marker: what is there is kept.
      {"cut short", file.substr(0, file.find("<!--/formwiz-object-->")), "ps",
       "1 form is no longer readable"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Page page;
    std::string error, changed;
    ASSERT_TRUE(ReadPage(c.bytes, page, error, &changed)) << error;
    EXPECT_EQ(changed.empty(), *c.said == '\0') << changed;
    EXPECT_NE(changed.find(c.said), std::string::npos) << changed;
    EXPECT_EQ(changed.find('\n'), std::string::npos);
    ASSERT_TRUE(page.frame);
    EXPECT_EQ(Kinds(page), c.kinds);
    EXPECT_EQ(page.title, "Contact");
    EXPECT_EQ(page.blocks[0].text, "Write to us.");
    EXPECT_EQ(WritePage(page), c.bytes);
    // A paragraph added at the end lands inside <main>, in the file's line
    // ends, and nothing else moves.
    page.blocks.push_back({"More.", nullptr});
    const std::string saved = WritePage(page);
    const size_t main_end = saved.rfind("</main>");
    if (main_end != std::string::npos) {
      EXPECT_LT(saved.find("<p>More.</p>"), main_end);
    }
    EXPECT_EQ(Read(saved).blocks.size(), page.blocks.size());
  }
  // The page file as written is read as one, and nothing is said.
  Page page;
  std::string error, changed = "stale";
  ASSERT_TRUE(ReadPage(file, page, error, &changed)) << error;
  EXPECT_EQ(changed, "");
  EXPECT_FALSE(page.frame);
  EXPECT_EQ(Kinds(page), "po");
}

TEST(ForeignPageTest, DeepNestingIsReadOrRefusedWithinBounds) {
  constexpr int kDepth = 100'000;
  std::string spans, divs;
  for (int i = 0; i < kDepth; ++i) {
    spans += "<span>";
    divs += "<div>";
  }
  // Inline elements nest at no cost to the parser.
  const Page page = Read(spans);
  EXPECT_EQ(Kinds(page), "s");
  EXPECT_EQ(WritePage(page), spans);
  // Every <div> makes the parser look through all that are open: the parse
  // is given up rather than left to run for most of a minute.
  Page kept;
  std::string error;
  EXPECT_FALSE(ReadPage(divs, kept, error));
  EXPECT_NE(error.find("too complex"), std::string::npos) << error;
}

TEST(ForeignPageTest, BlocksAreSummedUpByTheirTagAndFirstWords) {
  const std::string long_text = "<p>" + std::string(20, 'a') + " " +
                                std::string(30, 'b') + " " +
                                std::string(30, 'c') + "</p>";
  const struct {
    std::string source;
    const char* tag;
    std::string words;
  } kCases[] = {
      {"<h1>Welcome</h1>\r\n\r\n", "h1", "Welcome"},
      {"<P CLASS=x>Open <b>daily</b>\n  from   9.</P>", "p",
       "Open daily from 9."},
      {"<!-- Offers -->\n<section class=a><h2>Our <b>offers</b></h2>"
       "<p>Cheap\n  and good</p></section>\n",
       "section", "Our offers Cheap and good"},
      {"<!-- opening\n hours -->\n", "#comment", "opening hours"},
      {"Some <b>bold</b> text\n", "", "Some bold text"},
      {"<td>a cell out of its table</td>", "", "a cell out of its table"},
      {"<script>var a = '<p>';</script>", "script", ""},
      // Cells are apart on the page, so are their words.
      {"<table><tr><th>Item</th><th>Price</th></tr></table>", "table",
       "Item Price"},
      // Long text is cut at a word, else before a character, never inside.
      {long_text, "p",
       std::string(20, 'a') + " " + std::string(30, 'b') + "\xE2\x80\xA6"},
      {"<p>" + std::string(59, 'x') + "\xC3\xA9\xC3\xA9</p>", "p",
       std::string(59, 'x') + "\xE2\x80\xA6"},
      // Only the start of a huge block is read.
      {"<p>Start " + std::string(kSummaryInputLimit, 'x') + "</p><h1>No</h1>",
       "p", "Start\xE2\x80\xA6"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.source);
    const SourceSummary summary = SummarizeSource(c.source);
    EXPECT_EQ(summary.tag, c.tag);
    EXPECT_EQ(summary.words, c.words);
  }
}

}  // namespace
}  // namespace formwiz::host
