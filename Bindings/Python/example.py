#!/usr/bin/env python3
"""usage: example.py ENDPOINT FOLDER

A shop that tracks an order and shows a message when one is big."""

import datetime
import sys

from zranalytics import Analytics, Condition, Location

big_order = Condition({"eventName": "Order placed",
                       "filters": [{"name": "total", "data_type": "double", "operator": "greaterThan", "value": 100}]})
messages = []


def show_message(name, record):
    """Called on a thread of the library: decide here, and leave the rest to a thread of your own."""
    if big_order.is_satisfied_by(name, record):
        messages.append(f"Thank you for ordering {len(record['EVENT_ATTRS']['products'])} products!")


with Analytics(endpoint=sys.argv[1], app_id="SHOP", folder=sys.argv[2]) as analytics:
    analytics.set_trigger(show_message)
    analytics.login("anna")
    analytics.open_url("shop://product/7?utm_source=mail&utm_campaign=winter")
    analytics.track("Product viewed", {"product": "Trail shoe", "position": 1})
    analytics.track("Order placed", {
        "products": ["Trail shoe", "Socks"],
        "total": 129.5,
        "delivery": datetime.datetime(2026, 12, 24, 10, tzinfo=datetime.timezone.utc),
        "store": Location(48.137154, 11.576124),
    })
    analytics.enter_background()
    analytics.enter_foreground()
print("\n".join(messages))
