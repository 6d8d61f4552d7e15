// Reading a script and checking all of it before anything runs.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <thread>

#include "actionoptions/frm_action_options.h"
#include "formdoc/kelxml.h"
#include "host/base64.h"
#include "host/input_file.h"
#include "script/script.h"
#include "wizard/frm_wizard.h"

namespace formwiz::script {
namespace {

namespace fs = std::filesystem;

// The largest file a script may ask for by size: far beyond any picture the
// component accepts, small enough not to fill a disk by a typo.
constexpr int64_t kMaxFileSize = 16 * 1024 * 1024;

// The script's files and pictures together: one file may be as large as
// kMaxFileSize, but a thousand of them must not fill the memory before the
// first step runs.
constexpr int64_t kMaxBytesInAll = 64 * 1024 * 1024;

// A message quotes what it found, and what it found may be huge: a 10 MB
// name, or the 10 MB token that a JSON error quotes, must not become a 10 MB
// error line. Each part is cut to a bound, on a character boundary.
std::string Bounded(std::string text) {
  constexpr size_t kMaxPart = 300;
  if (text.size() <= kMaxPart) return text;
  size_t cut = kMaxPart;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
    --cut;
  }
  text.resize(cut);
  return text + "...";
}

[[noreturn]] void Fail(const std::string& where, const std::string& problem) {
  throw ScriptError(Bounded(where) + ": " + Bounded(problem));
}

std::string Quoted(std::string_view s) { return Json(s).dump(); }

void OnlyKeys(const Json& object, const std::string& where,
              std::initializer_list<std::string_view> keys) {
  for (const auto& [key, value] : object.items()) {
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      Fail(where, "unknown key " + Quoted(key));
    }
  }
}

const Json& AsObject(const Json& value, const std::string& where) {
  if (!value.is_object()) Fail(where, "expected an object");
  return value;
}

std::string AsString(const Json& value, const std::string& where) {
  if (!value.is_string()) Fail(where, "expected a string");
  return value.get<std::string>();
}

int64_t AsInteger(const Json& value, const std::string& where, int64_t min,
                  int64_t max) {
  if (!value.is_number_integer()) Fail(where, "expected an integer");
  if (value.is_number_unsigned() &&
      value.get<uint64_t>() >
          static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
    Fail(where, "out of range");
  }
  const int64_t n = value.get<int64_t>();
  if (n < min || n > max) {
    Fail(where, "expected " + std::to_string(min) + " to " +
                    std::to_string(max) + ", not " + std::to_string(n));
  }
  return n;
}

bool AsBool(const Json& value, const std::string& where) {
  if (!value.is_boolean()) Fail(where, "expected true or false");
  return value.get<bool>();
}

// A member that must be there.
const Json& Required(const Json& object, const std::string& where,
                     const char* key) {
  auto it = object.find(key);
  if (it == object.end())
    Fail(where, std::string("missing key \"") + key + "\"");
  return *it;
}

std::vector<uint8_t> DecodeBase64(std::string_view text,
                                  const std::string& where) {
  std::string bytes;
  if (!host::DecodeBase64(text, bytes)) {
    Fail(where, "not base64 (padded, standard alphabet)");
  }
  return {bytes.begin(), bytes.end()};
}

// `{"size": n}` or `{"base64": "..."}`. `budget` is what the script's
// files and pictures may still take; these bytes come off it.
std::vector<uint8_t> ParseBytes(const Json& value, const std::string& where,
                                int64_t& budget) {
  AsObject(value, where);
  OnlyKeys(value, where, {"size", "base64"});
  if (value.contains("size") == value.contains("base64")) {
    Fail(where, "give one of \"size\" and \"base64\"");
  }
  auto take = [&](int64_t size) {
    if (size > budget) {
      Fail(where, "the script's files and pictures would hold more than " +
                      std::to_string(kMaxBytesInAll) + " bytes in all");
    }
    budget -= size;
  };
  if (value.contains("base64")) {
    std::vector<uint8_t> bytes = DecodeBase64(
        AsString(value["base64"], where + ".base64"), where + ".base64");
    take(static_cast<int64_t>(bytes.size()));
    return bytes;
  }
  const int64_t size =
      AsInteger(value["size"], where + ".size", 0, kMaxFileSize);
  take(size);
  // A fixed pattern, so that two runs give the same picture and the same
  // digest.
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(i * 31 + 7);
  }
  return bytes;
}

