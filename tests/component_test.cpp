// clsFormWiz over the host stand-in: its two calls up to the decision on
// what to show, with the refusals, reports and the Result each way leaves;
// stored data of every kind, hostile included, opened; and the commits: what
// reaches the page object, in what order, and how far a failing step lets
// them come.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "component/commit.h"
#include "component/utils.h"
#include "component_test_support.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

namespace fs = std::filesystem;
using host::PageObject;
using Kind = tk::UserAction::Kind;
using Peer = clsFormWizTestPeer;

TEST(Variant, ConvertsLikeTheRuntime) {
  const std::pair<Variant, const char*> cases[] = {
      // null: no text
      {Variant::String("<a/>"), "<a/>"},
      {Variant::Number(3), "3"},
      {Variant::Number(1.5), "1.5"},
      {Variant::Number(-0.0), "0"},
      {Variant::Number(1.0 / 3), "0.333333333333333"},
      {Variant::Number(1e15), "1E+15"},
      {Variant::Number(0.00001), "1E-05"},
      {Variant{}, nullptr},
      {Variant::Object(std::make_shared<HostObject>()), nullptr},
  };
  for (const auto& [value, expected] : cases) {
    std::string text = "untouched";
    EXPECT_EQ(value.ToText(text), expected != nullptr);
    EXPECT_EQ(text, expected ? expected : "untouched");
  }
}

TEST(Decision, UiTypeAndActionChooseTheWizardOnTheLastForm) {
  const std::pair<const char*, bool> cases[] = {
      {"<impl><form uitype='orb'/></impl>", true},
      {"<impl><form uitype='sectioned' action='x'/></impl>", true},
      {"<impl><form uitype=''/></impl>", true},
      {"<impl><form action=''/></impl>", false},  // present, though empty
      {"<impl><form uitype='Orb'/></impl>", false},
      {"<impl><form uitype='orb'/><form uitype='x'/></impl>", false},
      {"<impl><form uitype='x'/><form/></impl>", true},
  };
  for (const auto& [impl, runs] : cases) {
    const KelXmlElement form =
        LastFormChild(FindElementInXml(impl, "impl"), nullptr);
    const std::string before = form.Xml();
    EXPECT_EQ(WizardRunsFor(EffectiveUiType(form)), runs) << impl;
    EXPECT_EQ(form.Xml(), before) << "the tree keeps what it has";
  }
}

class EntryTest : public ComponentTest {
 protected:
  ~EntryTest() override {
    frmWizard::Instance().Unload();
    frmActionOptions::Instance().Unload();
  }
  std::shared_ptr<host::PageObject> Stored(const std::string& data) {
    auto object = page->AddObject();
    object->html_data = Variant::String(data);
    return object;
  }
  clsFormWiz wiz;
};

// The text selection that cannot be made is a scenario
// (fault-create-selection-*.json).
TEST_F(EntryTest, OnCommandRefusesOrReportsBeforeAnyDialog) {
  // No impl: Impl never set.
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"<impl><placeholder src='p'/></impl>", {}},
      {"<impl><form action='a'/></impl>", {}},
      {nullptr,
       {InternalError(
           "102\r\n91: Object variable or With block variable not set")}},
  };
  for (const auto& [impl, texts] : cases) {
    SCOPED_TRACE(impl ? impl : "no Impl");
    ui.boxes.clear();
    clsFormWiz fresh;
    if (impl) fresh.SetImpl(FindElementInXml(impl, "impl"));
    fresh.OnCommand(page, 0, "");
    EXPECT_EQ(Texts(), texts);
    EXPECT_EQ(fresh.Result(), kResultCancelled);
    EXPECT_TRUE(page->objects.empty());
  }
}

