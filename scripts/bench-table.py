#!/usr/bin/env python3
"""Prints the results of Google Benchmark programs as one Markdown table.

A benchmark whose name ends in "/peer:NAME" does the work of the benchmark that is named the same without it, by other
means. Both share one row; the ratio is our time divided by the peer's, so less than 1 means that ours is faster. The
counter "allocations" is shown where a benchmark sets it, per iteration. Of repeated runs the median counts.
"""

import json
import re
import sys

UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
PEER = re.compile(r"/peer:([^/]+)")


def duration(nanoseconds):
    for unit in ("s", "ms", "us"):
        if nanoseconds >= UNITS[unit]:
            return f"{nanoseconds / UNITS[unit]:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def count(run):
    return f"{run['allocations']:.4g}" if run and "allocations" in run else "–"


def read(paths):
    """The runs by workload, in order: {workload: {peer or None: run}}."""
    workloads = {}
    failures = []
    for path in paths:
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        medians = {run["run_name"] for run in runs if run.get("aggregate_name") == "median"}
        for run in runs:
            name = run.get("run_name", run["name"])
            if run.get("error_occurred"):
                failures.append(f"{name}: {run.get('error_message', '')}")
                continue
            if (run.get("aggregate_name") == "median") != (name in medians):
                continue
            peer = PEER.search(name)
            workload = PEER.sub("", name).removesuffix("/real_time").removesuffix("/process_time")
            workloads.setdefault(workload, {})[peer.group(1) if peer else None] = run
    return workloads, failures


def time(run):
    return run["real_time"] * UNITS[run["time_unit"]]


def main():
    workloads, failures = read(sys.argv[1:])
    print("| workload | figure | peer | ratio | allocations (peer) |")
    print("|---|---:|---|---:|---:|")
    for workload, runs in workloads.items():
        own = runs.pop(None, None)
        figure = duration(time(own)) if own else "–"
        if not runs:
            print(f"| {workload} | {figure} | – | – | {count(own)} |")
        for peer, run in runs.items():
            ratio = f"{time(own) / time(run):.2f}" if own else "–"
            print(f"| {workload} | {figure} | {peer} {duration(time(run))} | {ratio} | {count(own)} ({count(run)}) |")
    for failure in failures:
        print(f"failed: {failure}", file=sys.stderr)
    return 1 if failures or not workloads else 0


if __name__ == "__main__":
    sys.exit(main())
