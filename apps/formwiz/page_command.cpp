#include "page_command.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "formdoc/kelxml.h"
#include "host/input_file.h"
#include "host/orb_catalog.h"
#include "host/page.h"
#include "host/source_summary.h"
#include "script/script.h"
#include "script/scripted_ui.h"

namespace formwiz::cli {
namespace {

namespace fs = std::filesystem;
using script::Json;

constexpr char kPrefix[] = "formwiz page: ";

int Problem(const std::string& name, const std::string& why, int status) {
  std::cerr << kPrefix << name << ": " << why << '\n';
  return status;
}

bool LoadPage(const std::string& file, host::Page& page) {
  std::string error;
  // The page is written back to the same name, so "-" is a file here.
  const auto text = host::ReadInputFile(file == "-" ? "./-" : file,
                                        host::kMaxPageFileSize, error);
  std::string changed;
  if (!text || !host::ReadPage(*text, page, error, &changed)) {
    Problem(file, error, kExitFailure);
    return false;
  }
  // Said once, and the command goes on: the page is kept byte for byte
  // but for what the command changes, as with any page formwiz did not
  // write.
  if (!changed.empty()) {
    Problem(file,
            "changed since formwiz wrote it (" + changed +
                "): read as an HTML page, and written back in its own shape",
            0);
  }
  return true;
}

// Writes through a new file beside `file` and renames it over, so that a
// failed or interrupted save leaves the page as it was, never half written.
// Someone else's page is saved only if it reads back: text that is not
// UTF-8 in a paragraph, say, would leave a page nobody could open again.
bool SavePage(const std::string& file, const host::Page& page) {
  const std::string bytes = host::WritePage(page);
  if (page.frame) {
    host::Page check;
    std::string error;
    if (!host::ReadPage(bytes, check, error)) {
      Problem(file, "not saved: the page would not read back: " + error, 0);
      return false;
    }
  }
  std::string temp = file + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) {
    Problem(file, std::string("cannot write: ") + std::strerror(errno), 0);
    return false;
  }
  bool ok = true;
  for (size_t done = 0; ok && done < bytes.size();) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) done += static_cast<size_t>(n);
  }
  // mkstemp makes the file private; a page is an ordinary document, made
  // with the permissions the person's umask gives any new file.
  const mode_t mask = umask(0);
  umask(mask);
  ok = ok && fchmod(fd, 0666 & ~mask) == 0;
  ok = close(fd) == 0 && ok;
  ok = ok && std::rename(temp.c_str(), file.c_str()) == 0;
  if (!ok) {
    const int saved = errno;
    std::remove(temp.c_str());
    Problem(file, std::string("cannot write: ") + std::strerror(saved), 0);
  }
  return ok;
}

// The person's actions: a JSON list of the `do` steps of a script, or a
// whole `formwiz script` file that makes one call, whose `do` steps are
// taken (its host part is not used: the page is the host). The calls are the
// command's own, so any other `call` step is refused here; the rest is
// checked by the script reader, with its messages.
std::optional<std::vector<script::Step>> LoadSteps(const std::string& file) {
  std::string error;
  const auto text = host::ReadInputFile(file, size_t{16} << 20, error);
  if (!text) {
    Problem(file, error, 0);
    return std::nullopt;
  }
  Json steps = Json::parse(*text, nullptr, false);
  try {
    if (steps.is_discarded()) throw script::ScriptError("not valid JSON");
    if (steps.is_object() && steps.contains("steps") &&
        steps["steps"].is_array() && !steps["steps"].empty() &&
        steps["steps"][0].is_object() && steps["steps"][0].contains("call")) {
      Json rest = std::move(steps["steps"]);
      rest.erase(rest.begin());
      steps = std::move(rest);
    }
    if (!steps.is_array()) {
      throw script::ScriptError("expected a JSON list of do steps");
    }
    for (size_t i = 0; i < steps.size(); ++i) {
      if (steps[i].is_object() && steps[i].contains("call")) {
        throw script::ScriptError("steps[" + std::to_string(i) +
                                  "]: only do steps: the command makes the "
                                  "call itself");
      }
    }
    // Checked as it is: written out to text for ParseScript, a list nested
    // 10^5 deep overflowed the stack in the JSON writer's recursion.
    return script::ParseSteps(steps, 0);
  } catch (const script::ScriptError& e) {
    Problem(file, e.what(), 0);
    return std::nullopt;
  }
}

