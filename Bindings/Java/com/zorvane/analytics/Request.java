package com.zorvane.analytics;

import java.util.Collections;
import java.util.Map;

/**
 * A request that waits to be sent: POST with a JSON body. Respond to each once. The methods may be called on any
 * thread, also after {@link Analytics#close}.
 */
public final class Request {
  private final String url;
  private final Map<String, String> headers;
  private long handle;

  Request(long handle, String url, Map<String, String> headers) {
    this.handle = handle;
    this.url = url;
    this.headers = Collections.unmodifiableMap(headers);
  }

  /**
   * Where to send it.
   *
   * @return the URL
   */
  public String url() {
    return url;
  }

  /**
   * The headers, the content type among them.
   *
   * @return names and values
   */
  public Map<String, String> headers() {
    return headers;
  }

  /**
   * The body. The first call makes it: call it just before sending.
   *
   * @return JSON in UTF-8
   * @throws AnalyticsException if it cannot be made, for instance because the user opted out: call fail then
   * @throws IllegalStateException after a response
   */
  public synchronized byte[] body() {
    requireOpen();
    byte[] body = Native.requestBody(handle);
    if (body == null) {
      throw Native.failure(Native.lastStatus());
    }
    return body;
  }

  /**
   * Tells the response. The module may work on it in this call.
   *
   * @param status of HTTP
   * @param body of the response, may be empty
   * @throws IllegalStateException after another response
   */
  public void respond(int status, byte[] body) {
    byte[] copy = body.clone();
    Native.check(Native.respond(take(), status, copy, null));
  }

  /**
   * Tells that no response came.
   *
   * @param reason for the log
   * @throws IllegalStateException after another response
   */
  public void fail(String reason) {
    byte[] text = Values.utf8(reason.replace('\0', ' ') + '\0');
    Native.check(Native.respond(take(), 0, null, text));
  }

  private synchronized long take() {
    requireOpen();
    long taken = handle;
    handle = 0;
    return taken;
  }

  private void requireOpen() {
    if (handle == 0) {
      throw new IllegalStateException("the request has its response");
    }
  }

  /** For a transport that threw: fails the request unless it has its response. */
  void failIfOpen(Throwable cause) {
    try {
      fail(cause.toString());
    } catch (IllegalStateException e) {
      // It has.
    }
  }
}
