package com.zorvane.analytics;

import static com.zorvane.analytics.AnalyticsException.Reason;

import java.io.File;
import java.io.IOException;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.SimpleTimeZone;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.atomic.AtomicInteger;

/** One case per process: the module starts once. Prints "ok". */
final class JavaTests {
  private static final List<String> bodies = Collections.synchronizedList(new ArrayList<>());

  private static final class Failure extends RuntimeException {
    private static final long serialVersionUID = 1;

    Failure(String message) {
      super(message);
    }
  }

  private static void same(Object expected, Object actual) {
    if (!(expected instanceof byte[] ? Arrays.equals((byte[]) expected, (byte[]) actual) : expected.equals(actual))) {
      throw new Failure("expected " + expected + ", is " + actual);
    }
  }

  private static void accept(Request request) {
    same("application/json; charset=utf-8", request.headers().get("Content-Type"));
    bodies.add(new String(request.body(), StandardCharsets.UTF_8));
    throwsA(NullPointerException.class, () -> request.respond(200, null));
    request.respond(200, "{}".getBytes(StandardCharsets.UTF_8));
  }

  private static boolean sent(String part) {
    return bodies.stream().anyMatch(body -> body.contains(part));
  }

  private static Builder builder() throws IOException {
    Path folder = Files.createTempDirectory("java");
    Runtime.getRuntime().addShutdownHook(new Thread(() -> delete(folder.toFile())));
    return Analytics.builder().endpoint("http://127.0.0.1:9").appId("SHOP").folder(folder.toFile())
        .transport(JavaTests::accept);
  }

  private static void delete(File file) {
    File[] files = file.listFiles();
    if (files != null) {
      Arrays.stream(files).forEach(JavaTests::delete);
    }
    file.delete();
  }

  private static void refused(Reason reason, Runnable call) {
    try {
      call.run();
    } catch (AnalyticsException e) {
      same(reason, e.reason());
      same(false, e.getMessage().isEmpty());
      return;
    }
    throw new Failure("not refused: " + reason);
  }

  private static void throwsA(Class<? extends RuntimeException> type, Runnable call) {
    try {
      call.run();
    } catch (RuntimeException e) {
      same(type, e.getClass());
      return;
    }
    throw new Failure("threw no " + type);
  }

  private static List<Thread> startThreads(int count, java.util.function.IntConsumer work) {
    List<Thread> threads = new ArrayList<>();
    for (int i = 0; i < count; ++i) {
      int number = i;
      threads.add(new Thread(() -> work.accept(number)));
      threads.get(i).start();
    }
    return threads;
  }

  private static void join(List<Thread> threads) throws InterruptedException {
    for (Thread thread : threads) {
      thread.join();
    }
  }

  static void load(String url, String folder) throws Exception {
    AtomicInteger seen = new AtomicInteger();
    AtomicInteger flushes = new AtomicInteger();
    Analytics analytics = Analytics.builder().endpoint(url).appId("SHOP").folder(new File(folder)).start();
    analytics.setTrigger(Analytics.Slot.IN_APP, (name, record) -> seen.addAndGet(name.equals("Counted") ? 1 : 0));
    join(startThreads(4, first -> {
      for (int number = first; number < 100_000; number += 4) {
        analytics.track("Counted", new Properties().put("n", number).put("text", "some text"));
        if (number % 20_000 < 4) {
          analytics.flush(success -> flushes.incrementAndGet());
        }
      }
    }));
    same(true, analytics.close(Duration.ofMinutes(2)));
    same(100_000, seen.get());
    same(20, flushes.get());
    same(0, Native.countReferences());
  }

  static void textKeepsEveryCharacter() throws Exception {
    String text = "a\0b \ud83d\ude00 \u00fc \ud834\udd1e \ufffd \u20ac";
    Map<String, Object> all = new java.util.LinkedHashMap<>();
    all.put(text, text);
    all.put("list", Arrays.asList(null, true, Long.MIN_VALUE, 1.5, Map.of(text, List.of(text))));
    try (Analytics analytics = builder().start()) {
      Properties properties = Properties.of(all).put("unpaired", "\ud83d").putNull("none").put("bytes", new byte[] {-1});
      properties.put("url", URI.create("a://b")).put("date", Instant.ofEpochMilli(1500)).put("date", Instant.EPOCH);
      properties.put("place", new Location(1, 2)).put("empty", "");
      Map<String, Object> record = analytics.eventRecord(text, properties);
      all.putAll(Map.of("unpaired", "?", "none", "", "bytes", "ff", "url", "a://b", "empty", ""));
      same(all, record.get("EVENT_ATTRS"));
      same(Map.of("timestamp", List.of(Map.of("date", 1500.0), Map.of("date", 0.0)),
          "location", List.of(Map.of("place", "1.000000,2.000000"))), record.get("EVENT_ATTRS_CUST"));
      analytics.track(text, all);
    }
    same(true, sent("\"a\\u0000b \ud83d\ude00 "));
    List<Object> kinds = List.of(new Location(1, -2), Instant.ofEpochSecond(-5, 250_000_000), URI.create("a://b"));
    same(kinds, Values.decode(Values.encode(kinds)));
    same(new byte[] {0, -1}, Values.decode(Values.encode(new byte[] {0, -1})));
  }

