using System;
using System.Collections.Generic;

namespace Zorvane
{
    /// <summary>
    /// The attributes of an event. Attributes with the same name replace each other, but dates and locations add up.
    /// May be used for several events and changed in between; each event keeps what it held. One thread at a time may
    /// change it.
    /// </summary>
    public sealed class Properties : IDisposable
    {
        internal readonly PropertiesHandle Handle = Zorvane.Handle.Made(Native.zr_properties_new());

        /// <summary>Makes properties without attributes.</summary>
        public Properties()
        {
        }

        /// <summary>Makes properties with an attribute for each pair.</summary>
        public Properties(IEnumerable<KeyValuePair<string, object>> attributes)
        {
            try
            {
                foreach (KeyValuePair<string, object> attribute in attributes) Add(attribute.Key, attribute.Value);
            }
            catch
            {
                Dispose();
                throw;
            }
        }

        /// <summary>
        /// Adds an attribute: null (arrives as an empty text), bool, integers, float, double, decimal, string, DateTime
        /// and DateTimeOffset (arrive as milliseconds since 1970), byte[] (hexadecimal text), Uri (its text), Location,
        /// dictionaries with string keys, and other enumerables as lists.
        /// </summary>
        /// <returns>This.</returns>
        /// <exception cref="ArgumentException">Another type, or more than 100 levels of containers.</exception>
        /// <exception cref="AnalyticsException">The name is empty.</exception>
        public Properties Add(string name, object value)
        {
            var key = new Utf8(name);
            int status;
            // The usual kinds, without a handle.
            if (value is string text)
            {
                var utf8 = new Utf8(text);
                status = Native.zr_properties_add_string(Handle, key.Bytes, key.Length, utf8.Bytes, utf8.Length);
            }
            else if (value is bool boolean)
            {
                status = Native.zr_properties_add_bool(Handle, key.Bytes, key.Length, boolean ? 1 : 0);
            }
            else if (Values.IsInteger(value))
            {
                status = Native.zr_properties_add_integer(Handle, key.Bytes, key.Length, Convert.ToInt64(value));
            }
            else if (Values.IsReal(value))
            {
                status = Native.zr_properties_add_double(Handle, key.Bytes, key.Length, Convert.ToDouble(value));
            }
            else
            {
                using (ValueHandle other = Values.ToNative(value))
                {
                    status = Native.zr_properties_add(Handle, key.Bytes, key.Length, other);
                }
            }
            Library.Check(status);
            return this;
        }

        /// <summary>Sets whether the event is non-interactive: such an event neither starts nor extends a
        /// session.</summary>
        /// <returns>This.</returns>
        public Properties SetNonInteractive(bool nonInteractive)
        {
            Library.Check(Native.zr_properties_set_non_interactive(Handle, nonInteractive ? 1 : 0));
            return this;
        }

        /// <inheritdoc/>
        public void Dispose() => Handle.Dispose();
    }
}
