import com.zorvane.analytics.Analytics;
import com.zorvane.analytics.Condition;
import com.zorvane.analytics.Location;
import com.zorvane.analytics.Properties;
import java.io.File;
import java.net.URI;
import java.time.Duration;
import java.time.Instant;
import java.util.List;
import java.util.Map;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A shop that counts the messages which an in-app module would show.
 *
 * <p>java Shop ENDPOINT FOLDER
 */
public final class Shop {
  private static final String BIG_ORDER =
      "{\"eventName\": \"Order placed\", \"filters\": [{\"name\": \"total\", \"data_type\": \"double\","
          + " \"operator\": \"greaterThan\", \"value\": 100}]}";

  public static void main(String[] args) {
    AtomicInteger messages = new AtomicInteger();
    boolean allSent;
    try (Condition bigOrder = new Condition(BIG_ORDER);
        Analytics analytics = Analytics.builder().endpoint(args[0]).appId("SHOP").folder(new File(args[1])).start()) {
      analytics.setTrigger(
          Analytics.Slot.IN_APP,
          (name, record) -> {
            if (bigOrder.isSatisfied(name, record)) {
              messages.incrementAndGet();
            }
          });

      analytics.login("anna");
      analytics.openUrl("shop://product/7?utm_source=mail&utm_campaign=winter");
      analytics.track("Product viewed", new Properties().put("product", "Trail shoe").put("position", 1));
      analytics.track(
          "Order placed",
          new Properties()
              .put("products", List.of("Trail shoe", "Socks"))
              .put("total", 129.5)
              .put("delivery", Instant.parse("2026-12-24T10:00:00Z"))
              .put("store", new Location(48.137154, 11.576124))
              .put("receipt", URI.create("https://shop.example/receipt/7")));
      analytics.track("Rated", Map.of("stars", 5, "tags", List.of("fast", "light")));
      analytics.enterBackground();
      analytics.enterForeground();
      // The end of the block closes the module, too, but does not tell the result.
      allSent = analytics.close(Duration.ofSeconds(10));
    }
    System.out.println("all sent: " + (allSent ? "yes" : "no") + ", messages: " + messages);
  }
}
