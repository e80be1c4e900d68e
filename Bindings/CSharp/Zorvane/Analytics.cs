using System;
using System.Collections.Generic;
using System.Threading;
using System.Threading.Tasks;

namespace Zorvane
{
    /// <summary>Which delegate a trigger is. The in-app delegate is called first.</summary>
    public enum TriggerSlot
    {
        /// <summary>In-app messages.</summary>
        InApp = 0,
        /// <summary>Push messages.</summary>
        Messaging = 1
    }

    /// <summary>
    /// Sees an event that was recorded; one at a time, on a thread of the library. Pairs that are put into the record
    /// itself are seen by the messaging delegate; what is sent stays unchanged. Values are null, bool, long, double,
    /// string, byte[], DateTimeOffset, Uri, Location, List&lt;object&gt; and Dictionary&lt;string, object&gt;.
    /// </summary>
    public delegate void TriggerHandler(string name, Dictionary<string, object> record);

    /// <summary>
    /// The analytics module of this process: records events, users and sessions, keeps them on the device, and sends
    /// them in batches. It starts once per process and closes once. An application on a phone keeps it until the system
    /// ends the process.
    ///
    /// Any thread may call any method, also in a callback. A call returns without I/O, if nothing else is said; while
    /// the account is inactive, the SDK disabled or data tracking opted out, it does nothing. A null text throws
    /// ArgumentNullException. A wrong argument, and any call after the close, throws AnalyticsException.
    ///
    /// Tasks of operations with an answer are cancelled if none comes. Do not wait for one in a callback.
    /// </summary>
    public sealed class Analytics : IDisposable
    {
        private bool allSent;

        private Analytics()
        {
        }

        /// <summary>Gets what a callback threw, on the thread of that callback. Without a subscriber it is written to
        /// standard error.</summary>
        public static event Action<Exception> CallbackFailed;

        /// <summary>Of the native library, such as "1.0.0".</summary>
        public static string Version => Library.TextOf(Native.zr_version());

        /// <summary>Whether the native library sends requests by itself. If not, set a transport.</summary>
        public static bool HasHttp => Native.zr_has_http() != 0;

        internal static void OnCallbackFailed(Exception exception)
        {
            Action<Exception> failed = CallbackFailed;
            if (failed == null)
            {
                Console.Error.WriteLine(exception);
            }
            else
            {
                failed(exception);
            }
        }

        /// <summary>Starts the module: once per process. Call it on the main thread, if there is a main loop; else it
        /// waits until that loop runs.</summary>
        /// <exception cref="AnalyticsException">It has been started before. After Configuration and System another
        /// start is possible.</exception>
        public static Analytics Start(AnalyticsOptions options)
        {
            using (OptionsHandle native = Handle.Made(Native.zr_options_new()))
            {
                SetText(native, options.Endpoint, Native.zr_options_set_endpoint);
                SetText(native, options.AppId, Native.zr_options_set_app_id);
                SetText(native, options.Folder, Native.zr_options_set_folder);
                SetText(native, options.RemoteConfiguration, Native.zr_options_set_remote_configuration);
                Library.Check(Native.zr_options_set_app_status(native, (long)options.AppStatus));
                Library.Check(Native.zr_options_set_state(native, (int)options.State));
                if (options.JournalBytes is ulong bytes)
                {
                    Library.Check(Native.zr_options_set_journal(native, bytes, options.JournalSync.TotalSeconds));
                }
                if (options.LogToStandardError) Library.Check(Native.zr_options_set_log_to_stderr(native));
                Set(options.Log, data =>
                    Native.zr_options_set_log(native, Callbacks.Log, data, Callbacks.Release));
                Set(options.Transport, data =>
                    Native.zr_options_set_transport(native, Callbacks.Transport, data, Callbacks.Release));
                Set(options.MainLoop, data => Native.zr_options_set_main_loop(native, Callbacks.PostTask,
                    Callbacks.IsMainThread, data, Callbacks.Release));
                Set(options.BackgroundTasks, data => Native.zr_options_set_background_tasks(native,
                    Callbacks.BeginTask, Callbacks.EndTask, data, Callbacks.Release));
                Set(options.Culture, data =>
                    Native.zr_options_set_locale(native, Callbacks.Locale, data, Callbacks.Release));
                Set(options.TimeZone, data =>
                    Native.zr_options_set_time_zone(native, Callbacks.TimeZone, data, Callbacks.Release));
                Set(options.Advertising, data =>
                    Native.zr_options_set_advertising(native, Callbacks.Advertising, data, Callbacks.Release));
                Library.Check(Native.zr_start(native));
            }
            var analytics = new Analytics();
            AppDomain.CurrentDomain.ProcessExit += analytics.CloseAtExit;
            return analytics;
        }