Failure ParseFailure(const Json& value, const std::string& where) {
  AsObject(value, where);
  OnlyKeys(value, where, {"number", "description"});
  Failure failure;
  failure.number = static_cast<int32_t>(
      AsInteger(Required(value, where, "number"), where + ".number",
                std::numeric_limits<int32_t>::min(),
                std::numeric_limits<int32_t>::max()));
  if (value.contains("description")) {
    failure.description =
        AsString(value["description"], where + ".description");
  }
  return failure;
}

host::Fault ParseFault(const std::string& name, const Json& value,
                       const std::string& where) {
  // The word that stands for the role's other way to misbehave, if any.
  std::string word;
  if (name == host::call::kCreateSelection ||
      name == host::call::kCreateDocument) {
    word = "none";
  } else if (name == host::call::kInsertHTMLObject) {
    word = "nothing";
  } else if (name == host::call::kUpdateItem) {
    word = "OnOpen";
  } else if (name != host::call::kGetHTMLObject &&
             name != host::call::kPutDisplayName &&
             name != host::call::kPutHTMLSource &&
             name != host::call::kPutHTMLData &&
             name != host::call::kPutHTMLPicture) {
    Fail(where, "no host role is called " + Quoted(name));
  }
  if (value.is_string()) {
    if (word.empty() || value.get<std::string>() != word) {
      Fail(where, word.empty() ? "expected a failure {\"number\", ...}"
                               : "expected " + Quoted(word) + " or a failure");
    }
    return word == "OnOpen" ? host::Fault::CallOnOpen()
                            : host::Fault::NoObject();
  }
  return host::Fault::Raising(ParseFailure(value, where));
}

// HTMLData in any of its kinds.
void ParseHtmlData(const Json& value, const std::string& where,
                   ObjectSpec& object) {
  if (value.is_string()) {
    object.html_data = Variant::String(value.get<std::string>());
  } else if (value.is_number()) {
    object.html_data = Variant::Number(value.get<double>());
  } else if (value.is_null()) {
    object.html_data = Variant::Null();
  } else if (value.is_object() && value.size() == 1 &&
             value.contains("fault")) {
    object.html_data_fault = ParseFailure(value["fault"], where + ".fault");
  } else if (value.is_object() && value.size() == 1 &&
             (value.contains("empty") || value.contains("object"))) {
    const bool empty = value.contains("empty");
    const std::string key = empty ? "empty" : "object";
    if (!AsBool(value[key], where + "." + key)) Fail(where, "expected true");
    object.html_data =
        empty ? Variant{} : Variant::Object(std::make_shared<HostObject>());
  } else {
    Fail(where,
         "expected a string, a number, null, {\"empty\": true}, "
         "{\"object\": true} or {\"fault\": {...}}");
  }
}

std::string ReadFile(const fs::path& path, const std::string& where) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) Fail(where, path.string() + " is a folder");
  std::string error;
  std::optional<std::string> text =
      host::ReadInputFile(path.string(), kMaxFileSize, error);
  if (!text) Fail(where, path.string() + ": " + error);
  return std::move(*text);
}

