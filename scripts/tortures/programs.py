"""zrhost and zrcollector as child processes, and the collector's events."""

import contextlib
import json
import os
import pathlib
import plistlib
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "release"
ZRHOST = BUILD / "Host" / "zrhost"
ZRCOLLECTOR = BUILD / "Collector" / "zrcollector"
NOBODY = "http://127.0.0.1:9"  # the discard port; nothing listens there


@contextlib.contextmanager
def workspace():
    path = pathlib.Path(tempfile.mkdtemp(prefix="zorvane-torture."))
    try:
        yield path
    finally:
        shutil.rmtree(path, ignore_errors=True)


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def lines(*actions):
    return "".join(json.dumps(action) + "\n" for action in actions)


class Collector:
    """A zrcollector whose database remains after it ends."""

    def __init__(self, database):
        self.database = database
        self.start()

    def start(self):
        self.process = subprocess.Popen([ZRCOLLECTOR, "--db", self.database, "--quiet"], stdout=subprocess.PIPE)
        self.url = json.loads(self.process.stdout.readline())["listening"]

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        self.process.wait()
        self.process.stdout.close()

    def events(self):
        """(number, session) of each stored event that has a number."""
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            rows = database.execute(
                "SELECT e.raw, b.session_id FROM events e JOIN batches b ON b.id = e.batch").fetchall()
        attributes = ((json.loads(text).get("EVENT_ATTRS", {}), session) for text, session in rows)
        return [(held["n"], session) for held, session in attributes if "n" in held]


def start_host(data, url, *options, **popen):
    return subprocess.Popen([ZRHOST, "--data", data, "--endpoint", url, *options], text=True,
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, **popen)


def launch_and_flush(data, url, *options):
    """Launches without a kill; returns whether the flush was accepted."""
    script = lines({"do": "launch"}, {"do": "flush"}, {"do": "flush"})
    played = subprocess.run([ZRHOST, "--data", data, "--endpoint", url, *options], text=True, input=script,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    answers = [json.loads(line) for line in played.stdout.splitlines()]
    flushes = [answer["success"] for answer in answers if answer.get("completion") == "flush"]
    return played.returncode == 0 and flushes[-1:] == [True]


def unreadable_files(data):
    """The files of a container that are not property lists, and the temporary files of killed writers."""
    damaged, leftovers = [], []
    for path in pathlib.Path(data).rglob("*"):
        if path.name.startswith(".zrv-"):
            leftovers.append(path)
        elif path.is_file():
            try:
                plistlib.loads(path.read_bytes())
            except Exception as error:  # any error means that the file is damaged
                damaged.append(f"{path.name}: {error}")
    return damaged, leftovers


def peak_memory(process):
    """In megabytes."""
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("VmHWM:"):
            return int(line.split()[1]) / 1024
    return 0.0


def tcp_sockets(process):
    inodes = set()
    for table in ("tcp", "tcp6"):
        with contextlib.suppress(OSError):
            rows = pathlib.Path(f"/proc/{process.pid}/net/{table}").read_text().splitlines()[1:]
            inodes |= {row.split()[9] for row in rows}
    count = 0
    with contextlib.suppress(OSError):
        for descriptor in os.scandir(f"/proc/{process.pid}/fd"):
            with contextlib.suppress(OSError):
                target = os.readlink(descriptor.path)
                count += target.startswith("socket:[") and target[8:-1] in inodes
    return count