  static void theHostAnswersAndHears() throws Exception {
    BlockingQueue<Runnable> loop = new LinkedBlockingQueue<>();
    Thread main = new Thread(() -> {
      try {
        while (true) {
          loop.take().run();
        }
      } catch (InterruptedException e) {
        // The end.
      }
    });
    main.setDaemon(true);
    main.start();
    List<String> lines = Collections.synchronizedList(new ArrayList<>());
    List<String> tasks = Collections.synchronizedList(new ArrayList<>());
    List<Object> changed = Collections.synchronizedList(new ArrayList<>());
    java.io.ByteArrayOutputStream printed = new java.io.ByteArrayOutputStream();
    System.setErr(new java.io.PrintStream(printed, true));
    CountDownLatch completed = new CountDownLatch(1);
    File folder = Files.createTempDirectory("java").toFile();
    Analytics analytics = builder().folder(folder).journal(1 << 21, Duration.ZERO)
        .log((isError, message, where) -> lines.add(message))
        .mainLoop(loop::add, () -> Thread.currentThread() == main)
        .backgroundTasks(new BackgroundTasks() {
          @Override
          public void begin(long task, String name) {
            tasks.add(name);
          }

          @Override
          public void end(long task) {
            tasks.add("end");
          }
        })
        .locale(() -> Locale.forLanguageTag("zh-Hans-AT")).timeZone(() -> new SimpleTimeZone(3_600_000, "X"))
        .advertising(() -> new Advertising(Advertising.Permission.ALLOWED, "AD-\u00fc")).start();
    analytics.setTrigger(Analytics.Slot.IN_APP, (name, record) -> {
      if (!name.equals("Deep")) {
        record.put("seen", 7L);
      }
      if (name.equals("Bad")) {
        throw new Failure("the trigger");
      }
    });
    analytics.setTrigger(Analytics.Slot.MESSAGING, (name, record) -> changed.add(record.get("seen")));
    analytics.track("Good");
    analytics.flush(success -> completed.countDown());
    completed.await();
    analytics.updateSources(List.of(Source.of(Map.of("utm_source", "mail")), Source.ofUrl("a://b?utm_source=x")));
    same(true, Source.of(Map.of("utm_source", "mail")).isValid());
    same(false, Source.ofUrl("a://b").isValid());
    analytics.setUserAttribute("since", Instant.EPOCH);
    analytics.setUserAttribute("tall", true);
    analytics.enterBackground();
    analytics.track("Bad");
    List<Object> deep = List.of();
    for (int level = 1; level < 100; ++level) {
      deep = List.of(deep);
    }
    analytics.track("Deep", new Properties().put("list", deep));
    same(1L << 21, new File(folder, "Library/ZrvData/ZREventJournal").length());
    same("AD-\u00fc", analytics.trackedAdvertisingIdentifier());
    same(true, analytics.configuration().startsWith("{"));
    same(true, analytics.close(Duration.ofMinutes(1)));
    main.interrupt();
    delete(folder);
    same(true, sent("{\"LOCALE_IDENTIFIER\":\"zh_Hans_AT\"}"));
    same(true, sent("{\"LOCALE_COUNTRY_DISPLAY\":\"\u5965\u5730\u5229\"}"));
    same(true, sent("+0100\""));
    same(true, lines.size() > 0 && tasks.contains("ZRVTask") && tasks.contains("end"));
    same(List.of("com.zorvane.analytics.JavaTests$Failure: the trigger"),
        printed.toString().lines().filter(line -> !line.startsWith("\t")).toList());
    // After an exception the changes of that trigger are lost.
    same(2L, changed.stream().filter(seen -> seen == null).count());
    same(true, changed.contains(7L));
    same(0, Native.countReferences());
  }

