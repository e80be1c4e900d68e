package com.zorvane.analytics;

/** Sends requests. */
@FunctionalInterface
public interface Transport {
  /**
   * Sends a request, and calls {@link Request#respond} or {@link Request#fail} once, here or later, on any thread. At
   * most six connections to a host should be open at a time; further requests wait in order. If it throws, the
   * request fails.
   *
   * @param request to send
   */
  void send(Request request);
}
