"""Pages made with every bundled orb, as a person makes them, and the browser
that looks at them: shared by tests/pages/test_pages.py,
tests/delivery/test_browser.py and scripts/orb-screenshots.

A page is made with `formwiz page new`, `insert --orb ... --script` (the
person's actions at the wizard, played headless) and `export`; the rows the
wizard's field list offers for a form choice are read from a snapshot of
the wizard, so a new orb is checked as soon as its file is in orbs/.
"""

import glob
import json
import os
import subprocess
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.environ.get("FORMWIZ_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(HERE)
)
FORMWIZ = os.environ.get("FORMWIZ_BIN", "")
TOOLS = os.path.join(SOURCE_DIR, "build", "tools", "node_modules")
AXE = os.environ.get("FORMWIZ_AXE") or os.path.join(TOOLS, "axe-core", "axe.min.js")
VNU_JAR = os.environ.get("FORMWIZ_VNU_JAR") or os.path.join(
    TOOLS, "vnu-jar", "build", "dist", "vnu.jar"
)
JAVA = "/usr/bin/java"
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
ADDRESS = "me@example.org"

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
except ImportError:  # told by missing_browser()
    webdriver = None


def orbs():
    """Every bundled orb: (short name, file), by name."""
    files = sorted(glob.glob(os.path.join(SOURCE_DIR, "orbs", "*", "*.qlo")))
    return [(os.path.splitext(os.path.basename(f))[0], f) for f in files]


def orb_info(path):
    """The orb's display name and the number of its form choices."""
    root = ElementTree.parse(path).getroot()
    impl = root if root.tag == "impl" else root.find("impl")
    return root.get("name") or os.path.basename(path), len(impl.findall("forminfo"))


def run_formwiz(args, what):
    done = subprocess.run(
        [FORMWIZ] + args, capture_output=True, text=True, timeout=60
    )
    if done.returncode != 0:
        raise AssertionError(
            "%s: formwiz %s: status %d\n%s"
            % (what, " ".join(args[:2]), done.returncode, done.stderr)
        )
    return done


def to_step_four(choice):
    """The actions that pick form `choice`, give the address and go on to
    the step that lists the fields."""
    return [
        {"do": "click", "control": "optForm(%d)" % choice},
        {"do": "click", "control": "cmdNav(3)"},
        {"do": "type", "control": "txtEmailAddr", "text": ADDRESS},
        {"do": "click", "control": "cmdNav(3)"},
        {"do": "click", "control": "cmdNav(3)"},
    ]


def insert(folder, name, orb, steps, title=None):
    """A page `name` with `orb` inserted by the person's `steps`, exported:
    the exported file's path. An action the wizard could not take fails, so
    that a page never silently lacks what was asked for."""
    page = os.path.join(folder, name + ".page")
    html = os.path.join(folder, name + ".html")
    script = os.path.join(folder, name + ".json")
    with open(script, "w") as f:
        json.dump(steps, f)
    run_formwiz(["page", "new", page], name)
    if title:
        run_formwiz(["page", "title", page, title], name)
    done = run_formwiz(["page", "insert", page, "--orb", orb, "--script", script], name)
    if '"ignored"' in done.stderr:
        raise AssertionError("%s: the wizard did not take every action:\n%s" % (name, done.stderr))
    run_formwiz(["page", "export", page, "-o", html], name)
    return html


def field_rows(folder, orb, choice):
    """The rows (name, ticked) of the field list for form `choice`, from a
    snapshot of the wizard; the run ends with the wizard closed, changing
    nothing."""
    page = os.path.join(folder, "rows.page")
    script = os.path.join(folder, "rows.json")
    if os.path.exists(page):
        os.remove(page)
    with open(script, "w") as f:
        json.dump(to_step_four(choice) + [{"do": "snapshot"}], f)
    run_formwiz(["page", "new", page], "rows")
    done = run_formwiz(["page", "insert", page, "--orb", orb, "--script", script], "rows")
    for line in done.stderr.splitlines():
        _, _, note = line.partition("note: ")
        if note.startswith('{"snapshot"'):
            rows = json.loads(note)["snapshot"]["controls"]["lstFields"]["rows"]
            return [(row["text"], row["checked"]) for row in rows]
    raise AssertionError("no snapshot of the field list:\n" + done.stderr)


def default_steps(choice):
    """Form `choice` with everything as the orb offers it."""
    return to_step_four(choice) + [{"do": "click", "control": "cmdNav(4)"}]


def all_ticked_steps(choice, rows):
    """Form `choice` with every field it offers ticked."""
    ticks = [
        {"do": "check", "control": "lstFields", "row": i, "value": True}
        for i in range(len(rows))
    ]
    return to_step_four(choice) + ticks + [{"do": "click", "control": "cmdNav(4)"}]


def rename_steps(row, name, prompt):
    """Ticks row `row` and gives it `name` and `prompt`."""
    return [
        {"do": "check", "control": "lstFields", "row": row, "value": True},
        {"do": "select", "control": "lstFields", "row": row},
        {"do": "clear", "control": "txtFieldName"},
        {"do": "type", "control": "txtFieldName", "text": name},
        {"do": "clear", "control": "txtFieldPrompt"},
        {"do": "type", "control": "txtFieldPrompt", "text": prompt},
    ]


def missing_browser():
    if webdriver is None:
        return "python3-selenium is not installed"
    for path in (CHROMIUM, CHROMEDRIVER):
        if not os.access(path, os.X_OK):
            return path + " is not installed"
    return None


def browser(folder):
    """Headless Chromium driven by chromium-driver."""
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
        "--hide-scrollbars",
        "--force-color-profile=srgb",
        "--user-data-dir=" + os.path.join(folder, "profile"),
    ):
        options.add_argument(argument)
    service = Service(
        executable_path=CHROMEDRIVER, log_path=os.path.join(folder, "chromedriver.log")
    )
    driver = webdriver.Chrome(service=service, options=options)
    driver.set_page_load_timeout(30)
    return driver


def view(driver, width, height=900, dark=False):
    """Makes the browser a screen `width` CSS pixels wide (a phone's, with
    its viewport rules, below 600) in the light or dark colour scheme."""
    driver.execute_cdp_cmd(
        "Emulation.setDeviceMetricsOverride",
        {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600},
    )
    driver.execute_cdp_cmd(
        "Emulation.setEmulatedMedia",
        {"features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]},
    )


def open_page(driver, path):
    driver.get("file://" + os.path.abspath(path))
