"""Boots one guest, does to its card what happens to cards, and compares both ledgers.

usage: rig.py KERNEL FOLDER WIDTH [--quick] [--keep]

FOLDER holds initrd.gz; the card's memory and the console's log are made there.
"""
import argparse
import collections
import ctypes
import json
import mmap
import os
import random
import re
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time

SIZE = 1 << 20
# How long the guest may take for anything, in seconds: the emulation is slow, and may share the machine.
PATIENCE = 90

Finding = collections.namedtuple("Finding", "entry expected actual verdict")


class Failed(Exception):
    """What the rig has shown to be wrong."""


def value_of(entry):
    """What the driver writes; the same as in guest.cpp."""
    return entry * 2654435761 % (1 << 32) | 1


class MemoryCard:
    """The card's memory, as a file that the machine maps."""
    table, entries, scratch, scratch_value = 4096, 16384, 4, 0xCAFE
    sentinel = 0x5CA1AB1E

    def __init__(self, path):
        self.path = path
        with open(path, "wb") as file:
            file.truncate(SIZE)
        with open(path, "r+b") as file:
            self.bytes = mmap.mmap(file.fileno(), SIZE)
        self.word_is(0, self.sentinel)

    def word(self, address):
        return int.from_bytes(self.bytes[address:address + 4], "little")

    def word_is(self, address, value):
        self.bytes[address:address + 4] = value.to_bytes(4, "little")

    def lose_power(self):
        """Everything is forgotten but what is soldered."""
        self.bytes[:] = bytes(SIZE)
        self.word_is(0, self.sentinel)


class NetworkCard:
    """The registers of the machine's own model of a network card, through its test protocol."""
    table, entries, scratch, scratch_value = 0x5600, 128, 0x38, 0x8100

    def __init__(self, folder):
        self.path = os.path.join(folder, "registers")
        self.begin = None  # its address, which the guest tells
        self.socket = self.lines = None

    def connect(self):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(self.path)
        self.lines = self.socket.makefile("r", encoding="ascii")

    def ask(self, line):
        self.socket.sendall(line.encode() + b"\n")
        while True:
            said = self.lines.readline().split()
            if not said or said[0] == "FAIL":
                raise Failed(f"the card's model does not answer: {line}")
            if said[0] == "OK":
                return said[1:]

    def word(self, address):
        return int(self.ask(f"readl {self.begin + address:#x}")[0], 16)

    def word_is(self, address, value):
        self.ask(f"writel {self.begin + address:#x} {value:#x}")


