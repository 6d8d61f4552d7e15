// A dialog of the toolkit model: its controls, fields and life. Each dialog
// class has one shared instance per thread, created on first reference
// (`Instance()`); its fields outlive Unload, its controls do not: Load builds
// them anew in their initial state and runs Form_Load once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "component/failure.h"
#include "toolkit/control.h"

namespace formwiz::tk {

// Key codes the dialogs know.
inline constexpr int kKeyReturn = 13;
inline constexpr int kKeyEscape = 27;
inline constexpr int kKeyF1 = 112;

// A field's value as a snapshot shows it.
using FieldValue = std::variant<bool, int64_t, std::string>;
using FieldList = std::vector<std::pair<std::string, FieldValue>>;

class Form {
 public:
  explicit Form(std::string name) : name_(std::move(name)) {}
  virtual ~Form() = default;
  Form(const Form&) = delete;
  Form& operator=(const Form&) = delete;

  // "frmWizard", "frmActionOptions".
  const std::string& name() const { return name_; }

  bool Loaded() const { return loaded_; }
  // Builds the controls in their initial state and runs Form_Load. Loading
  // a loaded form does nothing.
  void Load();
  // Runs Form_Unload and destroys the controls; ends a modal show of this
  // form. Unloading a form that is not loaded does nothing.
  void Unload();
  // Loads the form if needed and shows it modally through the current Ui,
  // returning when it is hidden or unloaded. `owner` may be null.
  void ShowModal(Form* owner);
  // Hides the form; a modal show of it returns.
  void Hide();
  // Whether the form is on show.
  bool Shown() const { return shown_; }

  const std::string& Caption() const { return caption_; }
  void SetCaption(std::string_view c) { caption_ = c; }
  // Key preview: Form_KeyDown sees each key before the focused control.
  bool KeyPreview() const { return key_preview_; }

  // A control by base name and array index (-1: not an array member).
  // Touching a control of a form that is not loaded loads it first, the way
  // the classic toolkit does.
  Control& Ctl(std::string_view base_name, int index = -1);
  // A control by full name ("cmdNav(3)"); null when the form has none.
  // Does not load the form.
  Control* Find(std::string_view full_name) const;
  // The controls in tab order.
  std::vector<Control*> Controls() const;

  // The form's fields by name, for snapshots.
  virtual FieldList Fields() const = 0;
  // Key preview handler; the default does nothing.
  virtual void Form_KeyDown(int key_code, int shift);
  // The close box of the title bar. The default unloads the form.
  virtual void CloseFromFrame();
  // A failure that an event handler raised while a person used the dialog.
  // No host may see it; the default shows its number and text in a message
  // box titled "Error".
  virtual void OnEventFailure(const Failure& failure);

 protected:
  // Adds a control while the controls are built; gives it back to be set up.
  Control& Add(ControlKind kind, std::string base_name, int index = -1);
  void SetKeyPreview(bool on) { key_preview_ = on; }

  // Creates every control in its initial state, with Add.
  virtual void BuildControls() = 0;
  virtual void Form_Load() {}
  virtual void Form_Unload() {}

 private:
  std::string name_;
  std::string caption_;
  bool key_preview_ = false;
  bool loaded_ = false;
  bool shown_ = false;
  std::vector<std::unique_ptr<Control>> controls_;
  // The controls by base name and index, for Ctl; looked up without making
  // a key string.
  using IndexKey = std::pair<std::string, int>;
  using IndexProbe = std::pair<std::string_view, int>;
  struct IndexHash {
    using is_transparent = void;
    size_t operator()(const IndexProbe& k) const {
      return std::hash<std::string_view>()(k.first) ^
             (static_cast<size_t>(k.second) * 0x9E3779B97F4A7C15u);
    }
    size_t operator()(const IndexKey& k) const {
      return (*this)(IndexProbe(k.first, k.second));
    }
  };
  struct IndexEqual {
    using is_transparent = void;
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      return a.second == b.second &&
             std::string_view(a.first) == std::string_view(b.first);
    }
  };
  std::unordered_map<IndexKey, Control*, IndexHash, IndexEqual> index_;
};

}  // namespace formwiz::tk
