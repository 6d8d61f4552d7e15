"""formwiz-mail as a web server runs it: lighttpd serves the page files and
runs the CGI program at /cgi-bin/formmail, with the configuration file named
in FORMWIZ_CONFIG; an SMTP server records the mail that the program sends
after it has answered.
"""

import os
import unittest

import harness
from harness import FORM_PATH, SENDER, request

CONFIG = """\
[server]
data = "{data}"

[mail]
from = "{sender}"
smtp = "{smtp}"

[recipients]
allow = ["sales@example.org"]

[recipients.aliases]
sales = "orders@example.org"

[outbox]
first_backoff_seconds = 1
max_backoff_seconds = 2
"""


class Cgi(harness.TestCase):
    def test_lighttpd_runs_the_form_handler(self):
        site = self.mkdir("site")
        pages = {
            "catalog.html": self.make_page("catalog.html"),
            # The author typed an alias in the wizard: no address in the page.
            "alias.html": self.make_page("alias.html", email_to="sales"),
        }
        for name, page in pages.items():
            os.rename(page, os.path.join(site, name))
        data = self.mkdir("data")
        sink = self.start_sink()
        config = self.write(
            "formwiz.toml", CONFIG.format(data=data, sender=SENDER, smtp=sink.url)
        )
        _, port, _ = harness.start_lighttpd(self, site, {"FORMWIZ_CONFIG": config})

        forms = {}
        for name in pages:
            reply = request(port, "GET", "/" + name)
            self.assertEqual(reply.status, 200)
            forms[name] = harness.read_form(reply.text)
            self.assertEqual(forms[name].action, FORM_PATH)
        self.assertEqual(dict(forms["alias.html"].hidden)["qln_EmailTo"], "sales")

        def answers(token):
            return [(f, "%s %s" % (token, f)) for f in forms["catalog.html"].fields]

        def post(page, token, hidden=None, headers=None):
            fields = dict(forms[page].hidden)
            fields.update(hidden or {})
            sent = {"Content-Type": "application/x-www-form-urlencoded"}
            sent.update(headers or {})
            body = harness.encode_form(list(fields.items()) + answers(token))
            return ("POST", body, sent)

        plain = harness.encode_form(forms["catalog.html"].hidden)
        form_type = {"Content-Type": "application/x-www-form-urlencoded"}
        rows = {
            # name: (request, status, stored status, recipient mailed)
            "good": (post("catalog.html", "cgi-good"), 200, "sent", "sales@example.org"),
            "alias": (post("alias.html", "cgi-alias"), 200, "sent", "orders@example.org"),
            "json": (
                post("catalog.html", "cgi-json", headers={"Accept": "application/json"}),
                200,
                "sent",
                "sales@example.org",
            ),
            "changed recipient": (
                post("catalog.html", "cgi-attacker", {"qln_EmailTo": "attacker@evil.test"}),
                403,
                "refused",
                None,
            ),
            "honeypot": (
                post("catalog.html", "cgi-spam", {"qln_Website": "http://spam.test/"}),
                200,
                "spam",
                None,
            ),
            "oversized": (
                ("POST", plain + b"&Request=" + b"x" * 70000, form_type),
                413,
                None,
                None,
            ),
            "invalid UTF-8": (("POST", plain + b"&City=%C3%28", form_type), 400, None, None),
            "GET": (("GET", None, {}), 405, None, None),
            "multipart": (
                ("POST", b"--b--\r\n", {"Content-Type": "multipart/form-data; boundary=b"}),
                415,
                None,
                None,
            ),
        }
        replies = {}
        for number, (name, row) in enumerate(rows.items()):
            (method, body, headers), status = row[0], row[1]
            source = "127.0.2.%d" % (10 + number)
            with self.subTest(row=name):
                reply = request(port, method, FORM_PATH, body, headers, source=source)
                replies[name] = (reply, source)
                self.assertEqual(reply.status, status, reply.text[:500])

        mailed = [row[3] for row in rows.values() if row[3]]
        stored = [name for name, row in rows.items() if row[2]]

        def settled():
            records = self.submissions(data)
            if len(records) < len(stored):
                return None
            if any(r["status"] == "queued" for r in records.values()):
                return None
            return records

        # Each CGI process delivers what is due after its answer.
        records = harness.wait_until(
            settled, 60, "the CGI to deliver the mail", state=lambda: self.outbox_state(data)
        )
        messages = sink.wait_messages(len(mailed))
        self.assertEqual(len(records), len(stored))
        self.assertEqual(len(messages), len(mailed))
        self.assertEqual(
            sorted(m.envelope["rcpt_tos"][0] for m in messages), sorted(mailed)
        )
        by_client = {r["client"]: r for r in records.values()}
        by_id = {str(m["Message-ID"]): m for m in messages}
        for name, (_, status, state, recipient) in rows.items():
            record = by_client.get(replies[name][1])
            with self.subTest(row=name):
                if state is None:
                    self.assertIsNone(record)
                    continue
                self.assertEqual(record["status"], state, record["detail"])
                if recipient:
                    message = by_id[record["message_id"]]
                    self.assertEqual(message.envelope["rcpt_tos"], [recipient])
                    self.assertEqual(str(message["To"]), recipient)
                    self.assertEqual(str(message["From"]), SENDER)
                    token = record["fields"][0]["value"]
                    text = harness.text_part(message)
                    self.assertIn(token, text)
                    places = [text.index(f + ":") for f in forms["catalog.html"].fields]
                    self.assertEqual(places, sorted(places), text)

        alias = by_client[replies["alias"][1]]
        self.assertEqual(alias["requested_to"], "sales")
        self.assertEqual(alias["recipient"], "orders@example.org")
        ok = dict(forms["catalog.html"].hidden)["qln_OKMessage"]
        self.assertIn(ok, harness.parse_page(replies["good"][0].text).joined)
        answer = replies["json"][0].json()
        self.assertEqual((answer["ok"], answer["message"]), (True, ok))
        self.assertEqual(records[answer["id"]]["client"], replies["json"][1])
        self.assertIn(ok, harness.parse_page(replies["honeypot"][0].text).joined)
        self.assertNotIn(ok, replies["changed recipient"][0].text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