// Plays the person at the dialogs from the script's steps, in order, across
// every dialog the call shows. When no step is left (or there is no
// script), the dialog is closed with the close box of its title bar: a
// headless run has no person to ask, and the close box is what a person who
// walks away uses; the component takes it as a cancel and changes nothing.
// Message boxes go to stderr as the command line shows them; what the run
// did beyond them (actions that could not be taken, dialogs closed, snapshots)
// goes there as notes.
class HeadlessUi : public script::ScriptedUi, public script::ScriptedUi::Feed {
 public:
  HeadlessUi(std::vector<script::Step> steps, bool scripted)
      : ScriptedUi(events_, *this),
        steps_(std::move(steps)),
        scripted_(scripted) {}

  void MsgBox(std::string_view text, std::string_view title) override {
    ++boxes_;
    std::cerr << title << ": " << text << '\n';
  }
  const script::Step* NextAction() override {
    return next_ < steps_.size() ? &steps_[next_++] : nullptr;
  }
  std::string WhyNoAction() const override {
    return scripted_ ? "script ended" : "no --script: no person to ask";
  }

  // Writes the notes; gives whether any message box was shown.
  bool Finish() {
    for (const Json& event : events_) {
      if (!event.contains("show")) {
        std::cerr << kPrefix << "note: "
                  << event.dump(-1, ' ', false, Json::error_handler_t::replace)
                  << '\n';
      }
    }
    if (next_ < steps_.size()) {
      std::cerr << kPrefix << "note: " << steps_.size() - next_
                << " step(s) of the script were not used: no dialog was left "
                   "on show\n";
    }
    return boxes_ > 0;
  }

 private:
  Json events_ = Json::array();
  std::vector<script::Step> steps_;
  size_t next_ = 0;
  bool scripted_;
  int boxes_ = 0;
};

// The orb `name` means: a file, or a bundled orb by its folder's name.
std::optional<host::Orb> LoadOrb(const std::string& name) {
  const fs::path folder = host::FindOrbsFolder(host::RunningProgramFolder());
  const fs::path file = host::ResolveOrb(name, folder);
  host::Orb orb;
  std::string error;
  if (!host::ReadOrb(file, orb, error)) {
    std::error_code ec;
    if (file == name && name.find('/') == std::string::npos &&
        !fs::exists(file, ec)) {
      // A bare word was meant as a bundled orb: say which there are.
      std::string names;
      for (const host::BundledOrb& bundled : host::ListOrbs(folder)) {
        names += (names.empty() ? "" : ", ") +
                 bundled.file.parent_path().filename().string();
      }
      error = "no such file, and no bundled orb of that name";
      if (!names.empty()) error += " (" + names + ")";
    }
    Problem(name, error, 0);
    return std::nullopt;
  }
  return orb;
}

// RunComponent's status when something came out of the component: the
// page is then not saved.
constexpr int kEscaped = -1;

