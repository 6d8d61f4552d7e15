// The tree: parsing, serialising and node moves. What LoadXml refuses, and
// trees of any depth, are hostile_input_test's.
#include "formdoc/kelxml.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "component/failure.h"

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

TEST(KelXmlFind, FindsTopOrNestedElementDetached) {
  KelXmlElement impl =
      FindElementInXml("<orb><meta/><impl><form/></impl><impl/></orb>", "impl");
  ASSERT_FALSE(impl.IsNull());
  EXPECT_EQ(impl.Xml(), "<impl><form></form></impl>");
  EXPECT_TRUE(impl.ParentNode().IsNull());
  EXPECT_FALSE(FindElementInXml("<impl/>", "impl").IsNull());
  EXPECT_TRUE(FindElementInXml("<orb/>", "impl").IsNull());
  EXPECT_TRUE(FindElementInXml("<impl>", "impl").IsNull());
}

}  // namespace
}  // namespace formwiz
