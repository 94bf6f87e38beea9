#!/usr/bin/env python3
"""Prints the results of Google Benchmark programs as one Markdown table.

A benchmark whose name ends in "/peer:NAME" does the work of the benchmark that is named the same without it, by other
means. Both share one row; the ratio is our figure divided by the peer's, so less than 1 means that ours is better. The
counter "allocations" is shown where a benchmark sets it, per iteration. A benchmark that sets the counter "bytes" is
about memory: that is its figure then. Otherwise it is the processor time, or the time on the clock where the benchmark
knows no other, asks for it or sets the time itself. The counters "requests" and "signals", of what an iteration sends
and tells, stand beside the figure. Of repeated runs the median counts.
"""

import json
import re
import sys

UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
PEER = re.compile(r"/peer:([^/]+)")
# What Google Benchmark says of how it measured, behind the name.
HOW = re.compile(r"(/iterations:\d+)?(/(real|process|manual)_time)?$")


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
            workload = HOW.sub("", PEER.sub("", name))
            workloads.setdefault(workload, {})[peer.group(1) if peer else None] = run
    return workloads, failures


def figure(run):
    if "bytes" in run:
        return run["bytes"]
    kind = "real_time" if run["name"].endswith(("/real_time", "/manual_time")) else "cpu_time"
    return run.get(kind, run["real_time"]) * UNITS[run["time_unit"]]


def text(run):
    counts = "".join(f", {run[what]:.6g} {what}" for what in ("requests", "signals") if what in run)
    if "bytes" not in run:
        return duration(figure(run)) + counts
    return f"{run['bytes'] / 1e6:.3g} MB" if run["bytes"] >= 1e6 else f"{run['bytes']:.0f} bytes"


def main():
    workloads, failures = read(sys.argv[1:])
    print("| workload | figure | peer | ratio | allocations (peer) |")
    print("|---|---:|---|---:|---:|")
    for workload, runs in workloads.items():
        own = runs.pop(None, None)
        own_text = text(own) if own else "–"
        if not runs:
            print(f"| {workload} | {own_text} | – | – | {count(own)} |")
        for peer, run in runs.items():
            ratio = f"{figure(own) / figure(run):.2f}" if own else "–"
            print(f"| {workload} | {own_text} | {peer} {text(run)} | {ratio} | {count(own)} ({count(run)}) |")
    for failure in failures:
        print(f"failed: {failure}", file=sys.stderr)
    return 1 if failures or not workloads else 0


if __name__ == "__main__":
    sys.exit(main())
