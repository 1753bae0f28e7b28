"""An independent coder of keyed archives: `write` turns JSON on standard input into an archive on
standard output, `read` does the reverse. Archives follow the platform's layout; `--mutable` uses the
mutable classes, `--shared` shares equal texts. `layout` runs statements from standard input on a
good archive before it is written (see below)."""

import datetime
import json
import plistlib
import sys
from plistlib import UID


class Writer:
    def __init__(self, mutable, shared):
        self.objects = ["$null"]
        self.classes = {}
        self.texts = {} if shared else None
        self.mutable = "Mutable" if mutable else ""

    def place(self, item):
        self.objects.append(item)
        return UID(len(self.objects) - 1)

    def cls(self, kind, has_mutable=True):
        name = "NS" + (self.mutable if has_mutable else "") + kind
        if name not in self.classes:
            chain = [name] + (["NS" + kind] if name != "NS" + kind else []) + ["NSObject"]
            self.classes[name] = self.place(
                {"$classname": name, "$classes": chain, "$classhints": []})
        return self.classes[name]

    def add(self, value):
        if value is None:
            return self.place({"$class": self.place(
                {"$classname": "NSNull", "$classes": ["NSNull", "NSObject"]})})
        if isinstance(value, str):
            if self.mutable:
                return self.place({"NS.string": value, "$class": self.cls("String")})
            if self.texts is None:
                return self.place(value)
            if value not in self.texts:
                self.texts[value] = self.place(value)
            return self.texts[value]
        if isinstance(value, list):
            uid = self.place(None)
            self.objects[uid.data] = {"NS.objects": [self.add(item) for item in value],
                                      "$class": self.cls("Array")}
            return uid
        if isinstance(value, dict) and set(value) == {"bytes"}:
            data = bytes.fromhex(value["bytes"])
            return self.place({"NS.data": data, "$class": self.cls("Data")}
                              if self.mutable else data)
        if isinstance(value, dict) and set(value) == {"date"}:
            date = datetime.datetime.fromisoformat(value["date"])
            seconds = (date - datetime.datetime(2001, 1, 1)).total_seconds()
            return self.place({"NS.time": seconds, "$class": self.cls("Date", False)}
                              if self.mutable else date)
        if isinstance(value, dict):
            uid = self.place(None)
            # Keys are plain texts even where values are mutable.
            self.objects[uid.data] = {"NS.keys": [self.place(key) for key in value],
                                      "NS.objects": [self.add(item) for item in value.values()],
                                      "$class": self.cls("Dictionary")}
            return uid
        return self.place(value)


def read(archive):
    top = plistlib.loads(archive)
    assert top["$version"] == 100000 and top["$archiver"] == "NSKeyedArchiver"
    objects = top["$objects"]
    assert objects[0] == "$null"

    def value(uid):
        item = objects[uid.data]
        if isinstance(item, bytes):
            return {"bytes": item.hex()}
        if not isinstance(item, dict):
            return item
        description = objects[item["$class"].data]
        name = description["$classname"]
        assert description["$classes"][0] == name and description["$classes"][-1] == "NSObject"
        if name == "NSNull":
            return None
        if name == "NSArray":
            return [value(entry) for entry in item["NS.objects"]]
        assert name == "NSDictionary", name
        return {value(key): value(entry)
                for key, entry in zip(item["NS.keys"], item["NS.objects"], strict=True)}

    return value(top["$top"]["root"])


def layout(statements):
    """The archive of {"k": "k"} once the statements have changed its parts."""
    cls = lambda name: {"$classname": name, "$classes": [name, "NSObject"]}
    c = cls("NSDictionary")
    d = {"NS.keys": [UID(2)], "NS.objects": [UID(2)], "$class": UID(3)}
    o = ["$null", d, "k", c]
    top = {"$version": 100000, "$archiver": "NSKeyedArchiver",
           "$top": {"root": UID(1), "more": UID(0)}, "$objects": o}

    def put(item):
        o.append(item)
        return UID(len(o) - 1)

    swap = []  # bytes of the archive, and what stands in their place
    exec(statements, globals() | locals())
    data = plistlib.dumps(top, fmt=plistlib.FMT_BINARY, sort_keys=False)
    assert not swap or data.count(swap[0]) == 1
    return data.replace(*swap) if swap else data


if __name__ == "__main__":
    if sys.argv[1] == "read":
        json.dump(read(sys.stdin.buffer.read()), sys.stdout)
    elif sys.argv[1] == "layout":
        sys.stdout.buffer.write(layout(sys.stdin.read()))
    else:
        writer = Writer("--mutable" in sys.argv, "--shared" in sys.argv)
        root = writer.add(json.load(sys.stdin))
        sys.stdout.buffer.write(plistlib.dumps(
            {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": root},
             "$objects": writer.objects}, fmt=plistlib.FMT_BINARY, sort_keys=False))
