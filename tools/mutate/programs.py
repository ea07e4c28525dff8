"""Builds the mutated copy, finds its test programs and runs them."""

import json
import math
import os
import re
import signal
import subprocess
import time
from pathlib import Path

import rewrite

# Random runs are cut to a size that is passed thousands of times.
SHORTER = {"UMBRA_LOCKSTEP_OPERATIONS": "20000", "UMBRA_SIMULATION_SEEDS": "20",
           "UMBRA_FUZZ_RUNS": "2000"}

OPTIONS = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_COMPILER=g++", "-DUMBRA_TESTS=ON",
           "-DUMBRA_DEMO=ON", "-DUMBRA_BENCH=OFF", "-DUMBRA_WERROR=OFF", "-GNinja"]
FLAGS = "-m32 -msse2 -mfpmath=sse -O1 -w -Wno-narrowing -fno-diagnostics-show-caret"
# Where a mutant falls off the end of a function, the compiler would take its leave to undo it.
FLAGS += " -fsanitize=unreachable,return -fsanitize-undefined-trap-on-error"

GROUP = 400  # of test names on one command line
FEW = 8      # the tests tried first: those that pass the fewest mutants
SLACK = 2    # seconds of work a program may take beyond three times its usual time
PATIENCE = 10  # how much longer that may last on a busy machine


def say(text):
    print(f"mutate: {text}", flush=True)