TEST_F(EntryTest, OnCommandTakesTheLastPlaceholderOnItsWalk) {
  wiz.SetImpl(FindElementInXml(
      "<impl><placeholder src='a'/><form/><placeholder src='b'/></impl>",
      "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(Peer::PlaceholderSrc(wiz), "b");
  wiz.SetImpl(FindElementInXml("<impl><form/></impl>", "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(Peer::PlaceholderSrc(wiz), "b") << "none: unchanged";
  EXPECT_TRUE(ui.boxes.empty());
}

// What stored strings lead to is OpenStoredTest's, below.
TEST_F(EntryTest, OnOpenRefusesNoObjectAndDoesNothingWhileTheGuardIsUp) {
  wiz.OnOpen(nullptr, page, 0);
  EXPECT_EQ(Texts(true),
            (std::vector<std::string>{
                "QlnFormOrbWiz: This Form Orb can not be edited."}));
  ui.boxes.clear();
  page->calls.clear();
  frmActionOptions::Instance().bInUse = true;
  Peer::SetResult(wiz, kResultFinished);
  wiz.OnOpen(Stored("x"), page, 0);  // would be refused
  EXPECT_TRUE(ui.boxes.empty());
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(page->calls.empty()) << "not even HTMLData is read";
}

const Failure kRunFailure{5, "Invalid procedure call or argument"};
const std::string kRunFailureText = "\r\n5: Invalid procedure call or argument";

TEST_F(EntryTest, AFailureInTheRunOfOnCommandStillUnloadsTheWizard) {
  ui.act = [](tk::Form&) { Raise(kRunFailure); };
  wiz.SetImpl(FindElementInXml("<impl><form/></impl>", "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(Texts(), (std::vector{InternalError("102" + kRunFailureText)}));
  EXPECT_FALSE(frmWizard::Instance().Loaded());
  EXPECT_FALSE(frmActionOptions::Instance().Loaded()) << "its Form_Unload";
  EXPECT_EQ(wiz.Result(), kResultCancelled) << "failed before it returned";
}

TEST_F(EntryTest, AFailureInARunOfOnOpenLeavesItsDialogLoaded) {
  ui.act = [](tk::Form&) { Raise(kRunFailure); };
  auto form = Stored("<form><input type='hidden' name='qln_EmailTo'/></form>");
  wiz.OnOpen(form, page, 0);
  EXPECT_TRUE(frmActionOptions::Instance().Loaded());
  EXPECT_FALSE(form->html_source);

  frmActionOptions::Instance().Unload();
  wiz.OnOpen(Stored("<impl><form/></impl>"), page, 0);
  EXPECT_TRUE(frmWizard::Instance().Loaded());
  EXPECT_FALSE(Peer::Impl(wiz).IsNull()) << "held to the end";
  EXPECT_EQ(wiz.Result(), kResultCancelled);
  EXPECT_EQ(Texts(), (std::vector<std::string>(
                         2, InternalError("104" + kRunFailureText))));
}

TEST_F(EntryTest, EveryRunStartsOnAFreshDialogAfterAFinishedOnOpen) {
  std::vector<std::string> shown;  // each dialog as it comes up
  ui.act = [&](tk::Form& form) {
    const frmWizard& wizard = frmWizard::Instance();
    shown.push_back(form.name() +
                    (wizard.Loaded()
                         ? " on step " + std::to_string(wizard.nCurStep)
                         : " alone"));
    if (&form == &frmWizard::Instance()) Click(form, "cmdNav(4)");
  };
  const std::string impl =
      "<impl><forminfo/><form><input type='hidden' name='qln_FormIndex' "
      "value='1'/><section name='A' included='y'/></form></impl>";
  wiz.SetImpl(FindElementInXml("<impl/>", "impl"));
  wiz.OnOpen(Stored(impl), page, 0);
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(Peer::Impl(wiz).IsNull()) << "dropped at the end";
  EXPECT_TRUE(frmWizard::Instance().Loaded()) << "Finish only hides";
  EXPECT_TRUE(frmActionOptions::Instance().Loaded());

  // A stored form next: the leftover goes first, its options dialog too.
  wiz.OnOpen(Stored("<form/>"), page, 0);
  EXPECT_FALSE(frmWizard::Instance().Loaded());
  EXPECT_EQ(frmActionOptions::Instance().Caption(), "Form Orb Options");

  wiz.OnOpen(Stored(impl), page, 0);
  wiz.SetImpl(FindElementInXml(impl, "impl"));
  wiz.OnCommand(page, 0, "");
  EXPECT_EQ(shown, (std::vector<std::string>{
                       "frmWizard on step 3", "frmActionOptions alone",
                       "frmWizard on step 3", "frmWizard on step 0"}));
  EXPECT_TRUE(ui.boxes.empty());
}

// The component opening stored data, with a person who closes the dialogs
// that come up.
class OpenStoredTest : public EntryTest {
 protected:
  // Runs OnOpen on an object that has been committed before, with `data`
  // stored; expects that nothing was written to it.
  int32_t OpenStored(const std::string& data) {
    ui.boxes.clear();
    ui.shown.clear();
    page->calls.clear();
    auto object = page->AddObject();
    object->html_data = Variant::String(data);
    object->html_source = "<form>old</form>";
    object->display_name = "old";
    clsFormWiz wiz;
    wiz.OnOpen(object, page, 0);
    EXPECT_TRUE(object->html_data->text == data) << "HTMLData changed";
    EXPECT_EQ(object->html_source, "<form>old</form>");
    EXPECT_EQ(object->display_name, "old");
    for (const std::string& call : page->calls) {
      EXPECT_FALSE(call.starts_with("put.")) << call;
    }
    return wiz.Result();
  }
};

// The kinds a host can store (none, empty, an object, a number, a failing
// read) are a scenario (onopen-stored-data-kinds.json); here the strings,
// every document no reader may take among them.
TEST_F(OpenStoredTest, StoredStringsDecideWhatFollows) {
  const std::string index = "<input type=\"hidden\" name=\"qln_FormIndex\" ";
  const std::string refused = "QlnFormOrbWiz: This Form Orb can not be edited.";
  const std::string report = "Error: " + InternalError("104");
  const std::string not_set =
      report + "\r\n91: Object variable or With block variable not set";
  using Lines = std::vector<std::string>;
  struct Case {
    std::string stored;
    Lines boxes;  // "title: text"
    Lines shown;  // the dialogs that came up
    int32_t result;
  };
  std::vector<Case> cases = {
      {"<", {refused}, {}, kResultNone},
      {"\xC3\xA9", {refused}, {}, kResultNone},  // one character
      {"ab", {report}, {}, kResultNone},
      // Only a top element named form or impl leads anywhere.
      {"<div><form/></div>", {}, {}, kResultNone},
      {"<!--x--><impl/>", {}, {}, kResultNone},
      {"<Impl/>", {}, {}, kResultNone},
      // Closed through its frame on a first run, a dialog leaves 0.
      {"<form/>", {}, {"frmActionOptions"}, kResultNone},
      {"<impl><form/></impl>", {}, {"frmWizard"}, kResultNone},
      // The wizard needs a form to list the fields of, and a choice for
      // the stored index: it fails before it shows. An index beyond 16
      // bits is ReadFormIndex's, and cli_test's end to end.
      {"<impl/>", {not_set}, {}, kResultCancelled},
      {"<impl><div><form/></div></impl>", {not_set}, {}, kResultCancelled},
      {"<impl><forminfo/><form>" + index + "value=\"3\"/></form></impl>",
       {not_set},
       {},
       kResultCancelled},
  };
  for (const NamedXml& unreadable : Unreadable()) {
    cases.push_back({unreadable.xml, {report}, {}, kResultNone});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stored.substr(0, 200));
    EXPECT_EQ(OpenStored(c.stored), c.result);
    EXPECT_EQ(Texts(true), c.boxes);
    EXPECT_EQ(ui.shown, c.shown);
  }
}

TEST_F(OpenStoredTest, AHundredThousandFormChoicesStillChooseAndFinish) {
  constexpr int kChoices = 100000;
  std::string impl = "<impl>";
  for (int i = 1; i <= kChoices; ++i) {
    const std::string n = std::to_string(i);
    impl += "<forminfo><desc>D" + n + "</desc><response>R" + n +
            "</response></forminfo>";
  }
  impl +=
      "<form><section name=\"A\" included=\"yy\"><input "
      "name=\"[fieldname]\"/></section></form></impl>";
  frmWizard& wizard = frmWizard::Instance();
  ui.scripts["frmWizard"].push_back([&](tk::Form& f) {
    Click(f, "optForm(1)");
    EXPECT_EQ(wizard.Ctl("txtResponse").Text(), "R2");
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtEmailAddr", "me@example.org");
    Click(f, "cmdNav(4)");
  });
  clsFormWiz wiz;
  wiz.SetImpl(FindElementInXml(impl, "impl"));
  wiz.OnCommand(page, 0, "");
  ASSERT_EQ(wiz.Result(), kResultFinished);
  ASSERT_EQ(page->objects.size(), 1u);
  const auto object = page->objects[0];
  const std::string stored = object->html_data->text;
  EXPECT_EQ(
      FindElementInXml(stored, "impl").GetElementsByTagName("forminfo").Count(),
      kChoices);
  EXPECT_NE(object->html_source->find("value=\"2\""), std::string::npos);
  EXPECT_NE(object->html_source->find("<input name=\"A\">"), std::string::npos);

  // Opened again: the stored choice is there.
  ui.scripts["frmWizard"].push_back([&](tk::Form& f) {
    EXPECT_TRUE(wizard.Ctl("optForm", 1).Value());
    Click(f, "cmdNav(4)");
  });
  wiz.OnOpen(object, page, 0);
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_TRUE(object->html_data->text == stored) << "nothing was changed";
  EXPECT_TRUE(ui.boxes.empty());
}

constexpr char kImpl[] =
    R"(<impl><placeholder src="pic.bin"/><forminfo><desc>C</desc></forminfo>)"
    R"(<forminfo><desc>R</desc></forminfo><template name="line"><tr><td>)"
    R"([fieldprompt]</td><td><input type="text" name="[fieldname]" )"
    R"(size="[size]"/></td></tr></template>)"
    R"(<form uitype="orb" defaultaction="http://example.org/mail">)"
    R"(<input type="hidden" name="qln_FormIndex" value="1"/><table>)"
    R"(<section name="Name" prompt="Your name:" template="line" size="30" )"
    R"(included="yn"/><section name="Phone" prompt="Phone:" template="line" )"
    R"(size="20" included="ny"/></table><input type="submit"/></form></impl>)";

std::string Replace(std::string text, const std::string& from,
                    const std::string& to) {
  text.replace(text.find(from), from.size(), to);
  return text;
}

// Which properties the object holds, and whether UpdateItem was called.
std::string Written(const PageObject& o) {
  std::string written;
  for (auto [present, name] :
       {std::pair{o.display_name.has_value(), "DisplayName"},
        {o.html_source.has_value(), "HTMLSource"},
        {o.html_data.has_value(), "HTMLData"},
        {o.html_picture.has_value(), "HTMLPicture"},
        {o.update_item_calls > 0, "UpdateItem"}}) {
    if (present) written += (written.empty() ? "" : " ") + std::string(name);
  }
  return written;
}

class CommitTest : public EntryTest {
 protected:
  CommitTest() {
    fs::create_directories(dir_);
    WriteFile("pic.bin", 100);
  }
  ~CommitTest() override { fs::remove_all(dir_); }

  std::vector<uint8_t> WriteFile(const std::string& name, size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    std::ofstream(dir_ / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(size));
    return bytes;
  }

  // OnCommand on the definition (it walks it, and the wizard it shows is
  // closed through its frame, which commits nothing), then the commit of a
  // wizard that finished.
  void InsertFinished(const std::string& impl_xml) {
    const KelXmlElement impl = FindElementInXml(impl_xml, "impl");
    wiz.SetImpl(impl);
    wiz.SetDisplayName("Contact");
    wiz.SetPath(dir_.string());
    const size_t objects_before = page->objects.size();
    wiz.OnCommand(page, 0, "");
    ASSERT_EQ(wiz.Result(), kResultNone);
    ASSERT_EQ(page->objects.size(), objects_before);
    Peer::SetResult(wiz, kResultFinished);
    auto selection = Selection();
    page->calls.clear();
    Peer::CommitOnCommand(wiz, selection, LastFormChild(impl, nullptr), "orb");
  }

  const fs::path dir_ = TempPath("commit");
};

// A failing host call stops the insert where it is: one scenario per call
// (tests/scenarios/fault-*.json). The picture file fails in its own ways and
// stops the insert before it; without a placeholder there is no last call.
// The guard is up for UpdateItem and the release only.
TEST_F(CommitTest, ThePictureDecidesHowFarTheInsertComes) {
  std::vector<std::string> guarded;
  page->on_call = [&](std::string_view call) {
    if (frmActionOptions::Instance().bInUse) guarded.emplace_back(call);
  };
  auto picture = [this](size_t size) {
    return [=, this] { WriteFile("pic.bin", size); };
  };
  const fs::path file = dir_ / "pic.bin";
  const std::string all =
      "DisplayName HTMLSource HTMLData HTMLPicture UpdateItem";
  const char* no_picture = "DisplayName HTMLSource HTMLData";
  const std::string placeholder = R"(<placeholder src="pic.bin"/>)";
  const struct {
    std::function<void()> setup;
    std::string placeholder;
    const char* report;  // behind "105\r\n"; null: none
    std::string written;
  } cases[] = {
      {picture(32767), placeholder, nullptr, all},
      {picture(0), placeholder, nullptr, all},
      {picture(32768), placeholder, "6: Overflow", no_picture},
      {[&] { fs::remove(file); }, placeholder, "53: File not found",
       no_picture},
      {[&] { fs::remove(file), fs::create_directory(file); }, placeholder,
       "75: Path/File access error", no_picture},
      {[] {}, "", nullptr, no_picture},
      {[] {}, R"(<placeholder src=""/>)", nullptr, no_picture},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    wiz = clsFormWiz();  // a placeholder outlives the walk that found it
    ui.boxes.clear();
    guarded.clear();
    page->objects.clear();
    fs::remove_all(file);
    WriteFile("pic.bin", 100);
    cases[i].setup();
    InsertFinished(Replace(kImpl, placeholder, cases[i].placeholder));
    EXPECT_EQ(Texts(), cases[i].report
                           ? std::vector{InternalError(std::string("105\r\n") +
                                                       cases[i].report)}
                           : std::vector<std::string>{});
    EXPECT_EQ(wiz.Result(), kResultFinished);
    EXPECT_FALSE(frmActionOptions::Instance().bInUse);
    const bool updated = cases[i].written == all;
    EXPECT_EQ(guarded, (updated ? std::vector<std::string>{"UpdateItem",
                                                           "release.PageItem"}
                                : std::vector<std::string>{}));
    ASSERT_EQ(page->objects.size(), 1u);
    const PageObject& object = *page->objects[0];
    EXPECT_EQ(Written(object), cases[i].written);
    if (object.html_picture) {
      EXPECT_EQ(object.html_picture->size(), fs::file_size(file));
    }
  }
}

TEST_F(CommitTest, NothingIsWrittenWhenTheDefinitionCannotBeUsed) {
  // Without a form, assembly fails; without Impl, the first serialisation.
  // No impl: none set.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"<impl><placeholder src='pic.bin'/></impl>", "105", "105"},
      {nullptr, "105\r\n91: Object variable or With block variable not set",
       "104\r\n91: Object variable or With block variable not set"},
  };
  for (const auto& [impl, insert_error, rewrite_error] : cases) {
    ui.boxes.clear();
    page->objects.clear();
    clsFormWiz fresh;
    if (impl) fresh.SetImpl(FindElementInXml(impl, "impl"));
    Peer::SetPlaceholderSrc(fresh, "pic.bin");
    Peer::SetResult(fresh, kResultFinished);
    Peer::CommitOnCommand(fresh, Selection(), KelXmlElement(), "orb");
    auto object = page->AddObject();
    Peer::CommitStoredDefinition(fresh, object, KelXmlElement());
    EXPECT_EQ(Texts(), (std::vector{InternalError(insert_error),
                                    InternalError(rewrite_error)}));
    EXPECT_EQ(page->objects.size(), 1u) << "nothing placed";
    EXPECT_EQ(Written(*object), "");
  }
}

TEST(ReadFormIndex, TakesTheLeadingNumberRounded) {
  // No value: no field. No number: overflow.
  const std::pair<const char*, std::optional<int>> cases[] = {
      {nullptr, 0},  {"12abc", 12},    {" 1 2", 12},       {"1.5", 2},
      {"2.5", 2},    {"1D2x", 100},    {"0x10", 0},        {"inf", 0},
      {"32768", {}}, {"32767", 32767}, {"-32768", -32768}, {"1e400", {}},
  };
  for (const auto& [value, number] : cases) {
    SCOPED_TRACE(value ? value : "no field");
    std::string xml = "<form>";
    if (value) {
      xml +=
          std::string(R"(<input type="hidden" name="qln_FormIndex" value=")") +
          value + "\"/>";
    }
    const KelXmlElement form = FindElementInXml(xml + "</form>", "form");
    if (!number) {
      try {
        ReadFormIndex(form);
        ADD_FAILURE() << "no failure";
      } catch (const Failure& f) {
        EXPECT_EQ(f, (Failure{6, "Overflow"}));
      }
    } else {
      EXPECT_EQ(ReadFormIndex(form), *number);
    }
  }
}

}  // namespace
}  // namespace formwiz
