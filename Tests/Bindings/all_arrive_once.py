#!/usr/bin/env python3
"""usage: all_arrive_once.py ZRCOLLECTOR PROGRAM ...

Runs the program with the address of a new zrcollector and a folder. It must track 100,000 events "Counted", whose
attribute "n" counts from 0, and print "ok"."""

import collections
import contextlib
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile

with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
    database = pathlib.Path(folder) / "collected.db"
    with subprocess.Popen([sys.argv[1], "--db", database, "--quiet"], stdout=subprocess.PIPE, text=True) as collector:
        try:
            url = json.loads(collector.stdout.readline())["listening"]
            ended = subprocess.run([*sys.argv[2:], url, folder], stdout=subprocess.PIPE, text=True,
                                   env={**os.environ, "no_proxy": "127.0.0.1"})
        finally:
            collector.terminate()
    with contextlib.closing(sqlite3.connect(database)) as collected:
        arrived = collections.Counter(number for number, in collected.execute(
            "SELECT json_extract(raw, '$.EVENT_ATTRS.n') FROM events WHERE name = 'Counted'"))

if ended.returncode != 0 or ended.stdout != "ok\n":
    sys.exit(f"the program ended with {ended.returncode} and printed: {ended.stdout}")
if arrived != {number: 1 for number in range(100_000)}:
    sys.exit(f"{len(arrived)} events arrived, {sum(arrived.values())} in all")
