"""A headless Chromium, driven over the WebDriver protocol with the standard library alone."""

import base64
import json
import os
import shutil
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--hide-scrollbars"]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"Enter": "\ue007", "Escape": "\ue00c"}
# Only against a test that hangs: a busy machine with sanitizers is slow.
PATIENCE = int(os.environ.get("ZR_PATIENCE", "120"))


def missing():
    """The name of a program that is not installed; None if all are."""
    return next((name for name in ("chromium", "chromedriver") if not shutil.which(name)), None)


class Browser:
    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="zrcollector-browser-")
        environment = {**os.environ, "HOME": self.profile, "no_proxy": "127.0.0.1,localhost"}
        self.base = self.start(environment)
        options = {"args": OPTIONS + ["--user-data-dir=" + self.profile + "/profile"]}
        wanted = {"alwaysMatch": {"browserName": "chrome", "goog:chromeOptions": options}}
        self.base += "/session/" + self.call("POST", "/session", {"capabilities": wanted})["sessionId"]

    def start(self, environment):
        """Starts a driver and returns its address. A driver ends when the port that it found is taken meanwhile."""
        for _ in range(10):
            self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                           stderr=subprocess.DEVNULL, text=True, env=environment)
            for line in self.driver.stdout:
                if "started successfully on port" in line:
                    return "http://127.0.0.1:" + line.split()[-1].rstrip(".")
            self.driver.wait()
            self.driver.stdout.close()
        raise RuntimeError("chromedriver does not start")

    def close(self):
        try:
            self.call("DELETE", "")
        finally:
            self.driver.terminate()
            self.driver.wait()
            self.driver.stdout.close()
            shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=PATIENCE) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def devtools(self, command, **parameters):
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def open(self, url):
        self.call("POST", "/url", {"url": url})

    def run(self, script, *arguments):
        """What the function body returns."""
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def until(self, script, *arguments):
        """Waits until the function body returns something true, and returns it."""
        end = time.monotonic() + PATIENCE
        while not (value := self.run(script, *arguments)):
            if time.monotonic() > end:
                raise AssertionError("never true: " + script)
            time.sleep(0.02)
        return value

    def click(self, selector):
        element = self.call("POST", "/element", {"using": "css selector", "value": selector})
        self.call("POST", f"/element/{element[ELEMENT]}/click", {})

    def press(self, *keys):
        actions = [{"type": kind, "value": KEYS.get(key, key)} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def window(self, width, height, dark=False):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                      mobile=False)
        self.devtools("Emulation.setEmulatedMedia",
                      features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("GET", "/screenshot")))
