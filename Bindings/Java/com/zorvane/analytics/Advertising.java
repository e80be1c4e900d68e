package com.zorvane.analytics;

/**
 * Whether the device's advertising identifier may be used.
 *
 * @param permission what the user allows
 * @param identifier sent if the permission is {@link Permission#ALLOWED}; else null
 */
public record Advertising(Permission permission, String identifier) {
  /** What the user allows. */
  public enum Permission {
    /** This device has no advertising identifiers. */
    UNAVAILABLE,
    /** The user was asked and has not agreed. */
    DENIED,
    /** The user is not asked on this platform, and has limited ad tracking. */
    LIMITED,
    /** The identifier may be used. */
    ALLOWED
  }

  byte[] encode() {
    byte[] text = identifier == null ? new byte[0] : Values.utf8(identifier);
    byte[] result = new byte[text.length + 1];
    result[0] = (byte) permission.ordinal();
    System.arraycopy(text, 0, result, 1, text.length);
    return result;
  }
}
