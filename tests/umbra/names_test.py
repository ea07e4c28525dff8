#!/usr/bin/env python3
"""The tool on a driver whose regions have names that need quotes, and on folders with odd files."""
import json
import os
import socket
import sqlite3
import subprocess

import harness
from harness import Folder, check, umbra, wait_for

ODD = os.environ.get("UMBRA_ODD_DRIVER", "")
NAMES = ["mac", 'mac "x"/y', "it's", " ", "", "new\nline", "a" * 255]


class Odd(Folder):
    def setUp(self):
        super().setUp()
        self.errors = open(os.path.join(self.folder, "errors"), "wb")  # pylint: disable=consider-using-with
        self.addCleanup(self.errors.close)
        self.driver = subprocess.Popen([ODD, self.folder], stdin=subprocess.PIPE, stderr=self.errors)
        self.addCleanup(self.end)
        wait_for(lambda: any(one["lastPass"] for one in self.rows("shadow")), "a pass")

    def end(self):
        self.driver.stdin.close()
        self.driver.wait(timeout=30)

    def rows(self, table):
        done = subprocess.run([harness.UMBRA, "--dir", self.folder, "--json", "show"], capture_output=True, text=True,
                              env=harness.environment(), check=False)
        return json.loads(done.stdout)[table + "s"] if done.returncode == 0 else []

    def damage(self):
        self.driver.stdin.write(b"\n")
        self.driver.stdin.flush()
        wait_for(lambda: len([one for one in self.rows("alarm") if one["state"] == "raised"]) == len(NAMES), "alarms")


class Names(Odd):
    def test_everyNameIsTakenAsItIsWrittenByTheDriver(self):
        self.damage()
        for name in NAMES:
            with self.subTest(name=name[:20]):
                check(self.values("dump", "--", name, "0"), "dump")
                if name:
                    check(self.values("audit-now", "--", name, "0"), "audit-now")
                why = self.values("why", "--", name, "0", schema="why")
                if name:
                    self.assertEqual(1, len(why["findings"]))
                    self.tool("show", "--", name)
                    self.assertEqual(1, len(self.values("events", "--class", "finding", "--region", name)["events"]))

    def test_whyOfAPathHasTheFindingsOfItsName(self):
        self.damage()
        for name in NAMES[:3]:
            path = self.values("why", name, "0")["region"]
            self.assertEqual(1, len(self.values("why", path, "0")["findings"]))

    def test_ackTakesAnAlarmByTheNameThatShowPrints(self):
        self.damage()
        for name in "often/mac/0", 'often/mac "x"/y/0', "often/it's/0":
            table = self.values("ack", name, schema="ack")["alarms"]
            self.assertEqual(1, len(table))
            wait_for(lambda name=name: ["acknowledged"] == [one["state"] for one in self.rows("alarm")
                                                            if one["name"] == name], "acknowledged")
        self.tool("ack", "often/nothing/0", status=3)
        rest = {one["alarm"] for one in self.values("ack", "--all")["alarms"]}
        self.assertEqual(len(NAMES) - 3, len(rest))

    def test_whatWasCutIsMarked(self):
        self.damage()
        self.assertIn("a" * 63 + "~", self.tool("show"))
        self.assertIn("a" * 47 + "~[0]", self.tool("events", "--class", "finding"))

    def test_auditNowNamesTheRegions(self):
        self.assertIn("/shadow/chipMemory/'mac \"x\"/y'", self.tool("audit-now"))

    def test_messagesNameWhatWasWrong(self):
        for words, text, status in ((("why", "mac", "x"), "no entry", 2), (("replay",), "can be replayed", 3),
                                    (("nonsense",), "no command 'nonsense'", 2),
                                    (("events", "-n", "0"), "range", 2), (("events", "-n", "-1"), "range", 2),
                                    (("serve", "--history-age", "3"), "--history", 2),
                                    (("post-mortem", os.path.join(self.folder, "errors")), "neither", 3)):
            self.tool(*words, status=status)
            self.assertIn(text, umbra.errors)
        self.assertIn("no driver 'other'", self.tool("-d", "other", "ps", status=3))

    def test_lastLimitsSinceToo(self):
        self.damage()
        self.assertEqual(2, len(self.values("events", "--since", "1h", "-n", "2")["events"]))

    def test_psShowsNoSocketOfADriverThatEnded(self):
        self.end()
        self.assertEqual(["none"], [one["socket"] for one in self.values("ps")["drivers"]])


