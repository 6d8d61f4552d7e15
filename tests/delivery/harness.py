"""What the delivery tests share: programs started and stopped within bounds,
free loopback ports, temporary folders, the recording SMTP server, lighttpd,
page files made by `formwiz page`, the store read through `formwiz
submissions`, and plain HTTP requests.

Every program is started by a test case and stopped by its clean-up, also
when the test fails; every wait ends by itself. The programs under test run
with LeakSanitizer on (a build without sanitizers ignores the setting) and
any sanitizer report on their standard error fails the test.
"""

import email
import email.policy
import html.parser
import http.client
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.environ.get("FORMWIZ_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(HERE)
)
FORMWIZ = os.environ.get("FORMWIZ_BIN", "")
FORMWIZ_MAIL = os.environ.get("FORMWIZ_MAIL_BIN", "")
LIGHTTPD = "/usr/sbin/lighttpd"
ORB = os.path.join(SOURCE_DIR, "orbs", "form", "form.qlo")
NEW_FORM_SCRIPT = os.path.join(SOURCE_DIR, "examples", "new-form.json")
FORM_PATH = "/cgi-bin/formmail"
SENDER = "forms@example.net"

# What a sanitizer prints when it finds a fault or a leak.
SANITIZER_REPORT = re.compile(
    r"ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:|"
    r"SUMMARY: \w+Sanitizer"
)


def program_env(extra=None):
    env = dict(os.environ)
    env["ASAN_OPTIONS"] = "detect_leaks=1"
    env["UBSAN_OPTIONS"] = "print_stacktrace=1:halt_on_error=1"
    env.update(extra or {})
    return env


def wait_until(predicate, timeout, what, step=0.1, state=None):
    """Calls predicate until it gives a true value, which is returned; fails
    the test after `timeout` seconds, showing what `state()` gives then."""
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() >= deadline:
            shown = "\n" + str(state()) if state else ""
            raise AssertionError(
                "gave up waiting (%ss) for %s%s" % (timeout, what, shown)
            )
        time.sleep(step)


def free_port():
    """A loopback port nothing listens on at the moment of the call."""
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def sanitizer_report(text):
    match = SANITIZER_REPORT.search(text)
    return text[max(0, match.start() - 200) :] if match else None


