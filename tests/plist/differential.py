#!/usr/bin/env python3
"""Differential test of wf-plutil against Python's plistlib.

A seeded generator makes random property lists (every type, keyed-archive
UIDs, nesting, non-ASCII and astral-plane keys, equal values to share, sizes
that need 1- to 4-byte offsets). Each is written by plistlib in XML or binary,
converted by wf-plutil both ways, and read back by plistlib: the value must be
unchanged. Where plistlib writes Foundation's XML layout (no reals, no data,
no keys beyond the Basic Multilingual Plane) our XML must be byte-identical.

usage: differential.py PLUTIL [--seed N] [--count N]
"""

import argparse
import datetime
import math
import os
import plistlib
import random
import shutil
import subprocess
import sys
import tempfile

BATCH = 500  # files per wf-plutil run


class Generator:
    def __init__(self, seed):
        self.r = random.Random(seed)
        self.pool = []  # earlier scalars, so that equal values recur

    def text(self, short=False):
        r = self.r
        n = r.randint(0, 6 if short else 30)
        alphabets = [
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 _-.$&<>\"'",
            "\u00e9\u00c5\u00fc\u00df\u0301\u4e2d\u6587\u0416\u05d0",
            "\ue000\uff21\ufffd\ud7ff\u3042",
            "\U0001f600\U00010000\U0001d11e\U0010fffd",
            "\t\n",
        ]
        weights = [70, 12, 6, 6, 2]
        return "".join(
            r.choice(r.choices(alphabets, weights)[0]) for _ in range(n)
        )

    def scalar(self):
        r = self.r
        if self.pool and r.random() < 0.25:
            return r.choice(self.pool)
        kind = r.randrange(9)
        if kind == 0:
            v = self.text()
        elif kind == 1:
            v = r.choice([0, 1, -1, 255, 256, 65535, 65536, 2**31, 2**32, 2**62])
            v = v * r.choice([1, -1]) + r.randint(-3, 3)
        elif kind == 2:
            v = r.choice(
                [r.randint(-(2**63), 2**64 - 1), r.randint(0, 2**63 - 1), 2**64 - 1, -(2**63)]
            )
        elif kind == 3:
            v = r.choice(
                [
                    r.uniform(-1e6, 1e6),
                    r.random(),
                    float(r.randint(-5, 5)),
                    math.inf,
                    -math.inf,
                    math.nan,
                    1e308,
                    5e-324,
                    -0.0,
                ]
            )
        elif kind == 4:
            v = r.random() < 0.5
        elif kind == 5:
            seconds = r.randint(0, (datetime.datetime(9999, 12, 31) - datetime.datetime(1, 1, 1)).days)
            v = datetime.datetime(1, 1, 1) + datetime.timedelta(
                days=seconds, seconds=r.randint(0, 86399)
            )
        elif kind == 6:
            v = bytes(r.randrange(256) for _ in range(r.randint(0, 40)))
        elif kind == 7:
            v = plistlib.UID(r.choice([0, 1, 255, 256, 65535, 65536, 2**32 - 1, r.randint(0, 1000)]))
        else:
            v = self.text(short=True)
        self.pool.append(v)
        return v

    def value(self, depth=0):
        r = self.r
        if depth >= 6 or r.random() < 0.35:
            return self.scalar()
        if r.random() < 0.5:
            return [self.value(depth + 1) for _ in range(r.randint(0, 8))]
        d = {}
        for _ in range(r.randint(0, 8)):
            d[self.text(short=True)] = self.value(depth + 1)
        return d

    def sized(self, nbytes):
        """A dictionary with a data value of about `nbytes` bytes."""
        return {"big": bytes(self.r.randrange(256) for _ in range(64)) * (nbytes // 64),
                "small": self.value(), "uid": plistlib.UID(7)}

    def many_objects(self, n):
        """An array of `n` distinct integers: references need 3 bytes."""
        return [i * 3 for i in range(n)] + [self.value()]


def uids_as_dicts(v):
    """The value as an XML reader that knows no UIDs sees it."""
    if isinstance(v, plistlib.UID):
        return {"CF$UID": v.data}
    if isinstance(v, list):
        return [uids_as_dicts(x) for x in v]
    if isinstance(v, dict):
        return {k: uids_as_dicts(x) for k, x in v.items()}
    return v


def walk(v):
    yield v
    if isinstance(v, list):
        for x in v:
            yield from walk(x)
    elif isinstance(v, dict):
        for k, x in v.items():
            yield k
            yield from walk(x)


def foundation_layout(v):
    """True where plistlib's XML is Foundation's: no reals, no data, BMP keys."""
    for x in walk(v):
        if isinstance(x, (float, bytes)):
            return False
        if isinstance(x, dict) and any(max(map(ord, k), default=0) > 0xFFFF for k in x):
            return False
    return True


def has_uid(v):
    return any(isinstance(x, plistlib.UID) for x in walk(v))


def same(a, b):
    """Strict equality: types must match (True is not 1), NaN equals NaN."""
    if type(a) is not type(b):
        return False
    if isinstance(a, float):
        return (math.isnan(a) and math.isnan(b)) or a == b
    if isinstance(a, list):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    if isinstance(a, dict):
        return a.keys() == b.keys() and all(same(a[k], b[k]) for k in a)
    if isinstance(a, plistlib.UID):
        return a.data == b.data
    return a == b


def plutil(tool, fmt, files):
    for i in range(0, len(files), BATCH):
        run = subprocess.run(
            [tool, "-convert", fmt] + files[i : i + BATCH], capture_output=True, text=True
        )
        if run.returncode != 0:
            sys.exit("wf-plutil -convert %s failed:\n%s" % (fmt, run.stderr[:4000]))


def offset_size(path):
    with open(path, "rb") as f:
        f.seek(-26, os.SEEK_END)
        return f.read(2)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("plutil")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=5000)
    args = parser.parse_args()

    gen = Generator(args.seed)
    values = [gen.value() for _ in range(args.count - 6)]
    # Sizes that need 2-, 3- and 4-byte offsets, and 3-byte references.
    values += [gen.sized(1000), gen.sized(300_000), gen.sized(17_000_000),
               gen.many_objects(70_000), [gen.value() for _ in range(300)], gen.scalar()]

    work = tempfile.mkdtemp(prefix="wf-plist-differential-")
    try:
        names = {d: [] for d in ("in", "bin", "xml", "xml-from-in", "bin-from-xml")}
        for d in names:
            os.mkdir(os.path.join(work, d))
        for i, v in enumerate(values):
            # XML cannot hold a UID for plistlib; Foundation's dictionary form does.
            as_xml = gen.r.random() < 0.5
            data = (
                plistlib.dumps(uids_as_dicts(v), fmt=plistlib.FMT_XML)
                if as_xml
                else plistlib.dumps(v, fmt=plistlib.FMT_BINARY)
            )
            for d in names:
                path = os.path.join(work, d, "%d.plist" % i)
                names[d].append(path)
                if d in ("in", "bin", "xml-from-in"):
                    with open(path, "wb") as f:
                        f.write(data)

        plutil(args.plutil, "binary1", names["bin"])
        for src, dst in zip(names["bin"], names["xml"]):
            shutil.copyfile(src, dst)
        plutil(args.plutil, "xml1", names["xml"])
        plutil(args.plutil, "xml1", names["xml-from-in"])
        for src, dst in zip(names["xml"], names["bin-from-xml"]):
            shutil.copyfile(src, dst)
        plutil(args.plutil, "binary1", names["bin-from-xml"])

        failures = []
        identical = 0
        offsets = set()
        for i, v in enumerate(values):
            def check(ok, what):
                if not ok:
                    failures.append("plist %d: %s\n  value: %r" % (i, what, v)[:2000])

            with open(names["bin"][i], "rb") as f:
                ours_bin = f.read()
            check(ours_bin.startswith(b"bplist00"), "binary1 did not write binary")
            offsets.add(ours_bin[-26])
            check(same(plistlib.loads(ours_bin), v), "value changed through binary1")
            with open(names["bin-from-xml"][i], "rb") as f:
                check(same(plistlib.loads(f.read()), v), "value changed through xml1 and back")
            with open(names["xml"][i], "rb") as f:
                ours_xml = f.read()
            check(same(plistlib.loads(ours_xml), uids_as_dicts(v)), "value changed through xml1")
            with open(names["xml-from-in"][i], "rb") as f:
                check(f.read() == ours_xml, "XML from the original differs from XML via binary")
            if foundation_layout(v):
                expected = plistlib.dumps(uids_as_dicts(v), fmt=plistlib.FMT_XML, sort_keys=True)
                check(ours_xml == expected, "XML differs from plistlib's")
                identical += 1

        missing = {1, 2, 3, 4} - offsets
        if missing:
            failures.append("no list needed offsets of %s bytes" % sorted(missing))
        uids = sum(1 for v in values if has_uid(v))
        print(
            "%d property lists (seed %d), %d with UIDs, %d compared byte for byte with plistlib's "
            "XML, offset sizes seen: %s" % (len(values), args.seed, uids, identical, sorted(offsets))
        )
        if failures:
            print("%d failures; the first ones:" % len(failures))
            for f in failures[:10]:
                print(f)
            return 1
        return 0
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
