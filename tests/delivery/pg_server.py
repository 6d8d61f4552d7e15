"""A throw-away PostgreSQL server for the Python tests: initdb into a
temporary folder, listening only on a Unix socket there, restarted on demand,
stopped and removed by the test's clean-up. As root it runs as the postgres
system user (initdb refuses root), so its folder belongs to that user.
"""

import glob
import os
import pwd
import shutil
import subprocess
import tempfile


def server_bin():
    """The newest PostgreSQL server's bin folder, or None."""
    found = [
        b
        for b in glob.glob("/usr/lib/postgresql/*/bin")
        if os.access(os.path.join(b, "pg_ctl"), os.X_OK)
        and os.access(os.path.join(b, "initdb"), os.X_OK)
    ]
    return max(found, key=lambda b: int(b.split("/")[-2])) if found else None


class PostgresServer:
    def __init__(self, test):
        self.bin = server_bin()
        if not self.bin:
            test.skipTest("no PostgreSQL server under /usr/lib/postgresql/*/bin")
        self.prefix = []
        user = None
        if os.geteuid() == 0:
            try:
                user = pwd.getpwnam("postgres")
            except KeyError:
                test.skipTest("running as root, and there is no postgres user")
            self.prefix = ["/usr/sbin/runuser", "-u", "postgres", "--"]
        self.dir = tempfile.mkdtemp(prefix="fwpg-")
        test.addCleanup(self.remove)
        if user:
            os.chown(self.dir, user.pw_uid, user.pw_gid)
        self.data = os.path.join(self.dir, "data")
        self.run(
            "initdb", "-D", self.data, "-U", "postgres", "-A", "trust",
            "-E", "UTF8", "--no-sync", "--no-instructions",
        )
        self.start()

    def conninfo(self, database="postgres"):
        return "host=%s port=5432 user=postgres dbname=%s" % (self.dir, database)

    def run(self, program, *args, timeout=60):
        argv = self.prefix + [os.path.join(self.bin, program)] + list(args)
        with open(os.path.join(self.dir, "run.log"), "ab") as log:
            subprocess.run(argv, stdout=log, stderr=log, timeout=timeout, check=True)

    def pg_ctl(self, *args):
        self.run("pg_ctl", "-D", self.data, "-w", "-t", "30", *args, timeout=90)

    def start(self):
        options = "-c listen_addresses='' -k %s -c fsync=off -c max_connections=60"
        self.pg_ctl("-l", os.path.join(self.dir, "log"), "-o", options % self.dir, "start")

    def restart(self, mode):
        """`mode` is "fast" (clients are told) or "immediate" (as a crash:
        recovery from the write-ahead log at the next start)."""
        self.pg_ctl("-m", mode, "-l", os.path.join(self.dir, "log"), "restart")

    def remove(self):
        try:
            if os.path.exists(os.path.join(self.data, "postmaster.pid")):
                self.pg_ctl("-m", "immediate", "stop")
        finally:
            shutil.rmtree(self.dir, ignore_errors=True)
