// A minimal host editor for the formwiz component: a page that is a list
// of objects, the roles the component asks the host for, and a Ui with no
// person behind it. It inserts a form orb (the wizard is shown, and this Ui
// closes it at once, so nothing is placed), opens an object whose stored
// definition is missing (the component tells the person through the Ui that
// it cannot be edited), and lets a host role fail (the component reports it
// and returns). Prints what happened; exit 0 when the component behaved as a
// host expects.
#include <formwiz/formwiz.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using formwiz::HostObjectPtr;

// An object of the page: what the component writes into it.
class PageObject : public formwiz::HtmlObject {
 public:
  formwiz::Variant GetHTMLData() override {
    return data.empty() ? formwiz::Variant() : formwiz::Variant::String(data);
  }
  void PutHTMLData(const std::string& value) override { data = value; }
  void PutHTMLSource(const std::string& value) override { source = value; }
  void PutDisplayName(const std::string& value) override { name = value; }
  void PutHTMLPicture(const std::vector<uint8_t>& bytes) override {
    picture = bytes;
  }

  std::string data, source, name;
  std::vector<uint8_t> picture;
};

// The page: the document the component is handed as docObj.
class Page : public formwiz::HostObject {
 public:
  std::vector<std::shared_ptr<PageObject>> objects;
};

class Item : public formwiz::PageItem {
 public:
  explicit Item(std::shared_ptr<PageObject> object)
      : object_(std::move(object)) {}
  std::shared_ptr<formwiz::HtmlObject> GetHTMLObject() override {
    return object_;
  }
  void UpdateItem(int32_t, formwiz::Variant&) override {}

 private:
  std::shared_ptr<PageObject> object_;
};

// Where the component places a new object: at the end of the page it was
// given. A document that is no Page is a type mismatch, as for any role.
class Selection : public formwiz::TextSelection {
 public:
  void PutQuillanDO(const HostObjectPtr& doc) override {
    page_ = formwiz::AsRole<Page>(doc);
  }
  std::shared_ptr<formwiz::PageItem> InsertHTMLObject(
      const std::string& prog_id) override {
    if (prog_id != formwiz::kProgId) return nullptr;
    auto object = std::make_shared<PageObject>();
    formwiz::Deref(page_).objects.push_back(object);
    return std::make_shared<Item>(object);
  }

 private:
  std::shared_ptr<Page> page_;
};

// No person: every dialog is closed through its frame at once (the base
// class's RunModal), and message boxes are kept.
class HeadlessUi : public formwiz::Ui {
 public:
  void MsgBox(std::string_view text, std::string_view title) override {
    boxes.push_back(std::string(title) + ": " + std::string(text));
  }
  void RunModal(formwiz::tk::Form& form, formwiz::tk::Form* owner) override {
    ++dialogs;
    Ui::RunModal(form, owner);
  }
  int dialogs = 0;
  std::vector<std::string> boxes;
};

// A small orb definition: one form choice with two fields.
constexpr char kOrb[] = R"(<impl>
  <placeholder src="form.png"></placeholder>
  <forminfo><desc>A short contact form.</desc></forminfo>
  <form uitype="orb" name="Contact">
    <field name="Name" prompt="Your name:"><input type="text" name="Name"></input></field>
    <field name="Email" prompt="Your e-mail:"><input type="text" name="Email"></input></field>
  </form>
</impl>)";

bool Check(bool ok, const char* what) {
  std::printf("%s: %s\n", ok ? "ok" : "FAILED", what);
  return ok;
}

}  // namespace

int main() {
  std::printf("formwiz %s\n", FORMWIZ_VERSION);
  // The roles the component creates by ProgID come from this thread's
  // registry; the host fills it before the first call.
  formwiz::ObjectRegistry::Current().Register(
      formwiz::kTextSelectionProgId,
      [] { return std::make_shared<Selection>(); });
  HeadlessUi ui;
  formwiz::ScopedUi scoped(ui);
  auto page = std::make_shared<Page>();
  bool ok = true;

  // Insert ▸ Form Orb: the host parses the orb and hands over its impl.
  formwiz::clsFormWiz wizard;
  const formwiz::KelXmlElement impl = formwiz::FindElementInXml(kOrb, "impl");
  ok &= Check(static_cast<bool>(impl), "the orb parses");
  wizard.SetImpl(impl);
  wizard.SetDisplayName("Contact");
  wizard.SetPath("/nonexistent");
  wizard.OnCommand(page, 0, "");
  ok &= Check(ui.dialogs == 1, "the wizard was shown");
  // Only Result 1 (finished) means the page changed; closing the wizard
  // through its frame gives 0.
  ok &= Check(wizard.Result() == formwiz::kResultNone,
              "closing it leaves Result 0");
  ok &= Check(page->objects.empty(), "a cancel places nothing");
  ok &= Check(ui.boxes.empty(), "no message box");

  // Edit ▸ Edit Object on an object that keeps no definition: the
  // component says so through the Ui and returns normally.
  auto stray = std::make_shared<PageObject>();
  formwiz::clsFormWiz opener;
  opener.OnOpen(stray, page, 0);
  ok &= Check(ui.boxes.size() == 1, "the person is told it cannot be edited");

  // A host role that fails: the host raises a Failure, the component
  // reports it to the person through the Ui and returns; nothing escapes.
  formwiz::ObjectRegistry::Current().Register(
      formwiz::kTextSelectionProgId, []() -> HostObjectPtr {
        formwiz::Raise(formwiz::Failure{75, "The page is read-only."});
      });
  formwiz::clsFormWiz failing;
  failing.SetImpl(formwiz::FindElementInXml(kOrb, "impl"));
  failing.OnCommand(page, 0, "");
  ok &= Check(
      ui.boxes.size() == 2 &&
          ui.boxes.back().find("The page is read-only.") != std::string::npos,
      "a host failure is reported, not thrown");
  ok &= Check(page->objects.empty(), "and the page is as it was");
  for (const std::string& box : ui.boxes) std::printf("  %s\n", box.c_str());
  return ok ? 0 : 1;
}
