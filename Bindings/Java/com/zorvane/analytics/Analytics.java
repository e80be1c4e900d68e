package com.zorvane.analytics;

import java.time.Duration;
import java.time.Instant;
import java.util.Collection;
import java.util.List;
import java.util.Map;
import java.util.Objects;

/**
 * The analytics module of this process: records events, users and sessions, keeps them on the device, and sends them in
 * batches.
 *
 * <pre>{@code
 * try (Analytics analytics = Analytics.builder().endpoint(url).appId("SHOP").folder(folder).start()) {
 *   analytics.track("Order placed", new Properties().put("total", 129.5));
 * }
 * }</pre>
 *
 * <p>It starts once per process and closes once. A phone's application keeps it until the system ends the process, and
 * does not close it. Any thread may call any method, also in a callback. A call returns without I/O, if nothing else is
 * said; while the account is inactive, the SDK disabled or data tracking opted out, it does nothing.
 *
 * <p>A null argument throws {@link NullPointerException}, if nothing else is said. A wrong one, and any call after
 * {@link #close}, throws {@link AnalyticsException}. Callbacks run on a thread of the library and must return soon;
 * what they throw is printed to {@link System#err}.
 */
public final class Analytics implements AutoCloseable {
  /** The state of the application. */
  public enum State {
    /** In the foreground. */
    ACTIVE,
    /** In the foreground, without input. */
    INACTIVE,
    /** In the background. */
    BACKGROUND
  }

  /** How the module came to the device. */
  public enum AppStatus {
    /** The application was installed with the module. */
    INSTALLED,
    /** An application without the module was updated to one with it. */
    UPDATED
  }

  /** Which delegate a trigger is. The in-app delegate is called first. */
  public enum Slot {
    /** In-app messages. */
    IN_APP,
    /** Push messages. */
    MESSAGING
  }

  private static final Duration CLOSE_TIMEOUT = Duration.ofSeconds(10);

  private volatile boolean allSent;

  Analytics() {}

  /**
   * Makes a builder.
   *
   * @return a new builder
   */
  public static Builder builder() {
    return new Builder();
  }

  /**
   * The version of the native library.
   *
   * @return such as "1.0.0"
   */
  public static String version() {
    return Values.text(Native.version());
  }

  /**
   * Says whether the native library sends requests by itself.
   *
   * @return false: set a {@link Builder#transport}
   */
  public static boolean hasHttp() {
    return Native.hasHttp();
  }

  // End

  /**
   * Closes the module, waiting at most ten seconds: {@link #close(Duration)}. A second call does nothing.
   *
   * @throws AnalyticsException as the other one
   */
  @Override
  public void close() {
    close(CLOSE_TIMEOUT);
  }

  /**
   * Closes the module. What is recorded is saved and sent; what the service has not accepted by then goes with the next
   * launch. After it has returned no callback runs, and the library refers to none.
   *
   * @param timeout how long to wait for answers and callbacks
   * @return whether the service has accepted everything; a second call returns the same, or false while the first runs
   * @throws AnalyticsException in a callback; {@link AnalyticsException.Reason#TIMEOUT} if a callback did not end in
   *     time, the module is closed then, too
   */
  public boolean close(Duration timeout) {
    boolean[] sent = {false};
    int status = Native.close(timeout.toMillis() / 1000.0, sent);
    if (status == AnalyticsException.Reason.CLOSED.ordinal() + 1) {
      return allSent;
    }
    allSent = sent[0];
    Native.check(status);
    return sent[0];
  }

  // Lifecycle. These work on the main thread: before they return if called there, else later, in order

  /** The application became active. Main thread, as {@link #enterForeground}. */
  public void didBecomeActive() {
    Native.check(Native.lifecycle(1));
  }

  /** The application will become inactive. Main thread, as {@link #enterForeground}. */
  public void willResignActive() {
    Native.check(Native.lifecycle(2));
  }

  /** The application will enter the foreground. Main thread, as {@link #enterForeground}. */
  public void willEnterForeground() {
    Native.check(Native.lifecycle(3));
  }

