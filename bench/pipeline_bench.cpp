// The commit pipeline on generated definitions of 10 to 100,000 fields: each
// stage on its own, and the whole, in MB/s of definition text and in time
// per field. With pugixml on the machine, its parse and print of the same
// bytes run alongside as the reference the whole is measured against, and
// expat alone shows how close to that any pipeline on expat can come.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <map>
#include <string>

#include "bench/definition.h"
#include "bench/pipeline.h"
#include "component/commit.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "toolkit/ui.h"

#ifdef FORMWIZ_HAVE_PUGIXML
#include <pugixml.hpp>
#endif

namespace formwiz::bench {
namespace {

const std::string& Definition(int fields) {
  static std::map<int, std::string> cache;
  auto [it, fresh] = cache.try_emplace(fields);
  if (fresh) it->second = GeneratedDefinition(fields);
  return it->second;
}

int Fields(const benchmark::State& state) {
  return static_cast<int>(state.range(0));
}

// MB/s of definition text, and time per field.
void SetRates(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(text.size()));
  state.counters["per_field"] = benchmark::Counter(
      Fields(state), benchmark::Counter::kIsIterationInvariantRate |
                         benchmark::Counter::kInvert);
}

// The parsed `impl` of a definition, held with its document.
struct Parsed {
  KelXmlDocument doc;
  KelXmlNode impl;
};
Parsed Parse(const std::string& text) {
  Parsed p;
  if (p.doc.LoadXml(text)) p.impl = p.doc.Root().FirstChild();
  return p;
}

void BM_Parse(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  for (auto _ : state) {
    KelXmlDocument doc;
    if (!doc.LoadXml(text)) state.SkipWithError("does not parse");
    benchmark::DoNotOptimize(doc);
  }
  SetRates(state, text);
}

// Assembly consumes its tree: each round works on a copy made off the clock.
void BM_Assemble(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  const Parsed parsed = Parse(text);
  QuietUi quiet;
  KelXmlNode copy;
  for (auto _ : state) {
    state.PauseTiming();
    copy = parsed.impl.CloneNode(true);
    state.ResumeTiming();
    if (!AssembleForm(copy, kFormIndex)) state.SkipWithError("not assembled");
  }
  if (quiet.ui.boxes > 0) state.SkipWithError("a failure was reported");
  SetRates(state, text);
}

KelXmlElement AssembledForm(const Parsed& parsed) {
  const KelXmlNode copy = parsed.impl.CloneNode(true);
  AssembleForm(copy, kFormIndex);
  return FirstFormChild(copy);
}

void BM_FieldOrder(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  const KelXmlElement form = AssembledForm(Parse(text));
  QuietUi quiet;
  for (auto _ : state) {
    std::string order;
    CollectFieldOrder(form, order);
    benchmark::DoNotOptimize(order);
  }
  SetRates(state, text);
}

void BM_Serialise(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  const KelXmlElement form = AssembledForm(Parse(text));
  std::string order;
  CollectFieldOrder(form, order);
  for (auto _ : state) {
    std::string html = form.Xml();
    benchmark::DoNotOptimize(html);
  }
  SetRates(state, text);
}

void BM_Pipeline(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  QuietUi quiet;
  for (auto _ : state) {
    std::string html = RunPipeline(text);
    if (html.empty()) state.SkipWithError("no HTML");
    benchmark::DoNotOptimize(html);
  }
  SetRates(state, text);
}

// expat alone over the same bytes, with no handler set: no pipeline built on
// expat can be faster than this, so its ratio to the reference is the
// ceiling of ours.
void BM_ExpatAlone(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate("UTF-8");
    const bool ok =
        XML_Parse(parser, text.data(), static_cast<int>(text.size()),
                  XML_TRUE) == XML_STATUS_OK;
    XML_ParserFree(parser);
    if (!ok) state.SkipWithError("expat does not parse");
  }
  SetRates(state, text);
}

#ifdef FORMWIZ_HAVE_PUGIXML
// Appends pugixml's output to a string, as our serialiser gives one.
class StringWriter : public pugi::xml_writer {
 public:
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
  std::string out;
};

void BM_PugixmlReference(benchmark::State& state) {
  const std::string& text = Definition(Fields(state));
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size())) {
      state.SkipWithError("pugixml does not parse");
    }
    StringWriter writer;
    doc.save(writer, "", pugi::format_raw);
    benchmark::DoNotOptimize(writer.out);
  }
  SetRates(state, text);
}
#endif

void FieldCounts(benchmark::internal::Benchmark* b) {
  for (int fields : kFieldCounts) b->Arg(fields);
  b->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_Parse)->Apply(FieldCounts);
BENCHMARK(BM_Assemble)->Apply(FieldCounts);
BENCHMARK(BM_FieldOrder)->Apply(FieldCounts);
BENCHMARK(BM_Serialise)->Apply(FieldCounts);
BENCHMARK(BM_Pipeline)->Apply(FieldCounts);
BENCHMARK(BM_ExpatAlone)->Apply(FieldCounts);
#ifdef FORMWIZ_HAVE_PUGIXML
BENCHMARK(BM_PugixmlReference)->Apply(FieldCounts);
#endif

}  // namespace
}  // namespace formwiz::bench