class Program:
    """A started program whose standard output and error go to files in
    `folder`, so that nothing it writes can block it."""

    def __init__(self, name, argv, folder, env=None, stdin=subprocess.DEVNULL):
        self.name = name
        self.argv = argv
        self.out_path = os.path.join(folder, name + ".out")
        self.err_path = os.path.join(folder, name + ".err")
        with open(self.out_path, "wb") as out, open(self.err_path, "wb") as err:
            self.process = subprocess.Popen(
                argv, stdin=stdin, stdout=out, stderr=err, env=env or program_env()
            )
        self.killed = False

    def output(self):
        with open(self.out_path, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def errors(self):
        with open(self.err_path, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def wait_line(self, pattern, timeout=30):
        """The first match of `pattern` in the program's standard output;
        fails when the program ends first or after `timeout` seconds."""
        regex = re.compile(pattern, re.M)

        def seen():
            match = regex.search(self.output())
            if match:
                return match
            if self.process.poll() is not None:
                raise AssertionError(
                    "%s ended (status %s) before printing %r:\n%s"
                    % (self.name, self.process.returncode, pattern, self.errors())
                )
            return None

        return wait_until(seen, timeout, "%s to print %r" % (self.name, pattern))

    def stop(self, timeout=30):
        """SIGTERM, then SIGKILL after `timeout` seconds; the exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(timeout)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(10)
                self.killed = True
        if self.process.stdin:
            self.process.stdin.close()
        return self.process.returncode

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(10)
        self.killed = True


class TestCase(unittest.TestCase):
    """A test case with a temporary folder and programs that end with it."""

    def setUp(self):
        if not (FORMWIZ and os.access(FORMWIZ, os.X_OK)):
            self.fail("FORMWIZ_BIN does not name the formwiz program")
        self._temp = tempfile.TemporaryDirectory(prefix="formwiz-delivery-")
        self.addCleanup(self._temp.cleanup)
        self.folder = self._temp.name

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def mkdir(self, name):
        path = self.path(name)
        os.makedirs(path, exist_ok=True)
        return path

    def start(self, name, argv, env=None, stdin=subprocess.DEVNULL, clean_exit=True):
        """Starts a program that the clean-up stops; then a sanitizer report
        on its standard error, or (with `clean_exit`) a status other than 0
        after SIGTERM, fails the test."""
        program = Program(name, argv, self.folder, env, stdin)

        def finish():
            status = program.stop()
            report = sanitizer_report(program.errors())
            if report:
                raise AssertionError("%s: sanitizer report:\n%s" % (name, report))
            if clean_exit and not program.killed and status != 0:
                raise AssertionError(
                    "%s ended with status %s after SIGTERM:\n%s"
                    % (name, status, program.errors()[-3000:])
                )

        self.addCleanup(finish)
        return program

    # The programs of the system and around it.

    def start_sink(self, port=0, refuse=(), tempfail=()):
        folder = self.mkdir("mail-%d" % len(os.listdir(self.folder)))
        argv = [sys.executable, os.path.join(HERE, "smtp_sink.py"), "--dir", folder]
        argv += ["--port", str(port), "--max-seconds", "600"]
        for address in refuse:
            argv += ["--refuse", address]
        for address in tempfail:
            argv += ["--tempfail-rcpt", address]
        # Its standard input is a pipe: it ends when this process does.
        program = self.start("smtp-sink", argv, stdin=subprocess.PIPE)
        match = program.wait_line(r"^listening 127\.0\.0\.1 (\d+)$")
        return Sink(program, folder, int(match.group(1)))

    def start_serve(self, pages, data, smtp=None, config=None, name="serve"):
        argv = [FORMWIZ, "serve", "--listen", "127.0.0.1:0", "--data", data]
        argv += ["--from", SENDER]
        if smtp:
            argv += ["--smtp", smtp]
        if config:
            argv += ["--config", config]
        program = self.start(name, argv + list(pages))
        match = program.wait_line(r"^listening on http://127\.0\.0\.1:(\d+)/$")
        program.port = int(match.group(1))
        return program

    def write(self, name, text):
        path = self.path(name)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        return path

    def make_page(self, name, steps=None, email_to="sales@example.org"):
        """A page file with one form, inserted by `formwiz page insert`
        playing examples/new-form.json, or `steps` in its place."""
        with open(NEW_FORM_SCRIPT, encoding="utf-8") as f:
            script = json.load(f)
        script["host"]["implFile"] = ORB
        if steps is not None:
            script["steps"] = steps
        script = json.loads(
            json.dumps(script).replace("sales@example.org", email_to)
        )
        script_path = self.write(name + ".json", json.dumps(script))
        page = self.path(name)
        self.formwiz("page", "new", page)
        self.formwiz("page", "add-text", page, "Ask us for our catalog.")
        self.formwiz("page", "insert", page, "--script", script_path)
        return page

    def formwiz(self, *args, check=True):
        run = subprocess.run(
            [FORMWIZ] + list(args),
            capture_output=True,
            timeout=60,
            env=program_env(),
        )
        report = sanitizer_report(run.stderr.decode("utf-8", "replace"))
        if report:
            raise AssertionError("formwiz %s: sanitizer report:\n%s" % (args, report))
        if check and run.returncode != 0:
            raise AssertionError(
                "formwiz %s: status %d\n%s" % (args, run.returncode, run.stderr.decode())
            )
        return run

    def submissions(self, data):
        """The store's submissions, by id."""
        return self.submissions_json(data)

    def outbox_state(self, data):
        """What each submission's mail stands at, for a failure's message."""
        return [
            (r["id"], r["client"], r["status"], r["attempts"], r["detail"])
            for r in self.submissions(data).values()
        ]

    def submissions_json(self, data):
        run = self.formwiz("submissions", "list", "--data", data, "--json")
        return {row["id"]: row for row in json.loads(run.stdout)}


class Sink:
    """The recording SMTP server: each message as the email package reads
    it, with its envelope."""

    def __init__(self, program, folder, port):
        self.program = program
        self.folder = folder
        self.port = port
        self.url = "smtp://127.0.0.1:%d" % port

    def messages(self):
        found = []
        for name in sorted(os.listdir(self.folder)):
            if not name.endswith(".json"):
                continue
            stem = os.path.join(self.folder, name[: -len(".json")])
            with open(stem + ".json", encoding="utf-8") as f:
                envelope = json.load(f)
            with open(stem + ".eml", "rb") as f:
                raw = f.read()
            message = email.message_from_bytes(raw, policy=email.policy.default)
            message.envelope = envelope
            message.raw = raw
            found.append(message)
        return found

    def wait_messages(self, count, timeout=30):
        return wait_until(
            lambda: (lambda m: m if len(m) >= count else None)(self.messages()),
            timeout,
            "%d mail(s) at the SMTP server" % count,
        )


class Reply:
    def __init__(self, status, headers, body):
        self.status = status
        self.headers = headers
        self.body = body

    @property
    def text(self):
        return self.body.decode("utf-8", "replace")

    def json(self):
        return json.loads(self.body)


def request(
    port,
    method,
    path,
    body=None,
    headers=None,
    source=None,
    timeout=30,
    chunked=False,
):
    """One HTTP request on a fresh connection. `source` is the loopback
    address to send from (any of 127.0.0.0/8), so that the server's limits
    per client address can be met one address at a time."""
    connection = http.client.HTTPConnection(
        "127.0.0.1",
        port,
        timeout=timeout,
        source_address=(source, 0) if source else None,
    )
    try:
        connection.request(
            method, path, body=body, headers=headers or {}, encode_chunked=chunked
        )
        response = connection.getresponse()
        data = response.read()
        headers = {k.lower(): v for k, v in response.getheaders()}
        return Reply(response.status, headers, data)
    finally:
        connection.close()


def encode_form(pairs):
    """application/x-www-form-urlencoded, as a browser writes it (UTF-8)."""
    from urllib.parse import urlencode

    return urlencode(pairs).encode("ascii")


def post_form(port, pairs, headers=None, source=None, path=FORM_PATH):
    sent = {"Content-Type": "application/x-www-form-urlencoded"}
    sent.update(headers or {})
    return request(port, "POST", path, encode_form(pairs), sent, source)


class FormReader(html.parser.HTMLParser):
    """A page's first form as a browser would post it: the action, the
    hidden fields in order, the visitor's boxes in order."""

    def __init__(self):
        super().__init__()
        self.action = None
        self.hidden = []
        self.fields = []
        self.traps = []
        self.in_form = False
        self.forms = 0

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        if tag == "form":
            self.forms += 1
            self.in_form = self.forms == 1
            if self.in_form:
                self.action = a.get("action")
            return
        if not self.in_form or tag not in ("input", "textarea"):
            return
        name = a.get("name")
        kind = a.get("type", "text") if tag == "input" else "textarea"
        if not name:
            return
        if kind == "hidden":
            self.hidden.append((name, a.get("value", "")))
        elif name.startswith("qln_"):
            self.traps.append(name)
        elif kind in ("text", "textarea", "email"):
            self.fields.append(name)

    def handle_endtag(self, tag):
        if tag == "form":
            self.in_form = False


def read_form(page_html):
    reader = FormReader()
    reader.feed(page_html)
    reader.close()
    return reader


def text_part(message):
    """The human-readable part of a mail."""
    part = message.get_body(preferencelist=("plain",))
    return part.get_content() if part is not None else None


def attachments(message):
    return [
        (part.get_content_type(), part.get_filename(), part.get_content())
        for part in message.iter_attachments()
    ]


def all_parts(message):
    return [part.get_content_type() for part in message.walk()]


class TextOnly(html.parser.HTMLParser):
    """An answer page's elements and its text, as a browser parses them."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.tags = []
        self.links = []
        self.text = []

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        if tag == "a":
            self.links.append(dict(attrs).get("href"))

    def handle_data(self, data):
        self.text.append(data)


def parse_page(text):
    page = TextOnly()
    page.feed(text)
    page.close()
    page.joined = "".join(page.text)
    return page


LIGHTTPD_CONF = """\
server.modules = ("mod_alias", "mod_setenv", "mod_cgi")
server.document-root = "{docroot}"
server.bind = "127.0.0.1"
server.port = {port}
server.errorlog = "{folder}/lighttpd-error.log"
server.breakagelog = "{folder}/cgi-stderr.log"
server.max-request-size = 1024
mimetype.assign = (".html" => "text/html; charset=utf-8")
alias.url = ("{form_path}" => "{cgi}")
$HTTP["url"] == "{form_path}" {{
  cgi.assign = ("" => "")
}}
setenv.add-environment = ({environment})
"""


def start_lighttpd(test, docroot, environment):
    """lighttpd in the foreground on a free loopback port, running
    formwiz-mail as the CGI program at /cgi-bin/formmail with
    `environment` added to the CGI's. Returns (program, port, logs)."""
    if not os.access(LIGHTTPD, os.X_OK):
        test.skipTest("lighttpd is not installed at " + LIGHTTPD)
    if not (FORMWIZ_MAIL and os.access(FORMWIZ_MAIL, os.X_OK)):
        test.fail("FORMWIZ_MAIL_BIN does not name the formwiz-mail program")
    environment = dict(environment)
    environment.update(
        ASAN_OPTIONS="detect_leaks=1",
        UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1",
    )
    folder = test.mkdir("lighttpd")
    port = free_port()
    conf = LIGHTTPD_CONF.format(
        docroot=docroot,
        port=port,
        folder=folder,
        form_path=FORM_PATH,
        cgi=FORMWIZ_MAIL,
        environment=", ".join(
            '"%s" => "%s"' % (k, v) for k, v in sorted(environment.items())
        ),
    )
    conf_path = os.path.join(folder, "lighttpd.conf")
    with open(conf_path, "w", encoding="utf-8") as f:
        f.write(conf)
    logs = [os.path.join(folder, "lighttpd-error.log"), os.path.join(folder, "cgi-stderr.log")]

    def cgi_reports():
        # The CGI program's standard error lands in lighttpd's logs.
        for log in logs:
            if os.path.exists(log):
                with open(log, encoding="utf-8", errors="replace") as f:
                    report = sanitizer_report(f.read())
                if report:
                    raise AssertionError("formwiz-mail: sanitizer report:\n" + report)

    test.addCleanup(cgi_reports)
    program = test.start("lighttpd", [LIGHTTPD, "-D", "-f", conf_path])

    def accepting():
        if program.process.poll() is not None:
            raise AssertionError("lighttpd ended:\n" + program.errors())
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return True
        except OSError:
            return False

    wait_until(accepting, 20, "lighttpd to listen")
    return program, port, logs
