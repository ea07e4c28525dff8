#!/usr/bin/env python3
"""Clients that mean no good, against a driver with 10,000 regions.

usage: tests/control/attack.py [--quick] [--strict] PROGRAM        (PROGRAM: umbra-control-stand)

A line of 1 GB (--quick: 16 MiB), 1,000 clients at once, half lines, clients that never read and clients
that go within each answer, while eight others list all regions and one asks for something small. All
must be answered. Prints the longest turn of the driver, in its thread's time, and its memory.
--strict: fails where the turn was longer than 100 us or the memory grew by more than 32 MiB.
"""

import resource
import socket
import sys
import threading
import time

from stand import Stand, umbra


def raw(stand, timeout=30.0):
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    connection.settimeout(timeout)
    connection.connect(stand.path())
    return connection


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as handle:
        for line in handle:
            if line.startswith("VmRSS"):
                return int(line.split()[1])
    return 0


def long_line(stand, size):
    with raw(stand, 300) as connection:
        connection.recv(4096)
        block = b"x" * (1 << 20)
        for _ in range(size >> 20):
            connection.sendall(block)
        connection.sendall(b'\n{"do":"ping","id":1}\n')
        lines = b""
        while lines.count(b"\n") < 2:
            lines += connection.recv(4096)
        assert b"at most 1024 bytes long" in lines and b'{"id":1,"ok":true}' in lines, lines


def never_reads(stand, seconds):
    """Asks for as much as the driver takes, and reads nothing, until it is dropped."""
    with raw(stand) as connection:
        connection.setblocking(False)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            try:
                connection.send(b'{"do":"list","path":"/many/chipMemory"}\n' * 8)
            except BlockingIOError:
                time.sleep(0.01)
            except OSError:
                return True
        return False


def goes_within(stand, count):
    for i in range(count):
        with raw(stand) as connection:
            connection.sendall(b'{"do":"list","path":"/many/chipMemory"}\n')
            connection.recv(1 + 37 * i % 4096)


def half_lines(stand, count):
    connections = []
    for i in range(count):
        connection = raw(stand)
        connection.sendall(b'{"do":"get","path":"/shadow/st'[: 1 + i])
        connections.append(connection)
    return connections


def lists_all(stand, until, errors):
    try:
        while time.monotonic() < until:
            with stand.connect(timeout=120) as driver:
                assert len(driver.list("/many/chipMemory")) == 10_000
    except (umbra.Error, AssertionError, OSError) as error:
        errors.append(repr(error))


def asks_little(stand, until, waits, errors):
    try:
        with stand.connect(timeout=120) as driver:
            while time.monotonic() < until:
                begin = time.monotonic()
                driver.get("/shadow/state")
                waits.append(time.monotonic() - begin)
    except (umbra.Error, OSError) as error:
        errors.append(repr(error))


def many_clients(stand, count):
    refused = served = 0
    connections = []
    for _ in range(count):
        connection = raw(stand)
        connections.append(connection)
        first = connection.recv(4096)
        if b"clients are connected already" in first:
            refused += 1
        elif b'"umbra"' in first:
            served += 1
    for connection in connections:
        connection.close()
    return refused, served


def main():
    arguments = sys.argv[1:]
    quick, strict = "--quick" in arguments, "--strict" in arguments
    programs = [each for each in arguments if not each.startswith("-")]
    if len(programs) != 1 or {"-h", "--help"} & set(arguments):
        print(__doc__)
        return 2
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 4096), hard))
    clients = min(1000, min(hard, 4096) - 200)
    stand = Stand(programs[0], 10_000)
    problems = []
    with stand:
        before = resident(stand.pid())
        refused, served = many_clients(stand, clients)
        print(f"{clients} clients: {served} served, {refused} told why not")
        if served != 32 or refused != clients - 32:
            problems.append("not 32 clients were served")
        time.sleep(0.2)
        long_line(stand, (16 << 20) if quick else (1 << 30))
        until = time.monotonic() + (4 if quick else 20)
        errors = []
        listing = [threading.Thread(target=lists_all, args=(stand, until, errors)) for _ in range(8)]
        for thread in listing:
            thread.start()
        waits = []
        asking = threading.Thread(target=asks_little, args=(stand, until, waits, errors))
        asking.start()
        halves = half_lines(stand, 8)
        goes_within(stand, 30 if quick else 300)
        dropped = never_reads(stand, 200)
        if not dropped:
            problems.append("a client that never reads was not dropped")
        for thread in listing:
            thread.join()
        asking.join()
        problems += errors
        for connection in halves:
            connection.close()
        grown = resident(stand.pid()) - before
        print(f"{len(waits)} answers to a client that asks for little, the slowest after "
              f"{max(waits) * 1e3:.1f} ms; memory grown by {grown} KiB")
    figures = stand.figures
    print(f"longest turn {figures['longestTurn'] * 1e6:.1f} us, {figures['commands']} commands, "
          f"{figures['droppedClients']} clients dropped, {figures['refusedClients']} refused, "
          f"{figures['refusedLines']} lines too long")
    if strict and figures["longestTurn"] > 100e-6:
        problems.append("a turn was longer than 100 us")
    if strict and grown > 32 * 1024:
        problems.append("the memory grew by more than 32 MiB")
    for problem in problems:
        print("FAILED:", problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
