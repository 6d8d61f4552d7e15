// The tree: parsing, serialising and node moves; and hostile input: what
// cannot be read is refused whole and quickly, what can be read comes out as
// XML's rules say and is written so that it reads back the same, and a tree
// of any depth or width is walked without recursion.
#include "formdoc/kelxml.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "component/failure.h"
#include "component_test_support.h"
#include "formdoc/parse_ahead.h"

namespace formwiz {
namespace {

KelXmlNode Top(KelXmlDocument& doc, std::string_view xml) {
  EXPECT_TRUE(doc.LoadXml(xml)) << xml;
  return doc.Root().FirstChild();
}

// A detached text node holding `data`.
KelXmlText NewText(std::string_view data) {
  KelXmlText text = FindElementInXml("<t>x</t>", "t").FirstChild();
  text.SetData(data);
  return text;
}

TEST(KelXmlParse, KeepsNodesAttributeOrderAndText) {
  KelXmlDocument doc;
  KelXmlNode top = Top(
      doc, "<impl z=\"1\" a=\"2\" m=\"3\"> <!--c--><?pi x?>t&amp;<b/></impl>");
  const auto attrs = top.Attributes();
  ASSERT_EQ(attrs.Count(), 3);
  EXPECT_EQ(attrs.Item(0).Name() + attrs.Item(2).Name(), "zm");
  EXPECT_TRUE(attrs.Item(3).IsNull());
  std::vector<int32_t> kinds;
  std::string texts;
  for (KelXmlNode n = top.FirstChild(); n; n = n.NextSibling()) {
    kinds.push_back(n.NodeType());
    if (n.NodeType() == kTextNode) texts += KelXmlText(n).Data() + "|";
  }
  EXPECT_EQ(kinds, (std::vector<int32_t>{kTextNode, kCommentNode,
                                         kProcessingInstructionNode, kTextNode,
                                         kElementNode}));
  EXPECT_EQ(texts, " |t&|");
  EXPECT_EQ(top.Text(), " t&");  // the text of the whole subtree
  EXPECT_EQ(top.FirstChild().NextSibling().TagName(), "#comment");
  EXPECT_EQ(top.ParentNode(), doc.Root());
  EXPECT_EQ(doc.Root().NodeType(), kDocumentNode);
  // A comment before the top element is the first node.
  EXPECT_EQ(Top(doc, "<?xml version=\"1.0\"?><!-- x --><impl/>").NodeType(),
            kCommentNode);
}

TEST(KelXmlWrite, EscapesAndWritesMarksHtmlStyle) {
  KelXmlDocument doc;
  KelXmlElement form = Top(doc, "<form><p/></form>");
  KelXmlElement input = form.AppendNewElement("input");
  input.SetAttribute("value", "a\"<b>&\t\n\r'");
  input.SetNoEndTag(true);
  KelXmlElement area = form.AppendNewElement("textarea");
  area.SetExplicitEndTag(true);
  KelXmlElement td = form.AppendNewElement("td");
  td.InsertBefore(doc.Root().FirstChild().FirstChild().CloneNode(true), {});
  form.AppendNewElement("b").InsertBefore(NewText("<script>&]]>\r\x01\xFF"),
                                          {});
  EXPECT_EQ(form.Xml(),
            "<form><p></p><input value=\"a&quot;&lt;b>&amp;&#9;&#10;&#13;'\">"
            "<textarea></textarea><td><p></p></td>"
            "<b>&lt;script&gt;&amp;]]&gt;&#13;\xEF\xBF\xBD\xEF\xBF\xBD</b>"
            "</form>");
  // Whatever the values hold, the output parses again.
  KelXmlDocument again;
  input.SetNoEndTag(false);
  EXPECT_TRUE(again.LoadXml(form.Xml()));
}

TEST(KelXmlEdit, RemovedNodeKeepsItsSubtreeAndMovesAnywhere) {
  KelXmlDocument doc;
  KelXmlNode top = Top(doc, "<r><a k=\"v\"><b>x</b></a><c/>t</r>");
  KelXmlNode a = top.FirstChild();
  KelXmlNode c = a.NextSibling();
  EXPECT_EQ(top.RemoveChild(a), a);
  EXPECT_TRUE(a.ParentNode().IsNull());
  EXPECT_TRUE(a.NextSibling().IsNull());
  EXPECT_EQ(top.Xml(), "<r><c></c>t</r>");
  c.ParentNode().InsertBefore(a, c.NextSibling());  // between c and "t"
  EXPECT_EQ(top.Xml(), "<r><c></c><a k=\"v\"><b>x</b></a>t</r>");
  top.InsertBefore(a, {});  // moved from its place to the end
  EXPECT_EQ(top.Xml(), "<r><c></c>t<a k=\"v\"><b>x</b></a></r>");
  // Text inserted next to text stays a node of its own.
  top.InsertBefore(c.NextSibling().CloneNode(true), c.NextSibling());
  EXPECT_EQ(c.NextSibling().NextSibling().NodeType(), kTextNode);
  // A node held after its whole tree has gone stays whole, detached.
  KelXmlNode b = a.FirstChild();
  { KelXmlDocument gone = std::move(doc); }
  doc = KelXmlDocument();
  EXPECT_EQ(b.Xml(), "<b>x</b>");
  EXPECT_EQ(b.ParentNode(), a);
}

TEST(KelXmlEdit, MisuseRaisesTheRuntimeFailures) {
  KelXmlDocument doc;
  KelXmlNode top = Top(doc, "<r><a/>text</r>");
  KelXmlNode a = top.FirstChild();
  KelXmlNode text = a.NextSibling();
  const struct {
    const char* what;
    std::function<void()> call;
    int32_t number;
  } cases[] = {
      {"null handle", [] { KelXmlNode().FirstChild(); }, err::kObjectNotSet},
      {"ref of another parent", [&] { a.InsertBefore(text, top); },
       err::kInvalidArgument},
      {"cycle", [&] { a.InsertBefore(top, {}); }, err::kInvalidArgument},
      {"not a child", [&] { a.RemoveChild(text); }, err::kInvalidArgument},
      {"child of text", [&] { text.InsertBefore(a.CloneNode(true), {}); },
       err::kInvalidArgument},
      {"element of text", [&] { KelXmlElement e = text; }, err::kTypeMismatch},
      {"text of element", [&] { KelXmlText t = a; }, err::kTypeMismatch},
      {"null attribute", [] { KelXmlAttribute().Value(); }, err::kObjectNotSet},
  };
  for (const auto& c : cases) {
    auto failure = Catch(c.call);
    ASSERT_TRUE(failure) << c.what;
    EXPECT_EQ(failure->number, c.number) << c.what;
  }
  EXPECT_EQ(top.Xml(), "<r><a></a>text</r>");  // nothing moved
  // Absent things read as empty or null, never as failures.
  EXPECT_EQ(a.GetAttribute("nope"), "");
  EXPECT_TRUE(a.GetAttributeNode("nope").IsNull());
  EXPECT_TRUE(text.Attributes().IsNull());
  EXPECT_TRUE(top.GetElementsByTagName("zz").Item(0).IsNull());
  a.SetAttribute("e", "");
  EXPECT_FALSE(a.GetAttributeNode("e").IsNull());
  a.RemoveAttribute("e");
  EXPECT_TRUE(a.GetAttributeNode("e").IsNull());
}

// Property: the output of Xml parses back to the same tree, for random trees
// of names, text with markup characters, non-ASCII text and empty elements.
TEST(KelXmlRoundTrip, XmlParsesBackToTheSameTree) {
  std::mt19937 rng(20261122);
  // clang-format off
  const char* names[] = {"impl", "form", "section", "td", "x-y", "a.b",
                         "\xC3\xA9t"};
  const char* texts[] = {"&", "<", ">", "\"", "'", "]]>", " ", "\t", "\n",
                         "\r\n", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "abc",
                         "[fieldname]", "&amp;"};
  // clang-format on
  auto pick = [&rng](auto& array) { return array[rng() % std::size(array)]; };
  auto random_text = [&] {
    std::string s;
    for (int i = 1 + rng() % 5; i > 0; --i) s += pick(texts);
    return s;
  };
  for (int round = 0; round < 300; ++round) {
    KelXmlDocument doc;
    KelXmlElement top = Top(doc, "<impl/>");
    std::vector<KelXmlElement> elements{top};
    for (int i = rng() % 40; i > 0; --i) {
      KelXmlElement parent = elements[rng() % elements.size()];
      KelXmlNode last;
      for (KelXmlNode n = parent.FirstChild(); n; n = n.NextSibling()) last = n;
      if (rng() % 3 == 0 && (!last || last.NodeType() != kTextNode)) {
        parent.InsertBefore(NewText(random_text()), {});
      } else {
        KelXmlElement e = parent.AppendNewElement(pick(names));
        for (int k = rng() % 3; k > 0; --k) {
          e.SetAttribute(std::string("a") + std::to_string(rng() % 4),
                         rng() % 4 ? random_text() : "");
        }
        elements.push_back(e);
      }
    }
    KelXmlDocument again;
    ASSERT_TRUE(again.LoadXml(top.Xml())) << top.Xml();
    // The writer is exact (KelXmlWrite), so equal output is an equal tree.
    ASSERT_EQ(again.Root().FirstChild().Xml(), top.Xml());
  }
}

// Documents it cannot read give no element: KelXmlHostile below.
TEST(KelXmlFind, FindsTheFirstNestedElementDetached) {
  KelXmlElement impl =
      FindElementInXml("<orb><meta/><impl><form/></impl><impl/></orb>", "impl");
  EXPECT_EQ(impl.Xml(), "<impl><form></form></impl>");
  EXPECT_TRUE(impl.ParentNode().IsNull());
  EXPECT_TRUE(FindElementInXml("<orb/>", "impl").IsNull());
}

// A definition parsed ahead on another thread is what LoadXml of the same
// text would build, is taken by one document only, and a text that does
// not parse is never held, so LoadXml still refuses it.
TEST(KelXmlParseAhead, LoadXmlTakesTheTreeOnceAndRefusesAsBefore) {
  DropParsedAhead();
  const std::string text =
      "<impl>\n  <!-- c --><form a=\"1\" b=\"&amp;\"><x>t</x></form>\n</impl>";
  KelXmlDocument fresh;
  ASSERT_TRUE(fresh.LoadXml(text));
  bool parsed = false;
  std::thread([&] { parsed = ParseAhead(text); }).join();
  ASSERT_TRUE(parsed);
  EXPECT_TRUE(IsParsedAhead(text));
  EXPECT_FALSE(IsParsedAhead(text + " "));

  KelXmlDocument first;
  ASSERT_TRUE(first.LoadXml(text));
  EXPECT_FALSE(IsParsedAhead(text));
  EXPECT_EQ(first.Root().FirstChild().Xml(), fresh.Root().FirstChild().Xml());
  // The second open parses again.
  KelXmlDocument second;
  ASSERT_TRUE(second.LoadXml(text));
  EXPECT_EQ(second.Root().FirstChild().Xml(), fresh.Root().FirstChild().Xml());

  for (const NamedXml& c : Unreadable()) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(ParseAhead(c.xml));
    EXPECT_FALSE(IsParsedAhead(c.xml));
    EXPECT_FALSE(second.LoadXml(c.xml));
  }
}

// Threads parse ahead while the opening thread takes trees; what is held
// stays within its bound, the oldest going first.
TEST(KelXmlParseAhead, ManyThreadsAndABoundedStore) {
  DropParsedAhead();
  const size_t share = kParseAheadBytes / 4;
  std::vector<std::string> texts;
  for (int i = 0; i < 6; ++i) {
    texts.push_back("<a n=\"" + std::to_string(i) + "\"><!--" +
                    std::string(share, 'x') + "--></a>");
  }
  std::vector<std::thread> workers;
  for (int w = 0; w < 2; ++w) {
    workers.emplace_back([&, w] {
      for (size_t i = static_cast<size_t>(w); i < 4; i += 2) {
        ParseAhead(texts[i]);
      }
    });
  }
  for (int round = 0; round < 50; ++round) {
    KelXmlDocument doc;
    ASSERT_TRUE(doc.LoadXml(texts[static_cast<size_t>(round % 4)]));
  }
  for (std::thread& w : workers) w.join();
  DropParsedAhead();
  for (const std::string& t : texts) ASSERT_TRUE(ParseAhead(t));
  // Four shares and their tags are more than the bound: three are held, the
  // newest.
  for (size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(IsParsedAhead(texts[i]), i >= 3) << i;
  }
  EXPECT_FALSE(ParseAhead(std::string(kParseAheadBytes + 1, ' ')));
  DropParsedAhead();
  EXPECT_FALSE(IsParsedAhead(texts[5]));
}

TEST(KelXmlHostile, UnreadableDocumentsAreRefusedWhole) {
  std::vector<NamedXml> cases = Unreadable();
  cases.push_back({"empty", ""});  // the component never reads it
  for (const NamedXml& c : cases) {
    SCOPED_TRACE(c.name);
    KelXmlDocument doc;
    ASSERT_TRUE(doc.LoadXml("<kept/>"));
    EXPECT_FALSE(doc.LoadXml(c.xml));
    EXPECT_EQ(doc.Root().FirstChild().Xml(), "<kept></kept>");
    EXPECT_TRUE(FindElementInXml(c.xml, "impl").IsNull());
  }
  KelXmlDocument doc;
  const int cap = KelXmlDocument::kMaxDepth;
  EXPECT_TRUE(doc.LoadXml(Repeat("<a>", cap) + Repeat("</a>", cap)));
  // A declared encoding does not change how the bytes are read.
  EXPECT_TRUE(doc.LoadXml(
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xC3\xA9</a>"));
  EXPECT_EQ(doc.Root().FirstChild().Text(), "\xC3\xA9");
}

TEST(KelXmlHostile, LineEndsAreNormalisedAndWrittenToReadBackTheSame) {
  const struct {
    std::string_view xml;  // CR LF, lone CR, tab and their references
    std::string_view value;
    std::string_view text;
  } kCases[] = {
      {"<a v=\"1\r\n2\">1\r\n2</a>", "1 2", "1\n2"},
      {"<a v=\"1\r2\">1\r2</a>", "1 2", "1\n2"},
      {"<a v=\"1\r\r\n2\">1\r\r\n2</a>", "1  2", "1\n\n2"},
      {"<a v=\"1\n\t2\">1\n\t2</a>", "1  2", "1\n\t2"},
      {"<a v=\"&#13;&#10;&#9;\">&#13;&#10;&#13;</a>", "\r\n\t", "\r\n\r"},
      {"<a v=\"\r\">\r<![CDATA[\r\n]]>&#13;\r</a>", " ", "\n\n\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::string(c.xml)));
    KelXmlDocument doc;
    ASSERT_TRUE(doc.LoadXml(c.xml));
    const KelXmlNode a = doc.Root().FirstChild();
    EXPECT_EQ(a.GetAttribute("v"), c.value);
    EXPECT_EQ(a.Text(), c.text);
    const KelXmlElement again = FindElementInXml(a.Xml(), "a");
    EXPECT_EQ(again.GetAttribute("v"), c.value) << a.Xml();
    EXPECT_EQ(again.Text(), c.text);
  }
}

TEST(KelXmlHostile, AHugeAttributeValueLoads) {
  // Over 100 MB of attribute value, so the text reaches the parser in
  // several pieces, and a CR LF in the text split across two of them. The
  // writing back of what was normalised is the test above, on small text.
  constexpr size_t kPiece = size_t{1} << 24;
  const std::string head = "<a v=\"\r\n&#13;&#9;\t";
  const std::string tail = "\">x\r\ny</a>";
  std::string doc = head;
  doc.append(6 * kPiece - head.size() - 4, 'v');
  doc += tail;
  ASSERT_EQ(doc.substr(6 * kPiece - 1, 2), "\r\n");
  const size_t fill = doc.size() - head.size() - tail.size();
  ASSERT_GT(fill, 100000000u);

  KelXmlDocument loaded;
  ASSERT_TRUE(loaded.LoadXml(doc));
  doc = std::string();
  const KelXmlNode a = loaded.Root().FirstChild();
  const std::string value = a.GetAttribute("v");
  ASSERT_EQ(value.size(), 4 + fill);
  EXPECT_EQ(value.substr(0, 4), " \r\t ");
  EXPECT_EQ(value.find_first_not_of('v', 4), std::string::npos);
  EXPECT_EQ(a.Text(), "x\ny");
}

TEST(KelXmlHostile, ATreeOfAnyDepthOrWidthIsWrittenCopiedAndFreed) {
  // Code may build deeper than the parser accepts, and rows of siblings of
  // any length; every walk of the tree must take them without recursion.
  constexpr int kDepth = 300000, kWidth = 50000;
  KelXmlElement top = FindElementInXml("<a/>", "a");
  KelXmlElement leaf = top;
  for (int i = 1; i < kDepth; ++i) leaf = leaf.AppendNewElement("a");
  leaf.InsertBefore(FindElementInXml("<t>x</t>", "t").FirstChild(), {});
  for (int i = 0; i < kWidth; ++i) top.AppendNewElement("s");
  const std::string xml = top.Xml();
  EXPECT_EQ(xml.size(), (kDepth + kWidth) * 7 + 1);
  EXPECT_EQ(top.GetElementsByTagName("a").Count(), kDepth - 1);
  EXPECT_TRUE(top.CloneNode(true).Xml() == xml);
  KelXmlDocument doc;
  EXPECT_FALSE(doc.LoadXml(xml)) << "deeper than the reader takes";
  top = KelXmlElement();
  EXPECT_EQ(leaf.Text(), "x") << "a held node outlives its tree";
}

}  // namespace
}  // namespace formwiz
