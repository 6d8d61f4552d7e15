"""`formwiz serve` with real parts: a page file made by `formwiz page`, the
server answering its form, the store read by `formwiz submissions`, and an
SMTP server that records what it receives.

One table of requests, good and hostile, each with the answer it must get,
what the store must hold afterwards and whether a mail must arrive; then the
faults: the mail server down and then up, a mail server refusing a
recipient, and the server killed in the middle of a burst of posts.
"""

import csv
import io
import os
import threading
import unittest

import harness
from harness import FORM_PATH, SENDER, post_form, request

MARKUP = '<script>alert(1)</script>" </textarea><b>&amp;'
HTML = "text/html"


class ServeTestCase(harness.TestCase):
    def setUp(self):
        super().setUp()
        self.page = self.make_page("catalog.html")
        self.data = self.mkdir("data")

    def form(self, port):
        reply = request(port, "GET", "/catalog.html")
        self.assertEqual(reply.status, 200, reply.text)
        form = harness.read_form(reply.text)
        self.assertEqual(form.action, FORM_PATH)
        return form

    def config(self, text):
        return self.write("formwiz.toml", text)


def visitor(token, **changes):
    """A visitor's answers, posted in an order unlike the page's, with State
    left out and one field the page does not have."""
    values = {
        "Request": "A catalog, please.\nTwo copies.",
        "PostalCode": "SW1Y 4JH",
        "City": "Zürich",
        "Address1": "12 St James's Square",
        "Email": "ada@example.com",
        "FullName": token,
        "Extra": "not on the page",
    }
    values.update(changes)
    return [(k, v) for k, v in values.items() if v is not None]


def order_of(text, labels):
    """The places of "Label:" in text; fails when one is missing."""
    places = []
    for label in labels:
        place = text.find(label + ":")
        if place < 0:
            raise AssertionError("%r lacks %r" % (text, label + ":"))
        places.append(place)
    return places


PAGE_ORDER = ["FullName", "Email", "Address1", "City", "State", "PostalCode", "Request"]


