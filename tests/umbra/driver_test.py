#!/usr/bin/env python3
"""The tool on a driver that runs: the demonstration's, through its control sockets."""
import json
import os
import re
import signal
import subprocess
import unittest

import harness
from harness import Folder, Terminal, check, compare, umbra, wait_for

PROGRAM = os.environ.get("UMBRA_DRIVER_PROGRAM", "")
ADDRESS = r"^0x[0-9a-f]+:[0-9a-f]{8}$"


class Running(Folder):
    options = ("--flips-per-second", "0")

    def setUp(self):
        if not PROGRAM:
            self.skipTest("no demonstration")
        super().setUp()
        self.driver = self.start()

    def start(self):
        with open(os.path.join(self.folder, "output"), "ab") as output:
            driver = subprocess.Popen([PROGRAM, "--stay", "--publish", self.folder, *self.options],
                                      stdout=output, stderr=output, stdin=subprocess.DEVNULL,
                                      env=harness.environment())
        self.addCleanup(self.end, driver)
        wait_for(lambda: self.is_up(driver), lambda: open(os.path.join(self.folder, "output"), encoding="utf-8",
                                                          errors="replace").read())
        return driver

    def is_up(self, driver):
        if driver.poll() is not None:
            raise AssertionError("the driver has ended: " + open(os.path.join(self.folder, "output"),
                                                                 encoding="utf-8", errors="replace").read())
        done = subprocess.run([harness.UMBRA, "--dir", self.folder, "--json", "show"], capture_output=True, text=True,
                              env=harness.environment(), check=False)
        if done.returncode != 0:
            return False
        shown = json.loads(done.stdout)
        return shown["pid"] == driver.pid and shown["adminSocket"] and shown["regions"] and shown["shadows"]

    @staticmethod
    def end(driver):
        if driver.poll() is None:
            # A whole group of the demonstration ends with its first process.
            driver.kill()
        driver.wait()


class Looks(Running):
    def test_psNamesTheDriverItsSocketAndItsEnd(self):
        found = self.values("ps", schema="ps")["drivers"][0]
        self.assertEqual(("demo", "live", "administer", self.driver.pid),
                         (found["name"], found["state"], found["socket"], found["pid"]))
        os.kill(self.driver.pid, signal.SIGKILL)
        self.driver.wait()
        self.assertEqual("dead", self.values("ps")["drivers"][0]["state"])
        path = os.path.join(self.folder, "demo.live")
        value = json.loads(umbra("post-mortem", path, "--all", "--json"))
        check(value, "post-mortem")
        self.assertEqual("dead", value["state"])
        self.assertLess(4, len(value["regions"]))
        self.assertIn("start", [one["kind"] for one in value["events"]])
        self.assertTrue(os.path.exists(os.path.join(self.folder, "demo.trace")))
        self.tool("pause", status=1)
        self.assertIn("post-mortem", umbra.errors)
        self.driver = self.start()
        self.assertEqual("live", self.values("ps")["drivers"][0]["state"])

    def test_driverThatEndsInOrderIsEnded(self):
        self.driver.send_signal(signal.SIGINT)
        self.driver.wait(timeout=60)
        self.assertEqual("ended", self.values("ps")["drivers"][0]["state"])

    def test_showAndTopHaveTheDriversRegions(self):
        shown = self.values("show", schema="show")
        names = {one["name"] for one in shown["regions"]}
        self.assertLessEqual({"mac", "vlan", "port", "acl", "qos", "stack"}, names)
        self.assertEqual(names, {one["name"] for one in self.values("top", schema="top")["regions"]})

    def test_dumpShowsExpectedBesideActual(self):
        value = self.values("dump", "vlan", "0x10..0x13", "--chip", schema="dump")
        self.assertEqual([16, 17, 18, 19], [one["entry"] for one in value["items"]])
        self.assertEqual([False] * 4, [one["differs"] for one in value["items"]])
        self.assertEqual(["write"] * 4, [one["known"] for one in value["items"]])
        for one in value["items"]:
            self.assertEqual(one["expected"], one["actual"])
            self.assertRegex(one["address"], ADDRESS)
        self.assertIn("EXPECTED", self.tool("dump", "vlan"))

    def test_dumpAndWhyNameRegistersAndFields(self):
        item = self.values("dump", "vlan", "18", schema="dump")["items"][0]
        self.assertEqual("vlan[18]", item["name"])
        self.assertRegex(item["fields"], r"^vlan\[18\] members=\w+ untagged=\w+$")
        self.assertIn("NAME", self.tool("dump", "vlan"))
        self.assertNotIn("NAME", self.tool("dump", "acl"))
        self.assertEqual("vlan[18]", self.values("why", "vlan", "18", schema="why")["name"])

    def test_dumpOfALongRegionGoesOnInParts(self):
        value = self.values("dump", "mac", "0+3000", schema="dump")
        self.assertEqual(list(range(3000)), [one["entry"] for one in value["items"]])
        self.assertEqual((False, None), (value["fromChip"], value["items"][0]["differs"]))

    def test_dumpRefusesWhatIsNotThere(self):
        self.tool("dump", "nothing", status=3)
        self.tool("dump", "vlan", "99999999", status=3)
        self.tool("dump", "vlan", "9..3", status=2)
        self.tool("dump", "vlan", "x", status=2)

    def test_whyTellsThePolicyAndWhatIsKnown(self):
        value = self.values("why", "vlan", "18", schema="why")
        self.assertTrue(value["policy"])
        self.assertEqual(("write", False, False), (value["known"], value["quarantined"], value["openFinding"]))
        self.assertEqual([], value["findings"])

    def test_driverThatHangsIsNotWaitedForLongerThanTheTimeout(self):
        os.kill(self.driver.pid, signal.SIGSTOP)
        try:
            self.tool("--timeout", "0.3", "dump", "vlan", status=1)
            self.assertIn("within 300 ms", umbra.errors)
            wait_for(lambda: self.values("ps")["drivers"][0]["state"] == "stalled", "stalled")
        finally:
            os.kill(self.driver.pid, signal.SIGCONT)