  /** The application entered the background. Main thread, as {@link #enterForeground}. */
  public void didEnterBackground() {
    Native.check(Native.lifecycle(4));
  }

  /** The application will end. Main thread, as {@link #enterForeground}. */
  public void willTerminate() {
    Native.check(Native.lifecycle(5));
  }

  /**
   * {@link #willEnterForeground} and {@link #didBecomeActive}. Works on the main thread: before it returns if called
   * there, else later, in the order of the calls.
   */
  public void enterForeground() {
    Native.check(Native.enterForeground());
  }

  /** {@link #willResignActive} and {@link #didEnterBackground}, on the main thread. */
  public void enterBackground() {
    Native.check(Native.enterBackground());
  }

  /**
   * The time of a background task is nearly up. Ends the task, and the last one of its name.
   *
   * @param task as {@link BackgroundTasks#begin} got it; an unknown one is ignored
   */
  public void backgroundTaskExpired(long task) {
    Native.check(Native.backgroundTaskExpired(task));
  }

  // Events

  /**
   * Records an event without attributes.
   *
   * @param name of the event
   */
  public void track(String name) {
    Native.check(Native.track(Values.utf8(name), null, 0));
  }

  /**
   * Records an event. Events of one thread are recorded in the order of the calls.
   *
   * @param name of the event
   * @param properties its attributes
   */
  public void track(String name, Properties properties) {
    Values.Writer attributes = properties.writer;
    Native.check(Native.track(Values.utf8(name), attributes.bytes, attributes.size));
  }

  /**
   * Records an event.
   *
   * @param name of the event
   * @param attributes as {@link Properties#putAll} takes them
   */
  public void track(String name, Map<String, ?> attributes) {
    track(name, Properties.of(attributes));
  }

  /** Saves the events recorded so far and sends all saved batches. */
  public void flush() {
    flush(null);
  }

  /**
   * Saves the events recorded so far and sends all saved batches. An event tracked just before may not be recorded
   * yet; it goes with the next flush.
   *
   * @param completion may be null. It tells whether the service accepted everything or nothing was left to send;
   *     while another flush runs it is called at once with false. It is not called if the account is inactive
   */
  public void flush(Completion completion) {
    Native.check(Native.flush(completion));
  }

  /** Stops the flush timer; kept over restarts. Waits for the main thread. */
  public void disablePeriodicFlush() {
    Native.check(Native.disablePeriodicFlush());
  }

  /**
   * Sets the interval of the flush timer; kept over restarts.
   *
   * @param interval whole seconds; ignored unless above the remote minimum
   */
  public void setFlushInterval(Duration interval) {
    Native.check(Native.setFlushInterval(interval.getSeconds()));
  }

  // The user

  /**
   * Sets an attribute of the user, which is sent if it changed. Two of one thread may be sent in either order.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, String value) {
    Native.check(Native.setUserAttribute(Values.utf8(key), Values.encode(Objects.requireNonNull(value))));
  }

  /**
   * Sets an attribute of the user, which is sent if it changed. Two of one thread may be sent in either order.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, boolean value) {
    Native.check(Native.setUserAttribute(Values.utf8(key), Values.encode(value)));
  }

  /**
   * Sets an attribute of the user, which is sent if it changed. Two of one thread may be sent in either order.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, long value) {
    Native.check(Native.setUserAttribute(Values.utf8(key), Values.encode(value)));
  }

  /**
   * Sets an attribute of the user, which is sent if it changed. Two of one thread may be sent in either order.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, double value) {
    Native.check(Native.setUserAttribute(Values.utf8(key), Values.encode(value)));
  }

  /**
   * Sets an attribute of the user, which is sent at each call.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, Instant value) {
    Native.check(Native.setUserDate(Values.utf8(key), Values.seconds(value)));
  }

  /**
   * Sets an attribute of the user, which is sent at each call.
   *
   * @param key of the attribute
   * @param value its value
   */
  public void setUserAttribute(String key, Location value) {
    Native.check(Native.setUserLocation(Values.utf8(key), value.latitude(), value.longitude()));
  }

  /**
   * Logs a user in. If another one is logged in, that one is logged out first, as by {@link #resetUser}.
   *
   * @param uniqueId is trimmed
   */
  public void login(String uniqueId) {
    Native.check(Native.login(Values.utf8(uniqueId)));
  }

