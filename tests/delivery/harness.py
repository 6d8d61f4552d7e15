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
import glob
import html.parser
import http.client
import json
import os
import random
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

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


SANITIZERS = {
    "ASAN_OPTIONS": "detect_leaks=1",
    "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1",
}


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
    """A loopback port nothing listens on at the moment of the call, taken
    below the kernel's ephemeral range: bind(0) and outgoing connections of
    tests running beside this one take ports from that range, and one of
    them could take this port before the program it is for binds it (or
    binds it again after a restart)."""
    try:
        with open("/proc/sys/net/ipv4/ip_local_port_range") as f:
            low = int(f.read().split()[0])
    except (OSError, ValueError, IndexError):
        low = 32768
    first = 10000 if low > 11000 else 1024
    ports = range(first, max(first + 1, low))
    candidates = random.Random().sample(ports, min(200, len(ports)))
    for port in candidates:
        with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
            try:
                s.bind(("127.0.0.1", port))
            except OSError:
                continue
            return port
    raise AssertionError("no free loopback port below %d" % low)


def sanitizer_report(text):
    match = SANITIZER_REPORT.search(text)
    return text[max(0, match.start() - 200) :] if match else None


class Program:
    """A started program whose standard output and error go to files in
    `folder`, so that nothing it writes can block it."""

    def __init__(self, name, argv, folder, stdin=subprocess.DEVNULL):
        self.name = name
        self.out_path = os.path.join(folder, name + ".out")
        self.err_path = os.path.join(folder, name + ".err")
        with open(self.out_path, "wb") as out, open(self.err_path, "wb") as err:
            self.process = subprocess.Popen(
                argv, stdin=stdin, stdout=out, stderr=err, env=dict(os.environ, **SANITIZERS)
            )
        self.killed = False

    def output(self, path=None):
        with open(path or self.out_path, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def errors(self):
        return self.output(self.err_path)

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

    def start(self, name, argv, stdin=subprocess.DEVNULL):
        """Starts a program that the clean-up stops; then a sanitizer report
        on its standard error, or a status other than 0 after SIGTERM, fails
        the test."""
        program = Program(name, argv, self.folder, stdin)

        def finish():
            status = program.stop()
            report = sanitizer_report(program.errors())
            if report:
                raise AssertionError("%s: sanitizer report:\n%s" % (name, report))
            if not program.killed and status != 0:
                raise AssertionError(
                    "%s ended with status %s after SIGTERM:\n%s"
                    % (name, status, program.errors()[-3000:])
                )

        self.addCleanup(finish)
        return program

    # The programs of the system and around it.

    def start_sink(self, port=0):
        """The recording SMTP server, a new folder and log at each start."""
        self._sink_starts = getattr(self, "_sink_starts", 0) + 1
        folder = self.mkdir("mail-%d" % self._sink_starts)
        argv = [sys.executable, os.path.join(HERE, "smtp_sink.py"), "--dir", folder]
        argv += ["--port", str(port), "--max-seconds", "7200"]
        # Its standard input is a pipe: it ends when this process does.
        program = self.start("smtp-sink-%d" % self._sink_starts, argv, stdin=subprocess.PIPE)
        match = program.wait_line(r"^listening 127\.0\.0\.1 (\d+)$")
        return Sink(program, folder, int(match.group(1)))

    def start_serve(self, pages, data, smtp, config=None, port=0, name="serve"):
        argv = [FORMWIZ, "serve", "--listen", "127.0.0.1:%d" % port, "--data", data]
        argv += ["--from", SENDER, "--smtp", smtp]
        if config:
            argv += ["--config", config]
        program = self.start(name, argv + list(pages))
        match = program.wait_line(r"^listening on http://127\.0\.0\.1:(\d+)/$", timeout=60)
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
        script = json.dumps(script).replace("sales@example.org", email_to)
        script_path = self.write(name + ".json", script)
        page = self.path(name)
        self.formwiz("page", "new", page)
        self.formwiz("page", "add-text", page, "Ask us for our catalog.")
        self.formwiz("page", "insert", page, "--script", script_path)
        return page

    def formwiz(self, *args):
        run = subprocess.run(
            [FORMWIZ] + list(args),
            capture_output=True,
            timeout=60,
            env=dict(os.environ, **SANITIZERS),
        )
        report = sanitizer_report(run.stderr.decode("utf-8", "replace"))
        if report:
            raise AssertionError("formwiz %s: sanitizer report:\n%s" % (args, report))
        if run.returncode != 0:
            raise AssertionError(
                "formwiz %s: status %d\n%s" % (args, run.returncode, run.stderr.decode())
            )
        return run

    def submissions(self, data, config=None):
        """The store's submissions, by id."""
        args = ["--config", config] if config else []
        run = self.formwiz("submissions", "list", "--data", data, "--json", *args)
        return {row["id"]: row for row in json.loads(run.stdout)}

    def wait_settled(self, data, count, timeout=60):
        """The store's submissions once it holds `count` and none of them
        waits in the outbox."""

        def settled():
            records = self.submissions(data)
            queued = any(r["status"] == "queued" for r in records.values())
            return records if len(records) >= count and not queued else None

        return wait_until(
            settled, timeout, "%d submission(s) to settle" % count,
            state=lambda: self.outbox_state(data),
        )

    def outbox_state(self, data):
        """What each submission's mail stands at, for a failure's message."""
        return [
            (r["id"], r["client"], r["status"], r["attempts"], r["detail"])
            for r in self.submissions(data).values()
        ]


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
        for path in sorted(glob.glob(os.path.join(self.folder, "*.json"))):
            stem = path[: -len(".json")]
            with open(stem + ".json", encoding="utf-8") as f:
                envelope = json.load(f)
            with open(stem + ".eml", "rb") as f:
                message = email.message_from_bytes(f.read(), policy=email.policy.default)
            message.envelope = envelope
            found.append(message)
        return found

    def wait_messages(self, count, timeout=30):
        wait_until(lambda: len(self.messages()) >= count, timeout,
                   "%d mail(s) at the SMTP server" % count)
        return self.messages()


class Reply:
    def __init__(self, status, body):
        self.status, self.body = status, body
        self.text = body.decode("utf-8", "replace")

    def json(self):
        return json.loads(self.body)


def request(port, method, path, body=None, headers=None, source=None, timeout=30):
    """One HTTP request on a fresh connection. `source` is the loopback
    address to send from (any of 127.0.0.0/8), so that the server's limits
    per client address can be met one address at a time."""
    connection = http.client.HTTPConnection(
        "127.0.0.1", port, timeout=timeout, source_address=(source, 0) if source else None
    )
    try:
        connection.request(method, path, body=body, headers=headers or {})
        response = connection.getresponse()
        return Reply(response.status, response.read())
    finally:
        connection.close()


def encode_form(pairs):
    """application/x-www-form-urlencoded, as a browser writes it (UTF-8)."""
    return urllib.parse.urlencode(pairs).encode("ascii")


def post_form(port, pairs, headers=None, source=None):
    sent = dict({"Content-Type": "application/x-www-form-urlencoded"}, **(headers or {}))
    return request(port, "POST", FORM_PATH, encode_form(pairs), sent, source)


class PageReader(html.parser.HTMLParser):
    """A page as a browser parses it: its elements, links and text, and its
    first form as a browser would post it (the action, the hidden fields in
    order, the visitor's boxes in order, not the trap)."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.tags, self.links, self.text = [], [], []
        self.action, self.hidden, self.fields = None, [], []
        self.forms = 0
        self.in_form = False
        self.feed(text)
        self.close()
        self.joined = "".join(self.text)

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        self.tags.append(tag)
        if tag == "a":
            self.links.append(a.get("href"))
        if tag == "form":
            self.forms += 1
            self.in_form = self.forms == 1
            self.action = a.get("action") if self.in_form else self.action
        name = a.get("name")
        if not self.in_form or tag not in ("input", "textarea") or not name:
            return
        kind = a.get("type", "text") if tag == "input" else "textarea"
        if kind == "hidden":
            self.hidden.append((name, a.get("value", "")))
        elif not name.startswith("qln_") and kind in ("text", "textarea", "email"):
            self.fields.append(name)

    def handle_endtag(self, tag):
        if tag == "form":
            self.in_form = False

    def handle_data(self, data):
        self.text.append(data)


read_form = parse_page = PageReader


def text_part(message):
    """The human-readable part of a mail."""
    part = message.get_body(preferencelist=("plain",))
    return part.get_content() if part is not None else None


def attachments(message):
    return [
        (part.get_content_type(), part.get_filename(), part.get_content())
        for part in message.iter_attachments()
    ]


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
    `environment` added to the CGI's. Returns the port."""
    if not os.access(LIGHTTPD, os.X_OK):
        test.skipTest("lighttpd is not installed at " + LIGHTTPD)
    if not (FORMWIZ_MAIL and os.access(FORMWIZ_MAIL, os.X_OK)):
        test.fail("FORMWIZ_MAIL_BIN does not name the formwiz-mail program")
    folder = test.mkdir("lighttpd")
    port = free_port()
    environment = sorted(dict(environment, **SANITIZERS).items())
    conf = test.write("lighttpd/lighttpd.conf", LIGHTTPD_CONF.format(
        docroot=docroot, port=port, folder=folder, form_path=FORM_PATH, cgi=FORMWIZ_MAIL,
        environment=", ".join('"%s" => "%s"' % item for item in environment)))

    def cgi_reports():
        # The CGI program's standard error lands in lighttpd's logs.
        for log in ("lighttpd-error.log", "cgi-stderr.log"):
            log = os.path.join(folder, log)
            if os.path.exists(log):
                with open(log, encoding="utf-8", errors="replace") as f:
                    report = sanitizer_report(f.read())
                if report:
                    raise AssertionError("formwiz-mail: sanitizer report:\n" + report)

    test.addCleanup(cgi_reports)
    wait_accepting(test.start("lighttpd", [LIGHTTPD, "-D", "-f", conf]), port)
    return port


def wait_accepting(program, port):
    """Waits, bounded, until `program` takes connections on `port`."""

    def accepting():
        if program.process.poll() is not None:
            raise AssertionError("%s ended:\n%s" % (program.name, program.errors()))
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return True
        except OSError:
            return False

    wait_until(accepting, 20, "%s to listen" % program.name)
