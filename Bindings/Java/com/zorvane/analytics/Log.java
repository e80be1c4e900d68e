package com.zorvane.analytics;

/** Takes log messages. */
@FunctionalInterface
public interface Log {
  /**
   * Takes a message. It must not call the module.
   *
   * @param isError whether an error was caught
   * @param message the text
   * @param where file, line and operation of an error; else empty
   */
  void log(boolean isError, String message, String where);
}
