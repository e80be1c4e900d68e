using System;
using System.Collections.Generic;

namespace Zorvane
{
    /// <summary>
    /// A request that waits to be sent: POST with a JSON body. Respond to each once; one that is dropped fails when it
    /// is collected. Any thread, also after the close of the module.
    /// </summary>
    public sealed class Request
    {
        private readonly object turn = new object();
        private readonly RequestHandle handle;

        internal Request(IntPtr request)
        {
            handle = new RequestHandle(request);
            Url = Library.TextOf(Native.zr_request_url(request, out UIntPtr length), length);
            var headers = new Dictionary<string, string> { { "Content-Type", "application/json; charset=utf-8" } };
            for (uint i = 0; ; ++i)
            {
                IntPtr name = Native.zr_request_header_name(request, (UIntPtr)i);
                if (name == IntPtr.Zero) break;
                headers[Library.TextOf(name)] = Library.TextOf(Native.zr_request_header_value(request, (UIntPtr)i));
            }
            Headers = headers;
        }

        /// <summary>Where to send it.</summary>
        public string Url { get; }

        /// <summary>The headers, the content type among them.</summary>
        public IReadOnlyDictionary<string, string> Headers { get; }

        /// <summary>The body, JSON in UTF-8. The first call makes it: call it just before sending.</summary>
        /// <exception cref="AnalyticsException">It cannot be made, for instance because the user opted out. Call Fail
        /// then.</exception>
        /// <exception cref="InvalidOperationException">The request has its response.</exception>
        public byte[] GetBody()
        {
            lock (turn)
            {
                RequireOpen();
                IntPtr body = Native.zr_request_body(handle.DangerousGetHandle(), out UIntPtr length);
                if (body == IntPtr.Zero) throw Library.Failure(Native.zr_last_status());
                byte[] result = Library.BytesOf(body, length);
                GC.KeepAlive(this);
                return result;
            }
        }

        /// <summary>Tells the response: the status of HTTP, and the body, which may be empty.</summary>
        /// <exception cref="InvalidOperationException">The request has its response.</exception>
        public void Respond(int status, byte[] body)
        {
            if (body == null) throw new ArgumentNullException(nameof(body));
            Respond(status, body.Length == 0 ? null : body, (UIntPtr)body.Length, null);
        }

        /// <summary>Tells that no response came; the reason is for the log.</summary>
        /// <exception cref="InvalidOperationException">The request has its response.</exception>
        public void Fail(string reason) => Respond(0, null, UIntPtr.Zero, new Utf8(reason).Bytes);

        private void Respond(int status, byte[] body, UIntPtr length, byte[] error)
        {
            IntPtr request;
            lock (turn)
            {
                RequireOpen();
                request = handle.Take();
            }
            Library.Check(Native.zr_request_respond(request, status, body, length, error));
        }

        /// <summary>For a transport that threw: fails the request unless it has its response.</summary>
        internal void FailIfOpen(Exception cause)
        {
            try
            {
                Fail(cause.Message);
            }
            catch (InvalidOperationException)
            {
                // It has.
            }
        }

        private void RequireOpen()
        {
            if (handle.IsInvalid) throw new InvalidOperationException("the request has its response");
        }
    }
}
