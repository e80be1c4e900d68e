package com.zorvane.analytics;

/** A call that failed. The message is one sentence. */
public final class AnalyticsException extends RuntimeException {
  private static final long serialVersionUID = 1;

  /** What went wrong. */
  public enum Reason {
    /** An argument is out of range, or of a kind that does not fit. */
    ARGUMENT,
    /** A text is not UTF-8. No Java string causes it. */
    UTF8,
    /** A text is not JSON, or JSON of another kind than is needed. */
    JSON,
    /** The module has not been started. */
    NOT_STARTED,
    /** The module has been started before; it starts once per process. */
    STARTED,
    /** {@link Analytics#close} has been called. */
    CLOSED,
    /** The remote configuration has an unknown key or a value of the wrong kind. */
    CONFIGURATION,
    /** The call is not allowed in a callback. */
    CALLBACK,
    /** The call is not allowed on this thread. */
    THREAD,
    /** The time is over. */
    TIMEOUT,
    /** Memory, threads or another resource of the system is missing. */
    SYSTEM
  }

  private final Reason reason;

  AnalyticsException(Reason reason, String message) {
    super(message);
    this.reason = reason;
  }

  /**
   * Says what went wrong.
   *
   * @return the reason, never null
   */
  public Reason reason() {
    return reason;
  }
}