class Files(Folder):
    def test_pipesSocketsAndFoldersThatAreNamedLikeAViewAreUnreadable(self):
        os.mkfifo(os.path.join(self.folder, "pipe.live"))
        os.mkdir(os.path.join(self.folder, "folder.live"))
        os.symlink("loop.live", os.path.join(self.folder, "loop.live"))
        with socket.socket(socket.AF_UNIX) as made:
            made.bind(os.path.join(self.folder, "socket.live"))
            found = self.values("ps", schema="ps")["drivers"]
        self.assertEqual({"unreadable"}, {one["state"] for one in found})
        self.assertIn("pipe", [one["name"] for one in found])
        self.tool("-d", "pipe", "show", status=1)


class History(Odd):
    def setUp(self):
        super().setUp()
        self.history = os.path.join(self.folder, "history")
        with subprocess.Popen([harness.UMBRA, "--dir", self.folder, "serve", "--port", "0", "--history", self.history],
                              stdout=subprocess.DEVNULL, env=harness.environment()) as server:
            try:
                self.damage()
                wait_for(lambda: self.kept() >= len(NAMES), "events in the history")
            finally:
                server.terminate()

    def kept(self):
        if not os.path.exists(self.history):
            return 0
        with sqlite3.connect(f"file:{self.history}?mode=ro", uri=True) as database:
            try:
                return database.execute("select count(*) from event where kind = 1").fetchone()[0]
            except sqlite3.OperationalError:  # it is just being made
                return 0

    def events(self, *more, **options):
        return [(one["number"], one["kind"], one["region"])
                for one in self.values("events", *more, schema="events", **options)["events"]]

    def test_eventsThatTheLogNoLongerHoldsComeFromTheHistory(self):
        before = self.events("--all")
        self.assertEqual(before, self.events("--all", "--history", self.history))
        # The driver ends and leaves a log that begins anew.
        self.end()
        for ending in "events", "live":
            os.unlink(os.path.join(self.folder, "odd." + ending))
        self.driver = subprocess.Popen([ODD, self.folder], stdin=subprocess.PIPE, stderr=self.errors)
        self.addCleanup(self.end)
        wait_for(lambda: any(one["lastPass"] for one in self.rows("shadow")), "a pass")
        self.assertEqual([], self.events("--class", "finding", status=3))
        found = self.events("--all", "--history", self.history)
        self.assertEqual(before, found[:len(before)])
        self.assertEqual([1, 2], [number for number, _, _ in found[len(before):len(before) + 2]])
        self.assertEqual(len(NAMES), len(self.events("--class", "finding", UMBRA_HISTORY=self.history)))
        self.assertEqual([("finding", 'mac "x"/y')], [one[1:] for one in self.events(
            "--region", 'mac "x"/y', "--history", self.history)])
        self.assertEqual(found[-3:], self.events("-n", "3", "--history", self.history))

    def test_eventsOfADriverThatLeftNothingComeFromTheHistory(self):
        before = self.events("--class", "finding")
        self.end()
        for ending in "events", "live":
            os.unlink(os.path.join(self.folder, "odd." + ending))
        self.assertEqual(before, self.events("-d", "odd", "--class", "finding", "--history", self.history))
        self.tool("-d", "odd", "events", status=3)
        self.tool("-d", "odd", "events", "--history", os.path.join(self.folder, "errors"), status=1)
        self.assertIn("errors", umbra.errors)


if __name__ == "__main__":
    harness.main()
