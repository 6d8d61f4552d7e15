// Speed of the tree and of the commit's assembly, on the bundled orb and on a
// generated form far larger than anyone writes by hand, so that anything
// worse than linear in the number of fields shows up.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>

#include "component/commit.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

const std::string& BundledOrb() {
  static const std::string text = [] {
    std::ifstream in(FORMWIZ_SOURCE_DIR "/orbs/form/form.qlo",
                     std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(in),
                       std::istreambuf_iterator<char>()};
  }();
  return text;
}

// A definition shaped like the bundled orb, with `fields` sections: lines
// and areas in turn, and every kind of included string, so that assembly
// keeps some fields, drops others and fills both templates.
std::string LargeDefinition(int fields) {
  static constexpr const char* kIncluded[] = {"yy", "yn", "ny", "nn", "hy"};
  std::string xml =
      "<impl>\n<placeholder src=\"form.png\"/>\n"
      "<forminfo><desc>One</desc><response>Thanks</response>"
      "<emailsubject>One</emailsubject></forminfo>\n"
      "<forminfo><desc>Two</desc><response>Thanks</response>"
      "<emailsubject>Two</emailsubject></forminfo>\n"
      "<template name=\"line\"><tr><td>[fieldprompt]</td><td><input "
      "type=\"text\" name=\"[fieldname]\" size=\"[size]\" "
      "maxlength=\"[maxlength]\"/></td></tr></template>\n"
      "<template name=\"area\"><tr><td>[fieldprompt]</td><td><textarea "
      "name=\"[fieldname]\" rows=\"[rows]\" cols=\"[cols]\"></textarea></td>"
      "</tr></template>\n"
      "<form uitype=\"orb\" defaultaction=\"https://forms.example.org/\">\n"
      "<table>\n";
  for (int i = 0; i < fields; ++i) {
    const std::string n = std::to_string(i);
    xml += "<section name=\"Field" + n + "\" prompt=\"Field " + n + ":\" ";
    xml += i % 2 == 0 ? "template=\"line\" size=\"30\" maxlength=\"60\""
                      : "template=\"area\" rows=\"4\" cols=\"40\"";
    xml += std::string(" included=\"") + kIncluded[i % 5] + "\"/>\n";
  }
  return xml +
         "</table>\n<input type=\"submit\" value=\"Send\"/>\n</form>\n"
         "</impl>\n";
}

KelXmlNode FirstImpl(const KelXmlDocument& doc) {
  return doc.Root().GetElementsByTagName("impl").Item(0);
}

// The text a case parses: range 0 is the number of fields, 0 the orb.
std::string CaseText(const benchmark::State& state) {
  return state.range(0) == 0
             ? BundledOrb()
             : LargeDefinition(static_cast<int>(state.range(0)));
}

void BM_LoadXml(benchmark::State& state) {
  const std::string text = CaseText(state);
  for (auto _ : state) {
    KelXmlDocument doc;
    if (!doc.LoadXml(text)) state.SkipWithError("does not parse");
    benchmark::DoNotOptimize(doc);
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_LoadXml)
    ->Arg(0)
    ->Arg(1000)
    ->Arg(5000)
    ->Unit(benchmark::kMicrosecond);

void BM_Xml(benchmark::State& state) {
  KelXmlDocument doc;
  doc.LoadXml(CaseText(state));
  const KelXmlNode impl = FirstImpl(doc);
  int64_t bytes = 0;
  for (auto _ : state) {
    std::string xml = impl.Xml();
    bytes += static_cast<int64_t>(xml.size());
    benchmark::DoNotOptimize(xml);
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_Xml)->Arg(0)->Arg(1000)->Arg(5000)->Unit(benchmark::kMicrosecond);

// The commit's two steps after the stored definition is taken. Assembly
// consumes the tree, so each round works on a fresh copy made off the clock.
void BM_AssembleAndFinish(benchmark::State& state) {
  RecordingUi ui;
  ScopedUi scoped_ui(ui);
  KelXmlDocument doc;
  doc.LoadXml(LargeDefinition(static_cast<int>(state.range(0))));
  const KelXmlNode impl = FirstImpl(doc);
  KelXmlNode copy;
  for (auto _ : state) {
    state.PauseTiming();
    copy = impl.CloneNode(true);  // drops the last round's tree off the clock
    state.ResumeTiming();
    if (!AssembleForm(copy, 2)) state.SkipWithError("assembly failed");
    std::string html = FinishFormHtml(FirstFormChild(copy));
    benchmark::DoNotOptimize(html);
  }
  if (!ui.boxes.empty()) state.SkipWithError(ui.boxes.front().text.c_str());
}
BENCHMARK(BM_AssembleAndFinish)
    ->Arg(1000)
    ->Arg(5000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace formwiz
