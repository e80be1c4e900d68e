using System;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

namespace Zorvane
{
    /// <summary>A handle of the native library, freed once: by Dispose or by the garbage collector.</summary>
    internal abstract class Handle : SafeHandle
    {
        private static int live;

        protected Handle() : base(IntPtr.Zero, true)
        {
        }

        /// <summary>How many handles are not freed yet.</summary>
        internal static int Live => Volatile.Read(ref live);

        public override bool IsInvalid => handle == IntPtr.Zero;

        /// <summary>Checks a handle that a function returned.</summary>
        internal static T Made<T>(T made) where T : Handle
        {
            if (made.IsInvalid) throw Library.Failure(Native.zr_last_status());
            Interlocked.Increment(ref live);
            return made;
        }

        /// <summary>Counts a handle that was given up.</summary>
        protected static void Given() => Interlocked.Decrement(ref live);

        protected override bool ReleaseHandle()
        {
            Free();
            Given();
            return true;
        }

        protected abstract void Free();
    }

    internal sealed class ValueHandle : Handle
    {
        protected override void Free() => Native.zr_value_free(handle);
    }

    internal sealed class PropertiesHandle : Handle
    {
        protected override void Free() => Native.zr_properties_free(handle);
    }

    internal sealed class ConditionHandle : Handle
    {
        protected override void Free() => Native.zr_condition_free(handle);
    }

    internal sealed class SourceHandle : Handle
    {
        protected override void Free() => Native.zr_source_free(handle);
    }

    internal sealed class OptionsHandle : Handle
    {
        protected override void Free() => Native.zr_options_free(handle);
    }

    /// <summary>A request that nobody refers to any more fails.</summary>
    internal sealed class RequestHandle : Handle
    {
        internal RequestHandle(IntPtr request)
        {
            SetHandle(request);
            Made(this);
        }

        /// <summary>Gives up the handle.</summary>
        internal IntPtr Take()
        {
            IntPtr taken = handle;
            SetHandle(IntPtr.Zero);
            Given();
            return taken;
        }

        protected override void Free() =>
            Native.zr_request_respond(handle, 0, null, UIntPtr.Zero, new Utf8("the host dropped the request").Bytes);
    }

    /// <summary>A text for the native library. An unpaired surrogate becomes U+FFFD.</summary>
    internal struct Utf8
    {
        /// <summary>Ends with a zero.</summary>
        internal readonly byte[] Bytes;

        /// <summary>Without that zero.</summary>
        internal readonly UIntPtr Length;

        internal Utf8(string text)
        {
            if (text == null) throw new ArgumentNullException();
            int length = Encoding.UTF8.GetByteCount(text);
            Bytes = new byte[length + 1];
            Encoding.UTF8.GetBytes(text, 0, text.Length, Bytes, 0);
            Length = (UIntPtr)length;
        }
    }

    /// <summary>What calls of the native library share.</summary>
    internal static class Library
    {
        internal static AnalyticsException Failure(int status) =>
            new AnalyticsException((AnalyticsError)status, TextOf(Native.zr_last_error()));

        internal static void Check(int status)
        {
            if (status != 0) throw Failure(status);
        }

        internal static byte[] BytesOf(IntPtr bytes, UIntPtr length)
        {
            var copy = new byte[(int)length];
            Marshal.Copy(bytes, copy, 0, copy.Length);
            return copy;
        }

        internal static string TextOf(IntPtr utf8, UIntPtr length) => Encoding.UTF8.GetString(BytesOf(utf8, length));

        /// <summary>Of a text that ends with a zero.</summary>
        internal static string TextOf(IntPtr utf8)
        {
            int length = 0;
            while (Marshal.ReadByte(utf8, length) != 0) ++length;
            return TextOf(utf8, (UIntPtr)length);
        }

        /// <summary>Takes a text that the caller must free; null for none.</summary>
        internal static string Taken(IntPtr text, UIntPtr length)
        {
            if (text == IntPtr.Zero) return null;
            try
            {
                return TextOf(text, length);
            }
            finally
            {
                Native.zr_free(text);
            }
        }
    }
}
