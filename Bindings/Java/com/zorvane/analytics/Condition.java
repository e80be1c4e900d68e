package com.zorvane.analytics;

import java.util.Map;

/**
 * A condition on events, made by the service. Any number of threads may check one. Close it when it is no longer
 * needed; it can be made and closed in any state of the module.
 */
public final class Condition implements AutoCloseable {
  private final long handle;
  private int users;
  private boolean closed;

  /**
   * Makes a condition.
   *
   * @param json the service's object with "eventName", "filters" and "filter_operator"; a malformed filter is never
   *     satisfied
   * @throws AnalyticsException if the text is no JSON object
   */
  public Condition(String json) {
    handle = Native.newCondition(Values.utf8(json));
    if (handle == 0) {
      throw Native.failure(Native.lastStatus());
    }
  }

  /**
   * Checks an event.
   *
   * @param name of the event
   * @param record as a {@link Trigger} gets it
   * @return whether the event satisfies the condition
   * @throws AnalyticsException before the start and after the close of the module
   * @throws IllegalStateException if this condition is closed
   */
  public boolean isSatisfied(String name, Map<String, ?> record) {
    byte[] nameBytes = Values.utf8(name);
    byte[] recordBytes = Values.encode(record);
    long used = acquire();
    try {
      return Native.answer(Native.checkCondition(used, nameBytes, recordBytes));
    } finally {
      release();
    }
  }

  private synchronized long acquire() {
    if (closed) {
      throw new IllegalStateException("the condition is closed");
    }
    ++users;
    return handle;
  }

  private synchronized void release() {
    if (--users == 0 && closed) {
      Native.freeCondition(handle);
    }
  }

  /** Closes the condition, which is freed when no check is under way. A second call does nothing. */
  @Override
  public synchronized void close() {
    if (!closed && users == 0) {
      Native.freeCondition(handle);
    }
    closed = true;
  }
}
