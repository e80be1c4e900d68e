package com.zorvane.analytics;

/** The end of an operation. */
@FunctionalInterface
public interface Completion {
  /**
   * Takes the result.
   *
   * @param success as the operation says
   */
  void completed(boolean success);
}
