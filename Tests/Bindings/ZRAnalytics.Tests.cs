using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Text;
using System.Threading;
using System.Threading.Tasks;
using Zorvane;

/// <summary>One case per process: the module starts once. Prints "ok".</summary>
internal static class Tests
{
    private static readonly ConcurrentQueue<string> bodies = new ConcurrentQueue<string>();

    private static void Same(object expected, object actual)
    {
        if (!Equals(expected, actual)) throw new Exception("expected " + expected + ", is " + actual);
    }

    /// <summary>A value as text; keys in their order.</summary>
    private static string Shown(object value)
    {
        if (value is IDictionary<string, object> map)
        {
            return "{" + string.Join(",", map.Select(pair => pair.Key + ":" + Shown(pair.Value))) + "}";
        }
        if (value is byte[] bytes) return "bytes" + BitConverter.ToString(bytes);
        if (value is IEnumerable<object> list) return "[" + string.Join(",", list.Select(Shown)) + "]";
        if (value is Location place) return "@" + place.Latitude + "," + place.Longitude;
        if (value is DateTimeOffset date) return date.ToString("o");
        return value == null ? "null" : Convert.ToString(value, CultureInfo.InvariantCulture);
    }

    private static void Accept(Request request)
    {
        Same("application/json; charset=utf-8", request.Headers["Content-Type"]);
        bodies.Enqueue(Encoding.UTF8.GetString(request.GetBody()));
        request.Respond(200, new byte[0]);
        try
        {
            request.Fail("twice");
        }
        catch (InvalidOperationException)
        {
            return;
        }
        throw new Exception("a second response");
    }

    private static bool Sent(string part) => bodies.Any(body => body.Contains(part));

    private static AnalyticsOptions Options()
    {
        string folder = Path.Combine(Path.GetTempPath(), "csharp." + Guid.NewGuid());
        AppDomain.CurrentDomain.ProcessExit += (sender, e) =>
        {
            try
            {
                Directory.Delete(folder, true);
            }
            catch (IOException)
            {
                // The module is writing.
            }
        };
        return new AnalyticsOptions
        {
            Endpoint = "http://127.0.0.1:9", AppId = "SHOP", Folder = folder, Transport = Accept
        };
    }

    private static void Refused(AnalyticsError error, Action call)
    {
        try
        {
            call();
        }
        catch (AnalyticsException e)
        {
            Same(error, e.Error);
            Same(false, e.Message.Length == 0);
            return;
        }
        throw new Exception("not refused: " + error);
    }

    private static void Throws<T>(Action call) where T : Exception
    {
        try
        {
            call();
        }
        catch (T)
        {
            return;
        }
        throw new Exception("threw no " + typeof(T));
    }

    /// <summary>Neither handles nor objects of the host are left.</summary>
    private static void NothingIsLeft()
    {
        GC.Collect();
        GC.WaitForPendingFinalizers();
        Same(0, Handle.Live);
        Same(0, Callbacks.Kept);
    }

