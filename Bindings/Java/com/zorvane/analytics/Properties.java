package com.zorvane.analytics;

import java.net.URI;
import java.time.Instant;
import java.util.Map;

/**
 * The attributes of an event. Attributes with the same name replace each other, but dates and locations add up. The
 * object may be used for several events and changed in between; each event keeps what it held. One thread at a time may
 * change it. It needs no closing.
 *
 * <p>A name must not be empty: {@link Analytics#track(String, Properties)} then throws {@link AnalyticsException}. An
 * unpaired surrogate in a text becomes "?". A null argument throws {@link NullPointerException}.
 */
public final class Properties {
  final Values.Writer writer = new Values.Writer();

  /** Makes properties without attributes. */
  public Properties() {}

  /**
   * Makes properties of a map, as by {@link #putAll}.
   *
   * @param attributes names and values
   * @return new properties
   */
  public static Properties of(Map<String, ?> attributes) {
    return new Properties().putAll(attributes);
  }

  /**
   * Adds a text.
   *
   * @param name of the attribute
   * @param value any text
   * @return this
   */
  public Properties put(String name, String value) {
    return add(name, value, writer::string);
  }

  /**
   * Adds a boolean.
   *
   * @param name of the attribute
   * @param value true or false
   * @return this
   */
  public Properties put(String name, boolean value) {
    writer.name(name);
    writer.bool(value);
    return this;
  }

  /**
   * Adds an integer.
   *
   * @param name of the attribute
   * @param value any integer
   * @return this
   */
  public Properties put(String name, long value) {
    writer.name(name);
    writer.integer(value);
    return this;
  }

  /**
   * Adds a number.
   *
   * @param name of the attribute
   * @param value any number; infinities and not-a-number are sent as null
   * @return this
   */
  public Properties put(String name, double value) {
    writer.name(name);
    writer.floating(value);
    return this;
  }

  /**
   * Adds a date.
   *
   * @param name of the attribute
   * @param value arrives as milliseconds since 1970
   * @return this
   */
  public Properties put(String name, Instant value) {
    return add(name, value, writer::date);
  }

  /**
   * Adds a location.
   *
   * @param name of the attribute
   * @param value arrives as text, "latitude,longitude"
   * @return this
   */
  public Properties put(String name, Location value) {
    return add(name, value, writer::location);
  }

  /**
   * Adds a URL.
   *
   * @param name of the attribute
   * @param value arrives as text
   * @return this
   */
  public Properties put(String name, URI value) {
    return add(name, value, writer::url);
  }

  /**
   * Adds bytes.
   *
   * @param name of the attribute
   * @param value arrives as hexadecimal text
   * @return this
   */
  public Properties put(String name, byte[] value) {
    return add(name, value, writer::data);
  }

  /**
   * Adds a list.
   *
   * @param name of the attribute
   * @param items of the kinds that the other methods take, their boxed types, lists, maps and null
   * @return this
   * @throws IllegalArgumentException for an item of another type, and beyond 100 levels of containers
   */
  public Properties put(String name, Iterable<?> items) {
    return add(name, items, writer::list);
  }

  /**
   * Adds a map.
   *
   * @param name of the attribute
   * @param pairs with values as the items of a list
   * @return this
   * @throws IllegalArgumentException for a value of another type, and beyond 100 levels of containers
   */
  public Properties put(String name, Map<String, ?> pairs) {
    return add(name, pairs, writer::map);
  }

  /**
   * Adds null, which arrives as an empty text.
   *
   * @param name of the attribute
   * @return this
   */
  public Properties putNull(String name) {
    writer.name(name);
    writer.nothing();
    return this;
  }

  /**
   * Adds an attribute for each pair.
   *
   * @param attributes with values as the items of a list
   * @return this
   * @throws IllegalArgumentException for a value of another type, and beyond 100 levels of containers; no attribute is
   *     added then
   */
  public Properties putAll(Map<String, ?> attributes) {
    int before = writer.size;
    try {
      for (Map.Entry<String, ?> attribute : attributes.entrySet()) {
        add(attribute.getKey(), attribute.getValue(), writer::any);
      }
    } catch (RuntimeException e) {
      writer.truncate(before);
      throw e;
    }
    return this;
  }

  /**
   * Says whether the event is non-interactive: such an event neither starts nor extends a session.
   *
   * @param nonInteractive false by default
   * @return this
   */
  public Properties nonInteractive(boolean nonInteractive) {
    return put("zrv_non_interactive", nonInteractive ? 1 : 0);
  }

  /** Writes one value. */
  private interface Write<T> {
    void write(T value);
  }

  /** Adds all of the attribute or, if that fails, nothing. */
  private <T> Properties add(String name, T value, Write<T> write) {
    int before = writer.size;
    try {
      writer.name(name);
      write.write(value);
    } catch (RuntimeException e) {
      writer.truncate(before);
      throw e;
    }
    return this;
  }
}
