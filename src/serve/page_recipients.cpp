#include "serve/page_recipients.h"

#include <algorithm>

#include "component/utils.h"
#include "formdoc/kelxml.h"
#include "host/input_file.h"
#include "host/page.h"

namespace formwiz::serve {

std::optional<std::vector<std::string>> PageRecipients(std::string_view text) {
  host::Page page;
  std::string error;
  if (!host::ReadPage(text, page, error)) return std::nullopt;
  // Someone else's page without a form of formwiz's is served, not read:
  // a form written by hand names its recipient in a field anyone can
  // change.
  if (page.frame && page.document->objects.empty()) return std::nullopt;
  std::vector<std::string> found;
  for (const host::PageBlock& block : page.blocks) {
    if (!block.object || !block.object->html_data) continue;
    std::string data;
    if (!block.object->html_data->ToText(data)) continue;
    KelXmlDocument doc;
    // A definition that does not parse names nobody; the page is still
    // served.
    if (!doc.LoadXml(data)) continue;
    const KelXmlNodeList forms = doc.Root().GetElementsByTagName("form");
    for (int32_t i = 0; i < forms.Count(); ++i) {
      const std::string to = GetHiddenField(forms.Item(i), "qln_EmailTo");
      if (!to.empty() &&
          std::find(found.begin(), found.end(), to) == found.end()) {
        found.push_back(to);
      }
    }
  }
  return found;
}

std::optional<std::vector<std::string>> PageFileRecipients(
    const std::string& path) {
  std::string error;
  const auto text = host::ReadInputFile(path, host::kMaxPageFileSize, error);
  if (!text) return std::nullopt;
  return PageRecipients(*text);
}

}  // namespace formwiz::serve
