"""The collector's page in a real browser: page_tests.py ZRCOLLECTOR CASE. Exit status 77: there is no browser."""

import contextlib
import hashlib
import http.client
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from browser import Browser, missing

PROGRAM = sys.argv[1]
NAMES = "return [...document.querySelectorAll('.events tbody tr .name')].map(each => each.textContent)"
LIVE = "return document.getElementById('live').dataset.state === arguments[0]"
# Names of visible elements that overlap or stick out of the window, and of texts that are hard to read.
FAULTS = """
const shown = [...document.querySelectorAll('.top *, .strip a, .filters > *, main td, main th, main h2, #detail *')]
  .filter(each => !each.children.length && each.checkVisibility() && each.getClientRects().length &&
          !each.closest('.unseen, select, svg, pre, thead'));
const faults = [];
const scrolls = each => { for (let at = each.parentElement; at; at = at.parentElement) {
  if (['auto', 'scroll'].includes(getComputedStyle(at).overflowX) && at.scrollWidth > at.clientWidth) return true; } };
const name = each => each.tagName + ' ' + (each.textContent || each.id);
const light = colour => {
  const [r, g, b] = colour.match(/[\\d.]+/g).slice(0, 3)
    .map(value => value / 255).map(value => value <= .03928 ? value / 12.92 : ((value + .055) / 1.055) ** 2.4);
  return .2126 * r + .7152 * g + .0722 * b;
};
const behind = each => {
  const colour = getComputedStyle(each).backgroundColor;
  return colour !== 'rgba(0, 0, 0, 0)' || !each.parentElement ? colour : behind(each.parentElement);
};
if (document.documentElement.scrollWidth > innerWidth) faults.push('the page is wider than the window');
const boxes = shown.map(each => [each, each.getBoundingClientRect()]);
const top = boxes.filter(([each]) => each.closest('.top, .filters'));
for (const [each, box] of boxes) {
  const mayScroll = !each.closest('.top, .strip') && scrolls(each);
  if (box.right > innerWidth + 1 && !mayScroll) faults.push(name(each) + ' sticks out');
  if (!each.textContent.trim() || each.closest('.dot')) continue;
  const [a, b] = [light(getComputedStyle(each).color), light(behind(each))];
  if ((Math.max(a, b) + .05) / (Math.min(a, b) + .05) < 4.5) faults.push(name(each) + ' is hard to read');
}
for (const [a, one] of top) for (const [b, other] of top) {
  if (a === b || a.closest('nav') || b.closest('nav')) continue;
  if (one.left < other.right - 1 && other.left < one.right - 1 &&
      one.top < other.bottom - 1 && other.top < one.bottom - 1) faults.push(name(a) + ' overlaps ' + name(b));
}
for (const label of document.querySelectorAll('main svg text')) {
  const [box, chart] = [label.getBoundingClientRect(), label.ownerSVGElement.getBoundingClientRect()];
  if (box.height < 11) faults.push(name(label) + ' is too small');
  if (box.left < chart.left - 1 || box.right > chart.right + 1) faults.push(name(label) + ' is cut off');
}
return [...new Set(faults)];
"""


def event(name, time="2026-11-21T10:00:00.000Z", **more):
    return {"EVENT_ACTION": name, "EVENT_G_TIME": time, **more}


def attribute(time, **values):
    return event("EVENT_ACTION_USER_ATTRIBUTE", time, EVENT_ATTRS=values)


