using System;

namespace Zorvane
{
    /// <summary>What went wrong in a call.</summary>
    public enum AnalyticsError
    {
        /// <summary>An argument is out of range, or of a kind that does not fit.</summary>
        Argument = 1,
        /// <summary>A text is not UTF-8. No string causes it.</summary>
        Utf8 = 2,
        /// <summary>A text is not JSON, or JSON of another kind than is needed.</summary>
        Json = 3,
        /// <summary>The module has not been started.</summary>
        NotStarted = 4,
        /// <summary>The module has been started before; it starts once per process.</summary>
        Started = 5,
        /// <summary>The module is closed.</summary>
        Closed = 6,
        /// <summary>The remote configuration has an unknown key or a value of the wrong kind.</summary>
        Configuration = 7,
        /// <summary>The call is not allowed in a callback.</summary>
        Callback = 8,
        /// <summary>The call is not allowed on this thread.</summary>
        Thread = 9,
        /// <summary>The time is over.</summary>
        Timeout = 10,
        /// <summary>Memory, threads or another resource of the system is missing.</summary>
        System = 11
    }

    /// <summary>A call that failed. The message is one sentence.</summary>
    public sealed class AnalyticsException : Exception
    {
        internal AnalyticsException(AnalyticsError error, string message) : base(message)
        {
            Error = error;
        }

        /// <summary>What went wrong.</summary>
        public AnalyticsError Error { get; }
    }
}