class HostileRequestTable(ServeTestCase):
    def test_each_request_gets_its_answer_its_record_and_its_mail(self):
        sink = self.start_sink()
        serve = self.start_serve([self.page], self.data, smtp=sink.url)
        port = serve.port
        form = self.form(port)
        hidden = dict(form.hidden)
        self.assertEqual(hidden["qln_EmailTo"], "sales@example.org")
        self.assertEqual(form.traps, ["qln_Website"])
        self.assertEqual(form.fields, PAGE_ORDER)
        referer = "http://127.0.0.1:%d/catalog.html" % port
        ok_message = hidden["qln_OKMessage"]

        def good(token, hidden_changes=None, **changes):
            fields = dict(form.hidden)
            fields.update(hidden_changes or {})
            return [(k, v) for k, v in fields.items() if v is not None] + visitor(
                token, **changes
            )

        def urlencoded(body):
            return ("POST", body, {"Content-Type": "application/x-www-form-urlencoded"})

        def pairs(token, hidden_changes=None, headers=None, **changes):
            body = harness.encode_form(good(token, hidden_changes, **changes))
            method, body, sent = urlencoded(body)
            sent.update(headers or {})
            return (method, body, sent)

        base = harness.encode_form(good("x"))
        multipart = (
            b"--b\r\nContent-Disposition: form-data; name=\"FullName\"\r\n\r\n"
            b"row-multipart\r\n--b--\r\n"
        )
        many = "&".join("f%d=x" % i for i in range(300)).encode()

        def chunks():
            yield harness.encode_form(good("row-chunked")) + b"&Request="
            for _ in range(17):
                yield b"x" * 4096

        # name: (method, body, headers, status, stored status or None, mailed)
        rows = {
            "good": (*pairs("row-good", headers={"Referer": referer}), 200, "sent", True),
            "csv": (
                *pairs(
                    "row-csv",
                    {"qln_SendMode": "2"},
                    Request='He said "hi", twice',
                ),
                200,
                "sent",
                True,
            ),
            "json": (
                *pairs("row-json", headers={"Accept": "application/json"}),
                200,
                "sent",
                True,
            ),
            "changed recipient": (
                *pairs("row-attacker", {"qln_EmailTo": "attacker@evil.test"}),
                403,
                "refused",
                False,
            ),
            "recipient with a header": (
                *pairs(
                    "row-rcpt-crlf",
                    {"qln_EmailTo": "sales@example.org\r\nBcc: victim@evil.test"},
                ),
                403,
                "refused",
                False,
            ),
            "CR LF in subject and fields": (
                *pairs(
                    "row-crlf\r\nX-Injected: name",
                    {"qln_Subject": "Catalog\r\nBcc: victim@evil.test\r\nX-Injected: 1"},
                    Email="ada@example.com\r\nBcc: victim2@evil.test",
                    City="London\r\n\r\nFake body",
                ),
                200,
                "sent",
                True,
            ),
            "markup everywhere": (
                *pairs(
                    "row-markup" + MARKUP,
                    {"qln_OKMessage": MARKUP, "qln_Subject": MARKUP},
                    headers={"Referer": referer + '?q="><script>x()</script>'},
                    **{k: MARKUP for k in PAGE_ORDER[1:] + ["Extra"]},
                ),
                200,
                "sent",
                True,
            ),
            "honeypot": (
                *pairs("row-spam", {"qln_Website": "http://spam.test/"}),
                200,
                "spam",
                False,
            ),
            "no recipient": (*pairs("row-no-to", {"qln_EmailTo": None}), 400, None, False),
            "oversized body": (*pairs("row-big", Request="x" * 70000), 413, None, False),
            "oversized chunked body": (
                "POST",
                chunks(),
                {"Content-Type": "application/x-www-form-urlencoded"},
                413,
                None,
                False,
            ),
            "too many fields": (*urlencoded(base + b"&" + many), 413, None, False),
            "field too long": (*pairs("row-long", Request="y" * 40000), 413, None, False),
            "name too long": (*urlencoded(base + b"&" + b"n" * 300 + b"=1"), 413, None, False),
            "malformed %-encoding": (*urlencoded(base + b"&City=%ZZ"), 400, None, False),
            "cut %-encoding": (*urlencoded(base + b"&City=%4"), 400, None, False),
            "invalid UTF-8": (*urlencoded(base + b"&City=%FF%FE"), 400, None, False),
            "overlong UTF-8": (*urlencoded(base + b"&City=%C0%AF"), 400, None, False),
            "raw invalid UTF-8": (*urlencoded(base + b"&City=\xc3("), 400, None, False),
            "GET": ("GET", None, {}, 405, None, False),
            "multipart": (
                "POST",
                multipart,
                {"Content-Type": "multipart/form-data; boundary=b"},
                415,
                None,
                False,
            ),
            "text/plain": (
                "POST",
                b"FullName=row-plain",
                {"Content-Type": "text/plain"},
                415,
                None,
                False,
            ),
            "JSON body": (
                "POST",
                b'{"FullName": "row-json-body"}',
                {"Content-Type": "application/json"},
                415,
                None,
                False,
            ),
        }

        replies = {}
        for number, (name, row) in enumerate(rows.items()):
            method, body, headers, status = row[:4]
            # Each row comes from its own address, so the limit on posts per
            # client address stays out of the table (it has its own test).
            source = "127.0.0.%d" % (10 + number)
            with self.subTest(row=name):
                reply = request(
                    port,
                    method,
                    FORM_PATH,
                    body,
                    headers,
                    source=source,
                    chunked=name == "oversized chunked body",
                )
                replies[name] = (reply, source)
                self.assertEqual(reply.status, status, reply.text[:500])

        mailed = [name for name, row in rows.items() if row[5]]
        stored_rows = [name for name, row in rows.items() if row[4]]

        def settled():
            records = self.submissions(self.data)
            if len(records) < len(stored_rows):
                return None
            if any(r["status"] == "queued" for r in records.values()):
                return None
            return records

        records = harness.wait_until(
            settled,
            60,
            "every submission to settle",
            state=lambda: self.outbox_state(self.data),
        )
        messages = sink.wait_messages(len(mailed))
        self.assertEqual(len(records), len(stored_rows), "nothing else was stored")

        by_client = {r["client"]: r for r in records.values()}
        by_id = {m["Message-ID"]: m for m in messages}
        self.assertEqual(len(messages), len(mailed), "mail only where expected")
        for name, (method, body, headers, status, stored, mail) in rows.items():
            reply, source = replies[name]
            with self.subTest(row=name):
                record = by_client.get(source)
                if stored is None:
                    self.assertIsNone(record, "%s must not be stored" % name)
                    continue
                self.assertIsNotNone(record)
                self.assertEqual(record["status"], stored, record["detail"])
                self.assertEqual(record["form_index"], 2)
                if mail:
                    self.assertIn(record["message_id"], by_id)
                    message = by_id[record["message_id"]]
                    self.assertEqual(message.envelope["rcpt_tos"], ["sales@example.org"])
                    self.assertEqual(message.envelope["mail_from"], SENDER)
                    self.assertEqual(str(message["From"]), SENDER)
                    self.assertEqual(str(message["To"]), "sales@example.org")
                    # Only text ever: no part a mail reader would render.
                    for kind in harness.all_parts(message):
                        self.assertIn(
                            kind, ("multipart/mixed", "text/plain", "text/csv")
                        )
                    for header in ("Bcc", "Cc", "X-Injected"):
                        self.assertIsNone(message[header], header)
                    for key, value in message.items():
                        self.assertNotIn("\n", str(value), key)
                        self.assertNotIn("\r", str(value), key)
                else:
                    self.assertNotIn(record["message_id"] or "-", by_id)
                    self.assertEqual(record["recipient"], "")

        # A good post: stored whole, in the page's order, and mailed so.
        good_record = by_client[replies["good"][1]]
        self.assertEqual(
            [(f["name"], f["value"]) for f in good_record["fields"]],
            [
                ("FullName", "row-good"),
                ("Email", "ada@example.com"),
                ("Address1", "12 St James's Square"),
                ("City", "Zürich"),
                ("State", ""),
                ("PostalCode", "SW1Y 4JH"),
                ("Request", "A catalog, please.\nTwo copies."),
                ("Extra", "not on the page"),
            ],
        )
        self.assertEqual(good_record["page"], referer)
        self.assertEqual(good_record["subject"], hidden["qln_Subject"])
        self.assertEqual(good_record["requested_to"], "sales@example.org")
        self.assertEqual(good_record["recipient"], "sales@example.org")
        self.assertEqual(good_record["send_mode"], "1")
        self.assertTrue(good_record["sent_at"])
        message = by_id[good_record["message_id"]]
        self.assertEqual(str(message["Subject"]), hidden["qln_Subject"])
        self.assertEqual(str(message["Reply-To"]), "ada@example.com")
        self.assertRegex(good_record["message_id"], r"^<[^<>@\s]+@[^<>@\s]+>$")
        text = harness.text_part(message)
        places = order_of(text, PAGE_ORDER + ["Extra"])
        self.assertEqual(places, sorted(places), text)
        self.assertLess(text.index("row-good"), text.index("Email:"))
        self.assertIn("Zürich", text)
        self.assertLess(text.index("A catalog, please."), text.index("Two copies."))
        self.assertEqual(harness.attachments(message), [])
        answer = harness.parse_page(replies["good"][0].text)
        self.assertTrue(replies["good"][0].headers["content-type"].startswith(HTML))
        self.assertIn(ok_message, answer.joined)
        self.assertIn(referer, answer.links)

        # Send mode "2": one record of comma-separated values, in the body
        # and as a text/csv attachment, quoted as RFC 4180 says.
        csv_record = by_client[replies["csv"][1]]
        self.assertEqual(csv_record["send_mode"], "2")
        message = by_id[csv_record["message_id"]]
        expected = [
            PAGE_ORDER + ["Extra"],
            [
                "row-csv",
                "ada@example.com",
                "12 St James's Square",
                "Zürich",
                "",
                "SW1Y 4JH",
                'He said "hi", twice',
                "not on the page",
            ],
        ]
        body_rows = list(csv.reader(io.StringIO(harness.text_part(message).strip())))
        self.assertEqual(body_rows, expected)
        (kind, filename, content), = harness.attachments(message)
        self.assertEqual(kind, "text/csv")
        self.assertTrue(filename.endswith(".csv"), filename)
        if isinstance(content, bytes):
            content = content.decode("utf-8")
        self.assertEqual(list(csv.reader(io.StringIO(content.strip()))), expected)
        self.assertIn('"He said ""hi"", twice"', content)

        # JSON for a script that asks for it.
        reply = replies["json"][0]
        self.assertTrue(reply.headers["content-type"].startswith("application/json"))
        answer = reply.json()
        self.assertIs(answer["ok"], True)
        self.assertEqual(answer["message"], ok_message)
        self.assertIsInstance(answer["title"], str)
        self.assertEqual(records[answer["id"]]["client"], replies["json"][1])

        # CR LF: headers hold no line break, the envelope no extra
        # recipient; the values are kept as the visitor wrote them.
        record = by_client[replies["CR LF in subject and fields"][1]]
        message = by_id[record["message_id"]]
        # The subject's text stays, on one line.
        self.assertRegex(str(message["Subject"]), r"^Catalog\s+Bcc: victim@evil\.test")
        reply_to = message["Reply-To"]
        self.assertIn(str(reply_to) if reply_to else "", ("", "ada@example.com"))
        self.assertNotIn(b"\nBcc:", message.raw.split(b"\r\n\r\n")[0])
        values = {f["name"]: f["value"] for f in record["fields"]}
        self.assertEqual(values["City"], "London\r\n\r\nFake body")

        # Markup: text in the answer page and in the mail.
        reply = replies["markup everywhere"][0]
        answer = harness.parse_page(reply.text)
        for tag in ("script", "textarea", "b"):
            self.assertNotIn(tag, answer.tags)
        self.assertIn(MARKUP, answer.joined)
        record = by_client[replies["markup everywhere"][1]]
        message = by_id[record["message_id"]]
        self.assertEqual(str(message["Subject"]), MARKUP)
        self.assertGreaterEqual(harness.text_part(message).count(MARKUP), 7)

        # The honeypot: answered as a person would be, kept as spam.
        reply = replies["honeypot"][0]
        self.assertIn(ok_message, harness.parse_page(reply.text).joined)
        record = by_client[replies["honeypot"][1]]
        self.assertEqual(record["message_id"] or "", "")

        # A refused recipient is kept with what was asked for.
        record = by_client[replies["changed recipient"][1]]
        self.assertEqual(record["requested_to"], "attacker@evil.test")
        for name in ("changed recipient", "recipient with a header"):
            self.assertNotIn(ok_message, replies[name][0].text)


