"""A client of a driver's control socket. It needs the standard library alone.

    import umbra

    with umbra.connect("switch1") as driver:
        print(driver.get("/shadow/patrolState"))
        for region in driver.list("/shadow/chipMemory"):
            print(region["text"], driver.get(f"/shadow/chipMemory/{region['key']}/registersFixed"))

    with umbra.connect("switch1", administers=True) as driver:
        driver.set("/shadow/paused", True)
        driver.call("/shadow/doAudit", chipMemory="/shadow/chipMemory/mac", first=0, count=16)

    with umbra.connect("switch1") as driver:
        driver.watch("/shadow/findings")
        for told in driver.told(timeout=10):
            print(told)

The grammar is that of docs/formats.md. Whatever the driver refuses is a Refused with its text; what
takes longer than the time-out is a TimedOut that says what was asked.
"""

from __future__ import annotations

import collections
import json
import os
import socket
import time
from types import TracebackType
from typing import Any, Deque, Dict, Iterator, List, Optional, Type, Union

Value = Union[None, bool, int, float, str]

DEFAULT_DIRECTORY = "/run/umbra"
DEFAULT_TIMEOUT = 2.0


class Error(Exception):
    """Anything that goes wrong here."""


class Refused(Error):
    """The driver does not do it, and says why."""


class TimedOut(Error):
    """The driver has not answered in time: its loop may hang."""


class Disconnected(Error):
    """There is no driver, or it has ended the connection."""


