// The form as a browser builds it: a person fills the wizard with text that
// would be markup if it were pasted in raw, `formwiz page` exports the page,
// headless Chromium opens it, and what the browser built is read back from
// its DOM.
#include <gtest/gtest.h>

#include <string>

#include "component_test_support.h"

namespace formwiz {
namespace {

using namespace html_check;
using script::Json;

// Goes into the page's head, where markup in the form cannot swallow it,
// and once the parser has built the page reports, through DOM calls, what
// the browser made of it, as JSON in a data block that --dump-dom prints as
// it is ("<" is escaped so no text can close the block).
constexpr const char* kReporter = R"js(<script>
document.addEventListener('DOMContentLoaded', function () {
  var r = {title: document.title, scripts: document.scripts.length,
           forms: document.forms.length, pwned: !!document.getElementById('pwned'),
           handlers: [], fields: [], hidden: {}, last: '', prompts: [],
           inputChildren: 0, textareas: []};
  document.querySelectorAll('*').forEach(function (e) {
    for (var i = 0; i < e.attributes.length; ++i)
      if (/^on/i.test(e.attributes[i].name))
        r.handlers.push(e.tagName + '.' + e.attributes[i].name);
  });
  var form = document.forms[0];
  Array.prototype.forEach.call(form.elements, function (e) {
    if (e.type === 'hidden') r.hidden[e.name] = e.value;
    else if (e.type !== 'submit') r.fields.push(e.name);
    if (e.tagName === 'INPUT') r.inputChildren += e.childNodes.length;
    if (e.tagName === 'TEXTAREA')
      r.textareas.push({name: e.name, children: e.childNodes.length,
                        parent: e.parentElement.tagName});
    r.last = e.type;
  });
  form.querySelectorAll('.fw-prompt').forEach(function (prompt) {
    r.prompts.push(prompt.textContent);
  });
  var out = document.createElement('script');
  out.type = 'application/json';
  out.id = 'fw-report';
  out.textContent = JSON.stringify(r).replace(/</g, '\\u003c');
  document.body.appendChild(out);
});
</script>)js";

using BrowserTest = ProgramTest;

TEST_F(BrowserTest, HostileTextStaysTextAndFieldsKeepTheirOrder) {
  const std::string chromium = ToolPath("FORMWIZ_CHROMIUM", FORMWIZ_CHROMIUM);
  if (const std::string missing = Missing(chromium); !missing.empty()) {
    GTEST_SKIP() << missing;
  }
  const std::string exported = MakePage("typed-markup", HostileSteps());
  ASSERT_FALSE(exported.empty());
  std::string html = ReadAll(exported);
  const size_t head_end = html.find("</head>");
  ASSERT_NE(head_end, std::string::npos) << html;
  html.insert(head_end, kReporter);
  const ProgramRun run =
      RunProgram({chromium, "--headless", "--no-sandbox", "--disable-gpu",
                  "--disable-background-networking", "--no-first-run",
                  "--disable-component-update", "--disable-sync",
                  "--user-data-dir=" + TempPath("profile"), "--dump-dom",
                  "file://" + WriteTemp("browse.html", html)},
                 "", 60);
  ASSERT_EQ(run.status, 0) << run.err;

  const std::string open = "id=\"fw-report\">";
  const size_t from = run.out.find(open);
  ASSERT_NE(from, std::string::npos) << run.out;
  const size_t to = run.out.find("</script>", from);
  const Json r =
      Json::parse(run.out.substr(from + open.size(), to - from - open.size()));

  // Nothing that was typed ran or became markup.
  EXPECT_NE(r["title"], "pwned");
  EXPECT_EQ(r["scripts"], 1) << "the reporter alone";
  EXPECT_EQ(r["pwned"], false);
  EXPECT_EQ(r["handlers"], Json::array());

  // The typed text is there verbatim: as a name, a prompt, a hidden value.
  // The orb's robot trap, qln_Website, is a text box after the fields.
  EXPECT_EQ(r["fields"], Json::array({kName, "Email", "Comments", "Subject",
                                      "qln_Website"}));
  EXPECT_EQ(r["prompts"][0], kPrompt);
  EXPECT_EQ(
      r["hidden"],
      (Json{{"qln_SortOrder", kName + ",Email,Comments,Subject,qln_Website"},
            {"qln_FormIndex", "1"},
            {"qln_OKMessage", kResponse},
            {"qln_SendMode", "1"},
            {"qln_Subject", "Comments from the web site"},
            {"qln_EmailTo", "me@example.org"}}));

  // Inputs are empty elements; the text area ends where it should, so the
  // fields after it and the submit button are the form's, not its text.
  EXPECT_EQ(r["inputChildren"], 0);
  EXPECT_EQ(
      r["textareas"],
      Json::array(
          {{{"name", "Comments"}, {"children", 0}, {"parent", "LABEL"}}}));
  EXPECT_EQ(r["last"], Json("submit"));
}

}  // namespace
}  // namespace formwiz
