using System;
using System.Collections;
using System.Collections.Generic;

namespace Zorvane
{
    /// <summary>Values of the native library as objects.</summary>
    internal static class Values
    {
        /// <summary>Deeper containers are refused, and so are those that contain themselves.</summary>
        private const int DepthLimit = 100;

        private static readonly DateTimeOffset Epoch = new DateTimeOffset(1970, 1, 1, 0, 0, 0, TimeSpan.Zero);

        internal static double SecondsOf(DateTimeOffset date) =>
            (date.UtcTicks - Epoch.Ticks) / (double)TimeSpan.TicksPerSecond;

        /// <summary>The nearest date that there is.</summary>
        internal static DateTimeOffset DateOf(double seconds)
        {
            double ticks = Math.Round(seconds * TimeSpan.TicksPerSecond);
            if (!(ticks > -Epoch.Ticks)) return DateTimeOffset.MinValue;
            if (ticks >= DateTimeOffset.MaxValue.Ticks - Epoch.Ticks) return DateTimeOffset.MaxValue;
            return Epoch.AddTicks((long)ticks);
        }

        internal static bool IsInteger(object value) =>
            value is int || value is long || value is short || value is byte || value is sbyte || value is ushort ||
            value is uint || value is ulong;

        internal static bool IsReal(object value) => value is double || value is float || value is decimal;

        internal static ValueHandle ToNative(object value) => ToNative(value, 0);

        private static ValueHandle ToNative(object value, int depth)
        {
            if (value == null) return Handle.Made(Native.zr_value_null());
            if (value is string text)
            {
                var utf8 = new Utf8(text);
                return Handle.Made(Native.zr_value_string(utf8.Bytes, utf8.Length));
            }
            if (value is Uri url)
            {
                var utf8 = new Utf8(url.OriginalString);
                return Handle.Made(Native.zr_value_url(utf8.Bytes, utf8.Length));
            }
            if (value is bool boolean) return Handle.Made(Native.zr_value_bool(boolean ? 1 : 0));
            if (value is DateTimeOffset date) return Handle.Made(Native.zr_value_date(SecondsOf(date)));
            if (value is DateTime dateTime) return ToNative(new DateTimeOffset(dateTime), depth);
            if (value is byte[] bytes)
            {
                return Handle.Made(Native.zr_value_bytes(bytes.Length == 0 ? null : bytes, (UIntPtr)bytes.Length));
            }
            if (value is Location location)
            {
                return Handle.Made(Native.zr_value_location(location.Latitude, location.Longitude));
            }
            if (IsInteger(value)) return Handle.Made(Native.zr_value_integer(Convert.ToInt64(value)));
            if (IsReal(value)) return Handle.Made(Native.zr_value_double(Convert.ToDouble(value)));
            if (depth == DepthLimit)
            {
                throw new ArgumentException("containers are nested deeper than " + DepthLimit + " levels");
            }
            if (value is IEnumerable<KeyValuePair<string, object>> pairs)
            {
                return MapOf(pairs, pair => pair.Key, pair => pair.Value, depth);
            }
            if (value is IDictionary dictionary)
            {
                return MapOf(Entries(dictionary), entry => KeyOf(entry.Key), entry => entry.Value, depth);
            }
            if (value is IEnumerable items) return ListOf(items, depth);
            throw new ArgumentException("no attribute can hold a " + value.GetType());
        }

        private static IEnumerable<DictionaryEntry> Entries(IDictionary dictionary)
        {
            foreach (DictionaryEntry entry in dictionary) yield return entry;
        }

        private static string KeyOf(object key) =>
            key as string ?? throw new ArgumentException("a key of a dictionary is no string");

        private static ValueHandle ListOf(IEnumerable items, int depth)
        {
            ValueHandle list = Handle.Made(Native.zr_value_list());
            try
            {
                foreach (object item in items)
                {
                    using (ValueHandle value = ToNative(item, depth + 1))
                    {
                        Library.Check(Native.zr_value_append(list, value));
                    }
                }
                return list;
            }
            catch
            {
                list.Dispose();
                throw;
            }
        }

        private static ValueHandle MapOf<T>(IEnumerable<T> pairs, Func<T, string> key, Func<T, object> item, int depth)
        {
            ValueHandle map = Handle.Made(Native.zr_value_map());
            try
            {
                foreach (T pair in pairs)
                {
                    using (ValueHandle value = ToNative(item(pair), depth + 1))
                    {
                        var name = new Utf8(key(pair));
                        Library.Check(Native.zr_value_set(map, name.Bytes, name.Length, value));
                    }
                }
                return map;
            }
            catch
            {
                map.Dispose();
                throw;
            }
        }

        internal static object FromNative(IntPtr value)
        {
            UIntPtr length;
            double number;
            switch (Native.zr_value_kind(value))
            {
                case 1:
                    Library.Check(Native.zr_value_get_integer(value, out long boolean));
                    return boolean != 0;
                case 2:
                    Library.Check(Native.zr_value_get_integer(value, out long integer));
                    return integer;
                case 3:
                    Library.Check(Native.zr_value_get_double(value, out number));
                    return number;
                case 4:
                    return Library.TextOf(Native.zr_value_get_text(value, out length), length);
                case 5:
                    return Library.BytesOf(Native.zr_value_get_bytes(value, out length), length);
                case 6:
                    Library.Check(Native.zr_value_get_double(value, out number));
                    return DateOf(number);
                case 7:
                    string url = Library.TextOf(Native.zr_value_get_text(value, out length), length);
                    return Uri.TryCreate(url, UriKind.RelativeOrAbsolute, out Uri parsed) ? parsed : (object)url;
                case 8:
                    return ListFromNative(value);
                case 9:
                    return MapFromNative(value);
                case 10:
                    Library.Check(Native.zr_value_get_location(value, out number, out double longitude));
                    return new Location(number, longitude);
                default:
                    return null;
            }
        }

        private static List<object> ListFromNative(IntPtr list)
        {
            var result = new List<object>();
            ulong count = (ulong)Native.zr_value_count(list);
            for (ulong i = 0; i < count; ++i) result.Add(FromNative(Native.zr_value_item(list, (UIntPtr)i)));
            return result;
        }

        internal static Dictionary<string, object> MapFromNative(IntPtr map)
        {
            var result = new Dictionary<string, object>();
            ulong count = (ulong)Native.zr_value_count(map);
            for (ulong i = 0; i < count; ++i)
            {
                IntPtr key = Native.zr_value_key(map, (UIntPtr)i, out UIntPtr length);
                result[Library.TextOf(key, length)] = FromNative(Native.zr_value_item(map, (UIntPtr)i));
            }
            return result;
        }
    }
}