  static void misuseThrows() throws Exception {
    List<Object> itself = new ArrayList<>();
    itself.add(itself);
    Properties properties = new Properties().put("a", 1);
    throwsA(IllegalArgumentException.class, () -> properties.put("b", itself));
    throwsA(IllegalArgumentException.class, () -> properties.putAll(Map.of("b", new Object())));
    throwsA(IllegalArgumentException.class, () -> properties.put("b", Collections.singletonMap("c", new int[1])));
    throwsA(NullPointerException.class, () -> properties.put("b", (String) null));
    throwsA(NullPointerException.class, () -> properties.put(null, 1));
    refused(Reason.JSON, () -> new Condition("["));
    Builder builder = builder().remoteConfiguration("{\"no such key\": 1}");
    refused(Reason.CONFIGURATION, builder::start);
    Analytics analytics = builder.remoteConfiguration("{}").start();
    refused(Reason.STARTED, builder::start);
    same(Map.of("a", 1L), analytics.eventRecord("A", properties).get("EVENT_ATTRS"));
    refused(Reason.ARGUMENT, () -> analytics.track("A", new Properties().put("", 1)));
    refused(Reason.CONFIGURATION, () -> analytics.updateRemoteConfiguration("{\"s_i_d\": \"x\"}"));
    throwsA(NullPointerException.class, () -> analytics.track(null));
    Condition condition = new Condition("{\"eventName\": \"A\"}");
    same(true, condition.isSatisfied("A", Map.of()));
    condition.close();
    condition.close();
    throwsA(IllegalStateException.class, () -> condition.isSatisfied("A", Map.of()));
    List<Reason> inside = Collections.synchronizedList(new ArrayList<>());
    analytics.setTrigger(Analytics.Slot.IN_APP, (name, record) -> {
      try {
        analytics.close();
      } catch (AnalyticsException e) {
        inside.add(e.reason());
      }
    });
    analytics.track("A");
    same(true, analytics.close(Duration.ofMinutes(1)));
    same(Reason.CALLBACK, inside.get(0));
    same(true, analytics.close(Duration.ZERO));
    refused(Reason.CLOSED, () -> analytics.track("A"));
    refused(Reason.CLOSED, analytics::configuration);
    refused(Reason.CLOSED, builder::start);
    same(0, Native.countReferences());
  }

  static void callsRaceWithTheClose() throws Exception {
    Analytics analytics = builder().start();
    Condition condition = new Condition("{\"eventName\": \"A\"}");
    CountDownLatch warm = new CountDownLatch(4);
    List<Throwable> wrong = Collections.synchronizedList(new ArrayList<>());
    List<Thread> threads = startThreads(4, number -> {
      try {
        for (int i = 0; ; ++i) {
          if (i == 500) {
            warm.countDown();
          }
          analytics.track("A", new Properties().put("i", i));
          analytics.flush(success -> {});
          analytics.setTrigger(Analytics.Slot.IN_APP, (name, record) -> condition.isSatisfied(name, record));
        }
      } catch (AnalyticsException e) {
        if (e.reason() != Reason.CLOSED) {
          wrong.add(e);
        }
      }
    });
    warm.await();
    analytics.close(Duration.ofMinutes(1));
    condition.close();
    join(threads);
    same(List.of(), wrong);
    same(0, Native.countReferences());
  }

  private static long residentKilobytes() throws IOException {
    return Files.readAllLines(Path.of("/proc/self/status")).stream().filter(line -> line.startsWith("VmRSS"))
        .mapToLong(line -> Long.parseLong(line.replaceAll("\\D", ""))).findAny().getAsLong();
  }

  static void handlesDoNotLeak() throws Exception {
    String text = "x".repeat(2000);
    Properties properties = new Properties().put("list", List.of(text, Map.of(text, text)));
    Analytics analytics = builder().start();
    long before = 0;
    for (int round = 0; round < 4; ++round) {
      for (int i = 0; i < 2000; ++i) {
        new Condition("{\"eventName\": \"" + text + "\"}").close();
        Source.ofUrl("a://b?utm_source=" + text).isValid();
        analytics.eventRecord("A", properties);
        analytics.configuration();
      }
      before = round == 0 ? residentKilobytes() : before;
    }
    // Leaked texts alone would be 60 MB.
    same(true, residentKilobytes() - before < 25_000);
    analytics.close();
  }

  /** Events are on their way in all queues, and the module's threads are attached. */
  static void exitWithoutClose() throws Exception {
    Analytics analytics = builder().start();
    CountDownLatch seen = new CountDownLatch(1000);
    analytics.setTrigger(Analytics.Slot.IN_APP, (name, record) -> seen.countDown());
    for (int i = 0; i < 5000; ++i) {
      analytics.track("A");
      analytics.flush(success -> {});
    }
    seen.await();
  }

  public static void main(String[] args) throws Exception {
    switch (args[0]) {
      case "load" -> load(args[1], args[2]);
      case "TextKeepsEveryCharacter" -> textKeepsEveryCharacter();
      case "TheHostAnswersAndHears" -> theHostAnswersAndHears();
      case "MisuseThrows" -> misuseThrows();
      case "CallsRaceWithTheClose" -> callsRaceWithTheClose();
      case "HandlesDoNotLeak" -> handlesDoNotLeak();
      case "ExitWithoutClose" -> exitWithoutClose();
      default -> throw new IllegalArgumentException(args[0]);
    }
    System.out.println("ok");
  }
}
