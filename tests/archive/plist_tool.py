#!/usr/bin/python3
"""The other side of the archive tests: Python's own property-list module.

  plist_tool.py describe FILE...          one line for each file: what it holds
  plist_tool.py generate FOLDER COUNT SEED
      N.binary, N.xml and N.txt (the same line) for random values
  plist_tool.py archives FOLDER           keyed archives of a foreign shape
"""

import datetime
import os
import plistlib
import random
import struct
import sys

EPOCH = datetime.datetime(2001, 1, 1)


def describe(value):
    """One line of ASCII that two programs can compare."""
    if value is True:
        return "true"
    if value is False:
        return "false"
    if isinstance(value, int):
        return "i%d" % value
    if isinstance(value, float):
        return "r" + struct.pack(">d", value).hex()
    if isinstance(value, str):
        return "s" + value.encode("utf-8").hex()
    if isinstance(value, bytes):
        return "d" + value.hex()
    if isinstance(value, datetime.datetime):
        return "t" + struct.pack(">d", (value - EPOCH).total_seconds()).hex()
    if isinstance(value, plistlib.UID):
        return "u%d" % value.data
    if isinstance(value, list):
        return "[" + " ".join(describe(member) for member in value) + "]"
    if isinstance(value, dict):
        pairs = sorted((key.encode("utf-8"), member) for key, member in value.items())
        return "{" + " ".join("%s:%s" % (key.hex(), describe(member)) for key, member in pairs) + "}"
    raise TypeError(type(value))


TEXTS = ["", "a", "plain text", "x" * 14, "x" * 15, "x" * 300, "t\u00efle", "\u4e2d\u6587",
         "\U0001f600 smile", "e\u0301", "<&>\"'", "tab\tline\n", " blank ", "\u20ac" * 20]


def random_text(rng):
    if rng.random() < 0.5:
        return rng.choice(TEXTS)
    ranges = [(0x20, 0x7E), (0xA0, 0x2FF), (0x3000, 0xD7FF), (0x10000, 0x10FFFF)]
    low, high = rng.choice(ranges)
    return "".join(chr(rng.randint(low, high)) for _ in range(rng.randint(0, 20)))


def random_value(rng, depth, uids):
    kinds = ["bool", "int", "real", "text", "data", "date"] + (["uid"] if uids else [])
    if depth > 0:
        kinds += ["array", "dict"] * 3
    kind = rng.choice(kinds)
    if kind == "bool":
        return rng.random() < 0.5
    if kind == "int":
        edges = [0, 1, -1, 127, 128, 255, 256, 65535, 65536, 2**31, 2**32 - 1, 2**32, 2**53,
                 2**63 - 1, 2**63, 2**64 - 1, -2**63, -2**31]
        return rng.choice(edges) if rng.random() < 0.5 else rng.randint(-2**63, 2**64 - 1)
    if kind == "real":
        # Without -0.0, which the binary writer of this module stores as the 0.0 it has seen.
        edges = [0.0, 1.5, 0.1, 1e300, -1e-300, 5e-324, float("inf"), float("-inf")]
        return rng.choice(edges) if rng.random() < 0.5 else rng.uniform(-1e6, 1e6)
    if kind == "text":
        return random_text(rng)
    if kind == "data":
        return rng.randbytes(rng.choice([0, 1, 2, 3, 14, 15, 16, 100, 300]))
    if kind == "date":
        return EPOCH + datetime.timedelta(seconds=rng.randint(-60 * 10**9, 200 * 10**9))
    if kind == "uid":
        return plistlib.UID(rng.choice([0, 1, 255, 256, 65535, 65536, 2**32 - 1, 2**32, 2**64 - 1]))
    if kind == "array":
        return [random_value(rng, depth - 1, uids) for _ in range(rng.choice([0, 1, 2, 5, 20]))]
    return {random_text(rng): random_value(rng, depth - 1, uids)
            for _ in range(rng.choice([0, 1, 2, 5, 20]))}


def generate(folder, count, seed):
    rng = random.Random(seed)
    for i in range(count):
        # The XML writer of this module knows no UIDs.
        value = random_value(rng, 4, uids=i % 2 == 0)
        base = os.path.join(folder, str(i))
        with open(base + ".binary", "wb") as file:
            plistlib.dump(value, file, fmt=plistlib.FMT_BINARY)
        if i % 2 != 0:
            with open(base + ".xml", "wb") as file:
                plistlib.dump(value, file, fmt=plistlib.FMT_XML)
        with open(base + ".txt", "w", encoding="ascii") as file:
            file.write(describe(value))


UID = plistlib.UID


def described(*chain):
    return {"$classname": chain[0], "$classes": list(chain)}


def archive(objects, root=1, **header):
    parts = {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": UID(root)},
             "$objects": objects}
    parts.update(header)
    return parts


def shuffled(parts, seed):
    """The same archive with all entries but the first in another order, and its header too."""
    rng = random.Random(seed)
    objects = parts["$objects"]
    order = list(range(1, len(objects)))
    rng.shuffle(order)
    order = [0] + order
    place = {old: new for new, old in enumerate(order)}

    def moved(value):
        if isinstance(value, UID):
            return UID(place[value.data])
        if isinstance(value, list):
            return [moved(member) for member in value]
        if isinstance(value, dict):
            pairs = [(key, moved(member)) for key, member in value.items()]
            rng.shuffle(pairs)
            return dict(pairs)
        return value

    keys = list(parts)
    rng.shuffle(keys)
    result = {}
    for key in keys:
        if key == "$objects":
            result[key] = [moved(objects[old]) for old in order]
        else:
            result[key] = moved(parts[key])
    return result


