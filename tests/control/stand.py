"""A driver in a process of its own, for the tests of this folder."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import time
from typing import Any, Dict, Optional

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../telemetry"))
import umbra  # noqa: E402


class Stand:
    """Runs while it is entered. `figures` are there afterwards."""

    def __init__(self, program: str, regions: int = 0) -> None:
        self.folder = tempfile.TemporaryDirectory(prefix="umbra-stand-")
        self.directory = self.folder.name
        self.figures: Dict[str, Any] = {}
        self._process = subprocess.Popen([program, self.directory, str(regions)],
                                         stdout=subprocess.PIPE, text=True)

    def __enter__(self) -> "Stand":
        deadline = time.monotonic() + 120
        while time.monotonic() < deadline:
            if self._process.poll() is not None:
                raise AssertionError(f"the stand has ended: {self._process.returncode}")
            try:
                with self.connect(timeout=5) as driver:
                    driver.ping()
                return self
            except umbra.Error:
                time.sleep(0.05)  # until the deadline: it is not there yet
        raise AssertionError("the stand does not answer")

    def connect(self, administers: bool = False, timeout: Optional[float] = 20) -> umbra.Driver:
        return umbra.connect("stand", self.directory, administers, timeout)

    def path(self) -> str:
        return os.path.join(self.directory, "stand.sock")

    def pid(self) -> int:
        return self._process.pid

    def pause(self, is_paused: bool) -> None:
        os.kill(self._process.pid, signal.SIGSTOP if is_paused else signal.SIGCONT)

    def __exit__(self, *_: Any) -> None:
        self._process.send_signal(signal.SIGTERM)
        output, _ignored = self._process.communicate(timeout=120)
        self.folder.cleanup()
        assert self._process.returncode == 0, f"the stand ended with {self._process.returncode}"
        self.figures = json.loads(output.strip().splitlines()[-1])
