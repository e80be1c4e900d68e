package com.zorvane.analytics;

import java.net.URI;
import java.nio.BufferUnderflowException;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Date;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;

/**
 * Values as bytes, the form in which they cross to the native library: the number of the kind as a byte, then nothing
 * (null), a byte (boolean), 8 bytes (integer, double, date in seconds since 1970), 16 bytes (location), a length and
 * the bytes of a text in UTF-8, or a count and the items. A map's items have their key before them. Lengths and counts
 * take 4 bytes; all numbers are big-endian.
 */
final class Values {
  private static final int NULL = 0;
  private static final int BOOLEAN = 1;
  private static final int INTEGER = 2;
  private static final int DOUBLE = 3;
  private static final int STRING = 4;
  private static final int BYTES = 5;
  private static final int DATE = 6;
  private static final int URL = 7;
  private static final int LIST = 8;
  private static final int MAP = 9;
  private static final int LOCATION = 10;

  /** Deeper containers are refused, and so are those that contain themselves. */
  private static final int DEPTH_LIMIT = 100;

  private Values() {}

  static byte[] encode(Object value) {
    Writer writer = new Writer();
    writer.any(value);
    return Arrays.copyOf(writer.bytes, writer.size);
  }

  static Object decode(byte[] bytes) {
    try {
      return read(ByteBuffer.wrap(bytes));
    } catch (BufferUnderflowException e) {
      throw new IllegalStateException("the native library belongs to another version", e);
    }
  }

  @SuppressWarnings("unchecked")
  static Map<String, Object> decodeMap(byte[] bytes) {
    return (Map<String, Object>) decode(bytes);
  }

  static byte[] utf8(String text) {
    return text.getBytes(StandardCharsets.UTF_8);
  }

  static String text(byte[] utf8) {
    return utf8 == null ? null : new String(utf8, StandardCharsets.UTF_8);
  }

  static double seconds(Instant instant) {
    return instant.getEpochSecond() + instant.getNano() / 1e9;
  }

  static Instant instant(double seconds) {
    double whole = Math.floor(seconds);
    return Instant.ofEpochSecond((long) whole, Math.round((seconds - whole) * 1e9));
  }

  /** Appends values to an array that grows. */
  static final class Writer {
    byte[] bytes = new byte[128];
    int size;
    private int depth;

    private void room(int more) {
      if (bytes.length - size < more) {
        bytes = Arrays.copyOf(bytes, Math.max(Math.addExact(size, more), (int) Math.min(2L * size, 1 << 30)));
      }
    }

    /** Back to an earlier size, out of all containers. */
    void truncate(int earlierSize) {
      size = earlierSize;
      depth = 0;
    }

    private void kind(int kind) {
      room(1);
      bytes[size++] = (byte) kind;
    }

    private void number(long number, int length) {
      room(length);
      for (int shift = 8 * (length - 1); shift >= 0; shift -= 8) {
        bytes[size++] = (byte) (number >>> shift);
      }
    }

    private void real(double real) {
      number(Double.doubleToRawLongBits(real), 8);
    }

    private void content(byte[] content) {
      room(Math.addExact(content.length, 4));
      number(content.length, 4);
      System.arraycopy(content, 0, bytes, size, content.length);
      size += content.length;
    }

    /** A name or key, which has no kind. */
    void name(String name) {
      content(utf8(name));
    }

    void nothing() {
      kind(NULL);
    }

    void bool(boolean value) {
      kind(BOOLEAN);
      number(value ? 1 : 0, 1);
    }

    void integer(long value) {
      kind(INTEGER);
      number(value, 8);
    }

    void floating(double value) {
      kind(DOUBLE);
      real(value);
    }

    void string(String value) {
      byte[] content = utf8(value);
      kind(STRING);
      content(content);
    }

    void data(byte[] value) {
      Objects.requireNonNull(value);
      kind(BYTES);
      content(value);
    }

