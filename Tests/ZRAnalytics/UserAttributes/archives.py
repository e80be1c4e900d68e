"""An independent writer and reader of keyed archives.

archives.py write FILE: an attribute cache as releases before this one wrote it.
archives.py read FILE: the graph of any archive as JSON; dates as "date SECONDS-SINCE-2001".
"""

import json
import plistlib
import sys

UID = plistlib.UID
DATE = 816948000.25


def write(path):
    objects = ["$null"]

    def add(entry):
        objects.append(entry)
        return UID(len(objects) - 1)

    def described(*names):
        return add({"$classname": names[0], "$classes": list(names)})

    root = add(None)
    array_class = described("NSMutableArray", "NSArray", "NSObject")
    date_class = described("NSDate", "NSObject")
    text_class = described("NSMutableString", "NSString", "NSObject")
    attribute_class = described("ZRUserAttribute", "NSObject")
    date = add({"NS.time": DATE, "$class": date_class})
    values = {
        "USER_ATTRIBUTE_UNIQUE_ID": "u\u00e4",
        "integer": 42,
        "big": 2**53 + 1,
        "double": 0.1,
        "bool": True,
        "mutable": {"NS.string": "text", "$class": text_class},
    }
    attributes = [
        add({
            "zrv_usr_attr_name": add(name),
            "zrv_usr_attr_val": add(value),
            "zrv_usr_attr_tracked_date": date,
            "$class": attribute_class,
        })
        for name, value in values.items()
    ]
    attributes.append(add({"zrv_usr_attr_name": add("missing"), "zrv_usr_attr_val": UID(0), "$class": attribute_class}))
    objects[root.data] = {
        "zrv_usr_attributes": add({"NS.objects": attributes, "$class": array_class}),
        "$class": described("ZRUserAttributeData", "NSObject"),
    }
    archive = {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": root}, "$objects": objects}
    with open(path, "wb") as file:
        plistlib.dump(archive, file, fmt=plistlib.FMT_BINARY)


def read(path):
    with open(path, "rb") as file:
        archive = plistlib.load(file)
    assert archive["$version"] == 100000 and archive["$archiver"] == "NSKeyedArchiver"
    objects = archive["$objects"]
    assert objects[0] == "$null"

    def plain(value):
        if not isinstance(value, UID):
            return value
        entry = objects[value.data]
        if value.data == 0:
            return None
        if not isinstance(entry, dict):
            return entry
        description = objects[entry["$class"].data]
        assert description["$classes"][0] == description["$classname"] and description["$classes"][-1] == "NSObject"
        name = description["$classname"]
        if name == "NSDate":
            return f"date {entry['NS.time']}"
        if name in ("NSArray", "NSMutableArray"):
            return [plain(element) for element in entry["NS.objects"]]
        if name in ("NSDictionary", "NSMutableDictionary"):
            return dict(zip(map(plain, entry["NS.keys"]), map(plain, entry["NS.objects"])))
        return {"$class": name} | {key: plain(part) for key, part in entry.items() if key != "$class"}

    print(json.dumps(plain(archive["$top"]["root"]), sort_keys=True, ensure_ascii=False), end="")


{"write": write, "read": read}[sys.argv[1]](sys.argv[2])
