"""What the tests of the tool share: running it, a real terminal, recorded screens, JSON schemas.

The environment names the programs: UMBRA the tool, UMBRA_DRIVER_PROGRAM the demonstration's driver. UMBRA_RECORD=1
writes the recorded screens anew.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
UMBRA = os.environ.get("UMBRA", "umbra")
DEADLINE = 30  # seconds, for what should take a moment


def wait_for(condition, what, deadline=DEADLINE):
    """The first value of `condition` that is true."""
    end = time.monotonic() + deadline
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {deadline} s: {what() if callable(what) else what}")
        time.sleep(0.02)


def environment(**more):
    kept = {name: value for name, value in os.environ.items()
            if not name.startswith(("UMBRA_", "LC_")) and name not in ("NO_COLOR", "COLUMNS", "PAGER")}
    return {**kept, "LC_ALL": "C.UTF-8", "TZ": "UTC", **more}


def umbra(*arguments, status=0, text=None, **more):
    """Runs the tool; its standard output. `status` is the exit status that it must have."""
    done = subprocess.run([UMBRA, *arguments], capture_output=True, text=True, timeout=60, input=text,
                          env=environment(**more), check=False)
    if done.returncode != status:
        raise AssertionError(f"umbra {' '.join(arguments)}: exit status {done.returncode}, not {status}\n"
                             f"{done.stdout}{done.stderr}")
    umbra.errors = done.stderr
    return done.stdout


class Folder(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="umbra-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def tool(self, *arguments, **options):
        return umbra("--dir", self.folder, *arguments, **options)

    def values(self, *arguments, schema=None, **options):
        """What the tool prints as JSON, checked against a schema."""
        value = json.loads(self.tool("--json", *arguments, **options))
        if schema:
            check(value, schema)
        return value


# ---- a terminal ------------------------------------------------------------------------------------------

HAS_TERMINAL = shutil.which("tmux") is not None


class Terminal:
    """A program in a terminal of 80 columns and 24 lines."""

    def __init__(self, *command, columns=80, lines=24, **more):
        self.name = f"umbra-test-{os.getpid()}-{id(self)}"
        self.status = os.path.join(tempfile.gettempdir(), self.name + ".status")
        self._tmux("new-session", "-d", "-x", str(columns), "-y", str(lines),
                   *sum((["-e", f"{name}={value}"] for name, value in environment(**more).items()
                         if name in ("LC_ALL", "TZ") or name in more), []),
                   # tmux may miss the end of a process, and then never knows its status.
                   "sh", "-c", 'trap : INT; "$@"; echo $? >"$0"', self.status, *command, ";", "set", "-g", "remain-on-exit", "on")

    def _tmux(self, *arguments):
        return subprocess.run(["tmux", "-L", self.name, "-u", "-f", "/dev/null", *arguments],
                              capture_output=True, text=True, check=True, env=environment(TERM="xterm-256color"),
                              timeout=20).stdout

    def close(self):
        subprocess.run(["tmux", "-L", self.name, "kill-server"], capture_output=True, check=False)
        if os.path.exists(self.status):
            os.unlink(self.status)

    def screen(self, colours=False):
        return self._tmux("capture-pane", "-p", *(["-e"] if colours else []))

    def keys(self, *keys):
        self._tmux("send-keys", *keys)

    def text(self, text):
        self._tmux("send-keys", "-l", text)

    def resize(self, columns, lines):
        self._tmux("resize-window", "-x", str(columns), "-y", str(lines))

    def shows(self, pattern):
        """The screen, once the pattern is on it."""
        def found():
            screen = self.screen()
            return screen if re.search(pattern, screen, re.MULTILINE) else None
        return wait_for(found, lambda: f"'{pattern}' on the screen:\n{self.screen()}")

    def shows_not(self, pattern):
        def found():
            screen = self.screen()
            return None if re.search(pattern, screen, re.MULTILINE) else screen
        return wait_for(found, lambda: f"no '{pattern}' on the screen:\n{self.screen()}")

    def has_ended(self):
        return self._tmux("list-panes", "-F", "#{pane_dead} #{pane_dead_status}").split()[0] == "1"

    def pid(self):
        shell = self._tmux("list-panes", "-F", "#{pane_pid}").strip()
        with open(f"/proc/{shell}/task/{shell}/children", encoding="ascii") as children:
            return int(children.read())

    def exit_status(self):
        def found():
            try:
                with open(self.status, encoding="ascii") as file:
                    return file.read().strip()
            except FileNotFoundError:
                return None
        return int(wait_for(found, lambda: f"the exit status of the program:\n{self.screen()}"))


VOLATILE = [
    (r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}", "<moment>"),
    (r"\bpid \d+", "pid <pid>"),
    (r"process \d+", "process <pid>"),
    (r"\b\d+(\.\d+)? (us|ms|s|min|h|d)\b( \d\d (s|min|h)\b)?", "<time>"),
    (r"\b\d+ ~", "<time>"),  # cut where its column ends
    (r"[ \t]+", " "),
    (r" $", ""),
]


def masked(screen):
    for pattern, word in VOLATILE:
        screen = re.sub(pattern, word, screen, flags=re.MULTILINE)
    return screen.rstrip("\n") + "\n"


def compare(test, screen, name):
    """The screen, less what changes from run to run, is the recorded one."""
    path = os.path.join(HERE, "screens", name + ".txt")
    if os.environ.get("UMBRA_RECORD"):
        with open(path, "w", encoding="utf-8") as file:
            file.write(masked(screen))
    with open(path, encoding="utf-8") as file:
        recorded = file.read()
    test.maxDiff = None
    test.assertEqual(recorded, masked(screen), f"the screen is not the recorded one ({path})")


# ---- JSON schemas ----------------------------------------------------------------------------------------

TYPES = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None)}
KNOWN = {"$schema", "title", "description", "type", "properties", "required", "additionalProperties", "items", "enum",
         "pattern", "minimum", "minItems", "$defs", "$ref"}


def is_of(value, kind):
    if kind == "integer":
        return isinstance(value, int) and not isinstance(value, bool)
    if kind == "number":
        return isinstance(value, (int, float)) and not isinstance(value, bool)
    return isinstance(value, TYPES[kind])


def faults(value, schema, place, root):
    """Where the value breaks the schema; the part of JSON Schema that the files here use."""
    unknown = set(schema) - KNOWN
    if unknown:
        raise AssertionError(f"the checker does not know {unknown}")
    if "$ref" in schema:
        schema = root["$defs"][schema["$ref"].rpartition("/")[2]]
    kinds = schema.get("type", [])
    kinds = [kinds] if isinstance(kinds, str) else kinds
    if kinds and not any(is_of(value, kind) for kind in kinds):
        return [f"{place}: {value!r} is none of {kinds}"]
    found = []
    if "enum" in schema and value not in schema["enum"]:
        found.append(f"{place}: {value!r} is none of {schema['enum']}")
    if "pattern" in schema and isinstance(value, str) and not re.search(schema["pattern"], value):
        found.append(f"{place}: {value!r} is not like {schema['pattern']}")
    if "minimum" in schema and is_of(value, "number") and value < schema["minimum"]:
        found.append(f"{place}: {value!r} is below {schema['minimum']}")
    if isinstance(value, dict):
        properties = schema.get("properties", {})
        found += [f"{place}: no {name}" for name in schema.get("required", []) if name not in value]
        for name, one in value.items():
            if name in properties:
                found += faults(one, properties[name], f"{place}.{name}", root)
            elif schema.get("additionalProperties", True) is False:
                found.append(f"{place}: {name} is not in the schema")
    if isinstance(value, list):
        if len(value) < schema.get("minItems", 0):
            found.append(f"{place}: {len(value)} items")
        for number, one in enumerate(value):
            found += faults(one, schema.get("items", {}), f"{place}[{number}]", root)
    return found


def check(value, name):
    with open(os.path.join(HERE, "schemas", name + ".json"), encoding="utf-8") as file:
        schema = json.load(file)
    found = faults(value, schema, "value", schema)
    if found:
        raise AssertionError(f"schema {name}: " + "; ".join(found[:10]))


def main():
    if not HAS_TERMINAL:
        print("tests of screens left out: no tmux (./dev setup test)")
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]], verbosity=1)