    private static void Load(string url, string folder)
    {
        int seen = 0;
        var flushes = new ConcurrentQueue<Task<bool>>();
        Analytics analytics = Analytics.Start(
            new AnalyticsOptions { Endpoint = url, AppId = "SHOP", Folder = folder });
        analytics.SetTrigger(TriggerSlot.InApp, (name, record) => seen += name == "Counted" ? 1 : 0);
        var threads = Enumerable.Range(0, 4).Select(first => new Thread(() =>
        {
            for (int number = first; number < 100000; number += 4)
            {
                analytics.Track("Counted",
                    new Dictionary<string, object> { { "n", number }, { "text", "some text" } });
                if (number % 20000 < 4) flushes.Enqueue(analytics.FlushAsync());
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Same(true, analytics.Close(TimeSpan.FromMinutes(2)));
        Same(100000, seen);
        Same(20, flushes.Count(flush => flush.Status == TaskStatus.RanToCompletion));
        NothingIsLeft();
    }

    private static void TextKeepsEveryCharacter()
    {
        const string text = "a\0b \U0001F600 \u00fc \U0001D11E \ufffd \u20ac";
        var date = new DateTimeOffset(1970, 1, 1, 0, 0, 1, 500, TimeSpan.Zero);
        using (Analytics analytics = Analytics.Start(Options()))
        {
            using (var properties = new Properties())
            {
                properties.Add(text, text).Add("unpaired", "\ud83d").Add("none", null).Add("empty", "");
                properties.Add("bytes", new byte[] { 255 }).Add("url", new Uri("a://b")).Add("big", long.MinValue);
                properties.Add("list", new object[] { null, true, 1.5, new Dictionary<string, string> { { text, text } } });
                properties.Add("date", date).Add("date", date.UtcDateTime).Add("place", new Location(1, 2));
                Dictionary<string, object> record = analytics.GetEventRecord(text, properties);
                Same("{" + text + ":" + text + ",unpaired:\ufffd,none:,empty:,bytes:ff,url:a://b," +
                    "big:-9223372036854775808,list:[null,True,1.5,{" + text + ":" + text + "}]}",
                    Shown(record["EVENT_ATTRS"]));
                Same("{timestamp:[{date:1500},{date:1500}],location:[{place:1.000000,2.000000}]}",
                    Shown(record["EVENT_ATTRS_CUST"]));
                analytics.Track(text, properties);
            }
        }
        Same(true, Sent("\"a\\u0000b \U0001F600 "));
        var kinds = new object[] { new Location(1, -2), date.AddDays(-1), new Uri("a://b"), new byte[0], new byte[] { 0 } };
        using (ValueHandle value = Values.ToNative(kinds))
        {
            Same(Shown(kinds), Shown(Values.FromNative(value.DangerousGetHandle())));
        }
        NothingIsLeft();
    }

    private sealed class Host : IMainLoop, IBackgroundTasks
    {
        private readonly BlockingCollection<Action> tasks = new BlockingCollection<Action>();
        private readonly Thread thread;
        internal readonly ConcurrentQueue<string> Names = new ConcurrentQueue<string>();

        internal Host()
        {
            thread = new Thread(() =>
            {
                foreach (Action task in tasks.GetConsumingEnumerable()) task();
            }) { IsBackground = true };
            thread.Start();
        }

        public bool IsMainThread => Thread.CurrentThread == thread;
        public void Post(Action task) => tasks.Add(task);
        public void Begin(ulong task, string name) => Names.Enqueue(name);
        public void End(ulong task) => Names.Enqueue("end");
    }

    private static void TheHostAnswersAndHears()
    {
        var lines = new ConcurrentQueue<string>();
        var changed = new ConcurrentQueue<object>();
        var thrown = new ConcurrentQueue<string>();
        var host = new Host();
        Analytics.CallbackFailed += e => thrown.Enqueue(e.Message);
        AnalyticsOptions options = Options();
        options.Log = (isError, message, where) => lines.Enqueue(message);
        options.JournalBytes = 1 << 21;
        options.MainLoop = host;
        options.BackgroundTasks = host;
        options.Culture = () => new CultureInfo("de-AT");
        options.TimeZone = () => TimeZoneInfo.CreateCustomTimeZone("X", TimeSpan.FromHours(1), "X", "X");
        options.Advertising = () =>
            new Advertising { Permission = AdvertisingPermission.Allowed, Identifier = "AD-\u00fc" };
        Analytics analytics = Analytics.Start(options);
        analytics.SetTrigger(TriggerSlot.InApp, (name, record) =>
        {
            record["seen"] = 7;
            if (name == "Bad") throw new Exception("the trigger");
        });
        analytics.SetTrigger(TriggerSlot.Messaging,
            (name, record) => changed.Enqueue(record.ContainsKey("seen") ? record["seen"] : null));
        analytics.Track("Good");
        analytics.FlushAsync().Wait();
        using (Source source = Source.FromParts(new Dictionary<string, object> { { "utm_source", "mail" } }))
        using (Source none = Source.FromUrl("a://b"))
        {
            Same(true, source.IsValid);
            Same(false, none.IsValid);
            analytics.UpdateSources(source, none);
        }
        analytics.SetUserAttribute("since", DateTime.UtcNow);
        analytics.SetUserAttribute("tall", true);
        analytics.EnterBackground();
        analytics.Track("Bad");
        Same(1L << 21, new FileInfo(options.Folder + "/Library/ZrvData/ZREventJournal").Length);
        Same("AD-\u00fc", analytics.GetTrackedAdvertisingIdentifier());
        Same('{', analytics.GetConfiguration()[0]);
        Same(true, analytics.Close(TimeSpan.FromMinutes(1)));
        Same(true, Sent("{\"LOCALE_IDENTIFIER\":\"de_AT\"}"));
        Same(true, Sent("{\"LOCALE_COUNTRY_DISPLAY\":\"\u00d6sterreich\"}"));
        Same(true, Sent("+0100\""));
        Same(true, lines.Count > 0 && host.Names.Contains("ZRVTask") && host.Names.Contains("end"));
        Same("the trigger", string.Join(",", thrown));
        // After an exception the changes of that trigger are lost.
        Same(1, changed.Count(seen => seen == null));
        Same(true, changed.Contains(7L));
        NothingIsLeft();
    }

    private static void MisuseThrows()
    {
        var itself = new List<object>();
        itself.Add(itself);
        using (var properties = new Properties().Add("a", 1))
        {
            Throws<ArgumentException>(() => properties.Add("b", itself));
            Throws<ArgumentException>(() => properties.Add("b", new object()));
            Throws<ArgumentException>(() => properties.Add("b", new Dictionary<int, int> { { 1, 1 } }));
            Throws<ArgumentNullException>(() => properties.Add(null, 1));
            Refused(AnalyticsError.Argument, () => properties.Add("", 1));
            Throws<OverflowException>(() => properties.Add("b", ulong.MaxValue));
            Refused(AnalyticsError.Json, () => new Condition("["));
            AnalyticsOptions options = Options();
            options.RemoteConfiguration = "{\"no such key\": 1}";
            Refused(AnalyticsError.Configuration, () => Analytics.Start(options));
            options.RemoteConfiguration = "{}";
            Analytics analytics = Analytics.Start(options);
            Refused(AnalyticsError.Started, () => Analytics.Start(options));
            Same("{a:1}", Shown(analytics.GetEventRecord("A", properties)["EVENT_ATTRS"]));
            Refused(AnalyticsError.Argument, () => analytics.SetUserAttribute("a", new[] { 1 }));
            Throws<ArgumentNullException>(() => analytics.Track(null));
            var condition = new Condition("{\"eventName\": \"A\"}");
            Same(true, condition.IsSatisfied("A", new Dictionary<string, object>()));
            condition.Dispose();
            Throws<ObjectDisposedException>(() => condition.IsSatisfied("A", new Dictionary<string, object>()));
            var inside = new ConcurrentQueue<AnalyticsError>();
            analytics.SetTrigger(TriggerSlot.InApp, (name, record) =>
            {
                try
                {
                    analytics.Dispose();
                }
                catch (AnalyticsException e)
                {
                    inside.Enqueue(e.Error);
                }
            });
            analytics.Track("A");
            Same(true, analytics.Close(TimeSpan.FromMinutes(1)));
            Same(AnalyticsError.Callback, inside.First());
            Same(true, analytics.Close(TimeSpan.Zero));
            Refused(AnalyticsError.Closed, () => analytics.Track("A"));
            Refused(AnalyticsError.Closed, () => analytics.FlushAsync());
            Refused(AnalyticsError.Closed, () => Analytics.Start(options));
        }
        NothingIsLeft();
    }

    private static void CallsRaceWithTheClose()
    {
        var condition = new Condition("{\"eventName\": \"A\"}");
        Analytics analytics = Analytics.Start(Options());
        var warm = new CountdownEvent(4);
        var wrong = new ConcurrentQueue<Exception>();
        Analytics.CallbackFailed += wrong.Enqueue;
        var threads = Enumerable.Range(0, 4).Select(number => new Thread(() =>
        {
            try
            {
                for (int i = 0; ; ++i)
                {
                    if (i == 500) warm.Signal();
                    analytics.Track("A", new Dictionary<string, object> { { "i", i } });
                    analytics.FlushAsync();
                    analytics.SetTrigger(TriggerSlot.InApp, (name, record) => condition.IsSatisfied(name, record));
                }
            }
            catch (AnalyticsException e)
            {
                if (e.Error != AnalyticsError.Closed) wrong.Enqueue(e);
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        warm.Wait();
        analytics.Close(TimeSpan.FromMinutes(1));
        condition.Dispose();
        threads.ForEach(thread => thread.Join());
        Same("", string.Join(",", wrong));
        NothingIsLeft();
    }

    /// <summary>Events are on their way in all queues, and threads of the module run managed code.</summary>
    private static void ExitWithoutClose()
    {
        Analytics analytics = Analytics.Start(Options());
        var seen = new CountdownEvent(1000);
        analytics.SetTrigger(TriggerSlot.InApp, (name, record) =>
        {
            if (!seen.IsSet) seen.Signal();
        });
        for (int i = 0; i < 5000; ++i)
        {
            analytics.Track("A");
            analytics.FlushAsync();
        }
        seen.Wait();
    }

    private static int Main(string[] args)
    {
        try
        {
            switch (args[0])
            {
                case "load": Load(args[1], args[2]); break;
                case "TextKeepsEveryCharacter": TextKeepsEveryCharacter(); break;
                case "TheHostAnswersAndHears": TheHostAnswersAndHears(); break;
                case "MisuseThrows": MisuseThrows(); break;
                case "CallsRaceWithTheClose": CallsRaceWithTheClose(); break;
                case "ExitWithoutClose": ExitWithoutClose(); break;
                default: throw new ArgumentException(args[0]);
            }
            Console.WriteLine("ok");
            return 0;
        }
        catch (Exception e)
        {
            // Without this the module's threads could outlive the failure.
            Console.WriteLine(e);
            return 1;
        }
    }
}
