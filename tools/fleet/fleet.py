#!/usr/bin/python3
"""Three drivers, the server, a real Prometheus and a real Alertmanager: damages chips, stops an audit,
kills a driver, and shows each alert fire and resolve.

  fleet.py UMBRA DRIVER [--within SECONDS]

UMBRA is the tool, DRIVER umbra-fleet-driver. The rules are those of this folder with shorter times.
Ends with 1 where an alert is late or wrong, with 77 where a package is missing.
"""
import http.server
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAMS = ("prometheus", "promtool", "prometheus-alertmanager", "amtool")
# What stands in the rules, and what stands there for a demonstration.
SHORTER = (("[5m]", "[10s]"), ("[15m]", "[12s]"), ("[1h]", "[120s]"), ("for: 1m", "for: 2s"), ("for: 5m", "for: 2s"),
           ("> 300", "> 5"))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def get(url):
    with urllib.request.urlopen(url, timeout=5) as answer:
        return answer.read().decode()


def wait(condition, seconds, what):
    """What `condition` returns once it is true."""
    end = time.monotonic() + seconds
    while True:
        try:
            value = condition()
        except OSError:
            value = None
        if value:
            return value
        if time.monotonic() > end:
            raise SystemExit("fleet: not within %d s: %s" % (seconds, what))
        time.sleep(0.1)


class Receiver(http.server.BaseHTTPRequestHandler):
    """Takes what the Alertmanager sends: who was told of what."""
    told = []

    def do_POST(self):
        body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        for alert in body["alerts"]:
            labels = alert["labels"]
            Receiver.told.append((self.path, alert["status"], labels["alertname"], labels.get("driver", "")))
        self.send_response(200)
        self.end_headers()

    def log_message(self, *_):
        pass


class Fleet:
    def __init__(self, umbra, driver):
        self.umbra, self.driver = umbra, driver
        self.folder = tempfile.mkdtemp(prefix="fleet")
        self.directory = os.path.join(self.folder, "run")
        self.processes = []
        self.drivers = {}

    def start(self, *command, **more):
        log = open(os.path.join(self.folder, os.path.basename(command[0]) + ".log"), "ab")
        process = subprocess.Popen(command, stdout=more.pop("stdout", log), stderr=log, **more)
        log.close()
        self.processes.append(process)
        return process

    def start_driver(self, name):
        process = self.start(self.driver, self.directory, name, "60", stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if process.stdout.readline() != b"running\n":
            raise SystemExit("fleet: the driver %s does not start" % name)
        self.drivers[name] = process

    def say(self, name, line):
        self.drivers[name].stdin.write((line + "\n").encode())
        self.drivers[name].stdin.flush()

    def begin(self):
        for name in ("switch1", "switch2", "switch3"):
            self.start_driver(name)
        server = self.start(self.umbra, "--dir", self.directory, "serve", "--port", "0", stdout=subprocess.PIPE)
        self.address = server.stdout.readline().split()[-1].decode()

        receiver = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Receiver)
        threading.Thread(target=receiver.serve_forever, daemon=True).start()
        manager, prometheus = free_port(), free_port()
        self.manager = "http://127.0.0.1:%d" % manager
        self.prometheus = "http://127.0.0.1:%d" % prometheus
        self.write("alertmanager.yml", (("group_wait: 30s", "group_wait: 1s"), ("group_interval: 5m", "group_interval: 2s"),
                                        ("127.0.0.1:9099", "127.0.0.1:%d" % receiver.server_port)))
        self.write("rules.yml", SHORTER)
        self.write("prometheus.yml", (("scrape_interval: 15s", "scrape_interval: 1s"), ("scrape_timeout: 10s", "scrape_timeout: 1s"),
                                      ("evaluation_interval: 15s", "evaluation_interval: 1s"),
                                      ("127.0.0.1:9093", "127.0.0.1:%d" % manager),
                                      ("127.0.0.1:9469", urllib.parse.urlparse(self.address).netloc)))
        self.start("prometheus-alertmanager", "--config.file=" + self.path("alertmanager.yml"),
                   "--storage.path=" + self.path("manager"), "--web.listen-address=127.0.0.1:%d" % manager,
                   "--cluster.listen-address=")
        self.start("prometheus", "--config.file=" + self.path("prometheus.yml"), "--storage.tsdb.path=" + self.path("data"),
                   "--web.listen-address=127.0.0.1:%d" % prometheus)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, replacements):
        with open(os.path.join(HERE, name), encoding="utf-8") as file:
            text = file.read()
        for old, new in replacements:
            if old not in text:
                raise SystemExit("fleet: %s has no '%s'" % (name, old))
            text = text.replace(old, new)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def ask(self, query):
        answer = json.loads(get(self.prometheus + "/api/v1/query?query=" + urllib.parse.quote(query)))
        if answer["status"] != "success":
            raise SystemExit("fleet: %s: %s" % (query, answer))
        return answer["data"]["result"]

    def firing(self):
        """The alerts that the Alertmanager has: {(name, driver)}."""
        alerts = json.loads(get(self.manager + "/api/v2/alerts?active=true&silenced=false&inhibited=true"))
        return {(alert["labels"]["alertname"], alert["labels"].get("driver", "")) for alert in alerts}

    def show(self, expected, within, fires):
        """Waits until each of the alerts fires, or has resolved, and was told."""
        began = time.monotonic()
        left = dict(expected)
        while left:
            firing = self.firing()
            for alert, receiver in list(left.items()):
                told = (receiver, "firing" if fires else "resolved") + alert in Receiver.told
                if (alert in firing) == fires and told:
                    print("  %-24s %-8s %s after %4.1f s, told to %s" % (
                        alert + ("fired" if fires else "resolved", time.monotonic() - began, receiver[1:])), flush=True)
                    del left[alert]
            if left and time.monotonic() - began > within:
                raise SystemExit("fleet: not %s within %d s: %s" % ("firing" if fires else "resolved", within, sorted(left)))
            time.sleep(0.1)

    def dashboard(self):
        """Each query of the dashboard is one that Prometheus understands; how many there are."""
        with open(os.path.join(HERE, "dashboard.json"), encoding="utf-8") as file:
            queries = [target["expr"] for panel in json.load(file)["panels"] for target in panel["targets"]]
        silent = [query for query in queries if not self.ask(query.replace("$driver", ".*")) and "ALERTS" not in query
                  and "topk" not in query]
        if silent:
            raise SystemExit("fleet: the dashboard asks for what is not there: %s" % silent)
        return len(queries)

    def end(self):
        for process in self.processes:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in self.processes:
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.folder)


