#!/usr/bin/env python3
"""Random commands, and lines that are almost commands, from a client that administers.

usage: tests/control/random_lines.py SECONDS SEED PROGRAM        (PROGRAM: umbra-control-stand)

Each line is answered; the driver lives, and ends in order. A failure prints the last lines.
"""

import collections
import random
import socket
import sys
import time

from stand import Stand, umbra

OBJECTS = ("/shadow", "/chip", "/alarms", "/directory", "/activity", "/clock", "/mac-policy", "/mac-access",
           "/shadow/chipMemory/vlan", "/shadow/chipMemory/mac", "/shadow/chipMemory/stack",
           "/shadow/chipMemory/vlan/chipHam", "/shadow/auditReadRequest", "/shadow/chipMemory",
           "/many/chipMemory/region7", "/publisher", "/registers")
COMMANDS = ("ping", "version", "list", "get", "describe", "set", "set", "set", "call", "call", "call", "watch",
            "unwatch", "events", "policyText", "dump", "check", "plan", "forget")
VALUES = ("true", "false", "0", "1", "2", "-1", "17", "4096", "0.5", "null", '"normal"', '"buffered"', '"override"',
          '"idle"', '"auditing"', '"unconfigured"', '"configured"', '"/shadow/chipMemory/vlan"',
          '"/shadow/chipMemory/mac"', '"/chip"', '"x"', '"0102030405060708"', "18446744073709551616",
          '"0x1:00080000"')


def line_of(rng, members):
    place = rng.choice(OBJECTS)
    do = rng.choice(COMMANDS)
    name, arguments = rng.choice(members[place]) if members[place] else ("x", [])
    path = place + ("/" + name if do in ("set", "call", "get", "watch") and rng.random() < 0.9 else "")
    line = f'{{"do":"{do}","path":"{path}"'
    if do == "set":
        line += f',"value":{rng.choice(VALUES)}'
    if do == "call":
        given = ",".join(f'"{each.lstrip("?")}":{rng.choice(VALUES)}' for each in arguments)
        line += ',"arguments":{' + given + "}"
    if do in ("dump", "policyText"):
        line += f',"first":{rng.randrange(70000)},"entry":{rng.randrange(70000)},"count":{rng.randrange(20)}'
    damaged = bytearray((line + "}").encode())
    if rng.random() < 0.15:
        for _ in range(rng.randrange(1, 4)):
            damaged[rng.randrange(len(damaged))] = rng.choice(b'{}[]":,\\0\xff\x00a/')
    return bytes(damaged).replace(b"\n", b" ") + b"\n"


class Client:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(60)
        self.socket.connect(path)
        self.pending = b""
        self.next_line()

    def next_line(self):
        while b"\n" not in self.pending:
            data = self.socket.recv(65536)
            assert data, "the driver has ended the connection"
            self.pending += data
        line, self.pending = self.pending.split(b"\n", 1)
        return line

    def ask(self, line):
        self.socket.sendall(line)
        while True:
            answer = self.next_line()
            if b'"ok":' in answer and b'"more":true' not in answer:
                return answer


def main():
    if len(sys.argv) != 4:
        print(__doc__)
        return 2
    seconds, rng = float(sys.argv[1]), random.Random(int(sys.argv[2]))
    last = collections.deque(maxlen=10)
    stand = Stand(sys.argv[3], 50)
    answered = refused = 0
    try:
        with stand:
            members = {}
            with stand.connect() as driver:
                for place in OBJECTS:
                    try:
                        rows = driver.describe(place)["items"]
                    except umbra.Refused:
                        rows = []
                    members[place] = [(row["name"], row.get("arguments", [])) for row in rows]
            path = stand.path().replace(".sock", ".admin.sock")
            client, end = Client(path), time.monotonic() + seconds
            while time.monotonic() < end:
                last.append(line_of(rng, members))
                answer = client.ask(last[-1])
                answered += 1
                refused += answer.find(b'"ok":false') >= 0
                if rng.random() < 0.005:
                    client.socket.close()
                    client = Client(path)
            client.socket.close()
    except (AssertionError, OSError) as error:
        print("FAILED:", error)
        for line in last:
            print("  ", line)
        return 1
    print(f"{answered} lines answered, {refused} of them refused; {stand.figures}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
