package com.zorvane.analytics;

import java.util.Map;

/** Sees recorded events. */
@FunctionalInterface
public interface Trigger {
  /**
   * Sees an event that was recorded; one at a time. Pairs that are put into the record are seen by the messaging
   * delegate; a change inside a value is not, and what is sent stays unchanged. Values are null, Boolean, Long, Double, String, byte[], Instant, URI,
   * Location, List and Map.
   *
   * @param name of the event
   * @param record what the event has
   */
  void tracked(String name, Map<String, Object> record);
}
