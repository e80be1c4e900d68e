"""Kills zrhost at random times; no saved event may be lost."""

import datetime
import json
import random
import signal
import sys
import threading
import time

from . import programs
from .proxy import BadNetwork

START = datetime.datetime(2026, 11, 21, 10, 0, 0)
SAVING = ("save", "flush", "background", "terminate")
CHANGING = ("sources", "background", "terminate")
CONFIGURATION = {"event_batch_count": 10, "app_group_id": "group.torture", "instant_flush_events": ["Instant"]}


class Round:
    """One launch: its script, and which of its events are known to be saved when it is killed."""

    def __init__(self, chance, first_number):
        self.actions = [{"do": "launch"}, {"do": "print", "what": "session"}]
        self.numbers = {}  # the event's number by line
        number = first_number
        for _ in range(chance.randint(5, 60)):
            kind = chance.random()
            if kind < 0.70:
                event = {"do": "track", "event": chance.choice(("Viewed", "Bought", "Searched", "Instant")),
                         "attributes": {"n": number, "text": "x" * chance.randint(0, 300)}}
                if chance.random() < 0.5:
                    event["async"] = True
                self.numbers[len(self.actions) + 1] = number
                number += 1
                self.actions.append(event)
            elif kind < 0.78:
                self.actions.append({"do": "save"})
            elif kind < 0.86:
                self.actions.append({"do": "flush", "async": chance.random() < 0.5})
            elif kind < 0.90:
                self.actions.append({"do": "attribute", "key": f"a{chance.randint(1, 5)}", "value": number})
            elif kind < 0.93:
                self.actions += [{"do": "sources", "sources": [{"source": f"s{number}", "medium": "mail"}]},
                                 {"do": "print", "what": "session"}]
            elif kind < 0.95:
                self.actions.append({"do": "optOut", "what": "idfa", "value": chance.random() < 0.5})
            elif kind < 0.98:
                self.actions += [{"do": "background"}, {"do": "foreground"}, {"do": "active"},
                                 {"do": "print", "what": "session"}]
            else:
                self.actions.append({"do": "print", "what": "batches"})
        self.actions.append({"do": "terminate"})
        self.next_number = number
        self.done = 0
        self.sessions = {}  # the session by line of the print
        self.saved = set()

    def heard(self, line):
        answer = json.loads(line)
        number = answer.get("done") or answer.get("line")
        if "done" in answer:
            self.done = number
            self._take_done(number)
        elif "value" in answer and self.actions[number - 1]["what"] == "session":
            self.sessions[number] = (answer["value"] or {}).get("session_id")
        elif "value" in answer:
            for batch in (answer["value"] or {}).values():
                for event in batch["events"]:
                    numbers = (event.get("EVENT_ATTRS") or {}).get("n")
                    if numbers in self.numbers.values():
                        self.saved.add(numbers)

    def _take_done(self, line):
        """A completed action that saves has saved all events that were recorded before it."""
        action = self.actions[line - 1]
        if action["do"] not in SAVING or action.get("async"):
            return
        at_rest = line - 1
        while at_rest and self.actions[at_rest - 1].get("async"):
            at_rest -= 1
        self.saved |= {number for at, number in self.numbers.items() if at <= at_rest}

    def session_of(self, line):
        """The session of the event on that line; None if unknown, or if it changes before the event is recorded."""
        at_rest = line
        while at_rest < len(self.actions) and self.actions[at_rest - 1].get("async"):
            at_rest += 1
        if at_rest != line and self.actions[at_rest - 1]["do"] in CHANGING:
            return None
        before = [at for at in self.sessions if at < line]
        return self.sessions[max(before)] if before else None


def play(this, chance, data, url, clock, errors):
    host = programs.start_host(data, url, "--clock", clock, "--config", data.parent / "config.json", stderr=errors)
    target = chance.randint(0, len(this.actions))
    pause = chance.random() * chance.choice((0.0005, 0.004, 0.02))
    reached = threading.Event()

    def listen():
        for line in host.stdout:
            if line.endswith("\n"):
                this.heard(line)
            if this.done >= target:
                reached.set()
        reached.set()

    listener = threading.Thread(target=listen)
    listener.start()
    try:
        host.stdin.write(programs.lines(*this.actions))
        host.stdin.flush()
    except BrokenPipeError:
        pass
    if target:
        reached.wait()
    time.sleep(pause)
    killed = host.poll() is None
    host.send_signal(signal.SIGKILL)
    host.wait()
    listener.join()
    try:
        host.stdin.close()
    except BrokenPipeError:
        pass
    host.stdout.close()
    return killed


def run(rounds, seed):
    chance = random.Random(seed)
    network = BadNetwork(seed)
    expected = {}  # session by number
    saved, problems = set(), []
    kills = collector_kills = leftovers_seen = number = 0
    now = START
    with programs.workspace() as space:
        data = space / "app"
        (space / "config.json").write_text(json.dumps(CONFIGURATION))
        collector = programs.Collector(space / "collected.db")
        network.target = collector.url
        with open(space / "errors", "w", encoding="utf-8") as errors:
            for at in range(rounds):
                this = Round(chance, number)
                now += datetime.timedelta(minutes=chance.choice((1, 5, 29, 31, 90)))
                kills += play(this, chance, data, network.url, now.isoformat(timespec="milliseconds") + "Z", errors)
                number = this.next_number
                saved |= this.saved
                expected.update({n: this.session_of(line) for line, n in this.numbers.items()})
                damaged, leftovers = programs.unreadable_files(data)
                problems += [f"round {at}: {text}" for text in damaged]
                leftovers_seen += len(leftovers)
                if chance.random() < 0.05:
                    collector.stop(signal.SIGKILL)
                    collector.start()
                    network.target = collector.url
                    collector_kills += 1
                programs.progress(f"{at + 1} of {rounds} rounds, {len(saved)} events saved")
        programs.progress("")
        network.honest = True
        clock = (now + datetime.timedelta(minutes=1)).isoformat(timespec="milliseconds") + "Z"
        if not programs.launch_and_flush(data, network.url, "--clock", clock, "--config", space / "config.json"):
            problems.append("the last flush was not accepted")
        left = programs.unreadable_files(data)[1]
        collector.stop()
        held = collector.events()
    arrived = {n for n, _ in held}
    lost = saved - arrived
    duplicated = len(held) - len(arrived)
    strays = [n for n, session in held if expected.get(n) and session != expected[n]]
    problems += [f"{path.name} was left behind" for path in left if path.parent.name == "Documents"]
    print(f"seed {seed}: {kills} kills of zrhost in {rounds} launches, {collector_kills} of the collector\n"
          f"  {number} events, {len(saved)} known to be saved, {len(arrived)} arrived\n"
          f"  {len(lost)} lost, {duplicated} duplicated, {len(strays)} under another session\n"
          f"  {len(problems)} unreadable files or other problems, {leftovers_seen} temporary files seen after kills\n"
          f"  network: {', '.join(f'{count} {kind}' for kind, count in sorted(network.counts.items()))}")
    for text in problems[:10] + [f"lost: event {n}" for n in sorted(lost)[:10]]:
        print(f"  {text}", file=sys.stderr)
    return not (lost or duplicated or strays or problems)
