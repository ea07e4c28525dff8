#!/usr/bin/python3
"""The metrics as the tools of a monitoring system take them.

  metrics.py SERVER

SERVER is umbra-serve-made-up. Ends with 77 where Prometheus or its client library is missing.
"""
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request
import unittest

try:
    from prometheus_client.openmetrics.parser import text_string_to_metric_families
except ImportError:
    text_string_to_metric_families = None

SERVER = sys.argv[1] if len(sys.argv) > 1 else ""
DEADLINE = 60.0


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def get(url, accept=""):
    request = urllib.request.Request(url, headers={"Accept": accept} if accept else {})
    with urllib.request.urlopen(request, timeout=10) as answer:
        return answer.read().decode()


def wait(condition, what):
    end = time.monotonic() + DEADLINE
    while time.monotonic() < end:
        try:
            value = condition()
        except OSError:
            value = None
        if value:
            return value
        time.sleep(0.1)
    raise AssertionError("not within %.0f s: %s" % (DEADLINE, what))


class Metrics(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = subprocess.Popen([SERVER, "0", "300"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        cls.address = cls.server.stdout.readline().strip()
        for line in ("find 3 17", "find 3 18", "find 250 1", 'alarm 0 quote"back\\slash 1'):
            cls.server.stdin.write(line + "\n")
        cls.server.stdin.flush()
        wait(lambda: 'region="region-00003"} 2\n' in get(cls.address + "metrics"), "two findings")

    @classmethod
    def tearDownClass(cls):
        cls.server.kill()
        cls.server.wait()
        cls.server.stdin.close()
        cls.server.stdout.close()

    def test_text_isTakenByPromtool(self):
        checked = subprocess.run(["promtool", "check", "metrics"], input=get(self.address + "metrics"),
                                 capture_output=True, text=True)
        self.assertEqual((checked.returncode, checked.stdout + checked.stderr), (0, ""))

    def test_openMetrics_isTakenByTheStrictParser(self):
        text = get(self.address + "metrics", "application/openmetrics-text;version=1.0.0")
        families = {family.name: family for family in text_string_to_metric_families(text)}
        findings = families["umbra_region_findings"]
        self.assertEqual(findings.type, "counter")
        created = [sample for sample in findings.samples if sample.name.endswith("_created")]
        self.assertEqual(len(created), 204)
        values = {sample.labels["region"]: sample.value for sample in findings.samples if sample.name.endswith("_total")}
        self.assertEqual(values["region-00003"], 2)
        self.assertEqual(values["region-00004"], 0)
        self.assertEqual(families["umbra_shadow_slice_interval_seconds"].unit, "seconds")
        self.assertEqual(families["umbra_driver_regions_summed"].samples[0].value, 100)
        self.assertEqual(families["umbra_alarm_state"].type, "stateset")

    def test_anExposition_takesLessThanASecond(self):
        began = time.monotonic()
        get(self.address + "metrics")
        self.assertLess(time.monotonic() - began, 1)

    def test_prometheus_scrapesBothFormats(self):
        target = self.address[len("http://"):].rstrip("/")
        port = free_port()
        with tempfile.TemporaryDirectory() as folder:
            config = os.path.join(folder, "prometheus.yml")
            with open(config, "w", encoding="utf-8") as out:
                json.dump({"global": {"scrape_interval": "1s", "scrape_timeout": "1s"}, "scrape_configs": [
                    {"job_name": name, "params": {"format": [name]}, "static_configs": [{"targets": [target]}]}
                    for name in ("text", "openmetrics")]}, out)
            prometheus = subprocess.Popen(
                ["prometheus", "--config.file=" + config, "--storage.tsdb.path=" + os.path.join(folder, "data"),
                 "--web.listen-address=127.0.0.1:%d" % port], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                def ask(query):
                    url = "http://127.0.0.1:%d/api/v1/query?query=%s" % (port, urllib.parse.quote(query))
                    return {row["metric"].get("job"): float(row["value"][1])
                            for row in json.loads(get(url))["data"]["result"]}
                both = {"text": 1.0, "openmetrics": 1.0}
                wait(lambda: ask("up") == both, "up == 1 of both")
                findings = ask('umbra_region_findings_total{region="region-00003"}')
                self.assertEqual(findings, {"text": 2.0, "openmetrics": 2.0})
                self.assertEqual(ask('sum by (job) (umbra_region_findings_total)'), {"text": 3.0, "openmetrics": 3.0})
                self.assertEqual(ask("umbra_driver_up"), both)
            finally:
                prometheus.terminate()
                prometheus.wait()


if __name__ == "__main__":
    if not (shutil.which("promtool") and shutil.which("prometheus") and text_string_to_metric_families):
        print("skipped: no Prometheus or no python3-prometheus-client (./dev setup page)")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
