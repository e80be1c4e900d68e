"""nats-server nodes, PostgreSQL and zrcollectors as child processes on loopback."""

import contextlib
import json
import os
import pathlib
import pwd
import shutil
import signal
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request

from tortures.programs import ZRCOLLECTOR

started = time.monotonic()
# Requests to this machine bypass a proxy.
opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))


class Failure(Exception):
    """A part of the cluster does not do what it should, in one line."""


def say(text):
    print(f"{time.monotonic() - started:6.1f} s  {text}", file=sys.stderr, flush=True)


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for each in sockets:
            each.bind(("127.0.0.1", 0))
        return [each.getsockname()[1] for each in sockets]


def get(url, timeout=2.0):
    """The JSON behind the address, None if there is none (yet)."""
    try:
        with opener.open(url, timeout=timeout) as response:
            return json.loads(response.read())
    except (OSError, ValueError, urllib.error.URLError):
        return None


def until(what, asked, seconds=30):
    """What asked() returns once that is true."""
    ends = time.monotonic() + seconds
    while time.monotonic() < ends:
        found = asked()
        if found:
            return found
        time.sleep(0.1)
    raise Failure(f"{what} after {seconds} s")


class Part:
    """One process. Its output goes to NAME.log in the folder."""

    def __init__(self, folder, name, *command):
        self.name, self.command = name, command
        self.log = folder / f"{name.replace(' ', '-')}.log"
        self.process = None

    def start(self):
        with self.log.open("a") as log:
            self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            start_new_session=True)

    def end(self, how, patience=None):
        if self.process and self.process.poll() is None:
            self.process.send_signal(how)
            try:
                self.process.wait(patience)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def kill(self):
        self.end(signal.SIGKILL)


class Node(Part):
    """A nats-server with a stream store of its own."""

    def __init__(self, folder, number, ports, routes):
        self.client, self.route, self.monitor = ports
        name = f"node {number}"
        config = folder / f"node-{number}.conf"
        config.write_text(
            f'server_name: "node-{number}"\nlisten: 127.0.0.1:{self.client}\nhttp: 127.0.0.1:{self.monitor}\n'
            f'jetstream {{ store_dir: "{folder}/node-{number}" }}\n')
        if routes:
            urls = ", ".join(f'"nats://127.0.0.1:{route}"' for route in routes)
            with config.open("a") as text:
                text.write(f'cluster {{ name: demo, listen: 127.0.0.1:{self.route}, routes: [{urls}] }}\n')
        server = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
        if not server:
            raise Failure("nats-server is missing: run scripts/install-dependencies --all")
        super().__init__(folder, name, server, "--config", config)

    def leads(self):
        """Whether this node leads a stream."""
        state = get(f"http://127.0.0.1:{self.monitor}/jsz?streams=1") or {}
        details = [stream for account in state.get("account_details", []) for stream in
                   account.get("stream_detail", [])]
        return any(stream.get("cluster", {}).get("leader") == self.name.replace(" ", "-") for stream in details)

    def is_ready(self):
        """Whether the cluster has elected the leader that makes streams."""
        state = get(f"http://127.0.0.1:{self.monitor}/jsz")
        return state and (self.route is None or state.get("meta_cluster", {}).get("leader"))


class PostgreSQL(Part):
    def __init__(self, folder):
        found = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin/initdb"))
        if not found:
            raise Failure("PostgreSQL is missing: run scripts/install-dependencies --all")
        self.programs = found[-1].parent
        self.port, = free_ports(1)
        self.folder = folder / "postgresql"
        self.folder.mkdir(mode=0o700, exist_ok=True)
        self.prefix = []
        if os.geteuid() == 0:
            # It does not run as root.
            user = pwd.getpwnam("postgres")
            os.chmod(folder, 0o755)
            os.chown(self.folder, user.pw_uid, user.pw_gid)
            self.prefix = ["setpriv", f"--reuid={user.pw_uid}", f"--regid={user.pw_gid}", "--clear-groups"]
        self.url = f"postgresql://zr@127.0.0.1:{self.port}/postgres"
        super().__init__(folder, "postgresql", *self.prefix, self.programs / "postgres", "-D", self.folder / "data",
                         "-p", str(self.port), "-h", "127.0.0.1", "-k", self.folder)

    def start(self):
        if not (self.folder / "data").exists():
            self.run(*self.prefix, self.programs / "initdb", "-D", self.folder / "data", "-U", "zr", "-A", "trust",
                     "-E", "UTF8", "--no-sync", "--locale=C.UTF-8")
        super().start()
        until("PostgreSQL does not answer", lambda: subprocess.run(
            [self.programs / "pg_isready", "-q", "-h", "127.0.0.1", "-p", str(self.port)], check=False).returncode == 0)

    def run(self, *command):
        done = subprocess.run(command, cwd=self.folder, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{command[-1]}: {(done.stderr or done.stdout).strip()}")
        return done.stdout.splitlines()

    def query(self, statement):
        return self.run(self.programs / "psql", "-XAtq", self.url, "-c", statement)


class Collector(Part):
    """A zrcollector in any mode. It keeps its port when it starts again."""

    def __init__(self, folder, name, *options):
        self.port, = free_ports(1)
        self.url = f"http://127.0.0.1:{self.port}"
        super().__init__(folder, name, ZRCOLLECTOR, "--quiet", "--port", str(self.port), *options)

    def start(self):
        super().start()
        until(f"{self.name} is not ready", lambda: get(self.url + "/readyz") or self.process.poll())
        if self.process.poll() is not None:
            raise Failure(f"{self.name} ended: {self.log.read_text().strip()[-200:]}")


class Cluster:
    """Three nodes unless told otherwise, PostgreSQL, two collectors and two consumers."""

    def __init__(self, folder, nodes=3):
        ports = free_ports(3 * nodes)
        routes = ports[nodes:2 * nodes] if nodes > 1 else []
        self.nodes = [Node(folder, i + 1, (ports[i], routes[i] if routes else None, ports[2 * nodes + i]), routes)
                      for i in range(nodes)]
        self.stream = ",".join(f"nats://127.0.0.1:{node.client}" for node in self.nodes)
        self.database = PostgreSQL(folder)
        self.collectors = [Collector(folder, f"collector {i}", "--stream", self.stream) for i in (1, 2)]
        self.consumers = [Collector(folder, f"consumer {i}", "--from", self.stream, "--db", self.database.url)
                          for i in (1, 2)]

    def parts(self):
        return [*self.collectors, *self.consumers, self.database, *self.nodes]

    def start_nodes(self):
        for node in self.nodes:
            node.start()
        for node in self.nodes:
            until(f"{node.name} is not ready", node.is_ready)
        say(f"{len(self.nodes)} nats-server nodes run at {self.stream}")

    def start(self):
        self.start_nodes()
        self.database.start()
        say(f"PostgreSQL runs at {self.database.url}")
        for collector in [*self.collectors, *self.consumers]:
            collector.start()
        say(f"collectors at {' and '.join(each.url for each in self.collectors)}, "
            f"consumers at {' and '.join(each.url for each in self.consumers)}")

    def leader(self):
        """The index of the node that leads the stream."""
        return until("no node leads the stream", lambda: [i for i, node in enumerate(self.nodes) if node.leads()])[0]

    def query(self, statement):
        return self.database.query(statement)

    def ids(self):
        return " ".join(str(part.process.pid) for part in self.parts())

    def stop(self):
        for part in self.parts():
            # PostgreSQL ends its clients' connections at SIGINT.
            part.end(signal.SIGINT if part is self.database else signal.SIGTERM, 10)
