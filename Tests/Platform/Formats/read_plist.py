"""Prints a property list as JSON, read by an implementation that is not ours."""

import datetime
import json
import plistlib
import sys


def plain(value):
    if isinstance(value, dict):
        return {key: plain(element) for key, element in value.items()}
    if isinstance(value, list):
        return [plain(element) for element in value]
    if isinstance(value, bytes):
        return "data:" + value.hex()
    if isinstance(value, plistlib.UID):
        return f"uid:{value.data}"
    if isinstance(value, datetime.datetime):
        return f"date:{value.replace(tzinfo=datetime.timezone.utc).timestamp()}"
    return value


with open(sys.argv[1], "rb") as file:
    content = plistlib.load(file)
print(json.dumps(plain(content), sort_keys=True, separators=(",", ":"), ensure_ascii=False), end="")
