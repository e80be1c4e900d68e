package com.zorvane.analytics;

import java.net.URI;
import java.util.Map;
import java.util.Objects;

/** A traffic source of the current visit. Immutable. */
public final class Source {
  final int form;
  final byte[] content;

  private Source(int form, Object content) {
    this.form = form;
    this.content = Values.encode(Objects.requireNonNull(content));
  }

  /**
   * Reads a source from the query of a URL.
   *
   * @param url such as "shop://product/7?utm_source=mail"
   * @return a source, not necessarily valid
   */
  public static Source ofUrl(String url) {
    return new Source(0, url);
  }

  /**
   * Reads a source from a URL, as {@link #ofUrl(String)}.
   *
   * @param url with a query
   * @return a source, not necessarily valid
   */
  public static Source ofUrl(URI url) {
    return ofUrl(url.toString());
  }

  /**
   * Reads a source from a push message.
   *
   * @param payload the message
   * @return a source, not necessarily valid
   */
  public static Source ofPush(Map<String, ?> payload) {
    return new Source(1, payload);
  }

  /**
   * Reads a source from a push message of the service's own campaigns.
   *
   * @param payload the message
   * @return a source, not necessarily valid
   */
  public static Source ofServicePush(Map<String, ?> payload) {
    return new Source(2, payload);
  }

  /**
   * Reads a source from its parts.
   *
   * @param parts with keys such as "utm_source"
   * @return a source, not necessarily valid
   */
  public static Source of(Map<String, ?> parts) {
    return new Source(3, parts);
  }

  /**
   * Says whether this names a source.
   *
   * @return false if there is nothing to report
   */
  public boolean isValid() {
    return Native.answer(Native.isSourceValid(form, content));
  }
}