def sample_archive():
    """A list of two samples that use every form of value."""
    return archive([
        "$null",
        {"$class": UID(2), "NS.objects": [UID(3), UID(15), UID(3)]},
        described("NSMutableArray", "NSArray", "NSObject"),
        {"$class": UID(14), "enabled": True, "count": -7, "ratio": 2.5, "title": UID(4),
         "types": UID(5), "url": UID(8), "bytes": UID(11), "any": UID(13), "friend": UID(0)},
        "t\u00eftle \U0001f600",
        {"$class": UID(6), "NS.objects": [UID(7)]},
        described("NSArray", "NSObject"),
        "public.image",
        {"$class": UID(9), "NS.base": UID(0), "NS.relative": UID(10),
         "NS.minimalBookmarkData": UID(11)},
        described("NSURL", "NSObject"),
        "file:///tmp/a%20folder/",
        {"$class": UID(12), "NS.data": b"\x00\x01\x02"},
        described("NSMutableData", "NSData", "NSObject"),
        {"$class": UID(17), "NS.keys": [UID(18), UID(22)], "NS.objects": [UID(19), UID(23)]},
        described("Sample", "NSObject"),
        {"$class": UID(16), "title": UID(21), "friend": UID(3), "enabled": False},
        described("DerivedSample", "Sample", "NSObject"),
        described("NSMutableDictionary", "NSDictionary", "NSObject"),
        "when",
        {"$class": UID(20), "NS.time": 12.5},
        described("NSDate", "NSObject"),
        {"$class": UID(24), "NS.string": "boxed"},
        "id",
        {"$class": UID(25), "NS.uuidbytes": bytes(range(16))},
        described("NSMutableString", "NSString", "NSObject"),
        described("NSUUID", "NSObject"),
    ])


def widened(data):
    """The same binary property list with references and offsets of eight bytes."""
    offset_size, ref_size, count, top, table = struct.unpack(">6xBBQQQ", data[-32:])
    offsets = [int.from_bytes(data[table + i * offset_size:table + (i + 1) * offset_size], "big")
               for i in range(count)]
    ends = sorted(offsets) + [table]
    out = b"bplist00"
    places = []
    for start in offsets:
        end = ends[ends.index(start) + 1]
        body = data[start:end]
        places.append(len(out))
        kind = body[0] >> 4
        if kind in (0xA, 0xD):
            head = 1
            length = body[0] & 15
            if length == 15:
                width = 1 << (body[1] & 15)
                length = int.from_bytes(body[2:2 + width], "big")
                head = 2 + width
            refs = body[head:]
            assert len(refs) == length * ref_size * (2 if kind == 0xD else 1)
            body = body[:head] + b"".join(
                int.from_bytes(refs[i:i + ref_size], "big").to_bytes(8, "big")
                for i in range(0, len(refs), ref_size))
        elif kind == 0x8:
            body = b"\x87" + int.from_bytes(body[1:], "big").to_bytes(8, "big")
        out += body
    table = len(out)
    out += b"".join(place.to_bytes(8, "big") for place in places)
    return out + struct.pack(">6xBBQQQ", 8, 8, count, top, table)


def archives(folder):
    def write(name, parts):
        data = plistlib.dumps(parts, fmt=plistlib.FMT_BINARY, sort_keys=False)
        with open(os.path.join(folder, name), "wb") as file:
            file.write(data)
        return data

    plain = write("plain", sample_archive())
    for seed in range(5):
        write("shuffled%d" % seed, shuffled(sample_archive(), seed))
    with open(os.path.join(folder, "wide"), "wb") as file:
        file.write(widened(plain))

    extra = sample_archive()
    extra["$objects"] += [
        {"$class": UID(len(extra["$objects"]) + 1), "secret": UID(9999)},
        described("NobodyKnowsThis", "NSObject"),
        "unused", "unused", 12345, b"unused", {"no": "class"}, [UID(77)],
        {"$class": UID(2), "NS.objects": [UID(5)]},
    ]
    write("unreferenced", extra)

    hinted = sample_archive()
    hinted["$extra"] = {"a": 1}
    for entry in hinted["$objects"]:
        if isinstance(entry, dict):
            entry["$classhints"] = ["Other"]
            entry["unknown"] = UID(9999)
    write("unknown-keys", hinted)

    duplicated = sample_archive()
    objects = duplicated["$objects"]
    objects.append(described("Sample", "NSObject"))
    objects[15]["title"] = UID(len(objects))
    objects.append("boxed")
    objects[3]["$class"] = UID(26)
    write("duplicates", duplicated)

    numbered = sample_archive()
    numbered["$top"] = {"$0": UID(1)}
    write("numbered-top", numbered)


def main(arguments):
    command = arguments[0]
    if command == "describe":
        for path in arguments[1:]:
            with open(path, "rb") as file:
                print(describe(plistlib.load(file)))
    elif command == "generate":
        generate(arguments[1], int(arguments[2]), int(arguments[3]))
    elif command == "archives":
        archives(arguments[1])
    else:
        sys.exit("unknown command " + command)


if __name__ == "__main__":
    main(sys.argv[1:])