        /// <summary>Mono waits at its end for all threads that have called managed code: the module's threads must end
        /// before.</summary>
        private void CloseAtExit(object sender, EventArgs arguments)
        {
            try
            {
                Close(TimeSpan.FromSeconds(1));
            }
            catch (AnalyticsException)
            {
                // A callback did not end in time.
            }
        }

        private static void SetText(OptionsHandle options, string text, Func<OptionsHandle, byte[], UIntPtr, int> set)
        {
            if (text == null) return;
            var utf8 = new Utf8(text);
            Library.Check(set(options, utf8.Bytes, utf8.Length));
        }

        private static void Set(object callback, Func<IntPtr, int> set)
        {
            if (callback != null) Library.Check(set(Callbacks.Keep(callback)));
        }

        // Calls by the kind of their arguments.

        private static void Call(Func<byte[], UIntPtr, int> function, string text)
        {
            var utf8 = new Utf8(text);
            Library.Check(function(utf8.Bytes, utf8.Length));
        }

        private static Task<bool> Answer(Func<Native.Completed, IntPtr, Native.Release, int> function)
        {
            var completion = new Completion();
            Library.Check(function(Callbacks.Completed, Callbacks.Keep(completion), Callbacks.Release));
            return completion.Task;
        }

        private static string Required(IntPtr text, UIntPtr length) =>
            Library.Taken(text, length) ?? throw Library.Failure(Native.zr_last_status());

        // End

        /// <summary>Closes the module, waiting at most ten seconds. A second call does nothing.</summary>
        /// <exception cref="AnalyticsException">As Close.</exception>
        public void Dispose() => Close(TimeSpan.FromSeconds(10));

        /// <summary>Closes the module. What is recorded is saved and sent; what the service has not accepted by then
        /// goes with the next launch. After it has returned no callback runs, and the library refers to none. Waits for
        /// answers and callbacks at most that long.</summary>
        /// <returns>Whether the service has accepted everything. A second call returns the same, or false while the
        /// first runs.</returns>
        /// <exception cref="AnalyticsException">Callback: this is one. Timeout: a callback did not end in time; the
        /// module is closed then, too.</exception>
        public bool Close(TimeSpan timeout)
        {
            int status = Native.zr_close(timeout.TotalSeconds, out int sent);
            if (status == (int)AnalyticsError.Closed) return Volatile.Read(ref allSent);
            Volatile.Write(ref allSent, sent != 0);
            Library.Check(status);
            return sent != 0;
        }

        // Lifecycle. These work on the main thread: before they return if called there, else later, in order.

        /// <summary>The application became active. Main thread, as EnterForeground.</summary>
        public void DidBecomeActive() => Library.Check(Native.zr_lifecycle(1));

        /// <summary>The application will become inactive. Main thread, as EnterForeground.</summary>
        public void WillResignActive() => Library.Check(Native.zr_lifecycle(2));

        /// <summary>The application will enter the foreground. Main thread, as EnterForeground.</summary>
        public void WillEnterForeground() => Library.Check(Native.zr_lifecycle(3));