// One call of the component on `page`, the person played by the script.
template <typename Call>
int RunComponent(const PageOptions& options, host::Page& page, Call call) {
  std::vector<script::Step> steps;
  if (options.script) {
    auto loaded = LoadSteps(*options.script);
    if (!loaded) return kExitUsage;
    steps = std::move(*loaded);
  }
  HeadlessUi ui(std::move(steps), options.script.has_value());
  ScopedUi scoped_ui(ui);
  page.document->RegisterRoles();
  auto wiz = AsRole<clsFormWiz>(CreateObject(kProgId));
  bool escaped = false;
  try {
    call(*wiz);
  } catch (const std::exception& e) {
    // The component lets nothing out; should anything come out all the
    // same, whatever it half did is not saved.
    std::cerr << kPrefix << "the component failed: " << e.what() << '\n';
    escaped = true;
  } catch (const Failure& failure) {
    std::cerr << kPrefix << "the component failed: " << failure.number << " "
              << failure.description << '\n';
    escaped = true;
  }
  const bool shown = ui.Finish();
  if (escaped) return kEscaped;
  return shown ? kExitFailure : kExitOk;
}

std::string Quoted(const std::string& text) {
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

int List(const host::Page& page) {
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    const host::PageBlock& block = page.blocks[i];
    std::cout << i << '\t';
    if (block.source && !block.object) {
      // Someone else's HTML: its first element and the start of its text.
      const host::SourceSummary summary = host::SummarizeSource(*block.source);
      std::cout << "html\t";
      if (!summary.tag.empty()) std::cout << '<' << summary.tag << '>';
      if (!summary.tag.empty() && !summary.words.empty()) std::cout << ' ';
      if (!summary.words.empty()) std::cout << Quoted(summary.words);
      std::cout << '\n';
    } else if (!block.object) {
      std::cout << "paragraph\t" << Quoted(block.text) << '\n';
    } else if (block.object->display_name) {
      std::cout << "object\t" << Quoted(*block.object->display_name) << '\n';
    } else {
      std::cout << "object\t(no name)\n";
    }
  }
  return kExitOk;
}

int Export(const host::Page& page, const std::string& output) {
  const std::string html = host::WritePage(page);
  if (output == "-") {
    std::cout << html << std::flush;
    return std::cout ? kExitOk : kExitFailure;
  }
  std::ofstream out(output, std::ios::binary);
  out << html;
  out.close();
  if (!out) {
    return Problem(output, std::string("cannot write: ") + std::strerror(errno),
                   kExitFailure);
  }
  return kExitOk;
}

}  // namespace

int RunPage(const PageOptions& options) {
  const std::string& file = options.file;
  host::Page page;
  if (options.action == "new") {
    // A typo must not wipe out a page that is there.
    std::error_code ec;
    if (fs::exists(file, ec)) {
      return Problem(file, "already exists; delete it first", kExitFailure);
    }
    return SavePage(file, page) ? kExitOk : kExitFailure;
  }
  if (!LoadPage(file, page)) return kExitFailure;
  if (options.action == "list") return List(page);
  if (options.action == "export") return Export(page, options.output);
  if (options.action == "title") {
    if (!options.title) {
      std::cout << page.title << '\n';
      return kExitOk;
    }
    if (!host::CanSetTitle(page)) {
      return Problem(file,
                     "the page has no <title> (a fragment takes its title "
                     "from the page that includes it)",
                     kExitUsage);
    }
    if (const std::string why = host::PageTitleProblem(*options.title);
        !why.empty()) {
      return Problem(file, why, kExitUsage);
    }
    // The same title leaves the file alone, its time included.
    if (*options.title == page.title) return kExitOk;
    page.title = *options.title;
    return SavePage(file, page) ? kExitOk : kExitFailure;
  }

  const std::string before = host::WritePage(page);
  int status = kExitOk;
  if (options.action == "add-text" || options.action == "insert") {
    const size_t at = options.at.value_or(page.blocks.size());
    if (at > page.blocks.size()) {
      return Problem(file,
                     "--at " + std::to_string(at) + ": the page has " +
                         std::to_string(page.blocks.size()) + " blocks",
                     kExitUsage);
    }
    if (options.action == "add-text") {
      page.blocks.insert(page.blocks.begin() + static_cast<ptrdiff_t>(at),
                         {options.text, nullptr});
    } else {
      const auto orb = LoadOrb(options.orb);
      if (!orb) return kExitFailure;
      status = RunComponent(options, page, [&](clsFormWiz& wiz) {
        // What the editor does for a new orb: a fresh copy of its
        // definition, its name and its folder.
        wiz.SetImpl(orb->impl);
        wiz.SetDisplayName(orb->display_name);
        wiz.SetPath(orb->folder);
        wiz.OnCommand(page.document, 0, file);
      });
      page.AdoptNewObjects(at);
    }
  } else {
    if (options.block >= page.blocks.size()) {
      return Problem(file,
                     "no block " + std::to_string(options.block) +
                         ": the page has " +
                         std::to_string(page.blocks.size()) + " blocks",
                     kExitUsage);
    }
    if (options.action == "delete") {
      page.DeleteBlock(options.block);
    } else {
      const auto object = page.blocks[options.block].object;
      if (!object) {
        return Problem(
            file,
            "block " + std::to_string(options.block) + " is " +
                (page.blocks[options.block].source ? "HTML of the page's own"
                                                   : "a paragraph") +
                ", not an object",
            kExitUsage);
      }
      status = RunComponent(options, page, [&](clsFormWiz& wiz) {
        // The editor hands the component the object's own name, which a
        // rewrite puts back.
        wiz.SetDisplayName(object->display_name.value_or(""));
        wiz.OnOpen(object, page.document, 0);
      });
      // The editor may be made to insert from inside OnOpen; such objects
      // come after the one opened.
      page.AdoptNewObjects(options.block + 1);
    }
  }
  if (status == kEscaped) return kExitFailure;
  // A run that changed nothing leaves the file alone, its time included.
  if (host::WritePage(page) != before && !SavePage(file, page)) {
    return kExitFailure;
  }
  return status;
}

