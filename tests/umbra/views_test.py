#!/usr/bin/env python3
"""The tool on live views and event logs that a program other than the library wrote (views.py)."""
import json
import os
import re
import signal
import subprocess
import sys
import unittest

import harness
import views
from harness import Folder, Terminal, check, compare, umbra, wait_for


class Views(Folder):
    """switch1 is live, lamp died by an assertion, quiet ended in order."""

    def setUp(self):
        super().setUp()
        self.driver = subprocess.Popen(
            [sys.executable, os.path.join(harness.HERE, "views.py"), self.folder, "--beat"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end)
        self.assertEqual("ready\n", self.driver.stdout.readline())

    def end(self):
        self.driver.kill()
        self.driver.communicate()


class Usage(Folder):
    def test_helpOfEverySubcommandSaysSomethingAndExits0(self):
        names = re.findall(r"^  ([a-z-]+) {2,}\S", umbra("--help").split("Subcommands:")[1], re.MULTILINE)
        self.assertLess(12, len(names))
        for name in names:
            self.assertIn("--help", umbra(name, "--help"))

    def test_jsonOfEverySubcommandHasASchemaThatATestChecks(self):
        names = re.findall(r"^  ([a-z-]+) {2,}\S", umbra("--help").split("Subcommands:")[1], re.MULTILINE)
        tests = ""
        for file in (name for name in os.listdir(harness.HERE) if name.endswith("_test.py")):
            with open(os.path.join(harness.HERE, file), encoding="utf-8") as source:
                tests += source.read()
        for name in set(names) - {"metrics"}:
            schema = {"resume": "pause"}.get(name, name)
            self.assertTrue(os.path.exists(os.path.join(harness.HERE, "schemas", schema + ".json")), name)
            self.assertRegex(tests, rf'schema="{schema}"|check\(.*, "{schema}"\)')
        umbra("metrics", "--json", status=2)

    def test_serveTellsItsAddressAsJson(self):
        with subprocess.Popen([harness.UMBRA, "--dir", self.folder, "--json", "serve", "--port", "0"],
                              stdout=subprocess.PIPE, text=True, env=harness.environment()) as server:
            try:
                check(json.loads(server.stdout.readline()), "serve")
            finally:
                server.terminate()

    def test_wrongUsageExits2AndSaysWhy(self):
        for arguments in (), ("nonsense",), ("ps", "--nonsense"), ("dump",), ("ack",), ("ack", "x", "--all"), \
                ("events", "--class", "nonsense"), ("events", "--since", "then"), \
                ("trace", "--level", "32"), ("trace", "--since", "then"), ("top", "--interval", "0"):
            umbra(*arguments, status=2)
            self.assertNotEqual("", umbra.errors)

    def test_noDriverExits3AndNamesTheDirectory(self):
        for arguments in ("ps",), ("show",), ("events",), ("trace",), ("top", "--once"), ("post-mortem", "nothing.live"):
            self.assertNotIn("\033", self.tool(*arguments, status=3))
        self.tool("show", status=3)
        self.assertIn(self.folder, umbra.errors)

    def test_fileThatIsNoLiveViewIsListedAsUnreadable(self):
        with open(os.path.join(self.folder, "odd.live"), "wb") as file:
            file.write(b"odd" * 5000)
        found = self.values("ps", schema="ps")["drivers"]
        self.assertEqual(["unreadable"], [one["state"] for one in found])
        self.tool("show", status=1)

    def test_completionOfTheShellNamesSubcommandsAndOptions(self):
        script = umbra("completion")
        subprocess.run(["bash", "-n"], input=script, text=True, check=True)

        def completed(*words):
            done = subprocess.run(
                ["bash", "-c", script + 'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _umbra; echo "${COMPREPLY[*]}"',
                 "bash", *words], capture_output=True, text=True, check=True, env=harness.environment())
            return done.stdout.split()
        self.assertEqual(["post-mortem"], completed(harness.UMBRA, "post"))
        self.assertEqual(["--follow"], completed(harness.UMBRA, "events", "--fo"))
        self.assertEqual(["--json"], completed(harness.UMBRA, "ps", "--js"))
        self.assertEqual(["alarm"], completed(harness.UMBRA, "events", "--class", "al"))

    def test_manualPageHasEverySubcommandAndNoWarning(self):
        page = umbra("manual")
        for name in "ps", "top", r"post\-mortem", r"audit\-now":
            self.assertIn(f".SS {name}", page)
        warnings = subprocess.run(["man", "--warnings", "-l", "-"], input=page, text=True, capture_output=True,
                                  env=harness.environment(MANPAGER="cat"), check=False)
        self.assertEqual("", warnings.stderr)


class Listings(Views):
    def test_psTellsLiveFromDeadFromEnded(self):
        found = self.values("ps", schema="ps")["drivers"]
        self.assertEqual([("lamp", "dead", "an assertion ended it"), ("quiet", "ended", "it ended in order"),
                          ("switch1", "live", "")],
                         [(one["name"], one["state"], one["reason"]) for one in found])
        self.assertEqual([8, 0, 8], [one["regions"] for one in found])
        self.assertEqual([49, 0, 49], [one["findings"] for one in found])

    def test_psOfKilledDriverSaysDead(self):
        self.end()
        states = {one["name"]: one["state"] for one in self.values("ps")["drivers"]}
        self.assertEqual("dead", states["switch1"])

    def test_psOfDriverWithoutHeartbeatSaysStalled(self):
        self.driver.send_signal(signal.SIGSTOP)
        wait_for(lambda: self.values("ps", "-d", "switch1")["drivers"][0]["state"] == "stalled", "stalled")
        self.driver.send_signal(signal.SIGCONT)
        wait_for(lambda: self.values("ps", "-d", "switch1")["drivers"][0]["state"] == "live", "live again")

    def test_psCleanRemovesTheDeadAndNothingElse(self):
        removed = self.values("ps", "--clean", schema="clean")["removed"]
        self.assertEqual({"lamp.live", "lamp.events", "lamp.trace", "quiet.live"},
                         {os.path.basename(one["path"]) for one in removed})
        self.assertEqual({"switch1.live", "switch1.events"}, set(os.listdir(self.folder)))

    def test_theOnlyRunningDriverNeedsNoName(self):
        self.assertEqual("switch1", self.values("show", schema="show")["driver"])
        self.end()
        self.tool("show", status=2)
        self.assertIn("lamp, quiet, switch1", umbra.errors)

    def test_driverIsChosenByNamePathAndEnvironment(self):
        self.assertEqual("lamp", self.values("show", "--driver", "lamp")["driver"])
        self.assertEqual("lamp", self.values("show", UMBRA_DRIVER="lamp")["driver"])
        path = os.path.join(self.folder, "quiet.live")
        self.assertEqual("quiet", json.loads(umbra("show", "-d", path, "--json"))["driver"])
        self.tool("show", "--driver", "nobody", status=3)
        self.assertIn("there is lamp, quiet, switch1", umbra.errors)

    def test_showHasTheRowsAndSaysWhichAreTorn(self):
        shown = self.values("show", "-d", "lamp", schema="show")
        self.assertEqual(["acl"], [one["name"] for one in shown["regions"] if one["torn"]])
        self.assertNotIn("removed", [one["name"] for one in shown["regions"]])
        self.assertEqual("0x1:00020000", shown["regions"][1]["address"])
        # Ten seconds before the heartbeat, whose wall-clock time is known.
        self.assertEqual("2023-11-14T22:13:10.000000000Z", shown["shadows"][0]["lastPass"])

    def test_showOfOneObjectHasAllItsColumns(self):
        shown = self.values("show", "vlan", "-d", "lamp")
        self.assertEqual((42, 12, "normal"), (shown["findings"], shown["findingsIn1h"], shown["mode"]))
        self.tool("show", "nothing", "-d", "lamp", status=3)

    def test_showOfATableHasItsRows(self):
        shown = self.values("show", "--table", "governor", "-d", "lamp")
        self.assertEqual(60, shown["governor"][0]["period"])
        self.tool("show", "--table", "nothing", "-d", "lamp", status=3)

    def test_textAndJsonSayTheSame(self):
        text = self.tool("show", "-d", "lamp")
        for region in self.values("show", "-d", "lamp")["regions"]:
            row = next(line for line in text.splitlines() if line.startswith(region["name"] + " "))
            self.assertEqual([str(region["findings"]), str(region["repairs"])], row.split()[5:7])

    def test_coloursAreForTerminalsOnly(self):
        self.assertNotIn("\033", self.tool("ps"))
        self.assertIn("\033[31m", self.tool("ps", "--colour", "always"))


class EventListings(Views):
    def numbers(self, *arguments, **options):
        return [one["number"] for one in
                self.values("events", "-d", "lamp", *arguments, schema="events", **options)["events"]]

    def test_eventsAreInTheirOrderWithoutThoseThatWereNeverCompleted(self):
        self.assertEqual(list(range(1, 10)), self.numbers())
        value = self.values("events", "-d", "lamp")
        self.assertEqual((10, 1, 3), (value["last"], value["torn"], value["suppressed"]))

    def test_eventsAreChosenByRegionClassAndTime(self):
        self.assertEqual([3, 4, 5], self.numbers("--region", "vlan"))
        self.assertEqual([3, 4], self.numbers("--class", "finding"))
        self.assertEqual([4], self.numbers("--class", "stuck"))
        self.assertEqual([3, 5], self.numbers("--class", "repaired,alarm"))
        self.assertEqual([8, 9], self.numbers("--since", "2023-11-14T22:13:27Z"))
        self.assertEqual([9], self.numbers("--since", "2023-11-14 22:13:28"))
        self.assertEqual([], self.numbers("--since", "1h", status=3))
        self.assertEqual([8, 9], self.numbers("--last", "2"))

    def test_eventLinesTellWhoAndWhat(self):
        text = self.tool("events", "-d", "lamp")
        self.assertIn("vlan[18]  repaired (soft)  expected a51bc6d1 actual a51bc6d0", text)
        self.assertIn("set /shadow/paused true  (uid 1000 pid 77)", text)
        self.assertIn("assertion   entry < entries()", text)

    def test_followPrintsWhatIsAdded(self):
        path = os.path.join(self.folder, "lamp.events")
        with subprocess.Popen([harness.UMBRA, "--dir", self.folder, "-d", "lamp", "events", "--follow", "--json"],
                              stdout=subprocess.PIPE, text=True, env=harness.environment()) as follower:
            try:
                lines = [json.loads(follower.stdout.readline()) for _ in range(9)]
                self.assertEqual(9, lines[-1]["number"])
                with open(path, "r+b") as file:
                    sys.path.insert(0, harness.HERE)
                    import views
                    file.seek(4096 + 256 * 11)
                    file.write(views.event(11, 4, views.START + 10 ** 10, verdict=3, words="region-rate"))
                    file.seek(512 + 8)
                    file.write((11).to_bytes(8, "little"))
                added = json.loads(follower.stdout.readline())
                check(added, "event")
                self.assertEqual((11, "cleared: region-rate"), (added["number"], added["detail"]))
            finally:
                follower.terminate()
            self.assertEqual(0, follower.wait(timeout=20))

    def test_traceShowsTheRecordsOfAllThreadsInTheOrderOfTheirTimes(self):
        value = self.values("trace", "-d", "lamp", schema="trace")
        self.assertEqual([(0, 90, "Difference found in entry 7 of memory acl"),
                          (0, 90, "Difference found in entry 18 of memory vlan"),
                          (0, 106, "Byte 1 expected a5 actual 123456789abcdef0"),
                          (2, 17, "x" * 300 + "\033[2J"),
                          (0, 106, "Byte 2 expected %x actual %x"),
                          (0, None, "unknown")],
                         [(one["level"], one["line"], one["text"]) for one in value["records"]])
        self.assertEqual((1_048_570 - 1_048_571 + 1 + 3, 0, 1, 4),
                         (value["overwritten"], value["tornParts"], value["partsLeftOut"], value["formatsLeftOut"]))
        times = [one["time"] for one in self.values("events", "-d", "lamp")["events"]]
        self.assertEqual(times[1][:19], value["records"][0]["time"][:19])  # a second and a half after the start
        self.assertEqual(".500000000Z", value["records"][0]["time"][19:])

    def test_traceIsChosenByLevelTimeAndNumber(self):
        self.assertEqual(1, len(self.values("trace", "-d", "lamp", "--level", "2")["records"]))
        self.assertEqual(6, len(self.values("trace", "-d", "lamp", "--level", "0,2")["records"]))
        self.assertEqual(["unknown"], [one["text"] for one in self.values("trace", "-d", "lamp", "-n", "1")["records"]])
        self.values("trace", "-d", "lamp", "--level", "1", status=3)
        self.values("trace", "-d", "lamp", "--since", "1s", status=3)
        text = self.tool("trace", "-d", "lamp")
        self.assertNotIn("\033", text)
        self.assertIn("3 records were overwritten", umbra.errors)

    def test_driverWithoutTraceSaysSo(self):
        self.tool("trace", "-d", "quiet", status=3)
        self.assertIn("has no trace records", umbra.errors)
        self.tool("trace", "-d", "lamp", "--old", status=3)

    def test_postMortemHasTheStateTheAssertionAndTheEvents(self):
        path = os.path.join(self.folder, "lamp.live")
        value = json.loads(umbra("post-mortem", path, "--json"))
        check(value, "post-mortem")
        self.assertEqual(("dead", 1, "entry < entries()"), (value["state"], value["tornRows"], value["assertion"]))
        self.assertEqual(["vlan", "acl"], [one["name"] for one in value["regions"]])
        self.assertEqual(9, len(value["events"]))
        self.assertEqual(6, len(value["trace"]))
        for other in "lamp.events", "lamp.trace", "lamp":
            self.assertEqual(value, json.loads(umbra("post-mortem", os.path.join(self.folder, other), "--json")))
        compare(self, umbra("post-mortem", path), "post-mortem")

    def test_postMortemOfAFileCutShortSaysSoAndExits1(self):
        path = os.path.join(self.folder, "lamp.live")
        with open(path, "r+b") as file:
            file.truncate(5000)
        umbra("post-mortem", path, status=1)
        self.assertIn("lamp.live", umbra.errors)


@unittest.skipUnless(harness.HAS_TERMINAL, "no tmux")
class TopReads(Views):
    @unittest.skipUnless(harness.HAS_TERMINAL, "no tmux")
    def test_aLogIsReadOnceAndThenWhatIsNew(self):
        events = {number: views.event(number, 3, views.START, region="shadow") for number in range(1, 10_001)}
        log = os.path.join(self.folder, "switch1.events")
        views.write_events(log + ".new", "switch1", events, records=16_384)
        os.rename(log + ".new", log)
        terminal = Terminal(harness.UMBRA, "--dir", self.folder, "top", "--driver", "switch1", "--interval", "0.05")
        self.addCleanup(terminal.close)
        terminal.shows("^vlan ")
        terminal.text("e")
        terminal.shows("the newest first")

        def figure(file, name):
            with open(f"/proc/{terminal.pid()}/{file}", encoding="ascii") as lines:
                return int(next(line for line in lines if line.startswith(name)).split()[1])
        begin, turns = figure("io", "rchar:"), figure("status", "voluntary_ctxt_switches:")
        wait_for(lambda: figure("status", "voluntary_ctxt_switches:") >= turns + 10, "ten screens")
        self.assertLess(figure("io", "rchar:") - begin, len(events) * 256)


class Top(Views):
    def setUp(self):
        super().setUp()
        self.terminals = []

    def top(self, *arguments, **more):
        terminal = Terminal(harness.UMBRA, "--dir", self.folder, "top", *arguments, **more)
        self.addCleanup(terminal.close)
        return terminal

    def test_screenIsTheRecordedOne(self):
        screen = self.top("--driver", "lamp").shows("^vlan ")
        compare(self, screen, "top")

    def test_keysSortFilterAndLookInto(self):
        terminal = self.top("--driver", "lamp")
        terminal.shows("v1 H.*\nvlan .*\nacl ")
        terminal.keys("s", "s")
        terminal.shows("vREGION.*\nacl .*\nmac ")
        terminal.keys("r")
        terminal.shows("\\^REGION.*\nvlan .*\nstack ")
        terminal.keys("/")
        terminal.text("mi")
        terminal.shows("filter: mi_")
        terminal.keys("Enter")
        terminal.shows("\\^REGION.*\nmirror")
        terminal.shows_not("^vlan ")
        terminal.keys("Enter")
        terminal.shows("region mirror")
        terminal.keys("q")
        terminal.keys("Escape")
        terminal.shows("^vlan ")
        terminal.keys("q")
        self.assertEqual(0, terminal.exit_status())

    def test_lookIntoShowsAllColumnsAndEvents(self):
        terminal = self.top("--driver", "lamp")
        terminal.shows("^vlan ")
        terminal.keys("Enter")
        compare(self, terminal.shows("findingsIn1h"), "top-region")
        terminal.keys("End")
        terminal.shows(r"repaired \(soft\)")

    def test_alarmsEventsAndHelpHavePagesOfTheirOwn(self):
        terminal = self.top("--driver", "lamp")
        terminal.shows("^vlan ")
        terminal.keys("a")
        compare(self, terminal.shows("^ALARM"), "top-alarms")
        terminal.keys("e")
        compare(self, terminal.shows("events, the newest first"), "top-events")
        terminal.keys("h")
        compare(self, terminal.shows("^keys"), "top-help")

    def test_newSizeIsFilled(self):
        terminal = self.top("--driver", "lamp")
        terminal.shows("^vlan ")
        terminal.resize(120, 40)
        screen = terminal.shows("^vlan .* switch")
        wait_for(lambda: terminal.screen().rstrip("\n").count("\n") == 39, "forty lines")
        terminal.resize(40, 12)
        wait_for(lambda: terminal.screen().rstrip("\n").count("\n") == 11, "twelve lines")
        self.assertIn("vlan", screen)

    def test_tabGoesToTheNextDriver(self):
        terminal = self.top("--driver", "lamp")
        terminal.shows("^lamp ")
        terminal.keys("Tab")
        terminal.shows("^quiet  ended")
        terminal.keys("Tab")
        terminal.shows("^switch1  live")

    def test_killedDriverBecomesDeadOnTheScreen(self):
        terminal = self.top("--driver", "switch1", "--interval", "0.1")
        terminal.shows("^switch1  live")
        self.end()
        terminal.shows("^switch1  dead")

    def test_noColourMeansNone(self):
        plain = self.top("--driver", "lamp", NO_COLOR="1")
        plain.shows("^vlan ")
        self.assertNotIn("\033[31m", plain.screen(colours=True))
        coloured = self.top("--driver", "lamp")
        coloured.shows("^vlan ")
        self.assertRegex(coloured.screen(colours=True), "\033\\[(1;)?31m")

    def test_withoutATerminalOneScreenIsPrinted(self):
        compare(self, self.tool("top", "--once", "-d", "lamp"), "top-once")
        check(self.values("top", "-d", "lamp"), "top")
        self.tool("top", "-d", "lamp", status=2)


if __name__ == "__main__":
    harness.main()
