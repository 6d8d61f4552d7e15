"""A visitor in a real browser: headless Chromium (the same set-up as
tests/pages) opens pages that `formwiz serve` serves, types into the bundled
orb's form, presses Send, lands on the answer page, and the SMTP server
holds the mail with the fields in the page's order: once as readable text,
once comma-separated.
"""

import csv
import io
import os
import sys
import unittest

import harness
from harness import FORM_PATH

sys.path.insert(0, os.path.join(harness.SOURCE_DIR, "tests", "pages"))
import pages  # noqa: E402

try:
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:  # told by pages.missing_browser()
    pass

# What the visitor types, by field name; a textarea takes a line break.
TYPED = {
    "FullName": "Grace Hopper",
    "Name": "Grace Hopper",
    "Email": "grace@example.com",
    "Address1": "1 Navy Yard",
    "City": "Arlington",
    "State": "VA",
    "PostalCode": "22202",
    "Subject": 'Bugs, "moths" and more',
    "Request": "The catalog, please.\nAnd the price list.",
    "Comments": "First line, with a comma.\nSecond line.",
}

CSV_STEPS = [
    {"call": "OnCommand"},
    {"do": "click", "control": "optForm(0)"},
    {"do": "click", "control": "cmdNav(3)"},
    {"do": "type", "control": "txtEmailAddr", "text": "sales@example.org"},
    {"do": "click", "control": "cmdActionOptions"},
    {"do": "click", "control": "optFormatCSV"},
    {"do": "click", "control": "cmdOK"},
    {"do": "click", "control": "cmdNav(4)"},
]


def crlf_to_lf(values):
    # A browser posts a text area's line breaks as CR LF.
    return [v.replace("\r\n", "\n") for v in values]


@unittest.skipIf(pages.missing_browser(), pages.missing_browser() or "")
class Browser(harness.TestCase):
    def test_a_visitor_sends_readable_and_comma_separated_mail(self):
        names = {"catalog.html": None, "comments.html": CSV_STEPS}
        served = [self.make_page(name, steps=steps) for name, steps in names.items()]
        data = self.mkdir("data")
        sink = self.start_sink()
        serve = self.start_serve(served, data, smtp=sink.url)
        driver = pages.browser(self.folder)
        self.addCleanup(driver.quit)

        def send(name, count):
            url = "http://127.0.0.1:%d/%s" % (serve.port, name)
            form = harness.read_form(harness.request(serve.port, "GET", "/" + name).text)
            hidden = dict(form.hidden)
            driver.get(url)
            # The trap for robots is off the screen: a person never fills it.
            trap = driver.find_element(By.NAME, "qln_Website")
            self.assertLess(trap.rect["x"] + trap.rect["width"], 0)
            for field in form.fields:
                driver.find_element(By.NAME, field).send_keys(TYPED[field])
            driver.find_element(By.CSS_SELECTOR, '[type="submit"]').click()
            WebDriverWait(driver, 30).until(lambda d: d.current_url.endswith(FORM_PATH))
            self.assertIn(hidden["qln_OKMessage"], driver.find_element(By.TAG_NAME, "body").text)
            back = [a.get_attribute("href") for a in driver.find_elements(By.TAG_NAME, "a")]
            self.assertIn(url, back, "a link back to the form's page")

            records = self.wait_settled(data, count)
            (record,) = [r for r in records.values() if r["page"] == url]
            self.assertEqual(
                list(zip([f["name"] for f in record["fields"]],
                         crlf_to_lf(f["value"] for f in record["fields"]))),
                [(field, TYPED[field]) for field in form.fields],
            )
            (message,) = [m for m in sink.wait_messages(count)
                          if str(m["Message-ID"]) == record["message_id"]]
            self.assertEqual(message.envelope["rcpt_tos"], [hidden["qln_EmailTo"]])
            self.assertEqual(str(message["Subject"]), hidden["qln_Subject"])
            self.assertEqual(str(message["Reply-To"]), TYPED["Email"])
            return form, message

        form, message = send("catalog.html", 1)
        text = harness.text_part(message)
        places = [text.index(name + ":") for name in form.fields]
        self.assertEqual(places, sorted(places), text)
        for name in form.fields:
            for line in TYPED[name].split("\n"):
                self.assertIn(line, text)
        self.assertEqual(harness.attachments(message), [])

        form, message = send("comments.html", 2)
        self.assertEqual(dict(form.hidden)["qln_SendMode"], "2")
        self.assertEqual(form.fields, ["Name", "Email", "Subject", "Comments"])
        ((kind, _, content),) = harness.attachments(message)
        self.assertEqual(kind, "text/csv")
        if isinstance(content, bytes):
            content = content.decode("utf-8")
        for table in (harness.text_part(message), content):
            header, values = list(csv.reader(io.StringIO(table.strip())))
            self.assertEqual(header, form.fields)
            self.assertEqual(crlf_to_lf(values), [TYPED[name] for name in form.fields])


if __name__ == "__main__":
    unittest.main(verbosity=2)
