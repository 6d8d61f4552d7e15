// Fuzzes LoadXml and what a parsed tree goes through: serialising, parsing
// the output again (it must load, and to the same text), and assembling it
// as a definition. Nothing may crash, hang or leak.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "toolkit/ui.h"

namespace {

// Reports are expected on hostile input; they go nowhere here.
class SilentUi : public formwiz::Ui {
 public:
  void MsgBox(std::string_view, std::string_view) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace formwiz;
  SilentUi ui;
  ScopedUi scope(ui);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  KelXmlDocument doc;
  if (!doc.LoadXml(text)) return 0;
  // The first element: a comment or processing instruction may come first.
  KelXmlNode top = doc.Root().FirstChild();
  while (top && top.NodeType() != kElementNode) top = top.NextSibling();
  if (!top) return 0;
  const std::string xml = top.Xml();
  KelXmlDocument again;
  if (!again.LoadXml(xml) || again.Root().FirstChild().Xml() != xml) {
    std::abort();  // our own output must read back to itself
  }
  for (int16_t index : {0, 1, 2}) {
    const KelXmlNode copy = top.CloneNode(true);
    AssembleForm(copy, index);
    if (KelXmlElement form = FirstFormChild(copy)) {
      std::string order;
      CollectFieldOrder(form, order);
      (void)form.Xml();
    }
  }
  return 0;
}
