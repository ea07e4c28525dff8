"""What bench/run and bench/compare share: a benchmark program's names, and times out of it."""
import json
import re
import subprocess
import tempfile

# Google Benchmark appends how it measured.
SUFFIX = re.compile(r"(/(iterations:\d+|repeats:\d+|manual_time|real_time|process_time))+$")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Failed(Exception):
    """A benchmark program that could not be run, or that found a result to be wrong."""


class TooSlow(Exception):
    """A benchmark program that was stopped because it took too long."""


def split_name(full):
    """(comparison, side): `row05/look-up/ours/real_time` -> (`row05/look-up`, `ours`)."""
    comparison, _, side = SUFFIX.sub("", full).rpartition("/")
    return comparison, side


def listed(program):
    """The full names of a program's benchmarks, in the order of their registration."""
    try:
        done = subprocess.run([program, "--benchmark_list_tests"], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    except OSError as error:
        raise Failed(f"{program} cannot be run: {error.strerror}") from error
    if done.returncode != 0:
        raise Failed(f"{done.stderr}{program} failed: {done.returncode}")
    return done.stdout.splitlines()


def measured(program, fulls, *options, limit=None):
    """Runs these benchmarks in one process; ({(comparison, side): result}, what the program says
    of the machine).

    A result holds the values of all repetitions, in their order: {"ns": [...]}, or, for what is
    counted, {"figure": [...], "unit": ...}."""
    pattern = "^(" + "|".join(re.sub(r"([^\w/:,% -])", r"\\\1", full) for full in fulls) + ")$"
    with tempfile.NamedTemporaryFile("r", suffix=".json") as out:
        try:
            done = subprocess.run(
                [program, "--benchmark_filter=" + pattern, "--benchmark_out=" + out.name,
                 "--benchmark_out_format=json", *options],
                text=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=limit,
                check=False)
        except subprocess.TimeoutExpired as error:
            raise TooSlow from error
        if done.returncode != 0:
            raise Failed(f"{done.stderr}{program} failed: {done.returncode}; it was to run\n  " +
                         "\n  ".join(fulls))
        output = json.load(out)
    results = {}
    for run in output["benchmarks"]:
        if run["run_type"] != "iteration":
            continue
        if run.get("error_occurred"):
            raise Failed(f"{run['name']}: {run['error_message']}")
        key = split_name(run["run_name"])
        if "figure" in run:
            result = results.setdefault(key, {"figure": [], "unit": run["label"]})
            result["figure"].append(run["figure"])
            continue
        # Processor time, so that what else the machine does counts little; but what sleeps, or
        # takes its times itself, says so in its name.
        suffix = SUFFIX.search(run["run_name"])
        is_real = suffix is not None and ("manual_time" in suffix[0] or "real_time" in suffix[0])
        time = run["real_time" if is_real else "cpu_time"] * NANOSECONDS[run["time_unit"]]
        results.setdefault(key, {"ns": []})["ns"].append(time / run.get("units", 1))
    return results, output["context"]
