#!/usr/bin/env python3
"""The peer of bench-openmeta: the same attribute work in Python.

For every file: set the tags (normalise to form D and drop case duplicates,
write the tag time, the file-manager tag list and the OpenMeta list), then
read them back (the file-manager list, the OpenMeta list, the merge flag,
written on first meeting). Prints the wall and CPU seconds the work took.
"""
import datetime
import os
import plistlib
import sys
import time
import unicodedata

TAGS_ATTR = "user.com.apple.metadata:kMDItemOMUserTags"
TIME_ATTR = "user.com.apple.metadata:kMDItemOMUserTagTime"
XDG_ATTR = "user.xdg.tags"
FLAG_ATTR = "user.kOM109SyncDone"


def normalise(tags):
    seen, out = set(), []
    for tag in tags:
        tag = unicodedata.normalize("NFD", tag)
        key = tag.lower()
        if key not in seen:
            seen.add(key)
            out.append(tag)
    return out


def set_tags(path, tags):
    tags = normalise(tags)
    now = datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None)
    os.setxattr(path, TIME_ATTR, plistlib.dumps(now), follow_symlinks=False)
    os.setxattr(path, XDG_ATTR, ",".join(tags).encode(), follow_symlinks=False)
    data = plistlib.dumps(tags)
    if len(data) > 4096:
        raise ValueError("too big")
    os.setxattr(path, TAGS_ATTR, data, follow_symlinks=False)


def get_tags(path):
    try:
        finder = [t for t in os.getxattr(path, XDG_ATTR, follow_symlinks=False).decode().split(",") if t]
    except OSError:
        finder = None
    try:
        openmeta = plistlib.loads(os.getxattr(path, TAGS_ATTR, follow_symlinks=False))
    except OSError:
        openmeta = None
    if not finder and not openmeta:
        return None
    try:
        plistlib.loads(os.getxattr(path, FLAG_ATTR, follow_symlinks=False))
    except OSError:
        os.setxattr(path, FLAG_ATTR, plistlib.dumps(True), follow_symlinks=False)
    return finder if finder == openmeta else None


def main():
    folder, count = sys.argv[1], int(sys.argv[2])
    tags = ["Work", "Home", "Urgent", "Project Alpha", "Café"]
    paths = [os.path.join(folder, "p%05d" % i) for i in range(count)]
    for p in paths:
        open(p, "w").close()
    start, cpu = time.perf_counter(), time.process_time()
    for p in paths:
        set_tags(p, tags)
        if get_tags(p) is None:
            raise SystemExit("read back failed for " + p)
    print("%.6f %.6f" % (time.perf_counter() - start, time.process_time() - cpu))


if __name__ == "__main__":
    main()