class Flood(ServeTestCase):
    def test_posts_past_the_burst_get_429_and_are_not_stored(self):
        config = self.config("[limits]\nrate_per_minute = 1\nrate_burst = 3\n")
        serve = self.start_serve([self.page], self.data, config=config)
        form = self.form(serve.port)
        statuses = []
        for n in range(8):
            pairs = form.hidden + visitor("flood-%d" % n)
            statuses.append(post_form(serve.port, pairs, source="127.0.0.77").status)
        # One token comes back a minute after the last: a run slower than
        # that could see one more 200, never fewer.
        self.assertEqual(statuses[:3], [200, 200, 200], statuses)
        self.assertIn(429, statuses)
        self.assertLessEqual(statuses.count(200), 4, statuses)
        self.assertEqual(set(statuses), {200, 429})
        other = post_form(serve.port, form.hidden + visitor("calm"), source="127.0.0.78")
        self.assertEqual(other.status, 200, "the limit is per client address")

        records = self.submissions(self.data)
        self.assertEqual(len(records), statuses.count(200) + 1)
        # No --smtp: the mails wait in the outbox.
        self.assertEqual({r["status"] for r in records.values()}, {"queued"})


class Faults(ServeTestCase):
    OUTBOX = (
        "[outbox]\nfirst_backoff_seconds = 1\nmax_backoff_seconds = 2\n"
        "lease_seconds = 5\n"
    )

    def post(self, port, token, **hidden):
        pairs = dict(self.hidden)
        pairs.update(hidden)
        reply = post_form(
            port,
            list(pairs.items()) + visitor(token),
            headers={"Accept": "application/json"},
        )
        self.assertEqual(reply.status, 200, reply.text)
        return reply.json()["id"]

    def record(self, record_id):
        return self.submissions(self.data).get(record_id)

    def wait_status(self, record_id, status, timeout=30):
        return harness.wait_until(
            lambda: (lambda r: r if r and r["status"] == status else None)(
                self.record(record_id)
            ),
            timeout,
            "submission %d to be %s" % (record_id, status),
            step=0.25,
        )

    def test_mail_waits_while_the_smtp_server_is_down_and_leaves_once(self):
        port = harness.free_port()
        serve = self.start_serve(
            [self.page],
            self.data,
            smtp="smtp://127.0.0.1:%d" % port,
            config=self.config(self.OUTBOX),
        )
        self.hidden = self.form(serve.port).hidden
        first = self.post(serve.port, "while-down")
        harness.wait_until(
            lambda: (lambda r: r["status"] == "queued" and r["attempts"] >= 1)(
                self.record(first)
            ),
            30,
            "a failed attempt on the queued mail",
        )
        self.assertNotEqual(self.record(first)["detail"], "")

        sink = self.start_sink(port=port)
        sent = self.wait_status(first, "sent")
        # A later mail passes through the same worker: once it has arrived,
        # a second copy of the first would have too.
        second = self.post(serve.port, "once-up")
        self.wait_status(second, "sent")
        messages = sink.wait_messages(2)
        ids = [str(m["Message-ID"]) for m in messages]
        self.assertEqual(sorted(ids), sorted([sent["message_id"], self.record(second)["message_id"]]))
        self.assertEqual(len(messages), 2)

    def test_a_refused_recipient_fails_once_and_a_deferred_one_is_retried(self):
        sink = self.start_sink(refuse=["sales@example.org"], tempfail=["later@example.org"])
        config = self.config(
            self.OUTBOX
            + '[recipients]\nallow = ["sales@example.org", "other@example.org",'
            ' "later@example.org"]\n'
        )
        serve = self.start_serve([self.page], self.data, smtp=sink.url, config=config)
        self.hidden = self.form(serve.port).hidden
        refused = self.post(serve.port, "refused")
        deferred = self.post(serve.port, "deferred", qln_EmailTo="later@example.org")
        failed = self.wait_status(refused, "failed")
        self.assertEqual(failed["attempts"], 1)
        self.assertIn("550", failed["detail"])
        harness.wait_until(
            lambda: self.record(deferred)["attempts"] >= 2,
            30,
            "a second attempt at the deferred mail",
        )
        self.assertEqual(self.record(deferred)["status"], "queued")

        accepted = self.post(serve.port, "accepted", qln_EmailTo="other@example.org")
        self.wait_status(accepted, "sent")
        (message,) = sink.wait_messages(1)
        self.assertEqual(message.envelope["rcpt_tos"], ["other@example.org"])
        # The refused one was not tried again meanwhile.
        self.assertEqual(self.record(refused)["attempts"], 1)
        self.assertEqual(self.record(refused)["status"], "failed")

    def test_every_answered_post_survives_sigkill_and_is_mailed_once(self):
        sink = self.start_sink()
        config = self.config(
            self.OUTBOX + "[limits]\nrate_per_minute = 100000\nrate_burst = 100000\n"
        )
        serve = self.start_serve(
            [self.page], self.data, smtp=sink.url, config=config, name="serve-1"
        )
        self.hidden = self.form(serve.port).hidden
        answered = {}  # token -> id
        lock = threading.Lock()
        enough = threading.Event()

        def poster(thread):
            for n in range(100):
                token = "burst-%d-%d" % (thread, n)
                try:
                    reply = post_form(
                        serve.port,
                        self.hidden + visitor(token),
                        headers={"Accept": "application/json"},
                        source="127.0.1.%d" % (thread + 1),
                    )
                except OSError:
                    return  # the server is gone
                if reply.status == 200:
                    with lock:
                        answered[token] = reply.json()["id"]
                        if len(answered) >= 40:
                            enough.set()

        threads = [threading.Thread(target=poster, args=(t,)) for t in range(4)]
        for thread in threads:
            thread.start()
        try:
            self.assertTrue(enough.wait(60), "posts were not answered")
            serve.kill()
        finally:
            serve.kill()
            for thread in threads:
                thread.join(60)
        self.assertFalse(any(t.is_alive() for t in threads))
        with lock:
            answered = dict(answered)

        serve = self.start_serve(
            [self.page], self.data, smtp=sink.url, config=config, name="serve-2"
        )

        def all_sent():
            records = self.submissions(self.data)
            if any(r["status"] != "sent" for r in records.values()):
                return None
            return records

        records = harness.wait_until(
            all_sent,
            90,
            "every stored mail to be sent",
            state=lambda: self.outbox_state(self.data),
        )
        for token, record_id in answered.items():
            self.assertIn(record_id, records, token)
            self.assertEqual(records[record_id]["fields"][0]["value"], token)

        # At least once, and a second copy only with the same Message-ID: a
        # kill between the mail server's 250 and the store's "sent" cannot
        # know the mail left, so it goes again under the same Message-ID,
        # which mail systems and readers drop as a duplicate.
        messages = sink.wait_messages(len(records))
        ids_by_token = {}
        for message in messages:
            token = harness.text_part(message).split("FullName:")[1].split()[0]
            ids_by_token.setdefault(token, set()).add(str(message["Message-ID"]))
        for record in records.values():
            token = record["fields"][0]["value"]
            self.assertEqual(ids_by_token.get(token), {record["message_id"]}, token)
        self.assertEqual(len(ids_by_token), len(records))


if __name__ == "__main__":
    unittest.main(verbosity=2)
