#include "assemble_command.h"

#include <iostream>
#include <memory>

#include "component/commit.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"
#include "host/input_file.h"
#include "toolkit/ui.h"

namespace formwiz::cli {
namespace {

// The form node a commit works on: the last `form` child of `impl`. Assembly
// itself takes the first; the two differ only for a definition with two
// forms, and the command does what the component does with one.
KelXmlElement LastFormChild(const KelXmlNode& impl) {
  KelXmlElement form;
  for (KelXmlNode node = impl.FirstChild(); node; node = node.NextSibling()) {
    if (node.TagName() == "form") form = node;
  }
  return form;
}

}  // namespace

Command AddAssembleCommand(CLI::App& parent) {
  // Shared with the runner, which outlives this function.
  auto options = std::make_shared<AssembleOptions>();
  CLI::App* app = parent.add_subcommand(
      "assemble", "Print the HTML that a form definition assembles to");
  app->add_option("FILE", options->file,
                  "Orb definition (.qlo) or stored definition holding an "
                  "impl element; - reads standard input")
      ->required();
  app->add_option("--form-index", options->form_index,
                  "Form choice to assemble, from 1 (default: the form's "
                  "qln_FormIndex, 0 when it has none)");
  return {app,
          [options] { return RunAssemble(*options, std::cout, std::cerr); }};
}

int RunAssemble(const AssembleOptions& options, std::ostream& out,
                std::ostream& err) {
  const std::string prefix =
      "formwiz assemble: " +
      (options.file == "-" ? std::string("standard input") : options.file) +
      ": ";
  std::string error;
  const std::optional<std::string> text =
      host::ReadInputFile(options.file, host::kMaxInputSize, error);
  if (!text) {
    err << prefix << error << '\n';
    return kExitFailure;
  }
  const KelXmlElement impl = FindElementInXml(*text, "impl");
  if (!impl) {
    // Parse once more, on this rare path only, to say which of the two it is.
    KelXmlDocument doc;
    err << prefix
        << (doc.LoadXml(*text) ? "holds no impl element"
                               : "is not one well-formed XML document "
                                 "(DOCTYPE and very deep nesting are refused)")
        << '\n';
    return kExitFailure;
  }

  StderrUi ui;
  ScopedUi scoped_ui(ui);
  KelXmlElement form;
  int16_t form_index = 0;
  // Reading the index is the entry's step, with the entry's report.
  if (!Trapped(code::kOnCommand, [&] {
        form = LastFormChild(impl);
        if (options.form_index) {
          form_index = *options.form_index;
        } else if (form) {
          form_index = ReadFormIndex(form);
        }
      })) {
    return kExitFailure;
  }
  // The commit's steps under the commit's trap: no HTML unless they all ran.
  std::optional<std::string> html;
  Trapped(code::kInsert, [&] {
    if (!AssembleForm(impl, form_index)) {
      ReportInternalError(code::kInsert, 0, "");
      return;
    }
    html = FinishFormHtml(form);
  });
  if (html) out << *html << '\n';
  return ui.count() == 0 ? kExitOk : kExitFailure;
}

}  // namespace formwiz::cli
