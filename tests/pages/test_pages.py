"""Every bundled orb's pages as a visitor's browser sees them.

For every orb in orbs/ and each of its form choices: a page with the orb's
default fields, one with every field ticked, and one in which a field of
each kind of template got a hostile name and prompt (the form a hostile
response, the page a hostile title). The Nu Html Checker and axe-core (from
scripts/bootstrap; a test whose tool is absent skips and says why) find
nothing; in headless Chromium at a phone's and a desktop's width nothing
scrolls sideways, every control has a label that focuses it, Tab reaches
every control in order, and hostile text stays text.
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import pages  # noqa: E402

try:
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.actions.action_builder import ActionBuilder
    from selenium.webdriver.common.keys import Keys
except ImportError:  # told by pages.missing_browser()
    pass

# Each would change the page if it became markup or ran: the title, an
# element with the id "pwned", an event handler; with text beyond ASCII.
HOSTILE_NAME = "\"><script>document.title='pwned'</script>\u00e9"
HOSTILE_PROMPT = (
    "<img src=x onerror=\"document.title='pwned'\"><b id=pwned>&amp;</b>"
    "</textarea></label> \u6f22\u5b57"
)
HOSTILE_RESPONSE = "</textarea>\"><script>document.title='pwned'</script>&lt; \u00fc"
HOSTILE_TITLE = "</title><script>document.title='pwned'</script> \u00c5 & co"

WIDTHS = (390, 1280)
AXE_TAGS = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa"]

# The form's controls as a person meets them: every element of the form but
# hidden fields, fieldsets and the robots' trap; which have no label; which
# Tab should reach, in order (one radio of a group: the checked one, else
# the first); and the labels to click, each with the index of its control.
SURVEY = r"""
var form = document.forms[0];
var trap = form.querySelector('.qln-trap');
var controls = Array.prototype.filter.call(form.elements, function (e) {
  return e.type !== 'hidden' && e.tagName !== 'FIELDSET' &&
         !(trap && trap.contains(e));
});
window.fwControls = controls;
var stops = [], groups = {};
controls.forEach(function (e, i) {
  if (e.tabIndex < 0 || e.disabled) return;
  if (e.type === 'radio') {
    var group = Array.prototype.filter.call(form.elements, function (o) {
      return o.type === 'radio' && o.name === e.name;
    });
    var stop = group.filter(function (o) { return o.checked; })[0] || group[0];
    if (stop !== e) return;
  }
  stops.push(i);
});
var labels = Array.prototype.filter.call(form.querySelectorAll('label'),
    function (l) { return !(trap && trap.contains(l)); });
window.fwLabels = labels;
// Prompts above their boxes on a phone, beside them on a desktop.
var placed = Array.prototype.map.call(form.querySelectorAll('.fw-label'),
    function (l) {
  var prompt = l.querySelector('.fw-prompt');
  if (!prompt || !l.control) return 'no prompt or control: ' + l.outerHTML;
  var p = prompt.getBoundingClientRect(), c = l.control.getBoundingClientRect();
  return p.bottom <= c.top + 1 ? 'above' :
         p.right <= c.left + 1 && p.top < c.bottom ? 'beside' : 'overlapping';
});
var send = form.querySelector('[type=submit]').getBoundingClientRect();
return {
  width: window.innerWidth,
  scrollWidth: document.scrollingElement.scrollWidth,
  placed: placed,
  send: [send.width, send.height],
  unlabelled: controls.filter(function (e) {
    return !/^(submit|button|reset)$/.test(e.type) && e.labels.length === 0;
  }).map(function (e) { return e.name || e.outerHTML; }),
  stops: stops,
  labels: labels.map(function (l) { return controls.indexOf(l.control); }),
  names: controls.map(function (e) { return e.name || e.type; })
};
"""

# Where to click on label `i` so that the click lands on its text, not on
# its control: the middle of its first piece of text, in the viewport.
LABEL_TEXT_POINT = r"""
var label = window.fwLabels[arguments[0]];
label.scrollIntoView({block: 'center'});
var walker = document.createTreeWalker(label, NodeFilter.SHOW_TEXT);
for (var node = walker.nextNode(); node; node = walker.nextNode()) {
  if (!node.data.trim() || (label.control && label.control.contains(node)))
    continue;
  var range = document.createRange();
  range.selectNodeContents(node);
  var r = range.getClientRects()[0];
  if (r && r.width > 0) return [r.left + r.width / 2, r.top + r.height / 2];
}
return null;
"""

FOCUSED = "return window.fwControls.indexOf(document.activeElement);"

# The focus ring a keyboard user sees on the focused control.
FOCUS_RING = r"""
var style = getComputedStyle(document.activeElement);
return style.outlineStyle === 'none' ? 0 : parseFloat(style.outlineWidth);
"""

RUN_AXE = r"""
var done = arguments[arguments.length - 1];
axe.run(document, {runOnly: {type: 'tag', values: arguments[0]},
                   resultTypes: ['violations']})
  .then(function (r) {
    done(r.violations.map(function (v) {
      return v.id + ': ' + v.help + '\n    ' + v.nodes.map(function (n) {
        return n.target.join(' ') + ' ' + (n.failureSummary || '');
      }).join('\n    ');
    }));
  })
  .catch(function (e) { done(['axe failed: ' + e]); });
