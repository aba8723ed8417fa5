#!/usr/bin/python3
"""A medium that stores something other than what was written, for tests that must prove a
copy was read back from its medium rather than from the page cache.

Every call passes through to BACKING, except that a write covering byte --corrupt-at of a
regular file (whose path holds --only, when given) stores that byte inverted. Runs in the
foreground until unmounted or sent SIGTERM. Needs fusepy (python3-fusepy), so run it with
/usr/bin/python3.

    lying_fs.py BACKING MOUNTPOINT --corrupt-at OFFSET [--only TEXT]

It mounts with kernel_cache. Without it (fusepy's defaults) the kernel drops a file's cached
pages at every open(), so any fresh open already reads the lie and a verifier that merely
reopens its copies would pass by luck. With it, as on a kernel-mounted disk, the true bytes
stay cached across opens until fdatasync + POSIX_FADV_DONTNEED or a fresh mount (checked on
Linux 6.18). One exception either way: the kernel does not keep a partly written page, so a
lie in the last, partial page of a file shows at once.

Names are carried as raw bytes (decoded as Latin-1 on the FUSE side), so any name works. Only
files and folders are kept: links and special files are refused (fusepy's defaults).
"""

import argparse
import os
import sys

try:
    import fusepy as fuse  # Debian's name for it
except ImportError:
    import fuse  # pip's; python-fuse, a different library, has the same name
    if not hasattr(fuse, "Operations"):
        raise

# Flags the kernel has already acted on, or that would change how our own writes land.
OPEN_FLAGS_DROPPED = (os.O_CREAT | os.O_EXCL | os.O_TRUNC | os.O_NOCTTY | os.O_APPEND
                      | getattr(os, "O_DIRECT", 0))
STAT_KEYS = ("st_mode", "st_nlink", "st_uid", "st_gid", "st_size", "st_rdev", "st_blksize",
             "st_blocks", "st_ino", "st_dev")


def as_bytes(name):
    return name.encode("latin-1")


def as_name(raw):
    return raw.decode("latin-1")


class LyingFs(fuse.Operations):
    use_ns = True

    def __init__(self, backing, corrupt_at, only):
        self.backing = os.fsencode(os.path.realpath(backing))
        self.corrupt_at = corrupt_at
        self.only = os.fsencode(only) if only else None

    def real(self, path):
        return self.backing + as_bytes(path)

    def lies_about(self, path):
        return self.only is None or (path is not None and self.only in as_bytes(path))

    @staticmethod
    def stat_dict(st):
        attrs = {key: getattr(st, key) for key in STAT_KEYS}
        attrs.update(st_atime=st.st_atime_ns, st_mtime=st.st_mtime_ns, st_ctime=st.st_ctime_ns)
        return attrs

    # ---- metadata

    def getattr(self, path, fi=None):
        if fi is not None:
            return self.stat_dict(os.fstat(fi.fh))
        return self.stat_dict(os.lstat(self.real(path)))

    def chmod(self, path, mode):
        os.chmod(self.real(path), mode)

    def chown(self, path, uid, gid):
        os.lchown(self.real(path), uid, gid)

    def utimens(self, path, times=None):
        os.utime(self.real(path), ns=times, follow_symlinks=False)

    def truncate(self, path, length, fi=None):
        if fi is not None:
            os.ftruncate(fi.fh, length)
        else:
            os.truncate(self.real(path), length)

    def statfs(self, path):
        sv = os.statvfs(self.real(path))
        return {key: getattr(sv, key) for key in (
            "f_bsize", "f_frsize", "f_blocks", "f_bfree", "f_bavail", "f_files", "f_ffree",
            "f_favail", "f_flag", "f_namemax")}

    # ---- names

    def readdir(self, path, fh):
        return [".", ".."] + [as_name(name) for name in os.listdir(self.real(path))]

    def mkdir(self, path, mode):
        os.mkdir(self.real(path), mode)

    def rmdir(self, path):
        os.rmdir(self.real(path))

    def unlink(self, path):
        os.unlink(self.real(path))

    def rename(self, old, new):
        os.rename(self.real(old), self.real(new))

    # ---- files; fi.fh is a descriptor of the backing file

    def open(self, path, fi):
        fi.fh = os.open(self.real(path), fi.flags & ~OPEN_FLAGS_DROPPED)

    def create(self, path, mode, fi):
        flags = (fi.flags & ~OPEN_FLAGS_DROPPED) | os.O_CREAT
        fi.fh = os.open(self.real(path), flags, mode)

    def read(self, path, size, offset, fi):
        return os.pread(fi.fh, size, offset)

    def write(self, path, data, offset, fi):
        index = self.corrupt_at - offset
        if 0 <= index < len(data) and self.lies_about(path):
            data = bytearray(data)
            data[index] ^= 0xFF
        return os.pwrite(fi.fh, data, offset)

    def flush(self, path, fi):
        # close() of a duplicate is how a flush reaches the backing file system.
        os.close(os.dup(fi.fh))

    def fsync(self, path, datasync, fi):
        if datasync:
            os.fdatasync(fi.fh)
        else:
            os.fsync(fi.fh)

    def release(self, path, fi):
        os.close(fi.fh)

    def fsyncdir(self, path, datasync, fh):
        fd = os.open(self.real(path), os.O_RDONLY | os.O_DIRECTORY)
        try:
            os.fsync(fd)
        finally:
            os.close(fd)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("backing")
    parser.add_argument("mountpoint")
    parser.add_argument("--corrupt-at", type=int, required=True, metavar="OFFSET")
    parser.add_argument("--only", default="", metavar="TEXT")
    args = parser.parse_args()
    if not os.path.isdir(args.backing):
        sys.exit("lying_fs: no folder %s" % args.backing)
    operations = LyingFs(args.backing, args.corrupt_at, args.only)
    fuse.FUSE(operations, as_name(os.fsencode(args.mountpoint)), raw_fi=True,
              encoding="latin-1", foreground=True, fsname="lying_fs", kernel_cache=True)


if __name__ == "__main__":
    main()