        /// <summary>The application entered the background. Main thread, as EnterForeground.</summary>
        public void DidEnterBackground() => Library.Check(Native.zr_lifecycle(4));

        /// <summary>The application will end. Main thread, as EnterForeground.</summary>
        public void WillTerminate() => Library.Check(Native.zr_lifecycle(5));

        /// <summary>WillEnterForeground and DidBecomeActive. Works on the main thread: before it returns if called
        /// there, else later, in the order of the calls.</summary>
        public void EnterForeground() => Library.Check(Native.zr_enter_foreground());

        /// <summary>WillResignActive and DidEnterBackground, on the main thread.</summary>
        public void EnterBackground() => Library.Check(Native.zr_enter_background());

        /// <summary>The time of a background task is nearly up. Ends the task, and the last one of its name. An
        /// unknown one is ignored.</summary>
        public void BackgroundTaskExpired(ulong task) => Library.Check(Native.zr_background_task_expired(task));

        // Events

        /// <summary>Records an event without attributes.</summary>
        public void Track(string name)
        {
            var utf8 = new Utf8(name);
            Library.Check(Native.zr_track_plain(utf8.Bytes, utf8.Length, IntPtr.Zero));
        }

        /// <summary>Records an event. Events of one thread are recorded in the order of the calls.</summary>
        public void Track(string name, Properties properties)
        {
            var utf8 = new Utf8(name);
            Library.Check(Native.zr_track(utf8.Bytes, utf8.Length, properties.Handle));
        }

        /// <summary>Records an event; the attributes are as Properties.Add takes them.</summary>
        public void Track(string name, IEnumerable<KeyValuePair<string, object>> attributes)
        {
            using (var properties = new Properties(attributes)) Track(name, properties);
        }

        /// <summary>Saves the events recorded so far and sends all saved batches. An event tracked just before may
        /// not be recorded yet; it goes with the next flush.</summary>
        /// <returns>Whether the service accepted everything or nothing was left to send; false while another flush
        /// runs.</returns>
        public Task<bool> FlushAsync() => Answer(Native.zr_flush);

        /// <summary>Stops the flush timer; kept over restarts. Waits for the main thread.</summary>
        public void DisablePeriodicFlush() => Library.Check(Native.zr_disable_periodic_flush());

        /// <summary>Sets the interval of the flush timer, in whole seconds; ignored unless above the remote
        /// minimum. Kept over restarts.</summary>
        public void SetFlushInterval(TimeSpan interval) =>
            Library.Check(Native.zr_set_flush_interval((long)interval.TotalSeconds));

        // The user

        /// <summary>Sets an attribute of the user: a string, bool, integer or number, which is sent if it changed,
        /// or a date or Location, which is sent at each call. Two of one thread may be sent in either order.</summary>
        public void SetUserAttribute(string key, object value)
        {
            var utf8 = new Utf8(key);
            if (value is DateTimeOffset date)
            {
                Library.Check(Native.zr_set_user_attribute_date(utf8.Bytes, utf8.Length, Values.SecondsOf(date)));
            }
            else if (value is DateTime dateTime)
            {
                SetUserAttribute(key, new DateTimeOffset(dateTime));
            }
            else if (value is Location location)
            {
                Library.Check(Native.zr_set_user_attribute_location(utf8.Bytes, utf8.Length, location.Latitude,
                    location.Longitude));
            }
            else
            {
                using (ValueHandle other = Values.ToNative(value))
                {
                    Library.Check(Native.zr_set_user_attribute(utf8.Bytes, utf8.Length, other));
                }
            }
        }

        /// <summary>Logs a user in under the trimmed text. If another one is logged in, that one is logged out
        /// first, as by ResetUserAsync.</summary>
        public void Login(string uniqueId) => Call(Native.zr_login, uniqueId);

        /// <summary>Renames the current user without a logout. Writes a file.</summary>
        public void SetAlias(string uniqueId) => Call(Native.zr_set_alias, uniqueId);