class Changes(Running):
    def test_pauseAndResumeAreCarriedOutAndLogged(self):
        self.assertEqual([True], [one["paused"] for one in self.values("pause", schema="pause")["shadows"]])
        wait_for(lambda: self.values("show")["shadows"][0]["patrol"] == "paused", "paused")
        self.values("resume", schema="pause")
        wait_for(lambda: self.values("show")["shadows"][0]["patrol"] != "paused", "going on")
        command = wait_for(lambda: self.commands(), "the command in the log")[0]
        self.assertIn("paused", command["text"])
        self.assertEqual(os.getuid(), command["uid"])
        self.tool("pause", "--shadow", "nothing", status=3)

    def commands(self):
        done = subprocess.run([harness.UMBRA, "--dir", self.folder, "--json", "events", "--class", "command"],
                              capture_output=True, text=True, env=harness.environment(), check=False)
        return json.loads(done.stdout)["events"] if done.returncode == 0 else []

    def test_auditNowReadsAndJudges(self):
        row = self.values("audit-now", "vlan", "0+600", schema="audit-now")["regions"][0]
        self.assertEqual((600, 0, None), (row["entries"], row["differences"], row["reason"]))

    def test_replayPlansAndWrites(self):
        plan = self.values("replay", "--plan", schema="plan")["plans"][0]
        self.assertTrue(any("vlan" in line for line in plan["items"]))
        self.values("replay", schema="replay")
        wait_for(lambda: self.values("show")["chips"][0]["resets"] == 1, "a reset that is counted")

    def test_ackOfNothingSaysSo(self):
        self.tool("ack", "nothing", status=3)
        self.values("ack", "--all", schema="ack", status=3)


class Damage(Running):
    options = ("--flips-per-second", "50", "--audit-interval", "0.2")

    def test_findingsAreFollowedExplainedAndCounted(self):
        with subprocess.Popen([harness.UMBRA, "--dir", self.folder, "events", "-f", "--json", "--class", "repaired"],
                              stdout=subprocess.PIPE, text=True, env=harness.environment()) as follower:
            try:
                event = json.loads(follower.stdout.readline())
            finally:
                follower.terminate()
        check(event, "event")
        self.assertEqual("repaired", event["verdict"])
        found = self.values("why", event["region"], str(event["entry"]), schema="why")["findings"]
        self.assertIn(event["number"], [one["number"] for one in found])
        wait_for(lambda: self.values("ps")["drivers"][0]["repairs"] > 0, "repairs that are counted")
        self.assertLess(0, self.values("top")["lastMinute"])


    def test_traceIsFollowedAndOutlivesTheProcess(self):
        with subprocess.Popen([harness.UMBRA, "--dir", self.folder, "trace", "-f", "--json", "--level", "0"],
                              stdout=subprocess.PIPE, text=True, env=harness.environment()) as follower:
            try:
                record = json.loads(follower.stdout.readline())
            finally:
                follower.terminate()
        check(record, "trace-record")
        self.assertRegex(record["text"], "Difference found in entry|Byte|Expected")
        os.kill(self.driver.pid, signal.SIGKILL)
        self.driver.wait()
        before = self.values("trace", "--all", schema="trace")["records"]
        self.assertLess(0, len(before))
        post = json.loads(umbra("post-mortem", os.path.join(self.folder, "demo.trace"), "--json"))
        self.assertEqual(before[-len(post["trace"]):], post["trace"])
        self.driver = self.start()
        self.assertEqual(before, self.values("trace", "--all", "--old")["records"])


