"""Many posts through several handlers while things break.

Four `formwiz serve` processes (each with a long-lived delivery worker, all
on one store and outbox) behind lighttpd's mod_proxy; 64 clients post the
form, each post with a token of its own, while at seeded random moments a
handler is killed with SIGKILL and started again, PostgreSQL restarts, and
the SMTP server stops for a while. Once the outbox has drained, post by
post: a success answer means stored and mailed; the handler's error answer
means neither; no answer, the proxy's 502/503 or the handler's 504 (its
commit's answer lost) may be either, but mailed only when stored. Every
stored submission is mailed under its one Message-ID; second copies (same
Message-ID) only as many as the kills and SMTP stops explain.

    FORMWIZ_LOAD_POSTS=20000 FORMWIZ_LOAD_SEED=123 /usr/bin/python3 \
        tests/delivery/test_load_faults.py

runs it at full size (default 2,000 posts; the seed is new each run and
printed). One test case per store: LoadFaults.test_postgresql, test_sqlite.
"""

import collections
import email
import email.policy
import http.client
import os
import random
import re
import threading
import time
import unittest

import harness
import pg_server
from harness import FORM_PATH

POSTS = int(os.environ.get("FORMWIZ_LOAD_POSTS") or 2000)
SEED = int(os.environ.get("FORMWIZ_LOAD_SEED") or random.SystemRandom().randrange(1 << 31))
CLIENTS = 64
HANDLERS = 4
# Posting is paced to last at least this long, so that the faults fall among
# the posts rather than after them.
MIN_POSTING_SECONDS = float(os.environ.get("FORMWIZ_LOAD_SECONDS") or 30)
LEASE_SECONDS = 15

CONFIG = """\
{store}
[mail]
timeout_seconds = 10

[limits]
rate_per_minute = 1000000
rate_burst = 1000000
connections_per_ip = 4096

[outbox]
lease_seconds = {lease}
first_backoff_seconds = 1
max_backoff_seconds = 2
max_attempts = 10000
"""

PROXY_CONF = """\
server.modules = ("mod_proxy")
server.document-root = "{docroot}"
server.bind = "127.0.0.1"
server.port = {port}
server.errorlog = "{folder}/lighttpd-error.log"
server.max-connections = 1024
server.max-fds = 4096
proxy.balance = "round-robin"
proxy.server = ("{form_path}" => ({backends}))
"""

TOKEN = re.compile(rb"\bload(\d+)x(\d+)\b")
MESSAGE_ID = re.compile(rb"^Message-I[dD]:\s*(<[^>\r\n]+>)", re.M)


class Outcomes:
    """What each post got, by token."""

    def __init__(self):
        self.lock = threading.Lock()
        self.success = {}  # token -> submission id
        self.refused = {}  # token -> status: an error answer from the handler
        self.unknown = {}  # token -> why: no answer, the proxy's, or 504
        self.statuses = collections.Counter()

    def add(self, token, kind, value, status):
        with self.lock:
            getattr(self, kind)[token] = value
            self.statuses[status] += 1

    def done(self):
        with self.lock:
            return len(self.success) + len(self.refused) + len(self.unknown)


class Mail:
    """Every message that reached the SMTP server, over all its starts."""

    def __init__(self, folders):
        self.copies = {}  # token -> [Message-ID, ...], one per copy received
        for folder in folders:
            for name in sorted(os.listdir(folder)):
                if name.endswith(".eml"):
                    with open(os.path.join(folder, name), "rb") as f:
                        self.read(f.read())

    def read(self, raw):
        token = TOKEN.search(raw)
        message_id = MESSAGE_ID.search(raw)
        if not (token and message_id):
            # Encoded so that the plain bytes do not show them.
            message = email.message_from_bytes(raw, policy=email.policy.default)
            token = TOKEN.search((harness.text_part(message) or "").encode())
            message_id = re.match(rb"(.*)", str(message["Message-ID"]).encode())
        self.copies.setdefault(token.group(0).decode(), []).append(
            message_id.group(1).decode()
        )


