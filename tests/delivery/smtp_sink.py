"""A mail server for tests: takes mail on 127.0.0.1 and keeps each message.

    smtp_sink.py --dir DIR [--port 0] [--refuse ADDR]... [--tempfail-rcpt ADDR]...
                 [--slow SECONDS] [--auth] [--max-seconds 900]

Prints "listening 127.0.0.1 PORT" once it takes connections. Each message
becomes DIR/NNNNNN.eml (the DATA bytes as received) and DIR/NNNNNN.json
({"mail_from": ..., "rcpt_tos": [...]}), each written whole before its name
appears. With --auth it offers AUTH without TLS, takes any login and
appends "LOGIN PASSWORD" for each to DIR/logins. Ends on SIGTERM or SIGINT, after --max-seconds, or when its
standard input closes if that is a pipe, so that it never outlives its test.
"""

import argparse
import asyncio
import json
import os
import signal
import stat
import threading
import time

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult


class Sink:
    def __init__(self, folder, refuse, tempfail, slow):
        self.folder = folder
        self.refuse = {a.lower() for a in refuse}
        self.tempfail = {a.lower() for a in tempfail}
        self.slow = slow
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, options):
        if address.lower() in self.refuse:
            return "550 5.1.1 refused"
        if address.lower() in self.tempfail:
            return "451 4.3.0 try later"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.slow > 0:
            await asyncio.sleep(self.slow)
        self.count += 1
        stem = os.path.join(self.folder, "%06d" % self.count)
        envelope_json = json.dumps(
            {"mail_from": envelope.mail_from, "rcpt_tos": envelope.rcpt_tos}
        ).encode()
        write_whole(stem + ".eml", envelope.original_content)
        write_whole(stem + ".json", envelope_json)
        return "250 OK"


def keep_logins(folder):
    def authenticate(server, session, envelope, mechanism, auth_data):
        with open(os.path.join(folder, "logins"), "ab") as f:
            f.write(auth_data.login + b" " + auth_data.password + b"\n")
        return AuthResult(success=True)

    return authenticate


def write_whole(path, data):
    temp = path + ".tmp"
    with open(temp, "wb") as f:
        f.write(data)
    os.rename(temp, path)


class AnyPortController(Controller):
    # Controller connects to its own port once started; with port 0 that
    # is the port the system chose.
    def _trigger_server(self):
        if self.port == 0:
            self.port = self.server.sockets[0].getsockname()[1]
        super()._trigger_server()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dir", required=True)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--refuse", action="append", default=[])
    parser.add_argument("--tempfail-rcpt", action="append", default=[])
    parser.add_argument("--slow", type=float, default=0)
    parser.add_argument("--auth", action="store_true")
    parser.add_argument("--max-seconds", type=float, default=900)
    args = parser.parse_args()
    os.makedirs(args.dir, exist_ok=True)

    stop = threading.Event()
    signal.signal(signal.SIGTERM, lambda *_: stop.set())
    signal.signal(signal.SIGINT, lambda *_: stop.set())
    if stat.S_ISFIFO(os.fstat(0).st_mode):

        # os.read, not sys.stdin: a buffered reader still blocked in its
        # thread at exit makes the interpreter abort.
        def watch_stdin():
            while os.read(0, 4096):
                pass
            stop.set()

        threading.Thread(target=watch_stdin, daemon=True).start()

    sink = Sink(args.dir, args.refuse, args.tempfail_rcpt, args.slow)
    auth = {}
    if args.auth:
        auth = {"authenticator": keep_logins(args.dir), "auth_require_tls": False}
    controller = AnyPortController(
        sink, hostname="127.0.0.1", port=args.port, enable_SMTPUTF8=True, **auth
    )
    controller.start()
    print("listening 127.0.0.1 %d" % controller.port, flush=True)
    deadline = time.monotonic() + args.max_seconds
    while not stop.is_set() and time.monotonic() < deadline:
        stop.wait(0.5)
    controller.stop()


if __name__ == "__main__":
    main()
