package com.zorvane.analytics;

/** Is told when the module needs time in the background. */
public interface BackgroundTasks {
  /**
   * Work begins: the system should not suspend the process before its end.
   *
   * @param task a number from 1
   * @param name "ZRVTask", "ZRVDeviceUpdateTask" or "bg_zrv_app_exit"
   */
  void begin(long task, String name);

  /**
   * Work ended.
   *
   * @param task as it began
   */
  void end(long task);
}