        /// <summary>Sets the attribute "USER_PUSH_PREFERENCE".</summary>
        public void SetPushPreference(bool wanted) => Library.Check(Native.zr_set_push_preference(wanted ? 1 : 0));

        /// <summary>Logs this user out and begins the next: logout event, flush, a new session, a new registration
        /// of the device.</summary>
        /// <returns>Whether requests were made and all were accepted.</returns>
        public Task<bool> ResetUserAsync() => Answer(Native.zr_reset_user);

        /// <summary>The second part of a reset, for a host that begins a new user itself.</summary>
        public void InitNewUser() => Library.Check(Native.zr_init_new_user());

        // Consent; kept over restarts

        /// <summary>Opting out deletes stored events and cached attributes and stops all events but the excepted
        /// ones.</summary>
        public void OptOutOfDataTracking(bool optOut) =>
            Library.Check(Native.zr_opt_out_of_data_tracking(optOut ? 1 : 0));

        /// <summary>Opting out keeps the vendor identifier out of later registrations and
        /// attributes.</summary>
        public void OptOutOfIdfvTracking(bool optOut) =>
            Library.Check(Native.zr_opt_out_of_idfv_tracking(optOut ? 1 : 0));

        /// <summary>Opting out keeps the advertising identifier out of later registrations and
        /// attributes.</summary>
        public void OptOutOfIdfaTracking(bool optOut) =>
            Library.Check(Native.zr_opt_out_of_idfa_tracking(optOut ? 1 : 0));

        /// <summary>Excepts events: they are tracked even while data tracking is opted out. Not kept over
        /// restarts.</summary>
        public void UpdateOptOutEvents(IEnumerable<string> names)
        {
            using (ValueHandle list = Values.ToNative(names)) Library.Check(Native.zr_update_opt_out_events(list));
        }

        /// <summary>Sends a push consent attribute at each call. The key "ZORVANE_PUSH_OPTED_OUT" is sent even
        /// while data tracking is opted out.</summary>
        public void SetPushConsent(string key, object value)
        {
            var utf8 = new Utf8(key);
            using (ValueHandle native = Values.ToNative(value))
            {
                Library.Check(Native.zr_set_push_consent(utf8.Bytes, utf8.Length, native));
            }
        }

        /// <summary>Disabling deletes stored events, cached attributes and the session, and waits for the
        /// main thread. Enabling begins a session.</summary>
        public void SetSdkEnabled(bool enabled) => Library.Check(Native.zr_set_sdk_enabled(enabled ? 1 : 0));

        // Device and installation. The start does most of this.

        /// <summary>Tells how the module came to this device. Counts only in the first call ever, which the start
        /// makes.</summary>
        public void SetAppStatus(AppStatus status) => Library.Check(Native.zr_app_status((long)status));

        /// <summary>Tracks the status's event, whatever the version; an installation only once.</summary>
        public void SmartTriggerForAppStatus(AppStatus status) =>
            Library.Check(Native.zr_smart_trigger_for_app_status((long)status));

        /// <summary>Stores the version of the SDK if it is new.</summary>
        public void TrackSdkVersion() => Library.Check(Native.zr_track_sdk_version());

        /// <summary>Tracks a reinstallation.</summary>
        public void TrackReinstall() => Library.Check(Native.zr_track_reinstall());

        /// <summary>Registers the device.</summary>
        /// <returns>Whether the service accepted.</returns>
        public Task<bool> UpdateDeviceAsync() => Answer(Native.zr_update_device);

        /// <summary>Registers the device anew after a change of the push token.</summary>
        public void PushTokenUpdated() => Library.Check(Native.zr_push_token_updated());

        /// <summary>Sends model, name, system version and vendor identifier, of the remote configuration.</summary>
        public void SetDeviceModelAttributes() => Library.Check(Native.zr_set_device_model_attributes());

