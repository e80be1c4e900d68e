using System;
using System.Collections.Generic;
using System.Globalization;
using System.Runtime.InteropServices;
using System.Threading;
using System.Threading.Tasks;

namespace Zorvane
{
    /// <summary>Ahead-of-time compilers (IL2CPP) look for an attribute of this name at methods that native code
    /// calls.</summary>
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class MonoPInvokeCallbackAttribute : Attribute
    {
        public MonoPInvokeCallbackAttribute(Type type)
        {
            Type = type;
        }

        public Type Type { get; }
    }

    /// <summary>An operation with an answer. Its task ends when the library releases it: with the last answer, or
    /// cancelled if there was none.</summary>
    internal sealed class Completion
    {
        private readonly TaskCompletionSource<bool> source =
            new TaskCompletionSource<bool>(TaskCreationOptions.RunContinuationsAsynchronously);
        private bool? answer;

        internal Task<bool> Task => source.Task;

        internal void Completed(bool success) => answer = success;

        internal void Released()
        {
            if (answer.HasValue)
            {
                source.TrySetResult(answer.Value);
            }
            else
            {
                source.TrySetCanceled();
            }
        }
    }

    /// <summary>
    /// What the native library calls: static methods, whose delegates live as long as the process. Their data is a
    /// handle to the host's object, which the library releases. Nothing may be thrown to the library.
    /// </summary>
    internal static class Callbacks
    {
        internal static readonly Native.Release Release = OnRelease;
        internal static readonly Native.Completed Completed = OnCompleted;
        internal static readonly Native.Log Log = OnLog;
        internal static readonly Native.Transport Transport = OnTransport;
        internal static readonly Native.PostTask PostTask = OnPostTask;
        internal static readonly Native.IsMainThread IsMainThread = OnIsMainThread;
        internal static readonly Native.BeginTask BeginTask = OnBeginTask;
        internal static readonly Native.EndTask EndTask = OnEndTask;
        internal static readonly Native.Locale Locale = OnLocale;
        internal static readonly Native.TimeZone TimeZone = OnTimeZone;
        internal static readonly Native.Advertising Advertising = OnAdvertising;
        internal static readonly Native.Trigger Trigger = OnTrigger;

        private static int kept;

        /// <summary>How many objects of the host the library refers to.</summary>
        internal static int Kept => Volatile.Read(ref kept);

        /// <summary>Data for a callback; whoever takes it must be given Release, too.</summary>
        internal static IntPtr Keep(object target)
        {
            Interlocked.Increment(ref kept);
            return GCHandle.ToIntPtr(GCHandle.Alloc(target));
        }

        private static T TargetOf<T>(IntPtr data) => (T)GCHandle.FromIntPtr(data).Target;

        private static void Failed(Exception exception)
        {
            try
            {
                Analytics.OnCallbackFailed(exception);
            }
            catch (Exception)
            {
                // There is nobody else to tell.
            }
        }

