"""A long time without a service: every batch is saved, memory use stays bounded, one flush delivers everything."""

import json
import os
import subprocess
import threading
import time

from . import programs

BATCH = 30
MEASURED = 100  # batches
MEGABYTES = 64
CONNECTIONS = 6
# A save may take this many times as long as writing, syncing and renaming the same bytes.
RATIO = 2.0
# With fewer events the saves are so small that other load decides; the ratio is then only printed.
JUDGED_EVENTS = 50_000
CONFIGURATION = {"event_batch_count": 1_000_000_000, "periodic_flush_enabled": False}


def batch_script(first, count):
    events = [{"do": "track", "event": "Viewed product", "async": True,
               "attributes": {"n": n, "sku": f"SKU-{n % 977}", "price": n * 0.25, "in stock": n % 3 == 0,
                              "category": f"shelf {n % 31}", "campaign": "autumn"}}
              for n in range(first, first + count)]
    return programs.lines(*events, {"do": "settle"}, {"do": "save"})


def done(host):
    while True:
        line = host.stdout.readline()
        if not line:
            raise RuntimeError("zrhost ended")
        answer = json.loads(line)
        if answer.get("do") == "save":
            return


def write_as_often(path, sizes):
    """The seconds that writing and syncing files of these sizes takes."""
    content = os.urandom(max(sizes))
    directory = os.open(path.parent, os.O_RDONLY)
    start = time.monotonic()
    for size in sizes:
        with open(path.with_name("new"), "wb") as file:
            file.write(content[:size])
            file.flush()
            os.fsync(file.fileno())
        os.rename(path.with_name("new"), path)
        os.fsync(directory)
    seconds = time.monotonic() - start
    os.close(directory)
    return seconds


def save_all(events, data, options):
    """Peak memory, seconds of the last saves, and the file sizes after them."""
    file = data / "Documents" / "ZorvaneBatchEvents.plist"
    host = programs.start_host(data, programs.NOBODY, *options)
    host.stdin.write(programs.lines({"do": "launch"}))
    starts = list(range(0, events, BATCH))
    sizes, seconds = [], 0.0
    for at, first in enumerate(starts):
        script = batch_script(first, min(BATCH, events - first))
        begun = time.monotonic()
        host.stdin.write(script)
        host.stdin.flush()
        done(host)
        if at >= len(starts) - MEASURED:
            seconds += time.monotonic() - begun
            sizes.append(file.stat().st_size)
        programs.progress(f"{at + 1} of {len(starts)} batches saved")
    programs.progress("")
    memory = programs.peak_memory(host)
    host.stdin.close()
    host.stdout.read()
    host.wait()
    return memory, seconds, sizes


def flush(data, url, options):
    """Whether everything was accepted, peak memory, the maximum of connections, seconds."""
    host = programs.start_host(data, url, *options, stderr=subprocess.DEVNULL)
    seen = {"memory": 0.0, "sockets": 0}
    ended = threading.Event()

    def watch():
        while not ended.wait(0.005):
            seen["sockets"] = max(seen["sockets"], programs.tcp_sockets(host))

    watcher = threading.Thread(target=watch)
    watcher.start()
    begun = time.monotonic()
    host.stdin.write(programs.lines({"do": "launch"}, {"do": "flush"}))
    host.stdin.flush()
    answers = []
    while not answers or answers[-1].get("do") != "flush":
        answers.append(json.loads(host.stdout.readline()))
    seconds = time.monotonic() - begun
    seen["memory"] = programs.peak_memory(host)
    ended.set()
    watcher.join()
    host.stdin.close()
    host.stdout.read()
    host.wait()
    good = any(answer.get("completion") == "flush" and answer["success"] for answer in answers)
    return good, seen["memory"], seen["sockets"], seconds


def run(events):
    with programs.workspace() as space:
        data = space / "app"
        (space / "config.json").write_text(json.dumps(CONFIGURATION))
        options = ("--config", space / "config.json")
        saving_memory, saving, sizes = save_all(events, data, options)
        writing = write_as_often(space / "reference", sizes)
        refused = flush(data, programs.NOBODY, options)
        collector = programs.Collector(space / "collected.db")
        accepted, memory, sockets, seconds = flush(data, collector.url, options)
        collector.stop()
        numbers = [n for n, _ in collector.events()]
    missing = events - len(set(numbers))
    ratio = saving / writing
    checks = {
        f"{events} events: {missing} lost, {len(numbers) - len(set(numbers))} duplicated":
            not missing and len(numbers) == events,
        f"the service unreachable: a flush fails after {refused[3]:.1f} s": not refused[0],
        f"the service back: all of it in one flush of {seconds:.1f} s": accepted,
        f"peak memory: {saving_memory:.0f} MB saving, {refused[1]:.0f} MB refused, {memory:.0f} MB sending":
            max(saving_memory, refused[1], memory) < MEGABYTES,
        f"connections at a time: {sockets}": sockets <= CONNECTIONS,
        f"the last {len(sizes)} saves, of {sizes[-1] / 1e6:.1f} MB each: {ratio:.2f} times writing those bytes":
            events < JUDGED_EVENTS or ratio < RATIO,
    }
    for text, good in checks.items():
        print(f"{'ok  ' if good else 'BAD '} {text}")
    return all(checks.values())
