"""What is measured: each measurement runs programs of the benchmarks in a new folder and returns numbers by name."""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

from .building import ROOT

SAMPLE = ROOT / "scripts" / "sample"


class Bench:
    """The built programs, the sizes of a full or a quick run, and a folder on the project's disk."""

    def __init__(self, folder, small, quick):
        self.benchmarks = folder / "Benchmarks"
        self.small = small
        self.events = 1000 if quick else 10_000
        self.short = 200 if quick else 2000
        self.long = 500 if quick else 10_000
        self.few = 10 if quick else 60
        self.backlog = 50 if quick else 1000
        self.large_backlog = 200 if quick else 10_000
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="bench-", dir=folder))

    def close(self):
        shutil.rmtree(self.work, ignore_errors=True)

    @contextlib.contextmanager
    def container(self, backlog=0, events=30):
        """A container of its own; with so many waiting batches of so many events if asked for."""
        path = self.work / "container"
        shutil.rmtree(path, ignore_errors=True)
        if backlog:
            model = self.work / f"backlog-{backlog}-{events}"
            if not model.exists():
                self.rows("backlog", model, batches=backlog, events=events)
            shutil.copytree(model, path)
            os.sync()  # or the program's first fsync would also wait for the write-back of the copy
        yield path

    def rows(self, what, folder, program=None, **values):
        command = [program or self.benchmarks / "zr_rows", what, folder]
        command += [f"{name}={value}" for name, value in values.items()]
        done = subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=300)
        return json.loads(done.stdout) if done.stdout else {}

    @contextlib.contextmanager
    def sink(self, counts):
        """Yields its address; then `counts` holds what it counted."""
        with subprocess.Popen([self.benchmarks / "zr_rows", "sink"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as process:
            yield f"http://127.0.0.1:{json.loads(process.stdout.readline())['port']}"
            process.stdin.close()
            counts.update(json.loads(process.stdout.readline()))

    # --- measurements

    def track(self, **values):
        with self.container() as folder:
            return self.rows("track", folder, **{"events": self.events, **values})

    def burst(self):
        return self.track()

    def burst_small(self):
        return self.track(program=self.small / "Benchmarks" / "zr_rows")

    def journal(self):
        """Without a journal, with one and with SQLite, one after the other."""
        off, on = self.track(), self.track(journal_kb=16 << 10)
        with self.container() as folder:
            database = self.rows("sqlite", folder, events=self.short)
        return {"times_off": on["p50_us"] / off["p50_us"], "p99_us": on["p99_us"],
                "memory_kb": on["memory_kb"] - off["memory_kb"], "sqlite_us": database["p50_us"]}

    def paced(self):
        return self.track(events=self.short, pause_us=1000)

    def paced_sent(self):
        return self.track(events=self.short, pause_us=1000, online=1)

    def paced_long(self):
        return self.track(events=self.long, pause_us=1000)

    def alone(self):
        return self.track(events=self.few, pause_us=50_000)

    def pace(self):
        return self.rows("pace", self.work, events=self.short)

    def deliver(self):
        counts = {}
        with self.container() as folder, self.sink(counts) as url:
            result = self.rows("deliver", folder, url=url, events=self.events)
        if counts["events"] != self.events:
            raise RuntimeError(f"{counts['events']} of {self.events} events arrived")
        return result | {"wire": counts["bytes"] / self.events, "repeated": counts["repeated"]}

    def refuse(self):
        with self.container(self.backlog) as folder:
            return self.rows("refuse", folder)

    def start(self):
        with self.container() as folder:
            times = [self.rows("start", folder, ahead=seconds)["ms"] for seconds in (0, 3600, 3610)]
        return dict(zip(("first", "session", "second"), times))

    def saves(self, backlog, saves):
        """The second of two runs: a virtual machine takes back memory left unused, and first touching it is slow."""
        for _ in range(2):
            with self.container(backlog) as folder:
                result = self.rows("save", folder, saves=saves)
        return result

    def save(self):
        return self.saves(self.backlog, 20)

    def save_first(self):
        result = self.saves(self.large_backlog, 1)
        return result | {"first_net_ms": result["first_ms"] - result["first_limit_ms"]}

    def shopping_day(self):
        """The two launches of scripts/demo."""
        counts, syncs = {}, 0
        counter = self.work / "syncs"
        with self.container() as folder, self.sink(counts) as url:
            for name, clock in (("1-first-visit", "2026-11-21T10:00:00.000Z"),
                                ("2-next-day", "2026-11-22T08:30:00.000Z")):
                subprocess.run([self.benchmarks / "zrhost_counted", "--data", folder, "--endpoint", url,
                                "--app-id", "DEMO", "--clock", clock, SAMPLE / f"{name}.jsonl"],
                               env={**os.environ, "ZR_SYNCS": str(counter)}, stdout=subprocess.DEVNULL, check=True)
                syncs += int(counter.read_text())
        return {"syncs": syncs / counts["events"]}

    def size(self):
        """The column "text" of size for the stripped minimal program, in thousands of bytes."""
        stripped = self.work / "minimal"
        subprocess.run(["strip", "-o", stripped, self.small / "Examples" / "minimal"], check=True)
        printed = subprocess.run(["size", stripped], stdout=subprocess.PIPE, text=True, check=True).stdout
        return {"text": int(printed.splitlines()[1].split()[0]) / 1000}

    def disk(self):
        """Milliseconds to write and sync a small file on this disk."""
        path = self.work / "synced"
        times = []
        for _ in range(20):
            begun = time.monotonic()
            with open(path, "wb") as file:
                file.write(b"x" * 4096)
                file.flush()
                os.fsync(file.fileno())
            times.append((time.monotonic() - begun) * 1e3)
        return {"ms": sorted(times)[len(times) // 2]}

    # --- growth: numbers for each value of one quantity

    def waiting(self, batches):
        return self.saves(batches, 4)

    def threads(self, threads):
        return self.track(threads=threads)

    def attributes(self, attributes):
        return self.track(events=self.events // 5, attributes=attributes)

    def batch_size(self, batch):
        return self.track(events=1000, batch=batch)
