#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The fleet demo's window onto its Prometheus: listens on 127.0.0.1 of
another network namespace and forwards each connection to an address of
this one.

    tcp_forward.py NETNS PORT HOST:PORT

NETNS is a /proc/PID/ns/net path (the namespace the demo started in); the
listening socket is made there, on PORT or the first free one of the 20
after it, which it prints; each connection's other end is made here, to
HOST:PORT. Runs until SIGTERM or SIGINT."""

import ctypes
import os
import signal
import socket
import sys
import threading

CLONE_NEWNET = 0x40000000


def listen_in(netns, port):
    """A listening socket on 127.0.0.1:port (or one of the 20 after it) of
    netns; this thread returns to its own namespace."""
    libc = ctypes.CDLL(None, use_errno=True)
    own = os.open("/proc/self/ns/net", os.O_RDONLY)
    other = os.open(netns, os.O_RDONLY)
    try:
        if libc.setns(other, CLONE_NEWNET):
            raise OSError(ctypes.get_errno(), "setns " + netns)
        for free in range(port, port + 21):
            try:
                return socket.create_server(("127.0.0.1", free))
            except OSError:
                if free == port + 20:
                    raise
    finally:
        if libc.setns(own, CLONE_NEWNET):
            raise OSError(ctypes.get_errno(), "setns back")
        os.close(own)
        os.close(other)


def pump(src, dst):
    try:
        while True:
            data = src.recv(65536)
            if not data:
                break
            dst.sendall(data)
    except OSError:
        pass
    finally:
        for s in (src, dst):
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass


def serve(server, target):
    while True:
        client, _ = server.accept()
        try:
            upstream = socket.create_connection(target)
        except OSError:
            client.close()
            continue
        for a, b in ((client, upstream), (upstream, client)):
            threading.Thread(target=pump, args=(a, b), daemon=True).start()


def main(argv):
    if len(argv) != 3:
        print("usage: tcp_forward.py NETNS PORT HOST:PORT", file=sys.stderr)
        return 2
    host, port = argv[2].rsplit(":", 1)
    server = listen_in(argv[0], int(argv[1]))
    for sig in (signal.SIGINT, signal.SIGTERM):
        signal.signal(sig, lambda *_: sys.exit(0))
    print(server.getsockname()[1], flush=True)
    serve(server, (host, int(port)))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