HostSpec ParseHost(const Json& host, const fs::path& base_dir) {
  const std::string where = "host";
  AsObject(host, where);
  OnlyKeys(host, where,
           {"impl", "implFile", "displayName", "path", "files", "objects",
            "faults"});
  HostSpec spec;
  int64_t budget = kMaxBytesInAll;
  if (host.contains("impl") && host.contains("implFile")) {
    Fail(where, "give one of \"impl\" and \"implFile\"");
  }
  if (host.contains("impl")) {
    spec.impl = AsString(host["impl"], "host.impl");
  } else if (host.contains("implFile")) {
    const fs::path file = AsString(host["implFile"], "host.implFile");
    spec.impl_file = fs::absolute(file.is_absolute() ? file : base_dir / file)
                         .lexically_normal();
    spec.impl = ReadFile(*spec.impl_file, "host.implFile");
  }
  if (spec.impl && !FindElementInXml(*spec.impl, "impl")) {
    Fail(host.contains("impl") ? "host.impl" : "host.implFile",
         "holds no impl element, or is not well-formed XML");
  }
  if (host.contains("displayName")) {
    spec.display_name = AsString(host["displayName"], "host.displayName");
  }
  if (host.contains("path")) spec.path = AsString(host["path"], "host.path");
  if (host.contains("files")) {
    for (const auto& [name, value] :
         AsObject(host["files"], "host.files").items()) {
      const std::string at = "host.files." + name;
      const fs::path relative(name);
      if (name.empty() || relative.is_absolute() ||
          std::any_of(relative.begin(), relative.end(),
                      [](const fs::path& part) { return part == ".."; })) {
        Fail(at, "a file name must stay inside the folder");
      }
      spec.files[name] = ParseBytes(value, at, budget);
    }
  }
  if (host.contains("objects")) {
    const Json& objects = host["objects"];
    if (!objects.is_array()) Fail("host.objects", "expected an array");
    for (size_t i = 0; i < objects.size(); ++i) {
      const std::string at = "host.objects[" + std::to_string(i) + "]";
      const Json& o = AsObject(objects[i], at);
      OnlyKeys(o, at, {"HTMLData", "DisplayName", "HTMLSource", "HTMLPicture"});
      ObjectSpec object;
      if (o.contains("HTMLData")) {
        ParseHtmlData(o["HTMLData"], at + ".HTMLData", object);
      }
      if (o.contains("DisplayName")) {
        object.display_name = AsString(o["DisplayName"], at + ".DisplayName");
      }
      if (o.contains("HTMLSource")) {
        object.html_source = AsString(o["HTMLSource"], at + ".HTMLSource");
      }
      if (o.contains("HTMLPicture")) {
        object.html_picture =
            ParseBytes(o["HTMLPicture"], at + ".HTMLPicture", budget);
      }
      spec.objects.push_back(std::move(object));
    }
  }
  if (host.contains("faults")) {
    for (const auto& [name, value] :
         AsObject(host["faults"], "host.faults").items()) {
      spec.faults[name] = ParseFault(name, value, "host.faults." + name);
    }
  }
  return spec;
}

// The fields each action takes, besides "do".
struct ActionForm {
  const char* name;
  tk::UserAction::Kind kind;
  std::initializer_list<std::string_view> keys;
  bool needs_control;
};

const ActionForm kActions[] = {
    {"click", tk::UserAction::Kind::kClick, {"control"}, true},
    {"type", tk::UserAction::Kind::kType, {"control", "text"}, true},
    {"clear", tk::UserAction::Kind::kClear, {"control"}, true},
    {"backspace", tk::UserAction::Kind::kBackspace, {"control", "count"}, true},
    {"check", tk::UserAction::Kind::kCheck, {"control", "row", "value"}, true},
    {"select", tk::UserAction::Kind::kSelect, {"control", "row"}, true},
    {"hover", tk::UserAction::Kind::kHover, {"control"}, true},
    {"key", tk::UserAction::Kind::kKey, {"key"}, false},
    {"close", tk::UserAction::Kind::kClose, {}, false},
};

Step ParseDo(const Json& step, const std::string& where) {
  const std::string name = AsString(step["do"], where + ".do");
  Step parsed;
  if (name == "snapshot") {
    OnlyKeys(step, where, {"do"});
    parsed.kind = Step::Kind::kSnapshot;
    return parsed;
  }
  const auto* form =
      std::find_if(std::begin(kActions), std::end(kActions),
                   [&](const ActionForm& f) { return name == f.name; });
  if (form == std::end(kActions)) Fail(where, "unknown action " + Quoted(name));
  std::vector<std::string_view> keys(form->keys);
  keys.push_back("do");
  for (const auto& [key, value] : step.items()) {
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      Fail(where, "unknown key " + Quoted(key) + " for " + Quoted(name));
    }
  }
  tk::UserAction& action = parsed.action;
  action.kind = form->kind;
  if (form->needs_control) {
    action.control =
        AsString(Required(step, where, "control"), where + ".control");
    const auto& names = DialogControlNames();
    if (std::find(names.begin(), names.end(), action.control) == names.end()) {
      Fail(where, "no dialog has a control " + Quoted(action.control));
    }
  }
  const int kMaxRow = std::numeric_limits<int>::max();
  switch (action.kind) {
    case tk::UserAction::Kind::kType:
      action.text = AsString(Required(step, where, "text"), where + ".text");
      break;
    case tk::UserAction::Kind::kBackspace:
      if (step.contains("count")) {
        action.count = static_cast<int>(
            AsInteger(step["count"], where + ".count", 0, kMaxRow));
      }
      break;
    case tk::UserAction::Kind::kCheck:
      action.value = AsBool(Required(step, where, "value"), where + ".value");
      [[fallthrough]];
    case tk::UserAction::Kind::kSelect:
      action.row = static_cast<int>(
          AsInteger(Required(step, where, "row"), where + ".row", 0, kMaxRow));
      break;
    case tk::UserAction::Kind::kKey: {
      const std::string key =
          AsString(Required(step, where, "key"), where + ".key");
      if (key == "Enter") {
        action.key = tk::kKeyReturn;
      } else if (key == "Escape") {
        action.key = tk::kKeyEscape;
      } else if (key == "F1") {
        action.key = tk::kKeyF1;
      } else {
        Fail(where + ".key", "expected \"Enter\", \"Escape\" or \"F1\"");
      }
      break;
    }
    default:
      break;
  }
  return parsed;
}

