"""The Python binding: python_tests.py ZRCOLLECTOR CASE. Each case is a process of its own: the module starts once.
ZRANALYTICS_LIBRARY names the library."""

import asyncio
import collections
import concurrent.futures
import contextlib
import datetime
import json
import pathlib
import resource
import sqlite3
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "Bindings" / "Python"))

import zranalytics  # noqa: E402
from zranalytics import URL, Analytics, AnalyticsError, Condition, Location, Source, Status, _library  # noqa: E402

PROGRAM = sys.argv[1]


def peak_memory():
    """Kilobytes."""
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss


class Service:
    """A transport that answers 200 and keeps the bodies."""

    def __init__(self):
        self.bodies = []

    def __call__(self, request):
        assert request.headers["Content-Type"] == "application/json; charset=utf-8"
        self.bodies.append(json.loads(request.body))
        for wrong in ((200, "text"), ("200",), (0, b"", 1)):
            with contextlib.suppress(TypeError, AttributeError):
                request.respond(*wrong)
        request.respond(200)

    def events(self):
        return [event for body in self.bodies for event in body.get("viewsInfo", [])]


class Loop:
    """Runs the module's main queue in asyncio, on a thread of its own."""

    def __init__(self):
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()

    def post(self, task):
        self.loop.call_soon_threadsafe(task)

    def is_main_thread(self):
        return threading.current_thread() is self.thread


class PythonTests(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.addCleanup(self.folder.cleanup)

    def test_events_of_four_threads_all_arrive_once(self):
        database = pathlib.Path(self.folder.name) / "collected.db"
        with subprocess.Popen([PROGRAM, "--db", database, "--quiet"], stdout=subprocess.PIPE, text=True) as collector:
            url = json.loads(collector.stdout.readline())["listening"]
            analytics = Analytics(endpoint=url, app_id="SHOP", folder=self.folder.name)
            futures = []

            def work(first):
                for number in range(first, 100_000, 4):
                    analytics.track("Counted", {"n": number, "text": "some text"})
                    if number % 20_000 < 4:
                        futures.append(analytics.flush())
            with concurrent.futures.ThreadPoolExecutor(4) as threads:
                list(threads.map(work, range(4)))
            self.assertTrue(analytics.close(120))
            collector.terminate()
        with contextlib.closing(sqlite3.connect(database)) as collected:
            arrived = collections.Counter(collected.execute(
                "SELECT json_extract(raw, '$.EVENT_ATTRS.n') FROM events WHERE name = 'Counted'"))
        self.assertEqual(arrived, {(number,): 1 for number in range(100_000)})
        self.assertTrue(all(future.done() for future in futures))
        self.assertEqual(_library.kept(), 0)

    def test_handles_do_not_leak(self):
        def work():
            for _ in range(5_000):
                zranalytics.Properties({"text": "x" * 1000, "list": [1, "y" * 1000]})
                Condition({"eventName": "z" * 1000})
                Source.from_url("shop://x?utm_source=" + "s" * 1000)
        work()
        before = peak_memory()
        for _ in range(3):
            work()
        # Leaked texts alone would be 60 MB.
        self.assertLess(peak_memory() - before, 20_000)

    def test_the_host_answers_and_hears(self):
        service, lines, records, changed = Service(), [], [], []
        moment = datetime.datetime(2026, 12, 24, 10, tzinfo=datetime.timezone.utc)
        with Analytics(
                endpoint="http://x", app_id="SHOP", folder=self.folder.name, transport=service, log=lines.append,
                journal=2**21, main_loop=Loop(), time_zone=lambda _: 3600,
                advertising=lambda: (zranalytics.Advertising.ALLOWED, "AD"),
                locale=lambda question, _: "AT" if question == zranalytics.LocaleQuestion.COUNTRY_CODE else None,
                remote_configuration={"device_model": "M"}) as analytics:
            analytics.set_trigger(lambda name, record: records.append((name, record)) or {"seen": True})
            analytics.set_trigger(lambda name, record: changed.append(record.get("seen")), zranalytics.Slot.MESSAGING)
            attributes = {"date": moment, "place": Location(1, 2), "bytes": b"\xff", "none": None, "url": URL("a://b"),
                          "list": [1, {"nan": 2.0}], "big": 2**70, "text": "ü"}
            analytics.track("All kinds", attributes)
            analytics.track("Place alone", {"list": [Location(1, 2)]})
            analytics.set_user_attribute("since", moment)
            analytics.set_user_attribute("tall", True)
            self.assertEqual(analytics.event_record("All kinds", attributes)["EVENT_ATTRS"],
                             {"bytes": "ff", "none": "", "url": "a://b", "list": [1, {"nan": 2.0}],
                              "big": 2.0**70, "text": "ü"})
            analytics.reset_user().exception()
            cancelled = analytics.flush()
            cancelled.cancel()
            analytics.update_sources([Source.from_map({"utm_source": "mail"})])
            self.assertTrue(Source.from_map({"utm_source": "mail"}).is_valid)
            self.assertFalse(Source.from_map({"other": "mail"}).is_valid)
            analytics.session_started()
            analytics.init_new_user()
            self.assertTrue(Analytics.has_http())
            for refused, status in ((lambda: analytics.set_user_attribute("a", [1]), Status.ARGUMENT),
                                    (lambda: analytics.update_remote_configuration({"a": 1}), Status.CONFIGURATION),
                                    (lambda: Condition("{"), Status.JSON),
                                    (lambda: Analytics(endpoint="", app_id=""), Status.STARTED)):
                with self.assertRaises(AnalyticsError) as raised:
                    refused()
                self.assertEqual(raised.exception.status, status)
            for wrong in ({"object": object()}, {1: moment}, {1: 2}):
                self.assertRaises(TypeError, analytics.track, "A", wrong)
            self.assertEqual(analytics.configuration["device_model"], "M")
            journal = pathlib.Path(self.folder.name) / "Library" / "ZrvData" / "ZREventJournal"
            self.assertEqual(journal.stat().st_size, 2**21)
            sent = analytics.close()
        self.assertEqual(analytics.close(), sent)
        self.assertIsNone(analytics.tracked_idfa)
        self.assertFalse(concurrent.futures.wait([cancelled], 0).not_done)
        event, place = (next(event for event in service.events() if event["EVENT_ACTION"] == name)
                        for name in ("All kinds", "Place alone"))
        self.assertEqual(place["EVENT_ATTRS"], {"list": ["1.000000,2.000000"]})
        self.assertEqual(event["EVENT_ATTRS_CUST"], {"timestamp": [{"date": moment.timestamp() * 1000}],
                                                     "location": [{"place": "1.000000,2.000000"}]})
        self.assertTrue(event["EVENT_L_TIME"].endswith("+0100"))
        starts = [event for event in service.events() if event["EVENT_ACTION"] == "EVENT_ACTION_IOS_SESSION_START"]
        self.assertEqual(len(starts), 2)
        # Of the start, the reset and the new user.
        self.assertEqual(sum("viewsInfo" not in body for body in service.bodies), 3)
        sent = json.dumps(service.bodies)
        self.assertIn('{"LOCALE_COUNTRY": "AT"}', sent)
        self.assertIn('{"ADVERTISING_IDENTIFIER": "AD"}', sent)
        self.assertIn("All kinds", dict(records))
        self.assertEqual(set(changed), {True})
        self.assertTrue(lines)
        self.assertEqual(_library.kept(), 0)
        self.assertRaises(AnalyticsError, analytics.track, "late")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], f"PythonTests.{sys.argv[2]}"])
