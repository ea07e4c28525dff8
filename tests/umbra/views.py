#!/usr/bin/env python3
"""Writes live views and event logs as docs/formats.md has them, without the library.

    views.py DIR [--beat]

Writes `switch1` (its process is this one), `lamp` (dead, torn rows, ended by an assertion) and `quiet`
(ended in order, without regions) into DIR. --beat: stays and lets switch1's heart beat until its
standard input ends; says "ready" when the files are there.
"""
import json
import os
import select
import struct
import sys
import time

HEADER = 4096
NEVER = (1 << 63) - 1
START = 1_700_000_000_000_000_000  # wall clock of all that is not live, nanoseconds
KINDS = {"boolean": 4, "unsigned": 8, "signed": 8, "real": 8, "time": 8}
VERDICTS = ["repaired", "adopted", "writtenMeanwhile", "detectOnly", "deferred", "refused", "transient",
            "quarantined", "failed", "reset"]


class Table:
    def __init__(self, name, type_name, columns, rows, torn=()):
        self.name, self.type, self.rows, self.torn = name, type_name, rows, set(torn)
        self.columns, offset = [], 8
        for column in columns:
            size = column.get("bytes") or KINDS[column["kind"]]
            self.columns.append({"offset": offset, "bytes": size, "unit": "", "help": "", "type": "",
                                 **column})
            offset += size
        self.row_bytes = (offset + 63) // 64 * 64

    def image(self, values, state, torn):
        row = bytearray(self.row_bytes)
        struct.pack_into("<II", row, 0, 7 if torn else 8, state)
        for column in self.columns:
            value = values.get(column["name"])
            if value is None:
                continue
            at, kind = column["offset"], column["kind"]
            if kind == "boolean":
                struct.pack_into("<I", row, at, int(value))
            elif kind == "unsigned":
                struct.pack_into("<Q", row, at, value)
            elif kind in ("signed", "time"):
                struct.pack_into("<q", row, at, value)
            elif kind == "real":
                struct.pack_into("<d", row, at, value)
            else:
                data = value.encode()[:column["bytes"] - 1]
                row[at:at + len(data)] = data
        return bytes(row)


def unsigned(name, unit="", total=False):
    return {"name": name, "kind": "unsigned", "unit": unit, "type": "U64", **({"total": True} if total else {})}


def moment(name, help_text=""):
    return {"name": name, "kind": "time", "unit": "seconds", "type": "Zint::Seconds", "help": help_text}


def text(name, size=64):
    return {"name": name, "kind": "text", "bytes": size, "type": "String8"}


def state(name, *names):
    return {"name": name, "kind": "signed", "type": "enumeration",
            "names": {str(number): word for number, word in enumerate(names)}}


def truth(name):
    return {"name": name, "kind": "boolean", "type": "bool"}


def shadow_table(rows, torn=()):
    return Table("shadow", "Driver::AuditedShadow", [
        text("name"), state("state", "unconfigured", "configured", "auditing", "idle"),
        state("patrolState", "stopped", "waiting", "reading", "paused", "suspended", "restoring"),
        text("patrolReason"), unsigned("passEntries", "entries"), unsigned("passEntriesDone", "entries"),
        moment("lastPassTime"), moment("lastPassAge"), unsigned("findings", "", True), unsigned("repairs", "", True),
        unsigned("quarantined", "entries"), truth("paused")], rows, torn)


def region_table(rows, torn=()):
    return Table("region", "Hardware::ChipMemory", [
        text("name"), unsigned("address"), unsigned("entrySize", "bytes"), unsigned("stride", "bytes"),
        state("mode", "normal", "override", "buffered"), truth("auditEnabled"), text("shadow"), text("chip"),
        moment("since"), unsigned("findings", "", True), unsigned("repairs", "", True),
        unsigned("stuckRepairs", "", True), moment("lastFindingTime"), unsigned("findingsIn5s"),
        unsigned("findingsIn1m"), unsigned("findingsIn1h")], rows, torn)


