"""Kills a program with a journal right after a call of one of its eight threads; no event may be lost."""

import collections
import contextlib
import json
import random
import signal
import sqlite3
import struct
import subprocess
import sys

from . import programs

VICTIM = programs.BUILD / "Tests" / "Programs" / "JournalVictim"
THREADS = 8


def arrivals(database):
    """(round, thread, number), session and batch identifier of each stored event."""
    with contextlib.closing(sqlite3.connect(database)) as opened:
        rows = opened.execute(
            "SELECT e.raw, b.session_id, b.bid FROM events e JOIN batches b ON b.id = e.batch ORDER BY e.id").fetchall()
    for text, session, batch in rows:
        name = json.loads(text).get("EVENT_ATTRS", {}).get("n")
        if isinstance(name, str) and name.count("-") == 2:
            yield tuple(int(part) for part in name.split("-")), session, batch


def out_of_order(numbers_by_batch):
    """How many events of one thread stand before an earlier one, in a batch or in a batch that was saved before."""
    wrong = 0
    highest = {}  # of the batches of earlier milliseconds
    for _, group in sorted(numbers_by_batch.items()):
        for numbers in group:
            wrong += sum(second < first for first, second in zip(numbers, numbers[1:]))
            wrong += sum(number < max(highest.values(), default=0) for number in numbers)
        highest[len(highest)] = max(max(numbers) for numbers in group)
    return wrong


def run(rounds, seed):
    chance = random.Random(seed)
    returned, sessions = {}, {}
    kills, problems = 0, []
    with programs.workspace() as space:
        data, notes = space / "app", space / "notes"
        collector = programs.Collector(space / "collected.db")
        for at in range(rounds):
            notes.write_bytes(bytes(4096))
            # Some rounds have no service, so that batches wait in the file.
            url = programs.NOBODY if chance.random() < 0.2 else collector.url
            status = subprocess.run([VICTIM, data, url, notes, str(at), str(chance.randrange(1 << 30))], check=False,
                                    stderr=subprocess.PIPE).returncode
            if status != -signal.SIGKILL:
                problems.append(f"round {at}: status {status}")
                continue
            kills += 1
            noted = notes.read_bytes()
            sessions[at] = noted[:64].split(b"\0")[0].decode()
            for thread, number in enumerate(struct.unpack_from(f"<{THREADS}Q", noted, 64)):
                returned[at, thread] = number
            programs.progress(f"{at + 1} of {rounds} rounds, {sum(returned.values())} calls returned")
        programs.progress("")
        if not programs.launch_and_flush(data, collector.url, "--journal"):
            problems.append("the last flush was not accepted")
        collector.stop()
        counts = collections.Counter()
        strays = 0
        by_thread = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(list)))
        for (at, thread, number), session, batch in arrivals(space / "collected.db"):
            counts[at, thread, number] += 1
            strays += session != sessions.get(at)
            by_thread[at, thread][int(batch.split("-")[0])][batch].append(number)
    lost = [(*who, number) for who, last in returned.items() for number in range(1, last + 1)
            if (*who, number) not in counts]
    twice = sum(count > 1 for count in counts.values())
    disorder = sum(out_of_order({when: list(batches.values()) for when, batches in saved.items()})
                   for saved in by_thread.values())
    print(f"seed {seed}: {kills} kills in {rounds} launches, {THREADS} threads\n"
          f"  {sum(returned.values())} calls returned, {len(counts)} events arrived\n"
          f"  {len(lost)} lost, {twice} twice, {strays} under another session, {disorder} out of order\n"
          f"  {len(problems)} other problems")
    for text in problems[:10] + [f"lost: event {event}" for event in lost[:10]]:
        print(f"  {text}", file=sys.stderr)
    return not (lost or twice or strays or disorder or problems)
