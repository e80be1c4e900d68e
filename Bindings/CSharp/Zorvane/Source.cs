using System;
using System.Collections.Generic;

namespace Zorvane
{
    /// <summary>A traffic source of the current visit. Immutable.</summary>
    public sealed class Source : IDisposable
    {
        internal readonly SourceHandle Handle;

        private Source(SourceHandle handle)
        {
            Handle = Zorvane.Handle.Made(handle);
        }

        /// <summary>From the query of a URL.</summary>
        public static Source FromUrl(string url)
        {
            var text = new Utf8(url);
            return new Source(Native.zr_source_from_url(text.Bytes, text.Length));
        }

        /// <summary>From a push message.</summary>
        public static Source FromPush(IDictionary<string, object> payload) =>
            FromMap(payload, Native.zr_source_from_push);

        /// <summary>From a push message of the service's own campaigns.</summary>
        public static Source FromServicePush(IDictionary<string, object> payload) =>
            FromMap(payload, Native.zr_source_from_service_push);

        /// <summary>From its parts, with keys such as "utm_source".</summary>
        public static Source FromParts(IDictionary<string, object> parts) => FromMap(parts, Native.zr_source_from_map);

        private static Source FromMap(IDictionary<string, object> map, Func<ValueHandle, SourceHandle> make)
        {
            using (ValueHandle value = Values.ToNative(map)) return new Source(make(value));
        }

        /// <summary>Whether it names a source.</summary>
        public bool IsValid => Native.zr_source_is_valid(Handle) != 0;

        /// <inheritdoc/>
        public void Dispose() => Handle.Dispose();
    }
}