class Driver:
    """One connection. Not for two threads at once."""

    def __init__(self, path: str, timeout: Optional[float] = DEFAULT_TIMEOUT) -> None:
        """Connects. `timeout`, in seconds, is that of each answer; None waits for ever."""
        self.path = path
        self.timeout = timeout
        self._pending = b""
        self._told: Deque[Dict[str, Any]] = collections.deque()
        self._number = 0
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            self._socket.settimeout(timeout)
            self._socket.connect(path)
        except socket.timeout as error:
            self._socket.close()
            raise TimedOut(f"{path}: no connection within {timeout} s") from error
        except OSError as error:
            self._socket.close()
            raise Disconnected(f"{path}: {error.strerror}") from error
        try:
            self.greeting = self._line("the greeting", self._deadline())
            if self.greeting.get("ok") is False:
                raise Refused(str(self.greeting.get("error")))
        except BaseException:
            self._socket.close()
            raise

    def close(self) -> None:
        self._socket.close()

    def __enter__(self) -> "Driver":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    # --- Commands ---

    def ask(self, do: str, **members: Any) -> Dict[str, Any]:
        """One command; the parts of its answer as one. What is None is left out."""
        self._number += 1
        line = {"id": self._number, "do": do}
        line.update({name: value for name, value in members.items() if value is not None})
        asked = f"{do} {members.get('path', '')}".strip()
        deadline = self._deadline()
        self._send(json.dumps(line, allow_nan=False).encode() + b"\n", asked, deadline)
        answer: Dict[str, Any] = {}
        while True:
            part = self._line(asked, deadline)
            if "ok" not in part:
                self._told.append(part)
                continue
            if not part["ok"]:
                raise Refused(str(part.get("error")))
            if part.get("id") != self._number:
                continue  # the rest of an answer that was given up
            items = answer.get("items", []) + part.get("items", [])
            answer.update(part)
            if "items" in part:
                answer["items"] = items
            if not part.get("more"):
                answer.pop("more", None)
                return answer
            deadline = self._deadline()

    def ping(self) -> None:
        self.ask("ping")

    def version(self) -> Dict[str, Any]:
        return self.ask("version")

    def lower_level(self, level: str) -> None:
        """To "operate" or "look"; it cannot be raised again."""
        self.ask("level", level=level)

    def get(self, path: str) -> Value:
        """An attribute's value; the text of one that JSON has no value for."""
        answer = self.ask("get", path=path)
        return answer["value"] if "value" in answer else answer.get("text")

    def text(self, path: str) -> str:
        """An attribute's value as the library writes it."""
        return str(self.ask("get", path=path).get("text"))

    def attributes(self, path: str) -> Dict[str, Value]:
        """All attributes of an object."""
        return {item["name"]: item.get("value", item.get("text"))
                for item in self.ask("list", path=path)["items"]}

    def list(self, path: str = "/", most: Optional[int] = None) -> List[Dict[str, Any]]:
        return self.ask("list", path=path, most=most)["items"]

    def describe(self, path: Optional[str] = None, type_name: Optional[str] = None) -> Dict[str, Any]:
        return self.ask("describe", path=path, type=type_name)

    def set(self, path: str, value: Value) -> Value:
        """Sets an attribute; its value afterwards."""
        return self._result({"do": "set", "path": path, "value": value})

    def call(self, path: str, name_it: Optional[str] = None, **arguments: Value) -> Value:
        """Calls an operation; its result. `name_it` gives the resulting object a name in "/"."""
        line: Dict[str, Any] = {"do": "call", "path": path, "arguments": arguments}
        if name_it is not None:
            line["as"] = name_it
        return self._result(line)

    def policy_text(self, path: str, entry: int) -> str:
        return str(self.ask("policyText", path=path, entry=entry)["text"])

    def dump(self, path: str, first: int = 0, count: int = 1, chip: bool = False) -> List[Dict[str, Any]]:
        return self.ask("dump", path=path, first=first, count=count, chip=chip)["items"]

    def check(self, path: Optional[str] = None) -> List[str]:
        return self.ask("check", path=path)["items"]

    def plan(self, path: str) -> List[str]:
        return self.ask("plan", path=path)["items"]

    # --- What is told without being asked ---

    def watch(self, path: str) -> Value:
        """The present value; changes come from told()."""
        answer = self.ask("watch", path=path)
        return answer.get("value", answer.get("text"))

    def unwatch(self, path: Optional[str] = None) -> None:
        self.ask("unwatch", path=path)

    def events(self, since: int = 0, most: Optional[int] = None, follow: bool = False) -> List[Dict[str, Any]]:
        """With `follow` later ones come from told()."""
        return self.ask("events", since=since, most=most, follow=follow or None)["items"]

    def told(self, timeout: Optional[float] = None) -> Iterator[Dict[str, Any]]:
        """Changes and events as they come, for that many seconds; None: for ever."""
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            while self._told:
                yield self._told.popleft()
            try:
                line = self._line("what is told", deadline)
            except TimedOut:
                return
            if "ok" not in line:
                self._told.append(line)

    # --- Lines ---

    def _result(self, line: Dict[str, Any]) -> Value:
        """`None` is a value here, and not left out."""
        members = {name: value for name, value in line.items() if name != "do"}
        if members.get("value", 0) is None:
            members["value"] = "null"
        answer = self.ask(str(line["do"]), **members)
        return answer["value"] if "value" in answer else answer.get("text")

    def _deadline(self) -> Optional[float]:
        return None if self.timeout is None else time.monotonic() + self.timeout

    def _wait(self, asked: str, deadline: Optional[float]) -> None:
        left = None if deadline is None else deadline - time.monotonic()
        if left is not None and left <= 0:
            raise TimedOut(f"{self.path}: no answer to '{asked}' within {self.timeout} s; the driver's "
                           "loop may hang, or be busy with an operation")
        self._socket.settimeout(left)

    def _send(self, data: bytes, asked: str, deadline: Optional[float]) -> None:
        self._wait(asked, deadline)
        try:
            self._socket.sendall(data)
        except socket.timeout:
            self._wait(asked, 0.0)
        except OSError as error:
            raise Disconnected(f"{self.path}: {error.strerror}") from error

    def _line(self, asked: str, deadline: Optional[float]) -> Dict[str, Any]:
        while b"\n" not in self._pending:
            self._wait(asked, deadline)
            try:
                data = self._socket.recv(65536)
            except socket.timeout:
                continue
            except OSError as error:
                raise Disconnected(f"{self.path}: {error.strerror}") from error
            if not data:
                raise Disconnected(f"{self.path}: the driver has ended the connection")
            self._pending += data
        line, self._pending = self._pending.split(b"\n", 1)
        answer = json.loads(line)
        if not isinstance(answer, dict):
            raise Error(f"{self.path}: no object: {line[:80]!r}")
        return answer


def connect(name: str, directory: str = DEFAULT_DIRECTORY, administers: bool = False,
            timeout: Optional[float] = DEFAULT_TIMEOUT) -> Driver:
    """The driver of that name."""
    return Driver(os.path.join(directory, name + (".admin.sock" if administers else ".sock")), timeout)


def drivers(directory: str = DEFAULT_DIRECTORY) -> List[str]:
    """The names of those that have a socket, served or not."""
    names = (name for name in os.listdir(directory) if name.endswith(".sock"))
    return sorted({name[: -len(".sock")].removesuffix(".admin") for name in names})
