"""The Python client on a running driver: an example of its use, and its errors."""

import os
import time

import pytest

from stand import Stand, umbra


@pytest.fixture(scope="module")
def stand():
    with Stand(os.environ["UMBRA_STAND"], 100) as running:
        yield running


def test_get_and_list(stand):
    with stand.connect() as driver:
        assert driver.greeting["level"] == "look"
        assert driver.version()["pid"] == stand.pid()
        assert driver.get("/shadow/state") == "auditing"
        assert driver.get("/shadow/chipMemory/vlan/entrySize") == 8
        assert isinstance(driver.get("/shadow/paused"), bool)
        names = [item["name"] for item in driver.list("/shadow/chipMemory")]
        assert "mac" in names and "vlan" in names
        assert len(driver.list("/many/chipMemory")) == 100
        assert driver.attributes("/chip")["isAbsent"] is False


def test_describe_says_what_is_allowed(stand):
    with stand.connect() as driver:
        rows = {row["name"]: row for row in driver.describe("/shadow")["items"]}
        assert rows["paused"]["isSettable"] and rows["paused"]["level"] == "operate"
        assert rows["policyText"]["level"] == "look"
        assert rows["policyText"]["arguments"] == ["chipMemory", "entry"]


def test_who_looks_changes_nothing(stand):
    with stand.connect() as driver:
        with pytest.raises(umbra.Refused, match="needs the level operate"):
            driver.set("/shadow/paused", True)
        assert driver.get("/shadow/paused") is False


def test_pause_and_resume_are_events(stand):
    with stand.connect(administers=True) as driver:
        assert driver.set("/shadow/paused", True) is True
        assert driver.get("/shadow/patrolState") == "paused"
        assert driver.set("/shadow/paused", False) is False
        # The log is made in the turns after the start, and may not be there yet.
        deadline, commands = time.monotonic() + 20, []
        while len(commands) < 2 and time.monotonic() < deadline:
            commands = [event for event in driver.events() if event["kind"] == "command"]
        assert commands[-1]["pid"] == os.getpid()
        assert commands[-1]["uid"] == os.getuid()
        assert '"path": "/shadow/paused"' in commands[-1]["text"]


def test_damage_is_found_and_told(stand):
    with stand.connect(administers=True) as driver:
        driver.events(since=10**9, follow=True)
        driver.watch("/shadow/findings")
        # A value that the chip holds and the shadow does not expect.
        driver.call("/shadow/chipMemory/vlan/chipHam/doWrite", address="0x1:00080000",
                    buffer="0102030405060708", entrySize=8, entries=1)
        kinds = set()
        for told in driver.told(timeout=20):
            kinds |= {told["event"]["kind"]} if "event" in told else {"watch"} if "watch" in told else set()
            if {"finding", "watch"} <= kinds:
                break
        assert {"finding", "watch"} <= kinds
        assert driver.policy_text("/shadow/chipMemory/vlan", 0) != ""


def test_a_broken_rule_is_refused(stand):
    with stand.connect(administers=True) as driver:
        with pytest.raises(umbra.Refused, match="refused: endIndex"):
            driver.call("/shadow/chipMemory/vlan/doClearRange", startIndex=0, endIndex=99999)


def test_the_level_is_only_lowered(stand):
    with stand.connect(administers=True) as driver:
        driver.lower_level("look")
        with pytest.raises(umbra.Refused, match="lowered"):
            driver.lower_level("operate")


def test_a_driver_that_hangs_is_a_timeout(stand):
    with stand.connect(timeout=0.3) as driver:
        stand.pause(True)
        try:
            with pytest.raises(umbra.TimedOut, match="no answer to 'get /shadow/state' within 0.3 s"):
                driver.get("/shadow/state")
        finally:
            stand.pause(False)
        driver.timeout = 20
        assert driver.get("/shadow/state") == "auditing"


def test_no_driver_is_an_error_with_its_path(tmp_path):
    with pytest.raises(umbra.Disconnected, match="nobody.sock"):
        umbra.connect("nobody", str(tmp_path))
    assert umbra.drivers(str(tmp_path)) == []
