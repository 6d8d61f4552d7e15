#include "checks.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "component/cls_form_wiz.h"
#include "component/commit.h"
#include "component/failure.h"
#include "component/identity.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "host/page.h"
#include "host/page_references.h"
#include "script/script.h"
#include "toolkit/ui.h"

namespace formwiz::fuzz {
namespace {

namespace fs = std::filesystem;
using script::Json;

// Reports are expected on hostile input; they go nowhere here.
class QuietUi : public Ui {
 public:
  void MsgBox(std::string_view, std::string_view) override {}
};

// Whether two stored HTMLData values are the same value of the same kind
// (NaN counting as itself; an object value has nothing behind it in a file).
bool SameData(const std::optional<Variant>& a,
              const std::optional<Variant>& b) {
  if (!a || !b) return !a && !b;
  if (a->kind != b->kind || a->text != b->text) return false;
  return a->number == b->number ||
         (std::isnan(a->number) && std::isnan(b->number));
}

// Enough of a text to recognise it in a report.
std::string Excerpt(std::string_view text) {
  constexpr size_t kMax = 300;
  return text.size() <= kMax ? std::string(text)
                             : std::string(text.substr(0, kMax)) + "...";
}

// The first byte of an assembly input, when it is not the `<` that opens
// the XML, is the form choice: 0, the negatives and choices far past the
// last are all reachable, and the two ends of the byte's range stand for the
// ends of the 16 bits.
int16_t FormIndexFromByte(char byte) {
  const auto value = static_cast<int8_t>(byte);
  if (value == std::numeric_limits<int8_t>::min()) {
    return std::numeric_limits<int16_t>::min();
  }
  if (value == std::numeric_limits<int8_t>::max()) {
    return std::numeric_limits<int16_t>::max();
  }
  return value;
}

// Scenarios keep the facts that their test checks beside the script, in
// "expect". The scenario test takes them off before the script is read, and
// so does this check, so that the scenarios serve as seeds. Writing the rest
// back is recursive, so only a shallow document is rewritten.
std::string WithoutExpectations(std::string_view input) {
  constexpr int kMaxDepth = 64;
  int depth = 0;
  Json json = Json::parse(
      input,
      [&depth](int d, Json::parse_event_t, Json&) {
        depth = std::max(depth, d);
        return true;
      },
      /*allow_exceptions=*/false);
  if (depth > kMaxDepth || !json.is_object() || !json.contains("expect")) {
    return std::string(input);
  }
  json.erase("expect");
  return json.dump();
}

// Files and pictures that a script asks for are written and hashed on every
// run, which takes the time and finds nothing; a script that asks for more
// than this is read but not run.
constexpr size_t kMaxRunBytes = 256 * 1024;

size_t BytesToWrite(const script::HostSpec& host) {
  size_t bytes = 0;
  for (const auto& [name, data] : host.files) bytes += data.size();
  for (const auto& object : host.objects) {
    if (object.html_picture) bytes += object.html_picture->size();
  }
  return bytes;
}

// Someone else's page: read, it writes back byte for byte; with a
// paragraph and a form added it is written and read again without harm, and
// what reads back writes back as it was read. (Whether the added blocks read
// back as blocks depends on the page: an unclosed <script> in its head
// takes them in.)
std::string CheckForeignPage(std::string_view input) {
  host::Page page;
  std::string error;
  if (!host::ReadPage(input, page, error)) {
    return error.empty() ? "refused without a reason" : "";
  }
  if (!page.frame) return "";
  // The files a preview copies are read from any page without harm (the
  // sanitizers are the check), and none is named by an empty value.
  for (const std::string& reference : host::PageReferences(input)) {
    if (reference.empty()) return "a file the page loads has no name";
  }
  const std::string written = host::WritePage(page);
  if (written != input) {
    return "read as someone else's page, it writes back as " + Excerpt(written);
  }
  const auto form = std::make_shared<host::PageObject>(page.document);
  form->prog_id = kProgId;
  form->html_source = "<form></form>";
  form->html_data = Variant::String("<impl/>");
  page.InsertBlock(page.blocks.size(), {{}, form});
  page.InsertBlock(0, {"text & <more>", nullptr});
  const std::string edited = host::WritePage(page);
  host::Page again;
  if (host::ReadPage(edited, again, error) &&
      host::WritePage(again) != edited) {
    return "an edited page reads back as another: " + Excerpt(edited);
  }
  return "";
}

}  // namespace

std::string CheckXmlRoundTrip(std::string_view input) {
  KelXmlDocument doc;
  if (!doc.LoadXml(input)) return "";
  const std::string xml = doc.Root().Xml();
  KelXmlDocument again;
  if (!again.LoadXml(xml)) {
    return "what loaded serialises as XML that does not load: " + Excerpt(xml);
  }
  const std::string second = again.Root().Xml();
  if (second != xml) {
    return "what loaded serialises as " + Excerpt(xml) +
           " and, read back, as " + Excerpt(second);
  }
  return "";
}

std::string CheckAssembly(std::string_view input) {
  QuietUi ui;
  ScopedUi scoped_ui(ui);
  std::optional<int16_t> chosen;
  if (!input.empty() && input.front() != '<') {
    chosen = FormIndexFromByte(input.front());
    input.remove_prefix(1);
  }
  const KelXmlElement impl = FindElementInXml(input, "impl");
  if (!impl) return "";
  // As a commit does it: the last form is the one finished, with the form
  // choice stored in it unless one was picked. An index that does not fit is
  // a failure that the commit reports.
  const KelXmlElement form = LastFormChild(impl, nullptr);
  int16_t index = chosen.value_or(0);
  if (!chosen && form && Catch([&] { index = ReadFormIndex(form); })) {
    return "";
  }
  if (!AssembleForm(impl, index)) return "";
  std::string html;
  if (Catch([&] { html = FinishFormHtml(form); })) return "";

  // HTML writes input, br and img without end tags. With them written back,
  // the form is XML again, and read anew it finishes as the same HTML.
  const KelXmlNode copy = form.CloneNode(true);
  for (const char* tag : {"input", "br", "img"}) {
    const KelXmlNodeList elements = copy.GetElementsByTagName(tag);
    for (int32_t i = 0; i < elements.Count(); ++i) {
      KelXmlElement(elements.Item(i)).SetNoEndTag(false);
    }
  }
  const std::string xml = copy.Xml();
  KelXmlDocument doc;
  if (!doc.LoadXml(xml)) {
    return "the HTML with its end tags is not XML: " + Excerpt(xml);
  }
  const KelXmlNode reread = doc.Root().FirstChild();
  std::string order;
  CollectFieldOrder(reread, order);
  if (const std::string again = reread.Xml(); again != html) {
    return "the HTML " + Excerpt(html) + " reads back as " + Excerpt(again);
  }
  return "";
}

std::string CheckScript(std::string_view input) {
  // Scripts find the bundled orb as the scenarios do, from their folder.
  static const fs::path kBaseDir =
      fs::path(FORMWIZ_SOURCE_DIR) / "tests" / "scenarios";
  const std::string text = WithoutExpectations(input);
  script::Script parsed;
  try {
    parsed = script::ParseScript(text, kBaseDir);
  } catch (const script::ScriptError& e) {
    // "<where>: <problem>", where is the script, the host, the list of
    // steps or one step.
    const std::string_view line = e.what();
    const bool placed = line.starts_with("script: ") ||
                        line.starts_with("host") || line.starts_with("steps");
    if (!placed || line.find(": ") == std::string_view::npos) {
      return "refused without saying where: " + Excerpt(line);
    }
    return "";
  } catch (const std::exception& e) {
    return "reading the script let out: " + Excerpt(e.what());
  }
  if (BytesToWrite(parsed.host) > kMaxRunBytes) return "";

  Json transcript;
  try {
    transcript = script::RunScript(parsed);
  } catch (const std::system_error&) {
    // The files could not be written into the temporary folder (a name
    // that is also another's folder): the command says so and stops.
    return "";
  } catch (const std::exception& e) {
    return "the run let out: " + Excerpt(e.what());
  }
  for (const Json& event : transcript.at("events")) {
    if (event.contains("uncaught")) {
      return "a failure got out of the component: " +
             event.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
  }
  // As the command prints it.
  (void)transcript.dump(2, ' ', false, Json::error_handler_t::replace);
  return "";
}

std::string CheckPageFile(std::string_view input) {
  if (std::string why = CheckForeignPage(input); !why.empty()) return why;
  host::Page page;
  std::string error;
  int version = 0;
  if (!host::ReadPageFile(input, page, error, &version)) {
    return error.empty() ? "refused without a reason" : "";
  }
  const std::string written = host::WritePageFile(page);
  if (version == host::kPageFileVersion) {
    if (written != input) return "read, it writes back as " + Excerpt(written);
    return "";
  }
  // An older file is written as the current version, which must read back
  // as the same page and then write back byte for byte.
  host::Page again;
  int again_version = 0;
  if (!host::ReadPageFile(written, again, error, &again_version)) {
    return "a version " + std::to_string(version) +
           " file, written again, is refused: " + error;
  }
  if (again_version != host::kPageFileVersion) {
    return "a version " + std::to_string(version) + " file is written as " +
           std::to_string(again_version);
  }
  if (again.title != page.title || again.blocks.size() != page.blocks.size()) {
    return "a version " + std::to_string(version) +
           " file, written again, reads as another page";
  }
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    const host::PageBlock& a = page.blocks[i];
    const host::PageBlock& b = again.blocks[i];
    if (!a.object != !b.object || a.text != b.text ||
        (a.object && (a.object->prog_id != b.object->prog_id ||
                      a.object->display_name != b.object->display_name ||
                      a.object->html_source != b.object->html_source ||
                      a.object->html_picture != b.object->html_picture ||
                      !SameData(a.object->html_data, b.object->html_data)))) {
      return "a version " + std::to_string(version) + " file's block " +
             std::to_string(i) + " changes when written again";
    }
  }
  if (host::WritePageFile(again) != written) {
    return "a version " + std::to_string(version) +
           " file, written again, does not write back byte for byte";
  }
  return "";
}

}  // namespace formwiz::fuzz