        [MonoPInvokeCallback(typeof(Native.Release))]
        private static void OnRelease(IntPtr data)
        {
            try
            {
                GCHandle handle = GCHandle.FromIntPtr(data);
                var completion = handle.Target as Completion;
                handle.Free();
                Interlocked.Decrement(ref kept);
                completion?.Released();
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.Completed))]
        private static void OnCompleted(IntPtr data, int success)
        {
            try
            {
                TargetOf<Completion>(data).Completed(success != 0);
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.Log))]
        private static void OnLog(IntPtr data, int kind, IntPtr message, UIntPtr length, IntPtr file, int line,
            IntPtr operation)
        {
            try
            {
                string where = line == 0 ? "" : Library.TextOf(file) + ":" + line + " " + Library.TextOf(operation);
                TargetOf<LogHandler>(data)(kind == 2, Library.TextOf(message, length), where);
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.Transport))]
        private static void OnTransport(IntPtr data, IntPtr handle)
        {
            Request request = null;
            try
            {
                request = new Request(handle);
                TargetOf<Action<Request>>(data)(request);
            }
            catch (Exception e)
            {
                request?.FailIfOpen(e);
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.PostTask))]
        private static void OnPostTask(IntPtr data, IntPtr task)
        {
            try
            {
                TargetOf<IMainLoop>(data).Post(() =>
                {
                    IntPtr taken = Interlocked.Exchange(ref task, IntPtr.Zero);
                    if (taken != IntPtr.Zero) Library.Check(Native.zr_task_run(taken));
                });
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.IsMainThread))]
        private static int OnIsMainThread(IntPtr data)
        {
            try
            {
                return TargetOf<IMainLoop>(data).IsMainThread ? 1 : 0;
            }
            catch (Exception e)
            {
                Failed(e);
                return 0;
            }
        }

        [MonoPInvokeCallback(typeof(Native.BeginTask))]
        private static void OnBeginTask(IntPtr data, ulong task, IntPtr name)
        {
            try
            {
                TargetOf<IBackgroundTasks>(data).Begin(task, Library.TextOf(name));
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.EndTask))]
        private static void OnEndTask(IntPtr data, ulong task)
        {
            try
            {
                TargetOf<IBackgroundTasks>(data).End(task);
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        [MonoPInvokeCallback(typeof(Native.Locale))]
        private static void OnLocale(IntPtr data, int question, IntPtr argument, IntPtr answer)
        {
            try
            {
                string text = LocaleText(TargetOf<Func<CultureInfo>>(data)(), question, Library.TextOf(argument));
                if (string.IsNullOrEmpty(text)) return;
                var utf8 = new Utf8(text);
                Native.zr_text_set(answer, utf8.Bytes, utf8.Length);
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }

        /// <summary>Null: unknown. Only the names of the culture itself are known.</summary>
        private static string LocaleText(CultureInfo culture, int question, string argument)
        {
            if (culture.Name.Length == 0) return null;
            RegionInfo region = culture.IsNeutralCulture ? null : new RegionInfo(culture.Name);
            string language = culture.TwoLetterISOLanguageName;
            string identifier = culture.Name.Replace('-', '_');
            switch (question)
            {
                case 0:
                    return identifier;
                case 1:
                    return region?.TwoLetterISORegionName;
                case 2:
                    return language;
                case 3:
                    return argument == region?.TwoLetterISORegionName ? region.NativeName : null;
                case 4:
                    return argument == language ? new CultureInfo(language).NativeName : null;
                case 5:
                    return argument == identifier ? culture.NativeName : null;
                default:
                    return null;
            }
        }

        [MonoPInvokeCallback(typeof(Native.TimeZone))]
        private static long OnTimeZone(IntPtr data, double seconds)
        {
            try
            {
                return (long)TargetOf<Func<TimeZoneInfo>>(data)().GetUtcOffset(Values.DateOf(seconds)).TotalSeconds;
            }
            catch (Exception e)
            {
                Failed(e);
                return 0;
            }
        }

        [MonoPInvokeCallback(typeof(Native.Advertising))]
        private static int OnAdvertising(IntPtr data, IntPtr identifier)
        {
            try
            {
                Advertising advertising = TargetOf<Func<Advertising>>(data)();
                if (advertising.Identifier != null)
                {
                    var utf8 = new Utf8(advertising.Identifier);
                    Native.zr_text_set(identifier, utf8.Bytes, utf8.Length);
                }
                return (int)advertising.Permission;
            }
            catch (Exception e)
            {
                Failed(e);
                return (int)AdvertisingPermission.Unavailable;
            }
        }

        [MonoPInvokeCallback(typeof(Native.Trigger))]
        private static void OnTrigger(IntPtr data, IntPtr name, UIntPtr length, IntPtr record)
        {
            try
            {
                Dictionary<string, object> pairs = Values.MapFromNative(record);
                var before = new Dictionary<string, object>(pairs);
                TargetOf<TriggerHandler>(data)(Library.TextOf(name, length), pairs);
                foreach (KeyValuePair<string, object> pair in pairs)
                {
                    if (before.TryGetValue(pair.Key, out object old) && ReferenceEquals(old, pair.Value)) continue;
                    var key = new Utf8(pair.Key);
                    using (ValueHandle value = Values.ToNative(pair.Value))
                    {
                        Library.Check(Native.zr_value_set(record, key.Bytes, key.Length, value));
                    }
                }
            }
            catch (Exception e)
            {
                Failed(e);
            }
        }
    }
}