class Page(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="zrcollector-page-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.collector = None
        self.start(0)
        self.addCleanup(self.stop)
        self.browser = Browser()
        self.addCleanup(self.browser.close)
        self.bid = 0

    def start(self, port):
        self.collector = subprocess.Popen([PROGRAM, "--quiet", "--port", str(port), "--db", self.folder + "/db"],
                                          stdout=subprocess.PIPE)
        self.url = json.loads(self.collector.stdout.readline())["listening"]
        self.port = int(self.url.rsplit(":", 1)[1])

    def stop(self):
        self.collector.terminate()
        self.collector.wait()
        self.collector.stdout.close()

    def post(self, *events, user=None, session="S1", device="D1", signature=None):
        self.bid += 1
        bid, time = f"b{self.bid}", "2026-11-21T10:05:00.000Z"
        body = {"viewsCount": len(events), "viewsInfo": events, "query_params": {"unique_id": device},
                "meta": {"bid": bid, "request_time": time, "session": {"session_id": session, "start_time": time},
                         "source": [{"source": "mail", "medium": "letter"}]}}
        if user:
            body["identifiers"] = {"zrv_user_id": user}
        signature = signature or hashlib.sha1((bid + time + device).encode()).hexdigest().upper()
        with contextlib.closing(http.client.HTTPConnection("127.0.0.1", self.port)) as connection:
            connection.request("POST", "/v1/report/DEMO", json.dumps(body), {"ZRV-REQUEST-ID": signature})
            return connection.getresponse().status

    def open(self, path="/"):
        self.browser.open(self.url + path)
        self.browser.until(LIVE, "live")

    def shows(self, *names):
        self.browser.until(f"return JSON.stringify((() => {{{NAMES}}})()) === arguments[0]",
                           json.dumps(names, separators=(",", ":")))

    def text(self, selector):
        return self.browser.until("return document.querySelector(arguments[0])?.innerText", selector)

    def finds(self, selector, *texts):
        for text in texts:
            self.browser.until("return document.querySelector(arguments[0])?.innerText.includes(arguments[1])",
                               selector, text)

    def test_events_arrive_without_redrawing_what_is_there(self):
        self.open()
        self.finds(".empty", f"--endpoint {self.url}", f"curl {self.url}/v1/report/DEMO")
        markup = "<img src=x onerror='document.title=1'>"
        self.post(event("First"), event(markup, EVENT_ATTRS={"<b>": "<script>"}))
        self.shows(markup, "First")
        self.assertEqual(self.browser.run("return document.querySelectorAll('main img, main b').length"), 0)
        self.browser.run("const cell = document.querySelector('.events tr:last-child .name a'); window.kept = cell;"
                         "getSelection().selectAllChildren(cell)")
        self.post(event("Second"))
        self.finds(".news", "1 new row")
        self.assertEqual(self.browser.run("return getSelection().toString()"), "First")
        self.browser.run("getSelection().empty()")
        self.shows("Second", markup, "First")
        self.assertTrue(self.browser.run("return window.kept.isConnected"))

    def test_filters_stand_in_the_address_and_back_works(self):
        self.post(event("Bought", EVENT_ATTRS={"sku": "A-77"}), event("INSTALL"), user="ada")
        self.post(event("Bought", EVENT_ATTRS={"sku": "B-12"}), session="S2")
        self.post(event("Bought"), signature="WRONG")
        self.open()
        self.shows("401 refused", "Bought", "INSTALL", "Bought")
        self.browser.press("/", *"user:ada a-77", "Enter")
        self.shows("Bought")
        self.assertEqual(self.browser.run("return location.search"), "?user=ada&q=a-77")
        self.browser.run("history.back()")
        self.shows("401 refused", "Bought", "INSTALL", "Bought")
        for query, names in (("?status=refused", ["401 refused"]), ("?kind=module&status=accepted", ["INSTALL"]),
                             ("?session=S2", ["Bought"]), ("?name=Bought&user=", ["401 refused", "Bought"])):
            self.open("/" + query)
            self.shows(*names)
        self.post(event("Bought"), user="ada")
        self.post(event("Bought"), session="S3")
        self.shows("Bought", "401 refused", "Bought")

    def test_a_row_opens_its_details(self):
        self.post(event("Paid", EVENT_ATTRS={"order": 9007199254740993, "ok": True}, EVENT_ATTRS_CUST={
            "timestamp": [{"due": 1795510800000.0}], "location": [{"shop": "57.708900,-11.974600"}]}), user="ada")
        self.post(event("Lost", EVENT_ATTRS={"price": 349.0}), signature="abc")
        self.open()
        self.shows("401 refused", "Paid")
        self.browser.press("j", "j", "Enter")
        self.finds("#detail", "9007199254740993", "57.7089° N, 11.9746° W", "2026-11-24", "ada", "mail · letter",
                   "Signature\nright", "5 min after it happened", '"shop": "57.708900,-11.974600"')
        self.browser.press("k")
        self.finds("#detail", "What to change", "Given\nabc", "Expected\n", "SHA-1 of meta.bid", "Lost",
                   '"price": 349.0')
        self.browser.press("Escape")
        self.browser.until("return document.getElementById('detail').hidden && location.search === ''")
        self.browser.click(".events tbody tr:last-child .what")
        self.finds("#detail h2", "Paid")

    def test_a_story_shows_sessions_identity_and_history(self):
        self.post(attribute("2026-11-21T10:00:00.000Z", USER_ATTRIBUTE_UNIQUE_ID="ada", city="Oslo"),
                  event("Paid", "2026-11-21T10:03:00.000Z"), user="ada")
        self.post(attribute("2026-11-21T11:00:00.000Z", USER_ATTRIBUTE_UNIQUE_ID="ada", USER_ID_MODIFIED_FROM="eve"),
                  attribute("2026-11-21T11:00:01.000Z", city="Bergen"), user="ada", session="S2")
        self.post(event("ZRV_LOGOUT", "2026-11-21T11:00:02.000Z"), session="S2")
        self.post(event("Undated", ""), event("Odd", "no time"), user="ada", session="S3")
        self.open("/?view=story&user=ada")
        self.finds(".story", "3 sessions on 1 device", "logged in as ada", "renamed from eve to ada", "logged out",
                   "Bergen since", "1 earlier value", "mail · letter")
        self.browser.until("return document.querySelectorAll('.lane .own').length === 3 &&"
                           "document.querySelectorAll('.lane').length === 3")
        self.open("/?view=story&user=")
        self.finds(".story", "Nobody was logged in", "Anonymous")

    def test_pause_holds_and_a_lost_connection_is_caught_up(self):
        self.post(event("One"))
        self.open()
        self.shows("One")
        self.browser.press("p")
        self.post(event("Two"))
        self.finds("#live", "Paused · 1 new")
        self.shows("One")
        self.browser.press("p")
        self.shows("Two", "One")
        self.stop()
        self.finds("#live", "Connection lost, retrying")
        self.start(self.port)
        self.post(event("Three"))
        self.browser.until(LIVE, "live")
        self.shows("Three", "Two", "One")
        self.browser.devtools("Network.enable")
        network = {"latency": 0, "downloadThroughput": -1, "uploadThroughput": -1}
        self.browser.devtools("Network.emulateNetworkConditions", offline=True, **network)
        self.browser.press("/", *"three", "Enter")
        self.finds(".note", "does not answer")
        self.browser.devtools("Network.emulateNetworkConditions", offline=False, **network)
        self.shows("Three")

    def test_nothing_overlaps_on_a_small_screen_and_in_the_dark(self):
        self.post(event("A name that is much too long for a small screen", EVENT_ATTRS={"text": "x" * 300}),
                  user="an-identifier-that-is-too-long@shop.example", device="D" * 80, session="S" * 80)
        self.post(event("Lost"), signature="abc")
        views = ("", "?event=1000001", "?request=2", "?view=overview", "?view=users", "?view=sessions",
                 "?view=requests", "?view=story&device=" + "D" * 80)
        for width, dark in ((390, True), (390, False), (1280, True), (1280, False), (3840, False)):
            self.browser.window(width, 844, dark)
            for view in views:
                self.open("/" + view)
                self.browser.until("return document.querySelector('main td, main .panel') &&"
                                   "(!/(event|request)=/.test(location.search) || document.querySelector('aside h2'))")
                if "overview" in view:
                    self.browser.until("return document.querySelector('.columns text')")
                self.assertEqual(self.browser.run(FAULTS), [], (width, dark, view))

    def test_a_window_of_rows_moves_over_many(self):
        for batch in range(12):
            self.post(*(event(f"e{100 * batch + n}") for n in range(100)))
        self.open()
        self.browser.until("return document.querySelectorAll('.events tbody tr').length === 100")
        self.browser.until("const list = document.querySelector('.scroller'); list.scrollTop = list.scrollHeight;"
                           f"const names = (() => {{{NAMES}}})();"
                           "return names.length <= 400 && names.at(-1) === 'e0'")
        # An event arrives while the last answer for the rows above, an empty one, is on its way.
        self.browser.run("const real = window.fetch; window.fetch = async (...request) => {"
                         "  const answer = await real(...request);"
                         "  if (/order=asc/.test(request[0]) && await answer.clone().text() === '[]\\n')"
                         "    await new Promise(release => { window.release = release; });"
                         "  return answer; };")
        self.browser.until("document.querySelector('.scroller').scrollTop = 0; return !!window.release")
        self.post(event("new"))
        self.browser.until("return !document.querySelector('.news').hidden")
        self.browser.run("window.release()")
        self.browser.until(f"const names = (() => {{{NAMES}}})(); return names.length <= 400 && names[0] === 'new'")


if __name__ == "__main__":
    if missing():
        print(f"skipped: {missing()} is not installed (scripts/install-dependencies --all)")
        sys.exit(77)
    os.environ["no_proxy"] = "127.0.0.1,localhost"
    unittest.main(argv=[sys.argv[0], *("Page." + case for case in sys.argv[2:])])
