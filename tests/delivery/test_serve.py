"""`formwiz serve` as a running program, with a page file made by `formwiz
page`, the store read by `formwiz submissions` and a recording SMTP server.
The decoding and refusal rules are pinned by the C++ handler and server
tests; here is what only the whole program shows: the page's own address is
the one allowed, the mail that arrives, hostile text on the wire and in the
answer page, the default body limit, and the configured rate limit per
client address as the sockets see it.
"""

import unittest

import harness
from harness import FORM_PATH, SENDER, post_form, request

MARKUP = '<script>alert(1)</script>" </textarea><b>&amp;'
PAGE_ORDER = ["FullName", "Email", "Address1", "City", "State", "PostalCode", "Request"]


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
    return list(values.items())


class Serve(harness.TestCase):
    def test_a_served_page_is_posted_stored_mailed_and_limited(self):
        page = self.make_page("catalog.html")
        data = self.mkdir("data")
        sink = self.start_sink()
        config = self.write("formwiz.toml", "[limits]\nrate_per_minute = 1\nrate_burst = 3\n")
        port = self.start_serve([page], data, smtp=sink.url, config=config).port
        reply = request(port, "GET", "/catalog.html")
        self.assertEqual(reply.status, 200, reply.text)
        form = harness.read_form(reply.text)
        self.assertEqual(form.action, FORM_PATH)
        self.assertEqual(form.fields, PAGE_ORDER)
        hidden = dict(form.hidden)
        self.assertEqual(hidden["qln_EmailTo"], "sales@example.org")
        referer = "http://127.0.0.1:%d/catalog.html" % port

        def post(token, source, hidden_changes=(), headers=None, **changes):
            fields = dict(hidden, **dict(hidden_changes))
            return post_form(
                port, list(fields.items()) + visitor(token, **changes), headers, source
            )

        good = post("row-good", "127.0.0.10", headers={"Referer": referer})
        self.assertEqual(good.status, 200, good.text)
        # Only the address the page was made with may receive its mail.
        refused = post("row-attacker", "127.0.0.11", {"qln_EmailTo": "attacker@evil.test"})
        self.assertEqual(refused.status, 403, refused.text)
        self.assertNotIn(hidden["qln_OKMessage"], refused.text)
        hostile = post(
            "row-hostile\r\nX-Injected: name",
            "127.0.0.12",
            {"qln_Subject": "Catalog\r\nBcc: victim@evil.test\r\nX-Injected: 1",
             "qln_OKMessage": MARKUP},
            Email="ada@example.com\r\nBcc: victim2@evil.test",
            City=MARKUP,
        )
        self.assertEqual(hostile.status, 200, hostile.text)
        # The default body limit of the running program.
        big = post("row-big", "127.0.0.13", Request="x" * 70000)
        self.assertEqual(big.status, 413)

        records = self.wait_settled(data, 3)
        by_client = {r["client"]: r for r in records.values()}
        self.assertEqual(set(by_client), {"127.0.0.10", "127.0.0.11", "127.0.0.12"})
        self.assertEqual(by_client["127.0.0.11"]["status"], "refused")
        messages = sink.wait_messages(2)
        self.assertEqual(len(messages), 2, "no mail for the refused post")
        by_id = {str(m["Message-ID"]): m for m in messages}

        # A good post: stored whole, in the page's order, and mailed so.
        record = by_client["127.0.0.10"]
        self.assertEqual(
            [(f["name"], f["value"]) for f in record["fields"]],
            [("FullName", "row-good"), ("Email", "ada@example.com"),
             ("Address1", "12 St James's Square"), ("City", "Zürich"), ("State", ""),
             ("PostalCode", "SW1Y 4JH"), ("Request", "A catalog, please.\nTwo copies."),
             ("Extra", "not on the page")],
        )
        self.assertEqual((record["status"], record["page"], record["form_index"]),
                         ("sent", referer, 2))
        message = by_id[record["message_id"]]
        self.assertEqual(message.envelope, {"mail_from": SENDER,
                                            "rcpt_tos": ["sales@example.org"]})
        self.assertEqual(str(message["Subject"]), hidden["qln_Subject"])
        self.assertEqual(str(message["Reply-To"]), "ada@example.com")
        text = harness.text_part(message)
        places = [text.index(name + ":") for name in PAGE_ORDER + ["Extra"]]
        self.assertEqual(places, sorted(places), text)
        self.assertLess(text.index("A catalog, please."), text.index("Two copies."))
        answer = harness.parse_page(good.text)
        self.assertIn(hidden["qln_OKMessage"], answer.joined)
        self.assertIn(referer, answer.links)

        # Hostile text: no header line or recipient came of a line break,
        # and markup is text in the answer page and as typed in the mail.
        record = by_client["127.0.0.12"]
        message = by_id[record["message_id"]]
        self.assertEqual(message.envelope["rcpt_tos"], ["sales@example.org"])
        self.assertRegex(str(message["Subject"]), r"^Catalog\s+Bcc: victim@evil\.test")
        for header in ("Bcc", "Cc", "X-Injected"):
            self.assertIsNone(message[header], header)
        for key, value in message.items():
            self.assertNotRegex(str(value), "[\r\n]", key)
        self.assertIn(MARKUP, harness.text_part(message))
        answer = harness.parse_page(hostile.text)
        self.assertFalse({"script", "textarea", "b"} & set(answer.tags), answer.tags)
        self.assertIn(MARKUP, answer.joined)

        # Past the configured burst, one address gets 429 and nothing is
        # stored; another address is not held back. A token comes back a
        # minute after the last: a slow run may see one more 200.
        statuses = [post("flood-%d" % n, "127.0.0.77").status for n in range(8)]
        self.assertEqual(statuses[:3], [200, 200, 200], statuses)
        self.assertEqual(set(statuses), {200, 429}, statuses)
        self.assertLessEqual(statuses.count(200), 4, statuses)
        self.assertEqual(post("calm", "127.0.0.78").status, 200)
        self.assertEqual(len(self.submissions(data)), 3 + statuses.count(200) + 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