// `objects_by_then`: how many page objects there can be at this call at
// most, those of the host and one for each OnCommand before it.
Step ParseCall(const Json& step, const std::string& where,
               size_t objects_by_then) {
  const std::string name = AsString(step["call"], where + ".call");
  Step parsed;
  parsed.kind = Step::Kind::kCall;
  if (name == "OnOpen") {
    parsed.on_open = true;
    OnlyKeys(step, where, {"call", "instance", "object"});
    parsed.object = static_cast<int>(
        AsInteger(Required(step, where, "object"), where + ".object", 0,
                  std::numeric_limits<int>::max()));
    if (static_cast<size_t>(parsed.object) >= objects_by_then) {
      Fail(where, "object " + std::to_string(parsed.object) +
                      " cannot exist by then: at most " +
                      std::to_string(objects_by_then) + " objects");
    }
  } else if (name == "OnCommand") {
    OnlyKeys(step, where, {"call", "instance"});
  } else {
    Fail(where, "unknown call " + Quoted(name));
  }
  if (step.contains("instance")) {
    parsed.instance =
        static_cast<int>(AsInteger(step["instance"], where + ".instance", 0,
                                   std::numeric_limits<int>::max()));
  }
  return parsed;
}

}  // namespace

std::vector<Step> ParseSteps(const Json& steps, size_t host_objects) {
  if (!steps.is_array()) Fail("steps", "expected an array");
  std::vector<Step> parsed;
  size_t objects_by_then = host_objects;
  for (size_t i = 0; i < steps.size(); ++i) {
    const std::string where = "steps[" + std::to_string(i) + "]";
    const Json& step = AsObject(steps[i], where);
    const bool is_call = step.contains("call");
    if (is_call == step.contains("do")) {
      Fail(where, "give one of \"call\" and \"do\"");
    }
    Step s = is_call ? ParseCall(step, where, objects_by_then)
                     : ParseDo(step, where);
    if (is_call && !s.on_open) ++objects_by_then;
    s.source = step;
    parsed.push_back(std::move(s));
  }
  return parsed;
}

namespace {

std::vector<std::string> CollectControlNames() {
  std::vector<std::string> names;
  // On a thread of its own: loading the dialogs there leaves this thread's
  // instances as they were.
  std::thread([&] {
    for (tk::Form* form :
         {static_cast<tk::Form*>(&frmWizard::Instance()),
          static_cast<tk::Form*>(&frmActionOptions::Instance())}) {
      (void)Catch([&] { form->Load(); });
      for (const tk::Control* c : form->Controls()) names.push_back(c->Name());
      (void)Catch([&] { form->Unload(); });
    }
  }).join();
  return names;
}

}  // namespace

const std::vector<std::string>& DialogControlNames() {
  static const std::vector<std::string> names = CollectControlNames();
  return names;
}

Script ParseScript(std::string_view text, const fs::path& base_dir) {
  Json json;
  try {
    json = Json::parse(text);
  } catch (const Json::exception& e) {
    // A syntax error, or a number beyond a double's range (1e400), which
    // the reader reports as out of range rather than as a parse error.
    Fail("script", std::string("not valid JSON: ") + e.what());
  }
  AsObject(json, "script");
  OnlyKeys(json, "script", {"host", "steps"});
  Script script;
  if (json.contains("host")) script.host = ParseHost(json["host"], base_dir);
  if (json.contains("steps")) {
    script.steps = ParseSteps(json["steps"], script.host.objects.size());
  }
  return script;
}

}  // namespace formwiz::script