class LoadFaults(harness.TestCase):
    def setUp(self):
        super().setUp()
        if not os.access(harness.LIGHTTPD, os.X_OK):
            self.skipTest("lighttpd is not installed at " + harness.LIGHTTPD)
        self.page = self.make_page("catalog.html")
        self.data = self.mkdir("data")
        self.random = random.Random(SEED)
        self.sinks = []  # every start of the SMTP server
        self.handlers = [None] * HANDLERS
        self.ports = [harness.free_port() for _ in range(HANDLERS)]
        self.smtp_port = harness.free_port()
        self.faults = {"kill": 0, "database": 0, "smtp": 0}

    def test_postgresql(self):
        self.database = pg_server.PostgresServer(self)
        self.run_load('[store]\nurl = "%s"\n' % self.database.conninfo())

    def test_sqlite(self):
        # Four processes on one SQLite file: one writer at a time, each
        # waiting its turn (busy timeout); nothing to restart.
        self.database = None
        self.run_load("")

    # The programs.

    def start_handler(self, number, generation=0):
        self.handlers[number] = self.start_serve(
            [self.page], self.data, "smtp://127.0.0.1:%d" % self.smtp_port, self.config,
            port=self.ports[number], name="serve-%d-%d" % (number, generation))

    def start_proxy(self):
        folder = self.mkdir("lighttpd")
        self.proxy_port = harness.free_port()
        backends = ", ".join(
            '("host" => "127.0.0.1", "port" => %d)' % port for port in self.ports
        )
        conf = self.write("lighttpd/lighttpd.conf", PROXY_CONF.format(
            docroot=folder, port=self.proxy_port, folder=folder, form_path=FORM_PATH,
            backends=backends))
        program = self.start("lighttpd", [harness.LIGHTTPD, "-D", "-f", conf])
        harness.wait_accepting(program, self.proxy_port)

    # The faults, each one bounded.

    def kill_handler(self):
        number = self.random.randrange(HANDLERS)
        self.handlers[number].kill()
        time.sleep(self.random.uniform(0.2, 2.0))
        self.faults["kill"] += 1
        self.start_handler(number, self.faults["kill"])

    def restart_database(self):
        self.database.restart(self.random.choice(["fast", "immediate"]))
        self.faults["database"] += 1

    def stop_smtp(self):
        self.sinks[-1].program.stop()
        time.sleep(self.random.uniform(1.0, 4.0))
        self.faults["smtp"] += 1
        self.sinks.append(self.start_sink(self.smtp_port))

    def schedule(self):
        """(posts answered, fault) pairs: each fault at a random point of
        the run, every kind at least twice."""
        kinds = ["kill"] * max(3, POSTS // 500) + ["smtp"] * max(2, POSTS // 1000)
        if self.database:
            kinds += ["database"] * max(2, POSTS // 1000)
        self.random.shuffle(kinds)
        points = sorted(
            self.random.randrange(POSTS // 20, POSTS * 9 // 10) for _ in kinds
        )
        return list(zip(points, kinds))

    # The run.

    def run_load(self, store_config):
        print("\nseed %d, %d posts, %d clients, %d handlers" % (SEED, POSTS, CLIENTS, HANDLERS))
        self.config = self.write(
            "formwiz.toml", CONFIG.format(store=store_config, lease=LEASE_SECONDS)
        )
        self.sinks.append(self.start_sink(self.smtp_port))
        for number in range(HANDLERS):
            self.start_handler(number)
        self.start_proxy()
        hidden = harness.read_form(
            harness.request(self.ports[0], "GET", "/catalog.html").text
        ).hidden

        outcomes = Outcomes()
        fault_errors = []
        posting_done = threading.Event()
        schedule = self.schedule()

        def faults():
            actions = {
                "kill": self.kill_handler,
                "database": self.restart_database,
                "smtp": self.stop_smtp,
            }
            try:
                for point, kind in schedule:
                    while outcomes.done() < point and not posting_done.is_set():
                        time.sleep(0.05)
                    actions[kind]()
            except BaseException as error:  # reported by the test thread
                fault_errors.append(error)

        fault_thread = threading.Thread(target=faults)
        fault_thread.start()
        try:
            posting_seconds = self.post_all(hidden, outcomes)
        finally:
            posting_done.set()
            fault_thread.join(600)
        self.assertFalse(fault_thread.is_alive(), "the faults did not end")
        if fault_errors:
            raise fault_errors[0]

        records = self.drain()
        mail = Mail([sink.folder for sink in self.sinks])
        self.check(outcomes, records, mail, posting_seconds)

    def post_all(self, hidden, outcomes):
        """Posts POSTS forms from CLIENTS threads; gives the seconds taken."""
        next_post = iter(range(POSTS))
        lock = threading.Lock()
        interval = MIN_POSTING_SECONDS / POSTS
        start = time.monotonic()

        def client():
            while True:
                with lock:
                    n = next(next_post, None)
                if n is None:
                    return
                # Paced: post n goes no earlier than its share of the time.
                delay = start + n * interval - time.monotonic()
                if delay > 0:
                    time.sleep(delay)
                token = "load%dx%d" % (SEED, n)
                fields = hidden + [
                    ("FullName", token),
                    ("Email", "visitor%d@example.com" % n),
                    ("City", "London"),
                    ("Request", "A catalog, please."),
                ]
                self.post_one(token, fields, outcomes)

        threads = [threading.Thread(target=client) for _ in range(CLIENTS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(POSTS * 2 + 120)
        self.assertFalse(any(t.is_alive() for t in threads), "posting did not end")
        return time.monotonic() - start

    def post_one(self, token, fields, outcomes):
        headers = {"Content-Type": "application/x-www-form-urlencoded",
                   "Accept": "application/json"}
        try:
            response = harness.request(self.proxy_port, "POST", FORM_PATH,
                                       harness.encode_form(fields), headers, timeout=60)
        except (OSError, http.client.HTTPException):
            outcomes.add(token, "unknown", "no answer", "none")
            return
        try:
            answer = response.json()
        except ValueError:
            answer = None
        if not isinstance(answer, dict) or "ok" not in answer:
            # Not the handler's answer: the proxy's own (502, 503).
            outcomes.add(token, "unknown", "proxy %d" % response.status, response.status)
        elif response.status == 200 and answer["ok"] is True:
            outcomes.add(token, "success", answer["id"], 200)
        elif response.status == 504:
            outcomes.add(token, "unknown", "handler 504", 504)
        else:
            outcomes.add(token, "refused", response.status, response.status)

    def drain(self):
        """Waits, bounded, until no mail is left in the outbox; gives the
        store's submissions. Every handler, the database and the SMTP server
        are up by now."""
        for number, program in enumerate(self.handlers):
            self.assertIsNone(program.process.poll(), "handler %d ended" % number)

        def drained():
            records = self.submissions(self.data, self.config)
            return records if all(r["status"] != "queued" for r in records.values()) else None

        def state():
            records = self.submissions(self.data, self.config).values()
            waiting = [(r["id"], r["status"], r["attempts"], r["detail"]) for r in records
                       if r["status"] != "sent"]
            return "%d not sent, for example %s" % (len(waiting), waiting[:5])

        return harness.wait_until(
            drained, 120 + LEASE_SECONDS + POSTS / 50, "the outbox to drain", step=2, state=state
        )

    def check(self, outcomes, records, mail, posting_seconds):
        by_token = {}
        for record in records.values():
            token = record["fields"][0]["value"]
            self.assertNotIn(token, by_token, "stored twice")
            by_token[token] = record
        posted = set(outcomes.success) | set(outcomes.refused) | set(outcomes.unknown)
        self.assertEqual(len(posted), POSTS)
        self.assertLessEqual(set(by_token), posted, "stored what nobody posted")
        self.assertLessEqual(set(mail.copies), posted, "mailed what nobody posted")

        # Success: stored under the id the answer gave, and mailed.
        for token, record_id in outcomes.success.items():
            record = by_token.get(token)
            self.assertIsNotNone(record, "%s was answered 200 and not stored" % token)
            self.assertEqual(record["id"], record_id, token)
        # An error answer from the handler: neither stored nor mailed.
        for token, status in outcomes.refused.items():
            self.assertNotIn(token, by_token, "%s got %s and was stored" % (token, status))
            self.assertNotIn(token, mail.copies, "%s got %s and was mailed" % (token, status))
        # Whatever was stored was sent, under its own Message-ID only; what
        # was not stored was not mailed.
        for token in posted:
            record = by_token.get(token)
            copies = mail.copies.get(token, [])
            if record is None:
                self.assertEqual(copies, [], "%s was mailed but not stored" % token)
                continue
            self.assertEqual(record["status"], "sent", (token, record["detail"]))
            self.assertTrue(copies, "%s was stored and not mailed" % token)
            self.assertEqual(set(copies), {record["message_id"]}, token)

        extra = sum(len(c) - 1 for c in mail.copies.values())
        # A second copy needs a sender gone between the 250 and the record:
        # a killed handler (its worker sends one mail at a time) or an SMTP
        # server stopped under the workers of the four handlers.
        allowed = self.faults["kill"] + self.faults["smtp"] * HANDLERS
        unknown_stored = sum(1 for t in outcomes.unknown if t in by_token)
        reasons = collections.Counter(outcomes.unknown.values())
        print(
            "posted %d in %.0f s: %d success, %d error answers from a handler, "
            "%d unknown (%s; %d of them stored and mailed)\n"
            "answers by status: %s\n"
            "faults: %d handler kills, %d database restarts, %d SMTP stops\n"
            "stored %d, mailed %d distinct Message-IDs in %d copies "
            "(%d second copies, same Message-ID; at most %d allowed)"
            % (
                POSTS, posting_seconds, len(outcomes.success), len(outcomes.refused),
                len(outcomes.unknown),
                ", ".join("%s: %d" % r for r in sorted(reasons.items())) or "none",
                unknown_stored, dict(sorted(outcomes.statuses.items(), key=str)),
                self.faults["kill"], self.faults["database"], self.faults["smtp"],
                len(by_token), len(mail.copies), extra + len(mail.copies), extra, allowed,
            ),
            flush=True,
        )
        self.assertLessEqual(extra, allowed, "more second copies than faults explain")
        self.assertEqual(len(mail.copies), len(by_token))
        # The faults are brief: most posts must get through, or the checks
        # above had little to check.
        self.assertGreater(len(outcomes.success), POSTS // 2, "too few posts succeeded")


if __name__ == "__main__":
    unittest.main(verbosity=2)
