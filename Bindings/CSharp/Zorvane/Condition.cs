using System;
using System.Collections.Generic;

namespace Zorvane
{
    /// <summary>A condition on events, made by the service. Any number of threads may check one.</summary>
    public sealed class Condition : IDisposable
    {
        private readonly ConditionHandle handle;

        /// <summary>
        /// Makes a condition of the service's object with "eventName", "filters" and "filter_operator". A malformed
        /// filter is never satisfied.
        /// </summary>
        /// <exception cref="AnalyticsException">The text is no JSON object.</exception>
        public Condition(string json)
        {
            var text = new Utf8(json);
            handle = Handle.Made(Native.zr_condition_from_json(text.Bytes, text.Length));
        }

        /// <summary>Whether an event satisfies the condition. The record is what a trigger gets.</summary>
        /// <exception cref="AnalyticsException">Before the start and after the close of the module.</exception>
        /// <exception cref="ObjectDisposedException">This condition is disposed of.</exception>
        public bool IsSatisfied(string name, IDictionary<string, object> record)
        {
            var text = new Utf8(name);
            using (ValueHandle map = Values.ToNative(record))
            {
                Library.Check(Native.zr_condition_check(handle, text.Bytes, text.Length, map, out int satisfied));
                return satisfied != 0;
            }
        }

        /// <inheritdoc/>
        public void Dispose() => handle.Dispose();
    }
}
