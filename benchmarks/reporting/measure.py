"""Runs the Google Benchmark programs and reads their recorded results."""

import json
import os
import re
import statistics
import subprocess
import sys
import time

UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}

REPETITIONS = 9
SECONDS = "0.1"
# Counters of a benchmark, in seconds: percentiles of the durations that it has measured one by one.
PERCENTILES = ("p50", "p99", "p99.9")
QUICK_REPETITIONS = 3
QUICK_SECONDS = "0.02"
# A leading minus excludes benchmarks: those that take long, and large sizes by the last argument in the name.
QUICK_FILTER = (r"-(/10000000$|/100000000$|/10000000/|/100000000/|(load|store|lookUp|select)/.*/1000000$"
                r"|^standardAsync|^pocoPool)")


def run(program, output, quick, revision, note):
    """Runs one program with interleaved repetitions, and stores its JSON and its diagnostics."""
    command = [
        str(program),
        "--benchmark_enable_random_interleaving=true",
        f"--benchmark_repetitions={QUICK_REPETITIONS if quick else REPETITIONS}",
        f"--benchmark_min_time={QUICK_SECONDS if quick else SECONDS}",
        "--benchmark_out_format=json",
        f"--benchmark_out={output}.part",
    ]
    environment = dict(os.environ)
    environment.pop("DALNIM_BENCH_LARGE", None)
    if quick:
        command.append(f"--benchmark_filter={QUICK_FILTER}")
    else:
        environment["DALNIM_BENCH_LARGE"] = "1"
    with open(output.with_suffix(".log"), "w", encoding="utf-8") as log:
        if subprocess.run(command, env=environment, stdout=log, stderr=log).returncode != 0:
            sys.exit(f"{program.name} failed: see {log.name}")
    with open(f"{output}.part", encoding="utf-8") as file:
        data = json.load(file)
    data["context"]["report"] = {
        "quick": quick, "revision": revision, "note": note, "date": time.strftime("%Y-%m-%d", time.gmtime()),
        "repetitions": QUICK_REPETITIONS if quick else REPETITIONS,
    }
    output.write_text(json.dumps(data, indent=1), encoding="utf-8")
    os.remove(f"{output}.part")


class Sample:
    """The medians of the repetitions of one benchmark, in seconds."""

    def __init__(self, runs):
        self.real = statistics.median(run["real_time"] * UNITS[run["time_unit"]] for run in runs)
        self.cpu = statistics.median(run["cpu_time"] * UNITS[run["time_unit"]] for run in runs)
        # Items and bytes of one iteration: rates refer to the time that the benchmark reports.
        timed = [run["real_time"] if is_real(run["name"]) else run["cpu_time"] for run in runs]
        seconds = [value * UNITS[run["time_unit"]] for value, run in zip(timed, runs)]
        self.items = statistics.median(
            run.get("items_per_second", 0) * value for run, value in zip(runs, seconds))
        self.bytes = statistics.median(
            run.get("bytes_per_second", 0) * value for run, value in zip(runs, seconds))
        self.percentiles = {name: statistics.median(run[name] for run in runs)
                            for name in PERCENTILES if name in runs[0]}

    def cost(self, clock, per):
        """Returns the seconds per iteration, item or byte, or a percentile of the durations."""
        if clock in PERCENTILES:
            return self.percentiles[clock]
        count = {"iteration": 1, "item": self.items, "byte": self.bytes}[per]
        return getattr(self, clock) / count


def is_real(name):
    return "/real_time" in name or "/manual_time" in name


def plain_name(name):
    return re.sub(r"/(real_time|manual_time|iterations:\d+|min_time:[\d.]+)", "", name)


class Results:
    """The recorded results of a subsystem, by program and name."""

    def __init__(self, subsystem, directory):
        self.samples = {}
        self.contexts = []
        for program in subsystem.programs:
            path = directory / f"{program}.json"
            if not path.exists():
                continue
            data = json.loads(path.read_text(encoding="utf-8"))
            self.contexts.append(data["context"])
            runs = {}
            for entry in data["benchmarks"]:
                if entry["run_type"] == "iteration" and not entry.get("error_occurred"):
                    runs.setdefault(plain_name(entry["run_name"]), []).append(entry)
            for name, entries in runs.items():
                self.samples[f"{program}:{name}"] = Sample(entries)

    def get(self, program, name):
        return self.samples.get(f"{program}:{name}")