def story(fleet, within):
    fleet.begin()
    # What is damaged before the first scrape would raise nothing: a rate needs two.
    wait(lambda: len(fleet.ask("up == 1")) == 1 and len(fleet.ask("umbra_driver_up == 1")) == 3, 60, "three drivers that are up")
    wait(lambda: len(fleet.ask("umbra_shadow_last_pass_timestamp_seconds > 0")) == 3, 60, "a pass of each driver")
    wait(lambda: len(fleet.ask("count_over_time(umbra_shadow_repairs_total[10s]) > 5")) == 3, 60, "some scrapes")
    print("fleet: 3 drivers, 1 server, Prometheus and Alertmanager run; %d queries of the dashboard are answered" % fleet.dashboard())
    if fleet.firing():
        raise SystemExit("fleet: alerts before anything happened: %s" % fleet.firing())

    print("a chip of switch1 is damaged and one of its entries flips after each repair; the audit of switch2 stops; switch3 is killed")
    for entry in range(12):
        fleet.say("switch1", "damage 16 %d" % entry)
    fleet.say("switch1", "stick 3 7")
    fleet.say("switch2", "pause")
    fleet.drivers["switch3"].kill()
    page, ticket = "/pager", "/tickets"
    first = {("UmbraRepairsRising", "switch1"): ticket, ("UmbraEntryRecurring", "switch1"): ticket,
             ("UmbraAlarmRaised", "switch1"): ticket, ("UmbraAuditSilent", "switch2"): page,
             ("UmbraAuditStopped", "switch2"): ticket, ("UmbraDriverDown", "switch3"): page}
    fleet.show(first, within, True)
    print("the damage ends; the audit goes on; switch3 is started again")
    fleet.say("switch1", "free")
    fleet.say("switch2", "resume")
    fleet.start_driver("switch3")
    fleet.show(first, within, False)

    print("the chip of switch1 forgets all; the chip of switch2 is gone")
    fleet.say("switch1", "reset")
    fleet.say("switch2", "absent")
    second = {("UmbraChipReset", "switch1"): page, ("UmbraChipAbsent", "switch2"): page}
    fleet.show(second, within, True)
    print("the chip of switch2 is back")
    fleet.say("switch2", "present")
    fleet.show(second, within, False)
    print("fleet: %d alerts fired and resolved, each within %d s" % (len(first) + len(second), within))


def main():
    missing = [program for program in PROGRAMS if not shutil.which(program)]
    if missing:
        print("skipped: no %s (./dev setup page)" % ", ".join(missing))
        return 77
    arguments = sys.argv[1:]
    within = 30
    if "--within" in arguments:
        at = arguments.index("--within")
        within = int(arguments[at + 1])
        del arguments[at:at + 2]
    for command in (["promtool", "check", "rules", "rules.yml"], ["promtool", "test", "rules", "rules-test.yml"],
                    ["promtool", "check", "config", "prometheus.yml"], ["amtool", "check-config", "alertmanager.yml"]):
        checked = subprocess.run(command, cwd=HERE, capture_output=True, text=True)
        if checked.returncode:
            print(checked.stdout + checked.stderr)
            raise SystemExit("fleet: %s failed" % " ".join(command))
    fleet = Fleet(*(os.path.abspath(each) for each in arguments))
    try:
        story(fleet, within)
    finally:
        fleet.end()
    return 0


if __name__ == "__main__":
    sys.exit(main())