"""

# What the browser made of a hostile page.
HOSTILE_REPORT = r"""
var form = document.forms[0];
var handlers = [];
document.querySelectorAll('*').forEach(function (e) {
  for (var i = 0; i < e.attributes.length; ++i)
    if (/^on/i.test(e.attributes[i].name))
      handlers.push(e.tagName + '.' + e.attributes[i].name);
});
var hidden = {};
Array.prototype.forEach.call(form.elements, function (e) {
  if (e.type === 'hidden') hidden[e.name] = e.value;
});
var last = form.elements[form.elements.length - 1];
return {
  title: document.title,
  scripts: document.scripts.length,
  forms: document.forms.length,
  pwned: !!document.getElementById('pwned'),
  images: document.images.length,
  handlers: handlers,
  names: Array.prototype.map.call(form.elements, function (e) { return e.name; }),
  texts: Array.prototype.map.call(
      form.querySelectorAll('label, legend, td, span'),
      function (e) { return e.textContent; }),
  textareas: Array.prototype.map.call(form.querySelectorAll('textarea'),
      function (e) { return e.childNodes.length; }),
  hidden: hidden,
  last: last.type
};
"""


def template_rows(orb, choice):
    """The templates of the rows the field list shows for `choice`: the
    sections of the form not hidden ("h") for that choice, in order."""
    root = ElementTree.parse(orb).getroot()
    form = root.find("./impl/form") if root.tag != "impl" else root.find("./form")
    rows = []
    for section in form.iter("section"):
        if section.get("included", "")[choice : choice + 1] != "h":
            rows.append((section.get("name"), section.get("template")))
    return rows


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not (pages.FORMWIZ and os.access(pages.FORMWIZ, os.X_OK)):
            raise AssertionError("FORMWIZ_BIN does not name the formwiz program")
        cls._temp = tempfile.TemporaryDirectory(prefix="formwiz-pages-")
        cls.folder = cls._temp.name
        # Each page: name, exported path, and for a hostile page the
        # (name, prompt) pairs typed.
        cls.pages = []
        if "form" not in dict(pages.orbs()):
            raise AssertionError("the bundled orbs were not found: %s" % pages.orbs())
        for short, orb in pages.orbs():
            _, choices = pages.orb_info(orb)
            if not choices:
                raise AssertionError("%s: no form choice was read" % orb)
            covered = set()
            for choice in range(choices):
                rows = pages.field_rows(cls.folder, orb, choice)
                templates = template_rows(orb, choice)
                if [name for name, _ in templates] != [name for name, _ in rows]:
                    raise AssertionError(
                        "%s, choice %d: the field list %s is not the orb's sections %s"
                        % (short, choice, rows, templates)
                    )
                base = "%s-%d" % (short, choice)
                cls.add(base + "-defaults", orb, pages.default_steps(choice))
                cls.add(base + "-all", orb, pages.all_ticked_steps(choice, rows))
                typed, steps = [], pages.to_step_four(choice)
                steps[-1:-1] = [
                    {"do": "clear", "control": "txtResponse"},
                    {"do": "type", "control": "txtResponse", "text": HOSTILE_RESPONSE},
                ]
                for row, (_, template) in enumerate(templates):
                    if template in covered:
                        continue
                    covered.add(template)
                    pair = ("%s%d" % (HOSTILE_NAME, row), "%s %d" % (HOSTILE_PROMPT, row))
                    typed.append(pair)
                    steps += pages.rename_steps(row, *pair)
                if typed:
                    steps.append({"do": "click", "control": "cmdNav(4)"})
                    cls.add(base + "-hostile", orb, steps, typed)
        cls.driver = None

    @classmethod
    def add(cls, name, orb, steps, typed=None):
        title = HOSTILE_TITLE if typed else None
        path = pages.insert(cls.folder, name, orb, steps, title)
        cls.pages.append({"name": name, "path": path, "typed": typed})

    @classmethod
    def tearDownClass(cls):
        if cls.driver:
            cls.driver.quit()
        cls._temp.cleanup()

    def browser(self):
        missing = pages.missing_browser()
        if missing:
            self.skipTest(missing)
        if not Pages.driver:
            Pages.driver = pages.browser(self.folder)
        return Pages.driver

    def test_nu_html_checker_finds_nothing(self):
        for tool in (pages.VNU_JAR, pages.JAVA):
            if not os.access(tool, os.R_OK):
                self.skipTest(tool + " is absent (scripts/bootstrap installs it)")
        done = subprocess.run(
            [pages.JAVA, "-jar", pages.VNU_JAR, "--exit-zero-always", "--stdout",
             "--format", "json"] + [p["path"] for p in self.pages],
            capture_output=True, text=True, timeout=120,
        )
        self.assertEqual(done.returncode, 0, done.stderr)
        report = json.loads(done.stdout)
        found = [
            "%s:%s: %s%s: %s\n  %s" % (
                os.path.basename(m.get("url", "")), m.get("lastLine", 0),
                m.get("type", ""), "/" + m["subType"] if "subType" in m else "",
                m.get("message", ""), m.get("extract", ""))
            for m in report["messages"]
        ]
        self.assertEqual(found, [], "\n".join(found))

    def test_layout_labels_and_tab_order_at_both_widths(self):
        driver = self.browser()
        for page in self.pages:
            for width in WIDTHS:
                with self.subTest(page=page["name"], width=width):
                    self.check_layout(driver, page["path"], width)

    def check_layout(self, driver, path, width):
        pages.view(driver, width)
        pages.open_page(driver, path)
        survey = driver.execute_script(SURVEY)
        self.assertEqual(survey["width"], width)
        self.assertLessEqual(survey["scrollWidth"], width, "scrolls sideways")
        self.assertEqual(survey["unlabelled"], [], "controls without a label")
        where = "above" if width < 640 else "beside"
        self.assertEqual(
            [p for p in survey["placed"] if p != where], [], "prompts not " + where
        )
        self.assertGreaterEqual(min(survey["send"]), 44, "the Send button's size")

        # Tab, one press at a time: a control may take several presses (a
        # date box steps through its day, month and year), so the stops are
        # the controls focus moves to, each counted once in a row.
        order, last = [], survey["stops"][-1] if survey["stops"] else -1
        for _ in range(4 * len(survey["stops"]) + 4):
            ActionChains(driver, duration=0).send_keys(Keys.TAB).perform()
            focused = driver.execute_script(FOCUSED)
            if not order or order[-1] != focused:
                order.append(focused)
                if focused >= 0:
                    self.assertGreaterEqual(
                        driver.execute_script(FOCUS_RING), 2,
                        "the focus ring on %s" % survey["names"][focused],
                    )
            if focused == last or focused < 0:
                break
        names = survey["names"]
        self.assertEqual(
            [names[i] if i >= 0 else "(not a control)" for i in order],
            [names[i] for i in survey["stops"]],
            "Tab from the top",
        )

        for i, control in enumerate(survey["labels"]):
            point = driver.execute_script(LABEL_TEXT_POINT, i)
            self.assertIsNotNone(point, "label %d has no text to click" % i)
            click = ActionBuilder(driver, duration=0)
            click.pointer_action.move_to_location(int(point[0]), int(point[1]))
            click.pointer_action.click()
            click.perform()
            self.assertEqual(
                driver.execute_script(FOCUSED), control,
                "a click on the label of %s" % names[control],
            )

    def test_axe_finds_no_wcag_a_or_aa_violation(self):
        if not os.access(pages.AXE, os.R_OK):
            self.skipTest(pages.AXE + " is absent (scripts/bootstrap installs it)")
        driver = self.browser()
        with open(pages.AXE) as f:
            axe = f.read()
        driver.set_script_timeout(60)
        for page in self.pages:
            for width, dark in ((1280, False), (390, True)):
                with self.subTest(page=page["name"], width=width, dark=dark):
                    pages.view(driver, width, dark=dark)
                    pages.open_page(driver, page["path"])
                    driver.execute_script(axe)
                    found = driver.execute_async_script(RUN_AXE, AXE_TAGS)
                    self.assertEqual(found, [], "\n".join(found))

    def test_hostile_text_stays_text(self):
        driver = self.browser()
        pages.view(driver, 1280)
        hostile = [p for p in self.pages if p["typed"]]
        self.assertTrue(hostile)
        for page in hostile:
            with self.subTest(page=page["name"]):
                pages.open_page(driver, page["path"])
                r = driver.execute_script(HOSTILE_REPORT)
                self.assertEqual(r["title"], HOSTILE_TITLE)
                self.assertEqual(
                    (r["scripts"], r["forms"], r["pwned"], r["images"], r["handlers"]),
                    (0, 1, False, 0, []),
                )
                for name, prompt in page["typed"]:
                    self.assertTrue(
                        any(n == name or n.startswith(name + "-") for n in r["names"]),
                        "no control named %r in %s" % (name, r["names"]),
                    )
                    self.assertTrue(
                        any(prompt in t for t in r["texts"]),
                        "no label holds %r: %s" % (prompt, r["texts"]),
                    )
                self.assertEqual(r["hidden"]["qln_OKMessage"], HOSTILE_RESPONSE)
                self.assertEqual(r["hidden"]["qln_EmailTo"], pages.ADDRESS)
                # Text areas end where they should: no text inside, and the
                # form's own button is still its last element.
                self.assertEqual(set(r["textareas"]) - {0}, set())
                self.assertEqual(r["last"], "submit")


if __name__ == "__main__":
    unittest.main(verbosity=2)
