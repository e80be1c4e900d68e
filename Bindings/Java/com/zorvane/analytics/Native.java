package com.zorvane.analytics;

import java.util.HashMap;
import java.util.Locale;
import java.util.Map;
import java.util.TimeZone;
import java.util.concurrent.atomic.AtomicLong;
import java.util.function.Supplier;

/**
 * All that crosses between Java and the native library. The library calls the methods of the second half, and looks up
 * no other class. Texts are UTF-8; values and records have the form of {@link Values}. Statuses are 0 or the number of
 * a {@link AnalyticsException.Reason} from 1. A native method whose int is an answer returns a status below 0.
 */
final class Native {
  static {
    System.loadLibrary("zranalytics_jni");
  }

  private Native() {}

  /**
   * texts: endpoint, application identifier, folder, remote configuration. callbacks: log, transport, main loop,
   * background tasks, locale, time zone, advertising. Each may be null. journalBytes: below 0 for no journal.
   */
  static native int start(
      byte[][] texts,
      Object[] callbacks,
      boolean logToStandardError,
      int appStatus,
      int state,
      long journalBytes,
      double journalSync);

  static native int close(double seconds, boolean[] allSent);

  static native int lifecycle(int event);

  static native int enterForeground();

  static native int enterBackground();

  static native int backgroundTaskExpired(long task);

  static native int track(byte[] name, byte[] attributes, int size);

  static native int flush(Object completion);

  static native int disablePeriodicFlush();

  static native int setFlushInterval(long seconds);

  static native int setUserAttribute(byte[] key, byte[] value);

  static native int setUserDate(byte[] key, double seconds);

  static native int setUserLocation(byte[] key, double latitude, double longitude);

  static native int login(byte[] uniqueId);

  static native int setAlias(byte[] uniqueId);

  static native int setPushPreference(boolean wanted);

  static native int resetUser(Object completion);

  static native int initNewUser();

  static native int optOutOfDataTracking(boolean optOut);

  static native int optOutOfIdfvTracking(boolean optOut);

  static native int optOutOfIdfaTracking(boolean optOut);

  static native int updateOptOutEvents(byte[] names);

  static native int setPushConsent(byte[] key, byte[] value);

  static native int setSdkEnabled(boolean enabled);

  static native int appStatus(long status);

  static native int smartTriggerForAppStatus(long status);

  static native int trackSdkVersion();

  static native int trackReinstall();

  static native int updateDevice(Object completion);

  static native int pushTokenUpdated();

  static native int setDeviceModelAttributes();

  static native int trackLocale();

  static native int trackAdvertisingIdentifier();

  static native byte[] trackedIdfa();

  static native byte[] deviceRegistration();

  static native int openUrl(byte[] url);

  static native int processUrl(byte[] url);

  static native int isSourceValid(int form, byte[] content);

  static native int updateSources(int[] forms, byte[][] contents);

  static native long newCondition(byte[] json);

  static native void freeCondition(long condition);

  static native int checkCondition(long condition, byte[] name, byte[] record);

  static native byte[] eventRecord(byte[] name, byte[] attributes, int size);

  static native int setTrigger(int slot, Object trigger);

  static native int updateModules();

  static native int sessionStarted();

  static native int setAppId(byte[] appId, Object completion);

  static native int updateRemoteConfiguration(byte[] json);

  static native byte[] configuration();

  static native byte[] requestBody(long request);

  /** error: ends with a 0. */
  static native int respond(long request, int status, byte[] body, byte[] error);

  static native int runTask(long task);

  static native byte[] lastError();

  static native int lastStatus();

  static native byte[] version();

  static native boolean hasHttp();

  /** How many objects of the host the library refers to. */
  static native int countReferences();

  static AnalyticsException failure(int status) {
    return new AnalyticsException(AnalyticsException.Reason.values()[status - 1], Values.text(lastError()));
  }

  static void check(int status) {
    if (status != 0) {
      throw failure(status);
    }
  }

  static boolean answer(int answer) {
    if (answer < 0) {
      throw failure(-answer);
    }
    return answer != 0;
  }

  // What the library calls, on any thread. Nothing may be thrown to it.

  /** Runs a callback of the host. What it throws is printed: on Android an uncaught exception ends the application. */
  private static void run(Runnable callback) {
    try {
      callback.run();
    } catch (Throwable e) {
      e.printStackTrace();
    }
  }

  /** The same with a result: the fallback if it throws. */
  private static <T> T get(Supplier<T> callback, T fallback) {
    Object[] result = {fallback};
    run(() -> result[0] = callback.get());
    @SuppressWarnings("unchecked")
    T typed = (T) result[0];
    return typed;
  }

  static void log(Object log, int kind, byte[] message, byte[] file, int line, byte[] operation) {
    String text = Values.text(message);
    String where = line == 0 ? "" : Values.text(file) + ":" + line + " " + Values.text(operation);
    run(() -> ((Log) log).log(kind == 2, text, where));
  }

  static void send(Object transport, long handle, byte[] url, byte[] headers) {
    @SuppressWarnings({"unchecked", "rawtypes"})
    Map<String, String> texts = (Map) Values.decodeMap(headers);
    texts.put("Content-Type", "application/json; charset=utf-8");
    Request request = new Request(handle, Values.text(url), texts);
    run(
        () -> {
          try {
            ((Transport) transport).send(request);
          } catch (Throwable e) {
            request.failIfOpen(e);
            throw e;
          }
        });
  }

  static void post(Object mainLoop, long handle) {
    AtomicLong task = new AtomicLong(handle);
    run(
        () ->
            ((MainLoop) mainLoop)
                .executor
                .execute(
                    () -> {
                      long taken = task.getAndSet(0);
                      if (taken != 0) {
                        check(runTask(taken));
                      }
                    }));
  }

  static boolean isMainThread(Object mainLoop) {
    return get(((MainLoop) mainLoop).isMainThread::getAsBoolean, false);
  }

  static void beginBackgroundTask(Object tasks, long task, byte[] name) {
    run(() -> ((BackgroundTasks) tasks).begin(task, Values.text(name)));
  }

  static void endBackgroundTask(Object tasks, long task) {
    run(() -> ((BackgroundTasks) tasks).end(task));
  }

  /** Null or an empty text: unknown. */
  static byte[] locale(Object supplier, int question, byte[] argument) {
    return get(
        () -> {
          Locale locale = (Locale) ((Supplier<?>) supplier).get();
          String answer = LocaleAnswers.answer(locale, question, Values.text(argument));
          return answer.isEmpty() ? null : Values.utf8(answer);
        },
        null);
  }

  static long timeZone(Object supplier, double seconds) {
    return get(() -> ((TimeZone) ((Supplier<?>) supplier).get()).getOffset((long) (seconds * 1000)) / 1000L, 0L);
  }

  static byte[] advertising(Object supplier) {
    return get(() -> ((Advertising) ((Supplier<?>) supplier).get()).encode(), null);
  }

  static void completed(Object completion, boolean success) {
    run(() -> ((Completion) completion).completed(success));
  }

  /** The pairs that the trigger put into the record; null if there are none. */
  static byte[] trigger(Object trigger, byte[] name, byte[] record) {
    return get(
        () -> {
          Map<String, Object> map = Values.decodeMap(record);
          Map<String, Object> before = new HashMap<>(map);
          ((Trigger) trigger).tracked(Values.text(name), map);
          map.entrySet().removeIf(
              pair -> before.containsKey(pair.getKey()) && before.get(pair.getKey()) == pair.getValue());
          return map.isEmpty() ? null : Values.encode(map);
        },
        null);
  }
}