Command AddPageCommand(CLI::App& parent) {
  auto options = std::make_shared<PageOptions>();
  CLI::App* app = parent.add_subcommand(
      "page",
      "Make and edit a page (a page file, or any UTF-8 HTML page or "
      "fragment, whose other bytes are kept) and run the component on it");
  app->require_subcommand(1);
  auto add = [&](const char* name, const char* help) {
    CLI::App* sub = app->add_subcommand(name, help);
    sub->add_option("FILE", options->file,
                    "The page: a page file, or any UTF-8 HTML page")
        ->required();
    sub->callback([options, name] { options->action = name; });
    return sub;
  };
  auto add_script = [&](CLI::App* sub) {
    sub->add_option("--script", options->script,
                    "JSON list of the person's actions (do steps, as in "
                    "formwiz script; - reads standard input); without it a "
                    "dialog is closed with its close box");
  };
  add("new", "Write an empty page file (refuses to replace a file)");
  add("list",
      "Print the blocks: index, kind (object, paragraph, html), name or "
      "text; for html, its first tag and words");
  CLI::App* add_text = add("add-text", "Add a paragraph");
  add_text->add_option("TEXT", options->text, "The paragraph's text")
      ->required();
  add_text->add_option("--at", options->at, "Block index (default: the end)");
  CLI::App* insert = add("insert", "Insert a form orb, running the wizard");
  insert
      ->add_option("--orb", options->orb,
                   "The orb: a .qlo file, or a bundled orb's name "
                   "(contact, request, ...)")
      ->capture_default_str();
  insert->add_option("--at", options->at, "Block index (default: the end)");
  add_script(insert);
  CLI::App* open = add("open", "Open object block N again");
  open->add_option("N", options->block, "Block index")->required();
  add_script(open);
  CLI::App* del = add("delete", "Remove block N");
  del->add_option("N", options->block, "Block index")->required();
  CLI::App* title = add("title", "Print the page's title, or set it to TEXT");
  title->add_option("TEXT", options->title,
                    "The new title: one line, shown in the browser's tab");
  CLI::App* exp = add("export", "Write the page's HTML");
  exp->add_option("-o,--output", options->output,
                  "Where to (default: standard output)");
  return {app, [options] { return RunPage(*options); }};
}

}  // namespace formwiz::cli