        /// <summary>Sends what changed of the locale.</summary>
        public void TrackLocale() => Library.Check(Native.zr_track_locale());

        /// <summary>Sends the advertising identifier if it changed.</summary>
        public void TrackAdvertisingIdentifier() => Library.Check(Native.zr_track_advertising_identifier());

        /// <summary>The advertising identifier tracked last; null if there is none.</summary>
        public string GetTrackedAdvertisingIdentifier()
        {
            string identifier = Library.Taken(Native.zr_copy_tracked_idfa(out UIntPtr length), length);
            return identifier == "" ? null : identifier;
        }

        /// <summary>The body of a device registration, JSON.</summary>
        public string GetDeviceRegistration() =>
            Required(Native.zr_copy_device_registration(out UIntPtr length), length);

        // Links and traffic sources

        /// <summary>A URL opened the application: call it for each. Works on the main thread, as
        /// EnterForeground.</summary>
        public void OpenUrl(string url) => Call(Native.zr_open_url, url);

        /// <summary>The part of OpenUrl that does nothing while the module intercepts opened URLs.</summary>
        public void ProcessUrl(string url) => Call(Native.zr_process_url, url);

        /// <summary>Sets the traffic sources of the current visit. They may begin a new session. They may be
        /// disposed of afterwards.</summary>
        public void UpdateSources(params Source[] sources)
        {
            var handles = new IntPtr[sources.Length];
            int used = 0;
            try
            {
                for (; used < sources.Length; ++used)
                {
                    bool added = false;
                    sources[used].Handle.DangerousAddRef(ref added);
                    handles[used] = sources[used].Handle.DangerousGetHandle();
                }
                Library.Check(Native.zr_update_sources(handles, (UIntPtr)handles.Length));
            }
            finally
            {
                while (used > 0) sources[--used].Handle.DangerousRelease();
            }
        }

        // For other modules of the SDK

        /// <summary>Sets what sees recorded events; null: nothing. A call of the earlier trigger may still be
        /// running on another thread.</summary>
        public void SetTrigger(TriggerSlot slot, TriggerHandler trigger)
        {
            Library.Check(trigger == null
                ? Native.zr_set_trigger((int)slot, null, IntPtr.Zero, null)
                : Native.zr_set_trigger((int)slot, Callbacks.Trigger, Callbacks.Keep(trigger), Callbacks.Release));
        }

        /// <summary>The record that an event with these properties would have now, as a trigger gets it.</summary>
        public Dictionary<string, object> GetEventRecord(string name, Properties properties)
        {
            var utf8 = new Utf8(name);
            using (ValueHandle record = Handle.Made(Native.zr_event_record(utf8.Bytes, utf8.Length, properties.Handle)))
            {
                return Values.MapFromNative(record.DangerousGetHandle());
            }
        }

        // The core

        /// <summary>Begins or continues the session and sends what earlier sessions left, as at the
        /// start.</summary>
        public void UpdateModules() => Library.Check(Native.zr_update_modules());

        /// <summary>Tracks the session's start; the lifecycle does.</summary>
        public void SessionStarted() => Library.Check(Native.zr_session_started());

        /// <summary>Switches to another application identifier: flushes, resets the user.</summary>
        /// <returns>True.</returns>
        public Task<bool> SetAppIdAsync(string appId)
        {
            var utf8 = new Utf8(appId);
            return Answer((completed, data, release) =>
                Native.zr_set_app_id(utf8.Bytes, utf8.Length, completed, data, release));
        }

        /// <summary>Changes the keys of a JSON object in the remote configuration. After the error Configuration
        /// nothing has changed.</summary>
        public void UpdateRemoteConfiguration(string json) => Call(Native.zr_update_remote_configuration, json);

        /// <summary>The configuration in effect, JSON.</summary>
        public string GetConfiguration() => Required(Native.zr_copy_configuration(out UIntPtr length), length);
    }
}