  /**
   * Renames the current user without a logout. Writes a file.
   *
   * @param uniqueId the new name
   */
  public void setAlias(String uniqueId) {
    Native.check(Native.setAlias(Values.utf8(uniqueId)));
  }

  /**
   * Sets the attribute "USER_PUSH_PREFERENCE".
   *
   * @param wanted whether the user wants push messages
   */
  public void setPushPreference(boolean wanted) {
    Native.check(Native.setPushPreference(wanted));
  }

  /**
   * Logs this user out and begins the next: logout event, flush, a new session, a new registration of the device.
   *
   * @param completion may be null. It tells whether requests were made and all were accepted. While another flush
   *     runs it is called at once with false, and again when that flush ends. It is not called if the account is
   *     inactive or the logout event is not accepted
   */
  public void resetUser(Completion completion) {
    Native.check(Native.resetUser(completion));
  }

  /** The second part of a reset, for a host that begins a new user itself. */
  public void initNewUser() {
    Native.check(Native.initNewUser());
  }

  // Consent; kept over restarts

  /**
   * Opting out deletes stored events and cached attributes and stops all events but the excepted ones.
   *
   * @param optOut false: opt in again
   */
  public void optOutOfDataTracking(boolean optOut) {
    Native.check(Native.optOutOfDataTracking(optOut));
  }

  /**
   * Opting out keeps the vendor identifier out of later registrations and attributes.
   *
   * @param optOut false: opt in again
   */
  public void optOutOfIdfvTracking(boolean optOut) {
    Native.check(Native.optOutOfIdfvTracking(optOut));
  }

  /**
   * Opting out keeps the advertising identifier out of later registrations and attributes.
   *
   * @param optOut false: opt in again
   */
  public void optOutOfIdfaTracking(boolean optOut) {
    Native.check(Native.optOutOfIdfaTracking(optOut));
  }

  /**
   * Excepts events: they are tracked even while data tracking is opted out. Not kept over restarts.
   *
   * @param names of events, added to the earlier ones
   */
  public void updateOptOutEvents(Collection<String> names) {
    Native.check(Native.updateOptOutEvents(Values.encode(List.copyOf(names))));
  }

  /**
   * Sends a push consent attribute at each call.
   *
   * @param key "ZORVANE_PUSH_OPTED_OUT" is sent even while data tracking is opted out
   * @param value its value
   */
  public void setPushConsent(String key, String value) {
    Native.check(Native.setPushConsent(Values.utf8(key), Values.encode(Objects.requireNonNull(value))));
  }

  /**
   * Sends a push consent attribute at each call.
   *
   * @param key "ZORVANE_PUSH_OPTED_OUT" is sent even while data tracking is opted out
   * @param value its value
   */
  public void setPushConsent(String key, boolean value) {
    Native.check(Native.setPushConsent(Values.utf8(key), Values.encode(value)));
  }

  /**
   * Disabling deletes stored events, cached attributes and the session, and waits for the main thread. Enabling begins
   * a session.
   *
   * @param enabled true at first
   */
  public void setSdkEnabled(boolean enabled) {
    Native.check(Native.setSdkEnabled(enabled));
  }

  // Device and installation. The start does most of this

  /**
   * Tells how the module came to this device. It counts only in the first call ever, which the start makes.
   *
   * @param status of the application
   */
  public void appStatus(AppStatus status) {
    Native.check(Native.appStatus(status.ordinal()));
  }

  /**
   * Tracks the status's event, whatever the version; an installation only once.
   *
   * @param status of the application
   */
  public void smartTriggerForAppStatus(AppStatus status) {
    Native.check(Native.smartTriggerForAppStatus(status.ordinal()));
  }

  /** Stores the version of the SDK if it is new. */
  public void trackSdkVersion() {
    Native.check(Native.trackSdkVersion());
  }

  /** Tracks a reinstallation. */
  public void trackReinstall() {
    Native.check(Native.trackReinstall());
  }

