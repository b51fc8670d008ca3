#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""File systems that are alive but slow: each path given is a FUSE mount
served here, on its own /dev/fuse descriptor and with no FUSE library, that
answers every request DELAY_MS after it came (statfs with a 1 GiB file
system, getattr of its empty root, nothing else). Runs until SIGTERM, then
unmounts them (lazily). Prints "ready" once all are mounted.

    slow_fuse.py DELAY_MS PATH...

What the end-to-end tests and bench/run-all mount beside the hung ones of
agent_bed.hung_fuse_mount."""

import ctypes
import heapq
import os
import selectors
import signal
import struct
import sys
import time

IN_HEADER = struct.Struct("<IIQQIIIHH")  # len opcode unique nodeid uid gid pid extlen pad
OUT_HEADER = struct.Struct("<IiQ")  # len error unique
FUSE_GETATTR, FUSE_FORGET, FUSE_STATFS, FUSE_INIT = 3, 2, 17, 26
FUSE_INTERRUPT, FUSE_BATCH_FORGET = 36, 42
ENOSYS = 38
NO_REPLY = (FUSE_FORGET, FUSE_BATCH_FORGET, FUSE_INTERRUPT)
MNT_DETACH = 2
# mount(2) and umount2(2) themselves: a hundred mount(8) runs take seconds
# on a loaded machine.
LIBC = ctypes.CDLL(None, use_errno=True)


def check(rc, what):
    if rc != 0:
        raise OSError(ctypes.get_errno(), what)


def reply_to(opcode, unique):
    """The reply to one request, or None."""
    if opcode in NO_REPLY:
        return None
    error, body = 0, b""
    if opcode == FUSE_INIT:
        # major, minor, max_readahead, flags, max_background,
        # congestion_threshold, max_write, time_gran, then zeros
        body = struct.pack("<IIIIHHII", 7, 31, 0, 0, 0, 0, 4096, 1) + bytes(36)
    elif opcode == FUSE_STATFS:
        # blocks bfree bavail files ffree, bsize namelen frsize, padding, spare
        body = struct.pack("<QQQQQIIII", 262144, 131072, 131072, 1000, 900, 4096, 255, 4096, 0)
        body += bytes(24)
    elif opcode == FUSE_GETATTR:
        attr = struct.pack("<QQQQQQIIIIIIIIII", 1, 0, 0, 0, 0, 0, 0, 0, 0, 0o40755, 2, 0, 0, 0,
                           4096, 0)
        body = struct.pack("<QII", 1, 0, 0) + attr
    else:
        error = -ENOSYS
    return OUT_HEADER.pack(OUT_HEADER.size + len(body), error, unique) + body


def main():
    delay = int(sys.argv[1]) / 1000.0
    paths = sys.argv[2:]
    stop = []
    signal.signal(signal.SIGTERM, lambda *_: stop.append(1))
    sel = selectors.DefaultSelector()
    for path in paths:
        os.makedirs(path, exist_ok=True)
        fd = os.open("/dev/fuse", os.O_RDWR | os.O_NONBLOCK)
        options = b"fd=%d,rootmode=40000,user_id=0,group_id=0" % fd
        check(LIBC.mount(b"slow", path.encode(), b"fuse.slow", 0, options), "mount " + path)
        sel.register(fd, selectors.EVENT_READ)
    print("ready", flush=True)
    due = []  # (when, fd, reply)
    while not stop:
        wait = max(0.0, due[0][0] - time.monotonic()) if due else 1.0
        try:
            events = sel.select(wait)
        except InterruptedError:
            continue
        for key, _ in events:
            try:
                request = os.read(key.fd, 1 << 20)
            except (BlockingIOError, InterruptedError):
                continue
            except OSError:  # unmounted: ENODEV
                sel.unregister(key.fd)
                continue
            _, opcode, unique = IN_HEADER.unpack_from(request)[:3]
            reply = reply_to(opcode, unique)
            if reply:
                heapq.heappush(due, (time.monotonic() + delay, key.fd, reply))
        while due and due[0][0] <= time.monotonic():
            _, fd, reply = heapq.heappop(due)
            try:
                os.write(fd, reply)
            except OSError:  # the request was interrupted, or the mount is gone
                pass
    for path in paths:
        LIBC.umount2(path.encode(), MNT_DETACH)


if __name__ == "__main__":
    main()