    void date(Instant value) {
      double seconds = seconds(value);
      kind(DATE);
      real(seconds);
    }

    void url(URI value) {
      byte[] content = utf8(value.toString());
      kind(URL);
      content(content);
    }

    void location(Location value) {
      Objects.requireNonNull(value);
      kind(LOCATION);
      real(value.latitude());
      real(value.longitude());
    }

    void list(Iterable<?> items) {
      Objects.requireNonNull(items);
      kind(LIST);
      int countAt = beginContainer();
      int count = 0;
      for (Object item : items) {
        any(item);
        ++count;
      }
      endContainer(countAt, count);
    }

    void map(Map<?, ?> pairs) {
      Objects.requireNonNull(pairs);
      kind(MAP);
      int countAt = beginContainer();
      int count = 0;
      for (Map.Entry<?, ?> pair : pairs.entrySet()) {
        if (!(pair.getKey() instanceof String)) {
          throw new IllegalArgumentException("a key of a map is no string");
        }
        name((String) pair.getKey());
        any(pair.getValue());
        ++count;
      }
      endContainer(countAt, count);
    }

    private int beginContainer() {
      if (++depth > DEPTH_LIMIT) {
        throw new IllegalArgumentException("containers are nested deeper than " + DEPTH_LIMIT + " levels");
      }
      number(0, 4);
      return size - 4;
    }

    private void endContainer(int countAt, int count) {
      ByteBuffer.wrap(bytes).putInt(countAt, count);
      --depth;
    }

    void any(Object value) {
      if (value == null) {
        nothing();
      } else if (value instanceof String) {
        string((String) value);
      } else if (value instanceof Boolean) {
        bool((Boolean) value);
      } else if (value instanceof Double || value instanceof Float) {
        floating(((Number) value).doubleValue());
      } else if (value instanceof Long || value instanceof Integer || value instanceof Short || value instanceof Byte) {
        integer(((Number) value).longValue());
      } else if (value instanceof Instant) {
        date((Instant) value);
      } else if (value instanceof Date) {
        date(((Date) value).toInstant());
      } else if (value instanceof URI) {
        url((URI) value);
      } else if (value instanceof byte[]) {
        data((byte[]) value);
      } else if (value instanceof Location) {
        location((Location) value);
      } else if (value instanceof Map) {
        map((Map<?, ?>) value);
      } else if (value instanceof Iterable) {
        list((Iterable<?>) value);
      } else {
        throw new IllegalArgumentException("no attribute can hold a " + value.getClass().getName());
      }
    }
  }

  private static Object read(ByteBuffer from) {
    int kind = from.get();
    switch (kind) {
      case NULL:
        return null;
      case BOOLEAN:
        return from.get() != 0;
      case INTEGER:
        return from.getLong();
      case DOUBLE:
        return from.getDouble();
      case STRING:
        return text(content(from));
      case BYTES:
        return content(from);
      case DATE:
        return instant(from.getDouble());
      case URL:
        return uriOrText(text(content(from)));
      case LIST:
        List<Object> list = new ArrayList<>();
        for (int count = from.getInt(); count > 0; --count) {
          list.add(read(from));
        }
        return list;
      case MAP:
        Map<String, Object> map = new LinkedHashMap<>();
        for (int count = from.getInt(); count > 0; --count) {
          String key = text(content(from));
          map.put(key, read(from));
        }
        return map;
      case LOCATION:
        double latitude = from.getDouble();
        return new Location(latitude, from.getDouble());
      default:
        throw new IllegalStateException("the native library belongs to another version");
    }
  }

  private static byte[] content(ByteBuffer from) {
    int length = from.getInt();
    if (length < 0 || length > from.remaining()) {
      throw new BufferUnderflowException();
    }
    byte[] content = new byte[length];
    from.get(content);
    return content;
  }

  private static Object uriOrText(String text) {
    try {
      return URI.create(text);
    } catch (IllegalArgumentException e) {
      return text;
    }
  }
}