  /**
   * Registers the device.
   *
   * @param completion may be null. It tells whether the service accepted; on the transport's thread. It is not called
   *     if no request is made
   */
  public void updateDevice(Completion completion) {
    Native.check(Native.updateDevice(completion));
  }

  /** Registers the device anew after a change of the push token. */
  public void pushTokenUpdated() {
    Native.check(Native.pushTokenUpdated());
  }

  /** Sends model, name, system version and vendor identifier, of the remote configuration. */
  public void setDeviceModelAttributes() {
    Native.check(Native.setDeviceModelAttributes());
  }

  /** Sends what changed of the locale. */
  public void trackLocale() {
    Native.check(Native.trackLocale());
  }

  /** Sends the advertising identifier if it changed. */
  public void trackAdvertisingIdentifier() {
    Native.check(Native.trackAdvertisingIdentifier());
  }

  /**
   * The advertising identifier tracked last.
   *
   * @return null if there is none
   */
  public String trackedAdvertisingIdentifier() {
    String identifier = Values.text(Native.trackedIdfa());
    return identifier == null || identifier.isEmpty() ? null : identifier;
  }

  /**
   * The body of a device registration.
   *
   * @return JSON
   */
  public String deviceRegistration() {
    return Values.text(required(Native.deviceRegistration()));
  }

  // Links and traffic sources

  /**
   * A URL opened the application: call it for each. Works on the main thread, as {@link #enterForeground}.
   *
   * @param url any text
   */
  public void openUrl(String url) {
    Native.check(Native.openUrl(Values.utf8(url)));
  }

  /**
   * The part of {@link #openUrl} that does nothing while the module intercepts opened URLs.
   *
   * @param url any text
   */
  public void processUrl(String url) {
    Native.check(Native.processUrl(Values.utf8(url)));
  }

  /**
   * Sets the traffic sources of the current visit. They may begin a new session.
   *
   * @param sources may be empty
   */
  public void updateSources(Collection<Source> sources) {
    int[] forms = new int[sources.size()];
    byte[][] contents = new byte[forms.length][];
    int index = 0;
    for (Source source : sources) {
      forms[index] = source.form;
      contents[index++] = source.content;
    }
    Native.check(Native.updateSources(forms, contents));
  }

  // For other modules of the SDK

  /**
   * Sets what sees recorded events. A call of the earlier trigger may still be running on another thread.
   *
   * @param slot which delegate
   * @param trigger null: none
   */
  public void setTrigger(Slot slot, Trigger trigger) {
    Native.check(Native.setTrigger(slot.ordinal(), trigger));
  }

  /**
   * The record that an event with these properties would have now, as a {@link Trigger} gets it.
   *
   * @param name of the event
   * @param properties its attributes
   * @return a new map
   */
  public Map<String, Object> eventRecord(String name, Properties properties) {
    Values.Writer attributes = properties.writer;
    return Values.decodeMap(required(Native.eventRecord(Values.utf8(name), attributes.bytes, attributes.size)));
  }

  // The core

  /** Begins or continues the session and sends what earlier sessions left, as at the start. */
  public void updateModules() {
    Native.check(Native.updateModules());
  }

  /** Tracks the session's start; the lifecycle does. */
  public void sessionStarted() {
    Native.check(Native.sessionStarted());
  }

  /**
   * Switches to another application identifier: flushes, resets the user.
   *
   * @param appId the new identifier
   * @param completion may be null. It is called with true, but not if the account is inactive
   */
  public void setAppId(String appId, Completion completion) {
    Native.check(Native.setAppId(Values.utf8(appId), completion));
  }

  /**
   * Changes the remote configuration. After {@link AnalyticsException.Reason#CONFIGURATION} nothing has changed.
   *
   * @param json an object with the keys to change
   */
  public void updateRemoteConfiguration(String json) {
    Native.check(Native.updateRemoteConfiguration(Values.utf8(json)));
  }

  /**
   * The configuration in effect.
   *
   * @return JSON
   */
  public String configuration() {
    return Values.text(required(Native.configuration()));
  }

  private static byte[] required(byte[] result) {
    if (result == null) {
      throw Native.failure(Native.lastStatus());
    }
    return result;
  }
}
