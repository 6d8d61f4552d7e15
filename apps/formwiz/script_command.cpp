#include "script_command.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "host/input_file.h"
#include "script/script.h"

namespace formwiz::cli {

namespace {

// The HTML of the page objects, taken back from the transcript.
void PrintHtml(const std::string& transcript) {
  const auto json = nlohmann::json::parse(transcript, nullptr, false);
  if (json.is_discarded() || !json.contains("objects")) return;
  for (const auto& object : json["objects"]) {
    const auto source = object.find("HTMLSource");
    if (source != object.end() && source->is_string()) {
      std::cout << "\n" << source->get<std::string>() << '\n';
    }
  }
}

}  // namespace

Command AddScriptCommand(CLI::App& parent) {
  auto file = std::make_shared<std::string>();
  auto html = std::make_shared<bool>(false);
  CLI::App* app = parent.add_subcommand(
      "script",
      "Run the component from a JSON script of host set-up, calls and user "
      "actions, and print the transcript");
  app->add_option("FILE", *file,
                  "The script; - reads standard input (a relative implFile "
                  "is then taken from the current folder)")
      ->required();
  app->add_flag("--html", *html,
                "After the transcript, print the HTMLSource of each page "
                "object that has one, as a person would read it");
  return {app, [file, html] {
            namespace fs = std::filesystem;
            std::string text;
            fs::path base_dir = ".";
            std::string error;
            const std::optional<std::string> read =
                host::ReadInputFile(*file, host::kMaxInputSize, error);
            if (!read) {
              std::cerr << "formwiz script: " << *file << ": " << error << '\n';
              return kExitUsage;
            }
            text = *read;
            if (*file != "-") {
              base_dir = fs::path(*file).parent_path();
              if (base_dir.empty()) base_dir = ".";
            }
            std::ostringstream transcript;
            const int status = script::RunScriptText(
                text, base_dir, *file == "-" ? "standard input" : *file,
                transcript, std::cerr);
            std::cout << transcript.str();
            if (*html && status == kExitOk) PrintHtml(transcript.str());
            return status;
          }};
}

}  // namespace formwiz::cli
