package com.zorvane.analytics;

/**
 * A place on the earth.
 *
 * @param latitude degrees
 * @param longitude degrees
 */
public record Location(double latitude, double longitude) {}