def alarm_table(rows, torn=()):
    return Table("alarm", "Driver::Alarm", [
        text("name"), text("rule"), text("subject"), state("state", "cleared", "raised", "acknowledged"),
        unsigned("findings"), unsigned("raises"), moment("firstTime"), moment("lastTime"), moment("raisedTime"),
        moment("acknowledgedTime"), moment("clearedTime")], rows, torn)


def chip_table(rows, torn=()):
    return Table("chip", "Driver::Chip", [
        text("name"), truth("isAbsent"), truth("isRestoring"), text("reason"), unsigned("absences", "", True),
        unsigned("resets", "", True), unsigned("findings", "", True)], rows, torn)


def governor_table(rows, torn=()):
    return Table("governor", "Driver::Governor", [
        text("name"), moment("period"), moment("timeLeft"), {"name": "progress", "kind": "real", "type": "double"},
        {"name": "share", "kind": "real", "type": "double"},
        {"name": "achievedShare", "kind": "real", "type": "double"}], rows, torn)


def boot_id():
    with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
        return bytes.fromhex(file.read().strip().replace("-", ""))


def process_start(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
        return int(file.read().rpartition(")")[2].split()[19])


def beat_row(beat_state, monotonic, wall, count, sequence=2):
    return struct.pack("<IIqqQII", sequence, beat_state, monotonic, wall, count, 0, 32).ljust(64, b"\0")


def write_view(path, name, tables, *, pid, start, beat, started, sock="", admin=""):
    schema = json.dumps({"tables": [{"name": table.name, "type": table.type, "columns": table.columns}
                                    for table in tables]}).encode()
    at = (HEADER + len(schema) + 4095) // 4096 * 4096
    directory, images = b"", b""
    for table in tables:
        capacity = len(table.rows) + 2  # some free ones
        directory += table.name.encode().ljust(24, b"\0") + struct.pack("<III", at, table.row_bytes,
                                                                         capacity).ljust(40, b"\0")
        for number, row in enumerate(table.rows):
            images += table.image(row, row.get("_state", 1), number in table.torn)
        images += b"\0" * (2 * table.row_bytes)
        at += capacity * table.row_bytes
    header = bytearray(HEADER)
    header[0:8] = b"UMBRLIVE"
    struct.pack_into("<IIIIIIIIQ", header, 8, 1, 0, HEADER, HEADER, len(schema), len(tables), at, pid, start)
    header[48:64] = boot_id()
    header[64:64 + len(name)] = name.encode()
    header[128:128 + len(sock)] = sock.encode()
    header[240:240 + len(admin)] = admin.encode()
    struct.pack_into("<q", header, 352, started)
    header[512:576] = beat
    header[1024:1024 + len(directory)] = directory
    body = bytes(header) + schema
    body += b"\0" * ((len(body) + 4095) // 4096 * 4096 - len(body))
    with open(path + ".new", "wb") as file:
        file.write(body + images)
    os.rename(path + ".new", path)


def event(number, kind, wall, *, verdict=0, nature=0, entry=0, size=0, uid=0xFFFFFFFF, pid=0xFFFFFFFF, region="",
          chip="", expected=b"", actual=b"", words="", torn=False):
    return struct.pack("<IIQqqIIIIII48s32s16s16s88s", 7 if torn else 8, kind, number, wall - START + 10**9, wall,
                       verdict, nature, entry, size, uid, pid, region.encode(), chip.encode(), expected, actual,
                       words.encode())


def write_events(path, name, events, records=64, newest=None, suppressed=0):
    newest = len(events) if newest is None else newest
    ring = [b"\0" * 256] * records
    for number, record in events.items():
        ring[number % records] = record
    header = bytearray(HEADER)
    header[0:8] = b"UMBREVNT"
    struct.pack_into("<IIIII", header, 8, 1, 0, HEADER, 256, records)
    header[64:64 + len(name)] = name.encode()
    struct.pack_into("<IIQQI", header, 512, 2, 0, newest, suppressed, 4711)
    with open(path, "wb") as file:
        file.write(bytes(header) + b"".join(ring))


FORMATS = {1: (90, "Difference found in entry %u of memory %s"), 2: (106, "Byte %u expected %x actual %x"),
           3: (17, "%s\033[2J")}


def argument(value):
    if isinstance(value, tuple):
        size, number = value
        return struct.pack("<B", size) + number.to_bytes(size, "little")
    return struct.pack("<BH", 0, len(value)) + value.encode()


def trace_record(number, seconds, *arguments):
    body = struct.pack("<Id", number, seconds) + b"".join(argument(one) for one in arguments)
    size = -(-(4 + len(body) + 1) // 16) * 16
    return struct.pack("<I", size) + body.ljust(size - 4, b"\xff")


def write_trace(path, name, records, pid, monotonic, wall):
    """Records by part: 3 levels of 2 parts each, other places in a part than those of the library."""
    starts, room, first, part_size = 512, 1024, 8192, 2048
    formats = b"".join(struct.pack("<III", number, line, len(text)) + text.encode().ljust(-(-len(text) // 4) * 4, b"\0")
                       for number, (line, text) in FORMATS.items())
    data = bytearray(first + 6 * part_size)
    data[0:8] = b"UMBRTRAC"
    struct.pack_into("<III", data, 8, 1, 0, HEADER)
    struct.pack_into("<I", data, 36, pid)
    data[64:64 + len(name)] = name.encode()
    struct.pack_into("<III", data, 128, HEADER, first - HEADER, 32)
    struct.pack_into("<IIII", data, 140, first, 3, 2, part_size)
    struct.pack_into("<IIIIII", data, 156, 48, 40, 56, 1024, starts, 16)
    struct.pack_into("<IIqqII", data, 512, 2, 1, monotonic, wall, 1, 0)
    struct.pack_into("<II", data, HEADER, len(formats), 4)
    data[HEADER + 32:HEADER + 32 + len(formats)] = formats
    for part, (overwritten, forgotten, place, held) in records.items():
        at = first + part * part_size
        begin = overwritten << 16 | place // 16
        for record in held:
            data[at + 1024 + place:at + 1024 + place + len(record)] = record
            place = place + len(record) if place + len(record) < starts else 0
        assert place < room
        struct.pack_into("<I", data, at + 40, ((overwritten + len(held)) & 0xfffff) << 12 | place // 16)
        struct.pack_into("<QQ", data, at + 48, begin, forgotten)
    with open(path, "wb") as file:
        file.write(data)


def traces():
    """Two threads at level 0, one at level 2; the ring of the first has come round."""
    return {
        0: (1_048_570, 1_048_571, 448, [trace_record(1, 1001.0, (4, 99), "forgotten"),
                                        trace_record(1, 1002.0, (4, 18), "vlan"),
                                        trace_record(2, 1002.0, (4, 1), (1, 0xa5), (8, 0x123456789abcdef0)),
                                        trace_record(9, 1005.5, (4, 1))]),
        2: (0, 0, 0, [trace_record(3, 1003.25, "x" * 300)]),
        3: (3, 0, 0, [trace_record(1, 1001.5, (4, 7), "acl"), trace_record(2, 1004.0, (4, 2))]),
    }


def regions(base):
    rows = []
    names = ["mac", "vlan", "port", "acl", "qos", "stack", "meter", "mirror"]
    for number, name in enumerate(names):
        rows.append({"name": name, "address": (1 << 32) + 0x10000 * (number + 1), "entrySize": 4, "stride": 8,
                     "mode": 1 if name == "stack" else 0, "auditEnabled": 1, "shadow": "shadow", "chip": "switch",
                     "since": START, "findings": 0, "repairs": 0, "stuckRepairs": 0, "lastFindingTime": NEVER,
                     "findingsIn5s": 0, "findingsIn1m": 0, "findingsIn1h": 0})
    rows[1].update(findings=42, repairs=40, stuckRepairs=2, lastFindingTime=base, findingsIn1m=3, findingsIn1h=12)
    rows[3].update(findings=7, repairs=7, lastFindingTime=base - 60 * 10**9, findingsIn1h=7)
    rows.append({"name": "removed", "_state": 2, "findings": 99})
    return rows


def tables(base, monotonic, torn=()):
    return [
        shadow_table([{"name": "shadow", "state": 2, "patrolState": 2, "patrolReason": "", "passEntries": 200_000,
                       "passEntriesDone": 50_000, "lastPassTime": monotonic - 10**10, "lastPassAge": 10**10,
                       "findings": 49, "repairs": 47, "quarantined": 1}]),
        region_table(regions(base), torn),
        alarm_table([{"name": "region-rate/vlan", "rule": "region-rate", "subject": "vlan", "state": 1,
                      "findings": 5, "raises": 2, "firstTime": monotonic - 3 * 10**10,
                      "lastTime": monotonic - 10**9, "raisedTime": monotonic - 2 * 10**10,
                      "acknowledgedTime": NEVER, "clearedTime": NEVER}]),
        chip_table([{"name": "switch", "absences": 1, "resets": 2, "findings": 49, "reason": ""}]),
        governor_table([{"name": "governor", "period": 60 * 10**9, "timeLeft": 45 * 10**9, "progress": 0.25,
                         "share": 0.05, "achievedShare": 0.041}]),
    ]


def events_of(base):
    def at(seconds):
        return base + seconds * 10**9
    return {
        1: event(1, 12, at(0)),
        2: event(2, 2, at(1), verdict=1024, region="mac"),
        3: event(3, 1, at(2), verdict=0, nature=1, entry=18, size=4, region="vlan", chip="switch",
                 expected=b"\xa5\x1b\xc6\xd1", actual=b"\xa5\x1b\xc6\xd0", words="repaired"),
        4: event(4, 1, at(3), verdict=7, nature=3, entry=18, size=4, region="vlan", chip="switch",
                 expected=b"\xa5\x1b\xc6\xd1", actual=b"\xa5\x1b\xc6\xd0", words="quarantined"),
        5: event(5, 4, at(4), verdict=1, region="vlan", words="region-rate"),
        6: event(6, 9, at(5), uid=1000, pid=77, words="set /shadow/paused true"),
        7: event(7, 3, at(6), verdict=2),
        8: event(8, 5, at(7), verdict=3, chip="switch", words="probe"),
    }


def write_all(directory):
    pid, now, monotonic = os.getpid(), time.time_ns(), time.monotonic_ns()
    live = os.path.join(directory, "switch1")
    write_view(live + ".live", "switch1", tables(now, monotonic), pid=pid, start=process_start(pid),
               beat=beat_row(1, monotonic, now, 100), started=now - 754 * 10**9)
    write_events(live + ".events", "switch1", events_of(now - 60 * 10**9))
    # Process ids beyond what the system gives.
    lamp = os.path.join(directory, "lamp")
    write_view(lamp + ".live", "lamp", tables(START, 10**12, torn={3}), pid=4_000_000, start=1,
               beat=beat_row(3, 10**12, START, 7), started=START)
    last = {**events_of(START), 9: event(9, 10, START + 8 * 10**9, words="entry < entries()"),
            10: event(10, 1, START, region="torn", torn=True)}
    write_events(lamp + ".events", "lamp", last, suppressed=3)
    write_trace(lamp + ".trace", "lamp", traces(), 4_000_000, 10**12, START)
    write_view(os.path.join(directory, "quiet") + ".live", "quiet", [region_table([])], pid=4_000_001, start=1,
               beat=beat_row(2, 10**12, START, 7), started=START)


def beat(directory):
    with open(os.path.join(directory, "switch1.live"), "r+b", buffering=0) as file:
        count = 100
        while True:
            count += 1
            file.seek(512)
            file.write(beat_row(1, time.monotonic_ns(), time.time_ns(), count, 2 * count))
            if select.select([sys.stdin], [], [], 0.5)[0] and not sys.stdin.readline():
                return


if __name__ == "__main__":
    write_all(sys.argv[1])
    print("ready", flush=True)
    if "--beat" in sys.argv[2:]:
        beat(sys.argv[1])
