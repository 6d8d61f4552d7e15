#include "bench/definition.h"

#include <string>

namespace formwiz::bench {
namespace {

// Prompts of the lengths people give them; each field gets one with its
// number behind it, so that no two fields are the same.
constexpr const char* kPrompts[] = {
    "Your name:",          "Your e-mail address:", "Company or organization:",
    "Daytime telephone:",  "Street address:",      "City:",
    "ZIP or postal code:", "Your comments:",       "How did you hear about us?",
};
// One character per form choice: y on, n off, h not offered.
constexpr const char* kIncluded[] = {"yyn", "yny", "nyy", "hyn",
                                     "nnh", "yhy", "yyy"};

}  // namespace

std::string GeneratedDefinition(int fields) {
  std::string xml =
      "<impl>\n"
      "  <placeholder src=\"form.png\"/>\n";
  for (const char* name : {"comment", "request", "order"}) {
    xml += "  <forminfo>\n    <desc>A ";
    xml += name;
    xml +=
        " form lets visitors reach you from the web site. It asks for their "
        "name and e-mail address and gives them room for a message.</desc>\n"
        "    <response>Thank you. We have received your ";
    xml += name;
    xml +=
        " and will reply within a few days.</response>\n"
        "    <emailsubject>A ";
    xml += name;
    xml += " from the web site</emailsubject>\n  </forminfo>\n";
  }
  xml +=
      "  <!-- One line of text: prompt on the left, box on the right. -->\n"
      "  <template name=\"line\"><tr><td>[fieldprompt]</td><td><input "
      "type=\"text\" name=\"[fieldname]\" size=\"[size]\" "
      "maxlength=\"[maxlength]\"/></td></tr></template>\n"
      "  <!-- Several lines of text. -->\n"
      "  <template name=\"area\"><tr><td>[fieldprompt]</td><td><textarea "
      "name=\"[fieldname]\" rows=\"[rows]\" cols=\"[cols]\"></textarea></td>"
      "</tr></template>\n"
      "  <form uitype=\"orb\" "
      "defaultaction=\"/cgi-bin/formmail\">\n"
      "    <table>\n";
  constexpr int kPromptCount = sizeof kPrompts / sizeof kPrompts[0];
  constexpr int kIncludedCount = sizeof kIncluded / sizeof kIncluded[0];
  for (int i = 0; i < fields; ++i) {
    const std::string n = std::to_string(i + 1);
    std::string prompt = kPrompts[i % kPromptCount];
    prompt.insert(prompt.size() - 1, " " + n);
    xml += "      <section name=\"Field" + n + "\" prompt=\"" + prompt + "\" ";
    xml += i % 4 == 3 ? "template=\"area\" rows=\"6\" cols=\"40\""
                      : "template=\"line\" size=\"30\" maxlength=\"80\"";
    xml += " included=\"";
    xml += kIncluded[i % kIncludedCount];
    xml += "\"/>\n";
  }
  xml +=
      "    </table>\n"
      "    <input type=\"submit\" value=\"Send\"/>\n"
      "    <input type=\"hidden\" name=\"qln_EmailTo\" "
      "value=\"orders@example.org\"/>\n"
      "    <input type=\"hidden\" name=\"qln_Subject\" "
      "value=\"A comment from the web site\"/>\n"
      "    <input type=\"hidden\" name=\"qln_OKMessage\" "
      "value=\"Thank you.\"/>\n"
      "    <input type=\"hidden\" name=\"qln_FormIndex\" value=\"1\"/>\n"
      "  </form>\n"
      "</impl>\n";
  return xml;
}

}  // namespace formwiz::bench
