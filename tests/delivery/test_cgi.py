"""formwiz-mail as a web server runs it: lighttpd serves the page files and
runs the CGI program at /cgi-bin/formmail, with the configuration file named
in FORMWIZ_CONFIG; an SMTP server records the mail that the program sends
after it has answered.

The rules the handler applies are pinned by its own tests; here is what the
CGI program does itself: the request from the web server's variables, the
length it declares, the configuration file's allow-list and aliases, the
answer's form, and the mail sent after the answer.
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
        # The author typed an alias in the wizard: no address in that page.
        for name, to in (("catalog.html", "sales@example.org"), ("alias.html", "sales")):
            os.rename(self.make_page(name, email_to=to), os.path.join(site, name))
        data = self.mkdir("data")
        sink = self.start_sink()
        config = self.write(
            "formwiz.toml", CONFIG.format(data=data, sender=SENDER, smtp=sink.url)
        )
        port = harness.start_lighttpd(self, site, {"FORMWIZ_CONFIG": config})

        forms = {}
        for name in ("catalog.html", "alias.html"):
            reply = request(port, "GET", "/" + name)
            self.assertEqual(reply.status, 200)
            forms[name] = harness.read_form(reply.text)
            self.assertEqual(forms[name].action, FORM_PATH)
        self.assertEqual(dict(forms["alias.html"].hidden)["qln_EmailTo"], "sales")
        ok = dict(forms["catalog.html"].hidden)["qln_OKMessage"]
        form_type = {"Content-Type": "application/x-www-form-urlencoded"}

        def post(page, token, source, hidden=(), headers=None):
            fields = dict(forms[page].hidden, **dict(hidden))
            answers = [(f, "%s %s" % (token, f)) for f in forms[page].fields]
            body = harness.encode_form(list(fields.items()) + answers)
            source = "127.0.2.%d" % source
            return request(port, "POST", FORM_PATH, body, dict(form_type, **(headers or {})),
                           source=source), source

        good, good_from = post("catalog.html", "cgi-good", 10)
        alias, alias_from = post("alias.html", "cgi-alias", 11)
        as_json, json_from = post("catalog.html", "cgi-json", 12,
                                  headers={"Accept": "application/json"})
        refused, refused_from = post("catalog.html", "cgi-attacker", 13,
                                     {"qln_EmailTo": "attacker@evil.test"})
        self.assertEqual([r.status for r in (good, alias, as_json, refused)],
                         [200, 200, 200, 403])
        self.assertIn(ok, harness.parse_page(good.text).joined)
        self.assertNotIn(ok, refused.text)
        answer = as_json.json()
        self.assertEqual((answer["ok"], answer["message"]), (True, ok))
        # Refused before the body is read: the declared length, the method.
        plain = harness.encode_form(forms["catalog.html"].hidden)
        big = request(port, "POST", FORM_PATH, plain + b"&Request=" + b"x" * 70000,
                      form_type, source="127.0.2.14")
        self.assertEqual(big.status, 413)
        self.assertEqual(request(port, "GET", FORM_PATH, source="127.0.2.15").status, 405)

        # Each CGI process delivers what is due after its answer.
        records = self.wait_settled(data, 4)
        self.assertEqual(len(records), 4, "nothing refused early was stored")
        by_client = {r["client"]: r for r in records.values()}
        self.assertEqual(by_client[json_from]["id"], answer["id"])
        self.assertEqual(by_client[refused_from]["status"], "refused")
        self.assertEqual(
            (by_client[alias_from]["requested_to"], by_client[alias_from]["recipient"]),
            ("sales", "orders@example.org"),
        )
        messages = {str(m["Message-ID"]): m for m in sink.wait_messages(3)}
        self.assertEqual(len(messages), 3)
        for source, recipient in ((good_from, "sales@example.org"),
                                  (alias_from, "orders@example.org"),
                                  (json_from, "sales@example.org")):
            record = by_client[source]
            self.assertEqual(record["status"], "sent", record["detail"])
            message = messages[record["message_id"]]
            self.assertEqual(message.envelope, {"mail_from": SENDER, "rcpt_tos": [recipient]})
            self.assertEqual((str(message["To"]), str(message["From"])), (recipient, SENDER))
            self.assertIn(record["fields"][0]["value"], harness.text_part(message))


if __name__ == "__main__":
    unittest.main(verbosity=2)