class Builder:
    def __init__(self, root, folder, jobs):
        self.tree, self.out, self.jobs = folder / "tree", folder / "out", jobs
        self.root, self.folder = root, folder

    def configure(self):
        rewrite.copy_project(self.root, self.tree)
        flags = f"{FLAGS} -include {self.tree}/MutationSwitch.h"
        command = ["cmake", "-S", self.tree, "-B", self.out, f"-DCMAKE_CXX_FLAGS={flags}", *OPTIONS]
        self.checked(command, "configure.log")

    def checked(self, command, log):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        (self.folder / log).write_text(done.stdout)
        if done.returncode != 0:
            raise SystemExit(f"mutate: failed, see {self.folder / log}:\n{done.stdout[-3000:]}")

    def complaints(self, target):
        """Builds; the places of the compiler's errors as (file, line, column)."""
        done = subprocess.run(
            ["cmake", "--build", self.out, "--target", target, f"-j{self.jobs}", "--", "-k", "0"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        (self.folder / "build.log").write_text(done.stdout)
        if done.returncode == 0:
            return None
        places, near = set(), set()
        pattern = r"^(?:In file included from )?(?:\S*/)?tree/([^:\n]+):(\d+):(\d+):(.*)"
        for line in done.stdout.splitlines():
            m = re.match(pattern, line)
            if m:
                place = (m.group(1), int(m.group(2)), int(m.group(3)))
                (places if re.match(r"\s*(fatal )?error:", m.group(4)) else near).add(place)
        return places, near

    def build(self, all_sites, dropped):
        """Builds all programs; mutants that do not compile are added to `dropped`."""
        for target in ("Umbra", "all"):
            while True:
                writers = rewrite.write_mutated(all_sites, self.tree, dropped)
                complaints = self.complaints(target)
                if complaints is None:
                    break
                found = self.blamed(writers, complaints[0], dropped)
                found = found or self.blamed(writers, complaints[1], dropped)
                if not found:
                    raise SystemExit(f"mutate: cannot build, see {self.folder / 'build.log'}")
                say(f"{len(found)} mutants do not compile and are left out")
                dropped |= found

    @staticmethod
    def blamed(writers, places, dropped):
        found = set()
        for file, line, column in places:
            if file in writers:
                found |= {m.id for m in writers[file].mutants_at(line, column)}
        return found - dropped


class Case:
    """One test, or a program that has none of its own: then name is ""."""

    def __init__(self, program, name, seconds, reached):
        self.program, self.name, self.seconds, self.reached = program, name, seconds, reached


class Program:
    def __init__(self, name, command, environment):
        self.name, self.command, self.environment = name, command, environment
        self.cases, self.always = [], set()
        self.seconds = 0.0

    def run(self, arguments=(), work=None, **variables):
        """Exit code; None when it took too long. `work` is the limit, in seconds of the processor."""
        environment = {**os.environ, **SHORTER, **self.environment, **variables}
        limit = [] if work is None else ["prlimit", f"--cpu={math.ceil(work)}"]
        process = subprocess.Popen([*limit, *self.command, *arguments], env=environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            code = process.wait(None if work is None else PATIENCE * work)
            return None if code in (-signal.SIGXCPU, -signal.SIGKILL) else code
        except subprocess.TimeoutExpired:
            return None
        finally:  # also what it started and left behind
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()

    def measure(self, folder):
        """Runs everything once without a mutant: what each test reaches, and its time."""
        reach = folder / f"reach-{self.name}"
        cases = Path(f"{reach}.cases")
        for old in (reach, cases):
            old.unlink(missing_ok=True)
        began = time.monotonic()
        code = self.run(UMBRA_REACH=str(reach))
        self.seconds = time.monotonic() - began
        rest = {i for i, b in enumerate(reach.read_bytes()) if b} if reach.exists() else set()
        if not cases.exists():
            self.cases = [Case(self, "", self.seconds, rest)]
            return code == 0
        self.always = rest
        for line in cases.read_text().splitlines():
            name, spent, *reached = line.split()
            if name == "-":
                self.always |= set(map(int, reached))
            else:
                self.cases.append(Case(self, name, int(spent) / 1e6, set(map(int, reached))))
        return code == 0

    def reaching(self, mutant):
        if mutant in self.always:
            return self.cases
        return [c for c in self.cases if mutant in c.reached]


def discover(out):
    """The programs that ctest runs."""
    shown = subprocess.run(["ctest", "--test-dir", out, "--show-only=json-v1"],
                           stdout=subprocess.PIPE, text=True, check=True).stdout
    programs = []
    for test in json.loads(shown)["tests"]:
        if "command" not in test:
            continue
        values = {p["name"]: p["value"] for p in test.get("properties", [])}
        environment = dict(v.split("=", 1) for v in values.get("ENVIRONMENT", []))
        programs.append(Program(test["name"], test["command"], environment))
    return programs


def batches(cases):
    """Tests to run together, in order: the most particular ones, then the quick, then the rest."""
    particular = sorted(cases, key=lambda c: (len(c.reached), c.seconds))[:FEW]
    rest = sorted((c for c in cases if c not in particular), key=lambda c: c.seconds)
    quick, spent = [], 0.0
    while rest and spent + rest[0].seconds < 0.5:
        spent += rest[0].seconds
        quick.append(rest.pop(0))
    for group in (particular, quick, rest):
        programs = {}
        for case in group:
            programs.setdefault(case.program.name, []).append(case)
        for own in sorted(programs.values(), key=lambda o: sum(c.seconds for c in o)):
            for i in range(0, len(own), GROUP):
                yield own[i : i + GROUP]


def judge(programs, mutant):
    """("killed", by which program), ("survived", "") or ("not reached", "")."""
    cases = [c for p in programs for c in p.reaching(mutant)]
    if not cases:
        return "not reached", ""
    for batch in batches(cases):
        program = batch[0].program
        arguments = []
        if batch[0].name:
            arguments = ["--gtest_brief=1", "--gtest_fail_fast", "--gtest_catch_exceptions=0",
                         "--gtest_filter=" + ":".join(c.name for c in batch)]
        work = 3 * sum(c.seconds for c in batch) + SLACK
        code = program.run(arguments, work, UMBRA_MUTANT=str(mutant))
        if code != 0:
            return "killed", program.name + (" (time)" if code is None else "")
    return "survived", ""
