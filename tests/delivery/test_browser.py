"""A visitor in a real browser: headless Chromium, driven through
chromium-driver by Debian's selenium, opens a page that `formwiz serve`
serves, types into the bundled orb's form, presses Send, lands on the answer
page, and the SMTP server holds the mail with the fields in the page's order.
Once with a human-readable mail, once comma-separated.

Selenium with chromium-driver rather than puppeteer-core: both are Debian
packages that run offline, and selenium drives the browser the way a
person does (keys typed into the focused box, a click on the button) from
the same Python as the other delivery tests, with no Node.js beside it.
"""

import csv
import io
import os
import unittest

import harness
from harness import FORM_PATH

CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:  # pragma: no cover - told by the skip below
    webdriver = None

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


def missing_browser():
    if webdriver is None:
        return "python3-selenium is not installed"
    for path in (CHROMIUM, CHROMEDRIVER):
        if not os.access(path, os.X_OK):
            return path + " is not installed"
    return None


@unittest.skipIf(missing_browser(), missing_browser() or "")
class Browser(harness.TestCase):
    def browser(self):
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for argument in (
            "--headless=new",
            "--no-sandbox",
            "--disable-gpu",
            "--disable-dev-shm-usage",
            "--no-first-run",
            "--disable-background-networking",
            "--disable-component-update",
            "--disable-sync",
            "--user-data-dir=" + self.mkdir("profile"),
        ):
            options.add_argument(argument)
        service = Service(
            executable_path=CHROMEDRIVER, log_path=self.path("chromedriver.log")
        )
        driver = webdriver.Chrome(service=service, options=options)
        self.addCleanup(driver.quit)
        driver.set_page_load_timeout(30)
        return driver

    def send_as_visitor(self, page_name, steps):
        page = self.make_page(page_name, steps=steps)
        data = self.mkdir("data")
        sink = self.start_sink()
        serve = self.start_serve([page], data, smtp=sink.url)
        url = "http://127.0.0.1:%d/%s" % (serve.port, page_name)
        form = harness.read_form(harness.request(serve.port, "GET", "/" + page_name).text)
        hidden = dict(form.hidden)

        driver = self.browser()
        driver.get(url)
        # The trap for robots is off the screen: a person never fills it.
        trap = driver.find_element(By.NAME, "qln_Website")
        self.assertLess(trap.rect["x"] + trap.rect["width"], 0)
        for name in form.fields:
            driver.find_element(By.NAME, name).send_keys(TYPED[name])
        driver.find_element(By.CSS_SELECTOR, '[type="submit"]').click()
        WebDriverWait(driver, 30).until(lambda d: d.current_url.endswith(FORM_PATH))
        body = driver.find_element(By.TAG_NAME, "body").text
        self.assertIn(hidden["qln_OKMessage"], body)
        back = [a.get_attribute("href") for a in driver.find_elements(By.TAG_NAME, "a")]
        self.assertIn(url, back, "a link back to the form's page")

        (message,) = sink.wait_messages(1)
        self.assertEqual(message.envelope["rcpt_tos"], [hidden["qln_EmailTo"]])
        self.assertEqual(str(message["Subject"]), hidden["qln_Subject"])
        self.assertEqual(str(message["Reply-To"]), TYPED["Email"])
        (record,) = self.submissions(data).values()
        # A browser posts a text area's line breaks as CR LF.
        self.assertEqual(
            [(f["name"], f["value"].replace("\r\n", "\n")) for f in record["fields"]],
            [(name, TYPED[name]) for name in form.fields],
        )
        self.assertEqual(record["page"], url)
        return form, message

    def test_a_visitor_sends_the_request_form_as_readable_mail(self):
        form, message = self.send_as_visitor("catalog.html", None)
        self.assertEqual(
            form.fields,
            ["FullName", "Email", "Address1", "City", "State", "PostalCode", "Request"],
        )
        text = harness.text_part(message)
        places = [text.index(name + ":") for name in form.fields]
        self.assertEqual(places, sorted(places), text)
        for name in form.fields:
            for line in TYPED[name].split("\n"):
                self.assertIn(line, text)
        self.assertEqual(harness.attachments(message), [])

    def test_a_visitor_sends_the_comment_form_as_comma_separated_mail(self):
        form, message = self.send_as_visitor("comments.html", CSV_STEPS)
        self.assertEqual(dict(form.hidden)["qln_SendMode"], "2")
        self.assertEqual(form.fields, ["Name", "Email", "Subject", "Comments"])
        (kind, _, content), = harness.attachments(message)
        self.assertEqual(kind, "text/csv")
        if isinstance(content, bytes):
            content = content.decode("utf-8")
        for table in (harness.text_part(message), content):
            header, values = list(csv.reader(io.StringIO(table.strip())))
            self.assertEqual(header, form.fields)
            self.assertEqual(
                [v.replace("\r\n", "\n") for v in values],
                [TYPED[name] for name in form.fields],
            )


if __name__ == "__main__":
    unittest.main(verbosity=2)