class Console(Running):
    def console(self, *lines, status=0, options=()):
        return self.tool("console", *options, text="".join(line + "\n" for line in lines), status=status)

    def test_aScriptIsCarriedOutLineByLine(self):
        output = self.console("cd shadow/chipMemory/vlan", "get mode", "set /shadow/paused true",
                              "get /shadow/paused", "policy . 3", "call /shadow/isWritten chipMemory=. entry=3",
                              "dump . 3 chip", "quit", "nonsense")
        for pattern in r"^'?normal'?$", "^true$", r"^\s*3  0x", "KNOWN BY":
            self.assertRegex(output, re.compile(pattern, re.MULTILINE))

    def test_aWrongLineIsToldAndTheNextOneIsCarriedOut(self):
        output = self.console("nonsense", "get /shadow/sate", "get", "set /shadow/state unheard", "get /shadow/state",
                              status=1)
        self.assertRegex(output, "auditing")
        for text in "line 1: unknown command nonsense", "line 2:", "state", "line 3: usage: get PATH", "line 4:":
            self.assertIn(text, umbra.errors)

    def test_theSocketThatLooksRefusesChanges(self):
        self.console("set /shadow/paused true", status=1, options=["--look"])
        self.assertIn("line 1:", umbra.errors)
        self.assertRegex(self.console("get /shadow/paused", options=["--look"]), "false")

    def test_oneCommandOfTheCommandLine(self):
        self.assertRegex(self.tool("console", "-c", "ls /"), "shadow")
        answer = self.values("console", "-c", "get /shadow/state", schema="console")
        self.assertEqual("auditing", answer["value"])

    def test_aWatchTellsEachChange(self):
        output = self.console("watch /shadow/paused", "set /shadow/paused true", "wait 1", "unwatch",
                              "set /shadow/paused false")
        self.assertRegex(output, "(?m)^/shadow/paused: false$")
        self.assertRegex(output, "(?m)^/shadow/paused: true$")

    @unittest.skipUnless(harness.HAS_TERMINAL, "no tmux")
    def test_onATerminalNamesAreCompletedAndWatchesPrintedAbove(self):
        terminal = Terminal(harness.UMBRA, "--dir", self.folder, "console")
        self.addCleanup(terminal.close)
        terminal.shows("^demo:/>")
        terminal.text("cd sha")
        terminal.keys("Tab")
        terminal.shows("cd shadow/")
        terminal.keys("Enter")
        terminal.shows("^demo:/shadow>$")
        terminal.text("watch pau")
        terminal.keys("Tab", "Enter")
        terminal.shows("^/shadow/paused: false")
        terminal.text("get chipMemory/vl")
        self.values("pause")
        terminal.shows("^/shadow/paused: true")
        terminal.shows("^demo:/shadow> get chipMemory/vl")
        terminal.keys("C-c")
        terminal.text("get chipMemory/vlan/mode")
        terminal.keys("Enter")
        terminal.shows("^'?normal")
        compare(self, terminal.screen(), "console")
        terminal.text("quit")
        terminal.keys("Enter")
        self.assertEqual(0, terminal.exit_status())

    @unittest.skipUnless(harness.HAS_TERMINAL, "no tmux")
    def test_onATerminalTheEndOfTheDriverIsTold(self):
        terminal = Terminal(harness.UMBRA, "--dir", self.folder, "console")
        self.addCleanup(terminal.close)
        terminal.shows("^demo:/>")
        os.kill(self.driver.pid, signal.SIGKILL)
        terminal.shows("the driver has closed")
        self.assertEqual(1, terminal.exit_status())


if __name__ == "__main__":
    harness.main()
