// Running a checked script: the host, the calls, the transcript.
#include <stdlib.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>
#include <system_error>
#include <thread>

#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "formdoc/kelxml.h"
#include "script/script.h"
#include "script/scripted_ui.h"
#include "script/sha256.h"

namespace formwiz::script {
namespace {

namespace fs = std::filesystem;

// A fresh folder under the system's temporary folder, removed with this.
class TempFolder {
 public:
  TempFolder() {
    std::string name =
        (fs::temp_directory_path() / "formwiz-script-XXXXXX").string();
    if (!mkdtemp(name.data())) {
      throw std::system_error(errno, std::generic_category(),
                              "cannot make a temporary folder");
    }
    path_ = name;
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

Json FailureJson(const Failure& failure) {
  return {{"number", failure.number}, {"description", failure.description}};
}

Json HtmlDataJson(const host::PageObject& object) {
  if (!object.html_data) {
    if (object.html_data_read_fault) {
      return {{"fault", FailureJson(*object.html_data_read_fault)}};
    }
    return nullptr;
  }
  const Variant& data = *object.html_data;
  switch (data.kind) {
    case Variant::Kind::kString:
      return data.text;
    case Variant::Kind::kNumber:
      return data.number;
    case Variant::Kind::kNull:
      return nullptr;
    case Variant::Kind::kEmpty:
      return {{"empty", true}};
    case Variant::Kind::kObject:
      return {{"object", true}};
  }
  return nullptr;
}

template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json ObjectJson(const host::PageObject& object) {
  Json picture = nullptr;
  if (object.html_picture) {
    picture = {{"size", object.html_picture->size()},
               {"sha256", Sha256Hex(*object.html_picture)}};
  }
  return {{"DisplayName", OrNull(object.display_name)},
          {"HTMLSource", OrNull(object.html_source)},
          {"HTMLData", HtmlDataJson(object)},
          {"HTMLPicture", std::move(picture)},
          {"updateItemCalls", object.update_item_calls}};
}

class Runner : public ScriptedUi::Feed {
 public:
  explicit Runner(const Script& script) : script_(script) {}

  Json Run() {
    ScopedUi scoped_ui(ui_);
    SetUpHost();
    const std::vector<Step>& steps = script_.steps;
    while (next_ < steps.size()) {
      const Step& step = steps[next_++];
      if (step.kind == Step::Kind::kCall) {
        Call(step);
      } else {
        ui_.Apply(step, nullptr);
      }
    }
    Json objects = Json::array();
    for (const auto& object : page_->objects) {
      objects.push_back(ObjectJson(*object));
    }
    return {{"events", std::move(events_)},
            {"impl", impl_set_ ? Json(last_impl_.Xml()) : Json(nullptr)},
            {"objects", std::move(objects)}};
  }

 private:
  const Step* NextAction() override {
    const std::vector<Step>& steps = script_.steps;
    if (next_ < steps.size() && steps[next_].kind != Step::Kind::kCall) {
      return &steps[next_++];
    }
    return nullptr;
  }

  std::string WhyNoAction() const override {
    return next_ < script_.steps.size() ? "next call" : "script ended";
  }

  void SetUpHost() {
    const HostSpec& host = script_.host;
    page_ = std::make_shared<host::PageDocument>();
    page_->RegisterRoles();
    page_->faults = host.faults;
    page_->on_open_from_update = [this](const auto& object) {
      OpenFromUpdateItem(object);
    };
    for (const ObjectSpec& spec : host.objects) {
      const auto object = page_->AddObject();
      object->prog_id = kProgId;
      object->display_name = spec.display_name;
      object->html_source = spec.html_source;
      object->html_data = spec.html_data;
      object->html_data_read_fault = spec.html_data_fault;
      object->html_picture = spec.html_picture;
    }
    if (!host.files.empty()) {
      files_.emplace();
      for (const auto& [name, bytes] : host.files) {
        const fs::path file = files_->path() / name;
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
      }
    }
    if (host.path) {
      path_ = host.path;
    } else if (files_) {
      path_ = files_->path().string();
    } else if (host.impl_file) {
      path_ = host.impl_file->parent_path().string();
    }
  }

  std::shared_ptr<clsFormWiz>& Instance(int number) {
    std::shared_ptr<clsFormWiz>& wiz = instances_[number];
    if (!wiz) wiz = AsRole<clsFormWiz>(CreateObject(kProgId));
    return wiz;
  }

  void Call(const Step& step) {
    const HostSpec& host = script_.host;
    const char* name = step.on_open ? "OnOpen" : "OnCommand";
    clsFormWiz& wiz = *Instance(step.instance);
    Json call = {{"call", name}, {"instance", step.instance}};
    if (host.display_name) wiz.SetDisplayName(*host.display_name);
    if (step.on_open) {
      call["object"] = step.object;
      // The bound was checked, but the insertions it counted on may not
      // have happened: the editor has no such object to open.
      if (static_cast<size_t>(step.object) >= page_->objects.size()) {
        call["skipped"] = "no such object";
        events_.push_back(std::move(call));
        return;
      }
    } else {
      // As the editor reads the orb's file for each insertion: a tree of
      // its own each time, which the dialogs then edit in place.
      if (host.impl) {
        last_impl_ = FindElementInXml(*host.impl, "impl");
        impl_set_ = true;
        wiz.SetImpl(last_impl_);
      }
      if (path_) wiz.SetPath(*path_);
    }
    events_.push_back(std::move(call));
    Guarded([&] {
      if (step.on_open) {
        wiz.OnOpen(page_->objects[step.object], page_, 0);
      } else {
        wiz.OnCommand(page_, 0, "");
      }
    });
    events_.push_back({{"return", name},
                       {"instance", step.instance},
                       {"Result", wiz.Result()}});
  }

  // What the editor does from inside UpdateItem under the "OnOpen" fault,
  // with the nested call in the events.
  void OpenFromUpdateItem(const std::shared_ptr<host::PageObject>& object) {
    const auto& objects = page_->objects;
    const auto at = std::find(objects.begin(), objects.end(), object);
    const Json index =
        at == objects.end() ? Json(nullptr) : Json(at - objects.begin());
    events_.push_back(
        {{"call", "OnOpen"}, {"nested", true}, {"object", index}});
    std::shared_ptr<clsFormWiz> wiz;
    Guarded([&] { wiz = host::OpenWithFreshComponent(page_, object); });
    events_.push_back({{"return", "OnOpen"},
                       {"nested", true},
                       {"Result", wiz ? Json(wiz->Result()) : Json(nullptr)}});
  }

  // The component lets nothing out to its host; should anything come out
  // all the same, the transcript shows it and the script goes on.
  template <typename Body>
  void Guarded(Body&& body) {
    try {
      body();
    } catch (const Failure& failure) {
      events_.push_back({{"uncaught", FailureJson(failure)}});
    } catch (const std::exception& e) {
      events_.push_back({{"uncaught", e.what()}});
    }
  }

  const Script& script_;
  size_t next_ = 0;
  Json events_ = Json::array();
  ScriptedUi ui_{events_, *this};
  std::shared_ptr<host::PageDocument> page_;
  std::map<int, std::shared_ptr<clsFormWiz>> instances_;
  KelXmlElement last_impl_;
  bool impl_set_ = false;
  std::optional<TempFolder> files_;
  std::optional<std::string> path_;
};

// One line, whatever the message holds.
std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; },
      ' ');
  return text;
}

}  // namespace

Json RunScript(const Script& script) {
  Json transcript;
  std::exception_ptr error;
  std::thread([&] {
    try {
      transcript = Runner(script).Run();
    } catch (...) {
      error = std::current_exception();
    }
  }).join();
  if (error) std::rethrow_exception(error);
  return transcript;
}

int RunScriptText(std::string_view text, const std::filesystem::path& base_dir,
                  std::string_view name, std::ostream& out, std::ostream& err) {
  const std::string prefix = "formwiz script: " + std::string(name) + ": ";
  Script script;
  try {
    script = ParseScript(text, base_dir);
  } catch (const ScriptError& e) {
    err << OneLine(prefix + e.what()) << '\n';
    return 2;
  }
  Json transcript;
  try {
    transcript = RunScript(script);
  } catch (const std::exception& e) {
    err << OneLine(prefix + "cannot run: " + e.what()) << '\n';
    return 1;
  }
  // Text the component was given need not be UTF-8; the transcript must be.
  out << transcript.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  return 0;
}

}  // namespace formwiz::script
