using System;
using System.Globalization;

namespace Zorvane
{
    /// <summary>The state of the application.</summary>
    public enum ApplicationState
    {
        /// <summary>In the foreground.</summary>
        Active = 0,
        /// <summary>In the foreground, without input.</summary>
        Inactive = 1,
        /// <summary>In the background.</summary>
        Background = 2
    }

    /// <summary>How the module came to the device.</summary>
    public enum AppStatus
    {
        /// <summary>The application was installed with the module.</summary>
        Installed = 0,
        /// <summary>An application without the module was updated to one with it.</summary>
        Updated = 1
    }

    /// <summary>Whether the device's advertising identifier may be used.</summary>
    public enum AdvertisingPermission
    {
        /// <summary>This device has no advertising identifiers.</summary>
        Unavailable = 0,
        /// <summary>The user was asked and has not agreed.</summary>
        Denied = 1,
        /// <summary>The user is not asked on this platform, and has limited ad tracking.</summary>
        Limited = 2,
        /// <summary>The identifier may be used.</summary>
        Allowed = 3
    }

    /// <summary>The device's advertising identifier, and whether it may be used.</summary>
    public struct Advertising
    {
        /// <summary>What the user allows.</summary>
        public AdvertisingPermission Permission;

        /// <summary>Null if it is not allowed.</summary>
        public string Identifier;
    }

    /// <summary>Takes a log message; "where" is file, line and operation of an error, else empty.</summary>
    public delegate void LogHandler(bool isError, string message, string where);

    /// <summary>The main loop of the host. Any thread.</summary>
    public interface IMainLoop
    {
        /// <summary>Runs the task on the main thread: once, soon, in the order of posting.</summary>
        void Post(Action task);

        /// <summary>Whether the calling thread is the main thread.</summary>
        bool IsMainThread { get; }
    }

    /// <summary>Is told, on any thread, when the module needs time in the background.</summary>
    public interface IBackgroundTasks
    {
        /// <summary>Work begins: the system should not suspend the process before its end. Tasks are numbered from 1.
        /// The name is "ZRVTask", "ZRVDeviceUpdateTask" or "bg_zrv_app_exit".</summary>
        void Begin(ulong task, string name);

        /// <summary>Work ended.</summary>
        void End(ulong task);
    }

    /// <summary>
    /// What the module starts with. Everything but Endpoint and AppId may be left out. Callbacks are called on any
    /// thread and must return soon; what they throw goes to Analytics.CallbackFailed.
    /// </summary>
    public sealed class AnalyticsOptions
    {
        /// <summary>The collection service's base URL; slashes at its end are dropped. Null: nothing is sent.</summary>
        public string Endpoint { get; set; }

        /// <summary>The application's identifier. Null: nothing is sent.</summary>
        public string AppId { get; set; }

        /// <summary>The folder of the module's files. In Unity: a folder below Application.persistentDataPath. Default:
        /// "zorvane" in $XDG_DATA_HOME or ~/.local/share. Two applications must not share one.</summary>
        public string Folder { get; set; }

        /// <summary>A JSON object with the keys of the remote configuration. The start checks it.</summary>
        public string RemoteConfiguration { get; set; }

        /// <summary>Counts only at the first start on this device.</summary>
        public AppStatus AppStatus { get; set; }

        /// <summary>At the start.</summary>
        public ApplicationState State { get; set; }

        /// <summary>Keeps a journal: an event whose call has returned is not lost by a kill. The bytes of its file; 0
        /// means 1 MiB. Null: no journal.</summary>
        public ulong? JournalBytes { get; set; }

        /// <summary>How often a journal is synced, in case of a power loss. Zero: never.</summary>
        public TimeSpan JournalSync { get; set; }

        /// <summary>Takes log messages; it must not call the module. Null: nothing is logged.</summary>
        public LogHandler Log { get; set; }

        /// <summary>Writes log messages to the process's standard error, if Log is null.</summary>
        public bool LogToStandardError { get; set; }

        /// <summary>Sends a request, and calls its Respond or Fail once, here or later, on any thread. At most six
        /// connections to a host should be open at a time; further requests wait in order. If it throws, the request
        /// fails. Null: HTTP of the native library, if Analytics.HasHttp; else nothing is sent.</summary>
        public Action<Request> Transport { get; set; }

        /// <summary>Lets the module do its work for the main thread on the host's. Null: a thread of the
        /// library.</summary>
        public IMainLoop MainLoop { get; set; }

        /// <summary>Null: nobody suspends the process.</summary>
        public IBackgroundTasks BackgroundTasks { get; set; }

        /// <summary>The user's locale. Default: the current culture of the thread that made these options.</summary>
        public Func<CultureInfo> Culture { get; set; } = Constant(CultureInfo.CurrentCulture);

        /// <summary>The device's time zone. Default: the local one.</summary>
        public Func<TimeZoneInfo> TimeZone { get; set; } = () => TimeZoneInfo.Local;

        /// <summary>The advertising identifier; it must not ask the user. Null: there are none.</summary>
        public Func<Advertising> Advertising { get; set; }

        private static Func<CultureInfo> Constant(CultureInfo culture) => () => culture;
    }
}
