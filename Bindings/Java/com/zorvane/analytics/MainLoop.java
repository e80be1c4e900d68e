package com.zorvane.analytics;

import java.util.Objects;
import java.util.concurrent.Executor;
import java.util.function.BooleanSupplier;

/** The main loop of the host. */
final class MainLoop {
  final Executor executor;
  final BooleanSupplier isMainThread;

  MainLoop(Executor executor, BooleanSupplier isMainThread) {
    this.executor = Objects.requireNonNull(executor);
    this.isMainThread = Objects.requireNonNull(isMainThread);
  }
}
