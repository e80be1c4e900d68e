package com.zorvane.analytics;

import java.io.File;
import java.time.Duration;
import java.util.Locale;
import java.util.Objects;
import java.util.TimeZone;
import java.util.concurrent.Executor;
import java.util.function.BooleanSupplier;
import java.util.function.Supplier;

/**
 * What the module starts with: {@link Analytics#builder}. Everything but {@link #endpoint} and {@link #appId} may be
 * left out. Nothing is called before {@link #start}. One thread at a time may use a builder.
 *
 * <p>Callbacks are called on any thread, if nothing else is said, and must return soon. What they throw is printed
 * to {@link System#err}. The library lets go of them in {@link Analytics#close}.
 */
public final class Builder {
  private final byte[][] texts = new byte[4][];
  private final Object[] callbacks = new Object[7];
  private boolean logToStandardError;
  private Analytics.AppStatus appStatus = Analytics.AppStatus.INSTALLED;
  private Analytics.State state = Analytics.State.ACTIVE;
  private long journalBytes = -1;
  private double journalSync;

  Builder() {
    locale(Locale::getDefault);
    timeZone(TimeZone::getDefault);
  }

  /**
   * Sets the collection service. Without it, nothing is sent.
   *
   * @param url its base URL; slashes at its end are dropped
   * @return this
   */
  public Builder endpoint(String url) {
    texts[0] = Values.utf8(url);
    return this;
  }

  /**
   * Sets the application's identifier. Without it, nothing is sent.
   *
   * @param appId as the service knows it
   * @return this
   */
  public Builder appId(String appId) {
    texts[1] = Values.utf8(appId);
    return this;
  }

  /**
   * Sets the folder of the module's files, which are in "Documents", "Library" and "Defaults" below it. On Android:
   * {@code new File(context.getFilesDir(), "analytics")}; the default is for desktops, "zorvane" in $XDG_DATA_HOME or
   * ~/.local/share. Two applications must not share a folder.
   *
   * @param folder made when it is needed
   * @return this
   */
  public Builder folder(File folder) {
    texts[2] = Values.utf8(folder.getAbsolutePath());
    return this;
  }

  /**
   * Sets the remote configuration.
   *
   * @param json an object with its keys; {@link #start} checks keys and values
   * @return this
   */
  public Builder remoteConfiguration(String json) {
    texts[3] = Values.utf8(json);
    return this;
  }

  /**
   * Says how the module came to this device. It counts only at the first start on it.
   *
   * @param status {@link Analytics.AppStatus#INSTALLED} by default
   * @return this
   */
  public Builder appStatus(Analytics.AppStatus status) {
    appStatus = Objects.requireNonNull(status);
    return this;
  }

  /**
   * Sets the application's state at the start.
   *
   * @param state {@link Analytics.State#ACTIVE} by default
   * @return this
   */
  public Builder state(Analytics.State state) {
    this.state = Objects.requireNonNull(state);
    return this;
  }

  /**
   * Keeps a journal: an event whose call has returned is not lost by a kill. Default: none.
   *
   * @param bytes the size of its file; 0 means 1 MiB
   * @param sync how often it is synced, in case of a power loss; zero means never
   * @return this
   * @throws IllegalArgumentException for a size below 0
   */
  public Builder journal(long bytes, Duration sync) {
    if (bytes < 0) {
      throw new IllegalArgumentException("the size is below 0");
    }
    journalSync = sync.toNanos() / 1e9;
    journalBytes = bytes;
    return this;
  }

  /**
   * Sets the log. Without one, nothing is logged.
   *
   * @param log must not call the module
   * @return this
   */
  public Builder log(Log log) {
    callbacks[0] = Objects.requireNonNull(log);
    logToStandardError = false;
    return this;
  }

  /**
   * Logs each message as a line of the process's standard error.
   *
   * @return this
   */
  public Builder logToStandardError() {
    callbacks[0] = null;
    logToStandardError = true;
    return this;
  }

  /**
   * Sets what sends requests. Default: HTTP of the native library, if {@link Analytics#hasHttp}; else nothing is sent.
   *
   * @param transport sends each request and responds to it
   * @return this
   */
  public Builder transport(Transport transport) {
    callbacks[1] = Objects.requireNonNull(transport);
    return this;
  }

  /**
   * Lets the module do its work for the main thread on the host's. On Android: {@code new
   * Handler(Looper.getMainLooper())::post} and {@code () -> Looper.myLooper() == Looper.getMainLooper()}. Default: a
   * thread of the library.
   *
   * @param executor runs tasks on the main thread, in order; called on any thread
   * @param isMainThread whether the calling thread is the main thread
   * @return this
   */
  public Builder mainLoop(Executor executor, BooleanSupplier isMainThread) {
    callbacks[2] = new MainLoop(executor, isMainThread);
    return this;
  }

  /**
   * Sets what is told when the module needs time in the background. Default: nobody suspends the process.
   *
   * @param tasks is told
   * @return this
   */
  public Builder backgroundTasks(BackgroundTasks tasks) {
    callbacks[3] = Objects.requireNonNull(tasks);
    return this;
  }

  /**
   * Sets the user's locale.
   *
   * @param locale {@code Locale::getDefault} by default
   * @return this
   */
  public Builder locale(Supplier<Locale> locale) {
    callbacks[4] = Objects.requireNonNull(locale);
    return this;
  }

  /**
   * Sets the device's time zone.
   *
   * @param timeZone {@code TimeZone::getDefault} by default
   * @return this
   */
  public Builder timeZone(Supplier<TimeZone> timeZone) {
    callbacks[5] = Objects.requireNonNull(timeZone);
    return this;
  }

  /**
   * Sets the advertising identifier. Default: {@link Advertising.Permission#UNAVAILABLE}.
   *
   * @param advertising must not ask the user
   * @return this
   */
  public Builder advertising(Supplier<Advertising> advertising) {
    callbacks[6] = Objects.requireNonNull(advertising);
    return this;
  }

  /**
   * Starts the module: once per process. Call it on the main thread, if there is a main loop; else it waits until that
   * loop runs.
   *
   * @return the module
   * @throws AnalyticsException if it has been started before; after {@link AnalyticsException.Reason#CONFIGURATION}
   *     and {@link AnalyticsException.Reason#SYSTEM} another start is possible
   */
  public Analytics start() {
    Native.check(
        Native.start(
            texts, callbacks, logToStandardError, appStatus.ordinal(), state.ordinal(), journalBytes, journalSync));
    return new Analytics();
  }
}