class Machine:
    """The virtual machine: its console, and its monitor."""

    def __init__(self, kernel, folder, card, way):
        self.log = open(os.path.join(folder, f"console-{way}.log"), "w", encoding="utf-8")
        self.sockets = tempfile.TemporaryDirectory()
        monitor = os.path.join(self.sockets.name, "monitor")
        command = [
            "qemu-system-x86_64", "-accel", "tcg", "-M", "q35", "-m", "256", "-nodefaults",
            "-display", "none", "-serial", "stdio", "-no-reboot", "-kernel", kernel,
            "-initrd", os.path.join(folder, "initrd.gz"), "-append",
            f"console=ttyS0 quiet panic=-1 intel_iommu=on -- {way}",
            "-qmp", f"unix:{monitor},server=on,wait=off",
            "-device", "intel-iommu"]
        if way == "uio":
            command += ["-qtest", f"unix:{card.path},server=on,wait=off", "-qtest-log", "none",
                        "-device", "e1000,id=card0,bus=pcie.0,addr=5"]
        else:
            command += ["-device", "pcie-root-port,id=slot0,chassis=1,slot=1",
                        "-object", self.memory("memory0", card),
                        "-device", "ivshmem-plain,id=card0,memdev=memory0,bus=slot0"]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, preexec_fn=self.die_with_parent)
        self.pending = b""
        self.lines = []
        self.read = 0  # of the lines
        self.monitor = self.connected(monitor)
        self.answers = self.monitor.makefile("r", encoding="utf-8")
        self.answers.readline()  # the greeting
        self.order("qmp_capabilities")

    @staticmethod
    def die_with_parent():
        ctypes.CDLL(None).prctl(1, signal.SIGKILL)

    @staticmethod
    def memory(name, card):
        return f"memory-backend-file,id={name},size={SIZE},mem-path={card.path},share=on"

    def connected(self, path):
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                monitor = socket.socket(socket.AF_UNIX)
                monitor.connect(path)
                return monitor
            except OSError:
                if time.monotonic() > deadline or self.process.poll() is not None:
                    raise Failed("the machine does not start: console.log") from None
                time.sleep(0.02)

    def ended(self):
        while self.more(1):
            pass
        raise Failed("the machine has ended: " + " ".join(self.lines[-3:]))

    def order(self, command, **arguments):
        self.monitor.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        while True:
            answer = json.loads(self.answers.readline() or self.ended())
            if "error" in answer:
                raise Failed(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def event(self, name):
        self.monitor.settimeout(PATIENCE)
        while True:
            message = json.loads(self.answers.readline() or self.ended())
            if message.get("event") == name and message["data"].get("device"):
                return

    def unplug(self, device):
        self.order("device_del", id=device)
        self.event("DEVICE_DELETED")

    def plug(self, number, card):
        """Another object of the same memory: the old one is still held."""
        self.order("object-add", **{"qom-type": "memory-backend-file", "id": f"memory{number}",
                                    "size": SIZE, "mem-path": card.path, "share": True})
        self.order("device_add", driver="ivshmem-plain", id=f"card{number}",
                   memdev=f"memory{number}", bus="slot0")

    def say(self, text):
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()

    def more(self, seconds):
        """Reads what the console has; False when it has ended."""
        if not select.select([self.process.stdout], [], [], seconds)[0]:
            return True
        some = os.read(self.process.stdout.fileno(), 65536)
        self.log.write(some.decode("utf-8", "replace"))
        self.log.flush()
        *whole, self.pending = (self.pending + some).split(b"\n")
        self.lines += [line.decode("utf-8", "replace").strip() for line in whole]
        return some != b""

    def expect(self, pattern):
        """The next line of the driver that matches; those before it are passed over."""
        deadline = time.monotonic() + PATIENCE
        while True:
            while self.read < len(self.lines):
                line = self.lines[self.read]
                self.read += 1
                if line.startswith("RIG failed"):
                    raise Failed(line)
                if line.startswith("RIG ") and (match := re.search(pattern, line)):
                    return match
            if time.monotonic() > deadline:
                raise Failed(f"no line {pattern!r} within {PATIENCE} s")
            if not self.more(0.1) and self.read == len(self.lines):
                raise Failed(f"the guest ended before a line {pattern!r}")

    def findings(self):
        found = []
        for line in self.lines:
            match = re.match(r"RIG finding (\d+) (\w+) (\w+) (\w+)$", line)
            if match:
                found.append(Finding(int(match[1]), int(match[2], 16), int(match[3], 16), match[4]))
        return found

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.log.close()
        self.sockets.cleanup()


class Rig:
    def __init__(self, machine, card, width, way):
        self.machine, self.card, self.width, self.way = machine, card, width, way
        self.ledger = []  # the damage that was done
        self.random = random.Random(20)
        self.absences = self.resets = 0

    def show(self, text, began):
        print(f"rig {self.width} {self.way}: {text} ({time.monotonic() - began:.1f} s)", flush=True)

    def whole(self, what):
        """Waits until the chip holds what the driver wrote."""
        deadline = time.monotonic() + PATIENCE
        while True:
            wrong = [e for e in range(self.card.entries)
                     if self.card.word(self.card.table + 4 * e) != value_of(e)]
            if not wrong:
                return
            if time.monotonic() > deadline:
                raise Failed(f"{what}: {len(wrong)} entries are wrong, the first is {wrong[0]}")
            self.machine.more(0.1)

    def boot(self):
        began = time.monotonic()
        said = self.machine.expect(r"card (.*) at (\w+), (\d+) bits")
        if int(said[3]) != self.width:
            raise Failed(f"the guest's program has {said[3]} bits")
        if self.way == "uio":
            self.card.begin = int(said[2], 16)
            self.card.connect()
        self.machine.expect("written")
        self.whole("after the bring-up")
        self.machine.expect("pass complete")
        self.show(f"{said[1]}: booted, table written and audited", began)

    def damage(self, count):
        began = time.monotonic()
        before = len(self.machine.findings())
        places = self.random.sample(range(self.card.entries), count)
        done = []
        for entry in places:
            actual = value_of(entry) ^ 1 << self.random.randrange(32)
            done.append(Finding(entry, value_of(entry), actual, "repaired"))
            self.card.word_is(self.card.table + 4 * entry, actual)
        self.whole("after the damage")
        deadline = time.monotonic() + PATIENCE
        while len(self.machine.findings()) < before + count and time.monotonic() < deadline:
            self.machine.more(0.1)
        found = self.machine.findings()[before:]
        if sorted(found) != sorted(done):
            missing, more = sorted(set(done) - set(found)), sorted(set(found) - set(done))
            raise Failed(f"{len(missing)} damages are not found: {missing[:5]}; "
                         f"{len(more)} findings are of no damage: {more[:5]}")
        self.ledger += done
        self.show(f"{count} words damaged, found and repaired", began)

    def unplug(self, number, keeps_state, other_card_between=False):
        """Takes card `number - 1` away in the middle of the audit, and plugs card `number`."""
        began = time.monotonic()
        before = len(self.machine.findings())
        asked = time.monotonic()
        self.machine.unplug(f"card{number - 1}")
        gone = time.monotonic() - asked
        reason = self.machine.expect("state suspended (.*)")[1]
        self.absences += 1
        self.show(f"unplugged, gone after {gone:.2f} s: suspended, {reason}", began)
        held = bytes(self.card.bytes)
        if other_card_between:
            self.machine.order("device_add", driver="edu", id="stranger", bus="slot0")
            until = time.monotonic() + 5
            while time.monotonic() < until:
                self.machine.more(0.1)
            if any("RIG state" in line and "suspended" not in line
                   for line in self.machine.lines[self.machine.read:]):
                raise Failed("the patrol went on while another card was in the slot")
            self.machine.unplug("stranger")
        if bytes(self.card.bytes) != held:
            raise Failed("the chip's memory was written while it was unplugged")
        if not keeps_state:
            self.card.lose_power()
        self.machine.plug(number, self.card)
        self.bind()
        if not keeps_state:
            self.resets += 1
            self.machine.expect("state restoring")
        self.whole("after the return")
        self.machine.expect("pass complete")
        if self.card.word(self.card.scratch) != self.card.scratch_value:
            raise Failed("the scratch register is not set")
        if len(self.machine.findings()) != before:
            raise Failed(f"an absence became findings: {self.machine.findings()[before:]}")
        self.show("plugged in again" + ("" if keeps_state else " without its state: replayed")
                  + ": audited", began)

    def order(self, text):
        self.machine.say(text)
        self.machine.expect("done " + text)

    def bind(self):
        """What the system's rules do for a card that was plugged in."""
        if self.way == "vfio":
            self.order("bind")

    def surprise(self, number):
        """The slot loses its power, without a word to anyone; another memory comes back."""
        began = time.monotonic()
        before = len(self.machine.findings())
        self.order("surprise")
        reason = self.machine.expect("state suspended (.*)")[1]
        self.absences += 1
        self.show(f"pulled out: suspended, {reason}", began)
        self.card.lose_power()
        self.resets += 1
        self.order("power")
        self.machine.plug(number, self.card)
        self.order("rescan")
        self.machine.expect("state restoring")
        self.whole("after the return")
        self.machine.expect("pass complete")
        if len(self.machine.findings()) != before:
            raise Failed(f"an absence became findings: {self.machine.findings()[before:]}")
        self.show("plugged in again without its state: replayed: audited", began)

    def memory_off(self):
        """The card's memory is switched off and on while it is audited."""
        began = time.monotonic()
        before = len(self.machine.findings())
        self.order("memory off")
        reason = self.machine.expect("state suspended (.*)")[1]
        self.absences += 1
        self.order("memory on")
        self.machine.expect("pass complete")
        self.whole("with its memory on again")
        if len(self.machine.findings()) != before:
            raise Failed(f"memory that was off became findings: {self.machine.findings()[before:]}")
        self.show(f"memory off and on: suspended, {reason}: audited", began)

    def account(self):
        self.machine.say("end")
        said = self.machine.expect(
            r"ledger passes (\d+) findings (\d+) repairs (\d+) absences (\d+) resets (\d+)")
        passes, *counts = (int(number) for number in said.groups())
        expected = [len(self.ledger), len(self.ledger), self.absences, self.resets]
        if counts != expected:
            raise Failed(f"the guest counted {counts}, the host {expected}: findings, repairs, "
                         "absences, resets")
        print(f"rig {self.width} {self.way}: {passes} passes, {counts[0]} damages, {counts[1]} repairs, "
              f"{counts[2]} absences, {counts[3]} replays: all accounted for", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kernel")
    parser.add_argument("folder")
    parser.add_argument("width", type=int)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--keep", action="store_true")
    arguments = parser.parse_args()
    ways = ["sysfs"] if arguments.quick else ["sysfs", "vfio", "uio"]
    return max(run(arguments, way) for way in ways)


def run(arguments, way):
    if way == "uio":
        card = NetworkCard(arguments.folder)
    else:
        card = MemoryCard(os.path.join(arguments.folder, "card"))
    log = os.path.join(arguments.folder, f"console-{way}.log")
    machine = None
    try:
        machine = Machine(arguments.kernel, arguments.folder, card, way)
        rig = Rig(machine, card, arguments.width, way)
        rig.boot()
        rig.damage(1)
        if not arguments.quick:
            # Of a small table so much at once would be taken for a reset.
            rig.damage(100 if way != "uio" else 10)
        if way != "uio":
            rig.unplug(1, keeps_state=True)
        if not arguments.quick and way != "uio":
            rig.damage(10)
            rig.unplug(2, keeps_state=False)
            rig.memory_off()
            rig.unplug(3, keeps_state=True, other_card_between=True)
            rig.damage(10)
            if way == "sysfs":
                rig.surprise(4)
        rig.account()
    except Failed as failure:
        print(f"rig {arguments.width} {way}: {failure}\n  the console: {log}", file=sys.stderr)
        return 1
    finally:
        if machine is not None:
            machine.end()
    if not arguments.keep:
        os.remove(log)
    if os.path.exists(card.path):
        os.remove(card.path)
    return 0


if __name__ == "__main__":
    sys.exit(main())
