"""The long form of the disk tests, and zrhost on a disk that is full for a while."""

import json
import os
import resource
import signal
import subprocess
import threading
import time

from . import programs

EVENTS = 20_000
LIMIT = 4096  # bytes a file may have while the disk is full
CONFIGURATION = {"periodic_flush_enabled": False}


def fill_the_disk():
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (LIMIT, resource.RLIM_INFINITY))


def full_disk():
    with programs.workspace() as space:
        data = space / "app"
        (space / "config.json").write_text(json.dumps(CONFIGURATION))
        # The trace goes to a pipe, which has no size.
        reading, writing = os.pipe()
        host = programs.start_host(data, programs.NOBODY, "--config", space / "config.json", "--trace",
                                   f"/dev/fd/{writing}", "--quiet", preexec_fn=fill_the_disk, pass_fds=(writing,))
        os.close(writing)
        logged = []

        def follow():
            with open(reading, encoding="utf-8") as trace:
                logged.extend(line for line in trace if "File too large" in line)

        follower = threading.Thread(target=follow)
        follower.start()
        events = [{"do": "track", "event": "Viewed", "attributes": {"n": n}, "async": True} for n in range(EVENTS)]
        begun = time.monotonic()
        host.stdin.write(programs.lines({"do": "launch"}, *events, {"do": "settle"},
                                        {"do": "print", "what": "config"}))
        host.stdin.flush()
        host.stdout.readline()
        seconds = time.monotonic() - begun
        resource.prlimit(host.pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        host.stdin.write(programs.lines({"do": "save"}))
        host.stdin.close()
        host.wait()
        follower.join()
        collector = programs.Collector(space / "collected.db")
        accepted = programs.launch_and_flush(data, collector.url)
        collector.stop()
        arrived = len({n for n, _ in collector.events()})
    batch_lines = sum("Batch Events" in line for line in logged)
    print(f"full disk: {EVENTS} events in {seconds:.1f} s, {arrived} arrived after it, "
          f"{batch_lines} line(s) in the log about the batch file, {len(logged)} about any")
    return accepted and arrived == EVENTS and 0 < batch_lines <= 2 and len(logged) <= 10


def full_trace():
    with programs.workspace() as space:
        played = subprocess.run([programs.ZRHOST, "--data", space / "app", "--endpoint", programs.NOBODY, "--trace",
                                 "/dev/full"], text=True, input=programs.lines({"do": "launch"}),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    print(f"--trace /dev/full: status {played.returncode}, \"{played.stderr.splitlines()[0]}\"")
    return played.returncode == 1


def run():
    in_memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    environment = dict(os.environ, ZR_TORTURE_LONG="1", **({"TMPDIR": in_memory} if in_memory else {}))
    tests = subprocess.run([programs.BUILD / "Tests" / "ReliabilityTests", "--gtest_filter=DiskTest.*",
                            "--gtest_brief=1"], env=environment,
                           check=False)
    return all([tests.returncode == 0, full_disk(), full_trace()])
