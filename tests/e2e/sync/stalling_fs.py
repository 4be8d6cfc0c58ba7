#!/usr/bin/python3
"""A file system that stops answering, as a network share whose server is gone.

stalling_fs.py ROOT MOUNTPOINT FLAG: ROOT is shown at MOUNTPOINT; while the
file FLAG exists (outside the mount), every request waits.
"""
import errno
import os
import sys
import time

try:
    from fusepy import FUSE, FuseOSError, Operations  # Debian's python3-fusepy
except ImportError:
    from fuse import FUSE, FuseOSError, Operations


class Stalling(Operations):
    def __init__(self, root, flag):
        self.root = root
        self.flag = flag

    def _path(self, path):
        while os.path.exists(self.flag):
            time.sleep(0.05)
        return os.path.join(self.root, path.lstrip("/"))

    def getattr(self, path, fh=None):
        try:
            st = os.lstat(self._path(path))
        except OSError as e:
            raise FuseOSError(e.errno)
        return {k: getattr(st, k) for k in (
            "st_mode", "st_nlink", "st_size", "st_uid", "st_gid",
            "st_atime", "st_mtime", "st_ctime", "st_ino")}

    def readdir(self, path, fh):
        return [".", ".."] + os.listdir(self._path(path))

    def access(self, path, mode):
        if not os.access(self._path(path), mode):
            raise FuseOSError(errno.EACCES)

    def statfs(self, path):
        st = os.statvfs(self._path(path))
        return {k: getattr(st, k) for k in (
            "f_bavail", "f_bfree", "f_blocks", "f_bsize", "f_favail", "f_ffree",
            "f_files", "f_flag", "f_frsize", "f_namemax")}

    def open(self, path, flags):
        return os.open(self._path(path), flags)

    def read(self, path, size, offset, fh):
        self._path(path)
        os.lseek(fh, offset, os.SEEK_SET)
        return os.read(fh, size)

    def release(self, path, fh):
        return os.close(fh)


if __name__ == "__main__":
    root, mountpoint, flag = sys.argv[1:4]
    FUSE(Stalling(root, flag), mountpoint, foreground=True, fsname="stalling")
