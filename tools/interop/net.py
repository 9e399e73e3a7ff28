"""Ports of 127.0.0.1, and waiting for things to happen."""

import random
import socket
import time

# Each once, and below those that systems give to clients: none is taken before its server starts.
_candidates = iter(random.sample(range(10000, 32768), 1000))


def free_port():
    for port in _candidates:
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass
    raise RuntimeError("no port is free")


def wait_until(holds, seconds=20):
    """Waits until holds() is true. Returns whether that came."""
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def answers(port):
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=1) as s:
            return s.recv(1) != b""
    except OSError:
        return False
