// The commits over the host stand-in: what reaches the page object, in what
// order, and how far a failing step lets them come.
#include "component/commit.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "component/utils.h"
#include "component_test_support.h"

namespace formwiz {
namespace {

namespace fs = std::filesystem;
using host::PageObject;
using Peer = clsFormWizTestPeer;

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

bool Has(const std::optional<std::string>& text, std::string_view part) {
  return text && text->find(part) != std::string::npos;
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

class CommitTest : public ComponentTest {
 protected:
  CommitTest() {
    dir_ = fs::temp_directory_path() /
           ("formwiz_commit_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
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
  void InsertFinished(const std::string& impl_xml,
                      const std::string& uitype = "orb") {
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
    Peer::CommitOnCommand(wiz, selection, LastFormChild(impl, nullptr), uitype);
  }

  fs::path dir_;
  clsFormWiz wiz;
};

TEST_F(CommitTest, InsertWritesTheDefinitionBeforeAndTheHtmlAfterAssembly) {
  const std::vector<uint8_t> picture = WriteFile("pic.bin", 1234);
  InsertFinished(kImpl);

  EXPECT_TRUE(ui.boxes.empty());
  EXPECT_EQ(wiz.Result(), kResultFinished);
  EXPECT_EQ(page->calls,
            (std::vector<std::string>{"InsertHTMLObject", "GetHTMLObject",
                                      "put.DisplayName", "put.HTMLSource",
                                      "put.HTMLData", "put.HTMLPicture",
                                      "UpdateItem", "release.PageItem"}));
  ASSERT_EQ(page->objects.size(), 1u);
  const PageObject& object = *page->objects[0];
  EXPECT_EQ(object.prog_id, "QlnFormOrbWiz.clsFormWiz");
  EXPECT_EQ(object.display_name, "Contact");
  EXPECT_EQ(object.html_picture, picture);
  EXPECT_EQ(object.update_item_calls, 1);
  // The stored definition is the untouched tree: fields, uitype and
  // defaultaction there, no qln_SortOrder.
  ASSERT_TRUE(object.html_data);
  EXPECT_EQ(object.html_data->text, FindElementInXml(kImpl, "impl").Xml());
  const std::optional<std::string>& html = object.html_source;
  EXPECT_TRUE(Has(html, R"(name="qln_SortOrder" value="Name")"));
  EXPECT_EQ(html->rfind("<form>", 0), 0u) << "the form alone, bare";
  for (const char* gone :
       {"<impl", "<section", "uitype", "defaultaction", "Phone", "[field"}) {
    EXPECT_FALSE(Has(html, gone)) << gone;
  }
}

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
  const struct {
    const char* impl;  // null: none
    const char* insert_error;
    const char* rewrite_error;
  } cases[] = {
      {"<impl><placeholder src='pic.bin'/></impl>", "105", "105"},
      {nullptr, "105\r\n91: Object variable or With block variable not set",
       "104\r\n91: Object variable or With block variable not set"},
  };
  for (const auto& c : cases) {
    ui.boxes.clear();
    page->objects.clear();
    clsFormWiz fresh;
    if (c.impl) fresh.SetImpl(FindElementInXml(c.impl, "impl"));
    Peer::SetPlaceholderSrc(fresh, "pic.bin");
    Peer::SetResult(fresh, kResultFinished);
    Peer::CommitOnCommand(fresh, Selection(), KelXmlElement(), "orb");
    auto object = page->AddObject();
    Peer::CommitStoredDefinition(fresh, object, KelXmlElement());
    EXPECT_EQ(Texts(), (std::vector{InternalError(c.insert_error),
                                    InternalError(c.rewrite_error)}));
    EXPECT_EQ(page->objects.size(), 1u) << "nothing placed";
    EXPECT_EQ(Written(*object), "");
  }
}

// A rewrite on reopening, its picture left alone and no UpdateItem, and the
// stored form rewritten by the options dialog are scenarios
// (stored-definition-reopened.json, stored-form-options.json).

TEST(ReadFormIndex, TakesTheLeadingNumberRounded) {
  const struct {
    const char* value;          // null: no field
    std::optional<int> number;  // none: overflow
  } cases[] = {
      {nullptr, 0},  {"12abc", 12},    {" 1 2", 12},       {"1.5", 2},
      {"2.5", 2},    {"1D2x", 100},    {"0x10", 0},        {"inf", 0},
      {"32768", {}}, {"32767", 32767}, {"-32768", -32768}, {"1e400", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value ? c.value : "no field");
    std::string xml = "<form>";
    if (c.value) {
      xml +=
          std::string(R"(<input type="hidden" name="qln_FormIndex" value=")") +
          c.value + "\"/>";
    }
    const KelXmlElement form = FindElementInXml(xml + "</form>", "form");
    if (!c.number) {
      try {
        ReadFormIndex(form);
        ADD_FAILURE() << "no failure";
      } catch (const Failure& f) {
        EXPECT_EQ(f, (Failure{6, "Overflow"}));
      }
    } else {
      EXPECT_EQ(ReadFormIndex(form), *c.number);
    }
  }
}

}  // namespace
}  // namespace formwiz
