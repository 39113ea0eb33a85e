#!/usr/bin/env python3
"""Prints each benchmark's figures against its floor, of a JSON file of Google Benchmark.

A benchmark NAME/library is compared with NAME/floor by the smallest time of each: that of the
processor. Ends with a failure when a figure is
over its limit, or when there is none.
"""
import collections
import json
import sys

OWN_TIME = {"scan_64_drives", "event_log", "scan_64_slow_drives", "read_scan"}
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

# What a benchmark may cost at most.
# A simulated drive answers within 5 us: beside that, what a scan reads of the kernel's files and
# makes of the answers weighs much. Beside a drive's own time it weighs little.
RATIO = {"scan_64_drives": 9.0, "scan_64_slow_drives": 1.0, "job_list": 2.0,
         "event_log": 1.05, "read_scan": 1.05, "nlog_filter_ata": 3.0, "nlog_filter_nvme": 3.0}
OVER_NS = {"command_ata": 1000, "command_nvme": 1000}
ALLOCATIONS = {"command_ata": 1, "command_nvme": 0}
TIME_NS = {"detect_known": 20_000, "detect_unknown": 20_000}
# The list of jobs keeps the room of its longest second.
GROWTH_BYTES = {"job_memory": 256 * 1024}
# What a log that goes into a file takes of memory beside its own bytes.
EXTRA_BYTES = {"event_log_file": 256 * 1024}


def read(path):
    """name -> "floor" or "library" -> its fastest run."""
    best = collections.defaultdict(dict)
    for run in json.load(open(path, encoding="utf-8"))["benchmarks"]:
        if run.get("run_type") != "iteration":
            continue
        if run.get("error_occurred"):
            sys.exit(f"{run['name']}: {run.get('error_message')}")
        name, kind = run["name"].split("/")[:2]
        time = run["real_time" if name in OWN_TIME else "cpu_time"]
        run["ns"] = time * NANOSECONDS[run["time_unit"]]
        if kind not in best[name] or run["ns"] < best[name][kind]["ns"]:
            best[name][kind] = run
    return best


def readable(ns):
    for unit in ("ns", "us", "ms", "s"):
        if ns < 1000 or unit == "s":
            return f"{ns:.3g} {unit}" if ns < 100 else f"{ns:.0f} {unit}"
        ns /= 1000


def figures(name, runs):
    """Each figure of a benchmark: text, value, limit."""
    library, floor = runs["library"], runs.get("floor")
    if floor:
        yield f"{library['ns'] / floor['ns']:.2f} times", library["ns"] / floor["ns"], RATIO.get(name)
        over = library["ns"] - floor["ns"]
        yield f"{readable(max(over, 0))} over", over, OVER_NS.get(name)
    elif name in TIME_NS:
        yield readable(library["ns"]), library["ns"], TIME_NS[name]
    if name in ALLOCATIONS and floor:
        # The simulated drives allocate too.
        count = library["allocations"] - floor["allocations"]
        yield f"{count:g} allocations", count, ALLOCATIONS[name] + 0.01
    if name in EXTRA_BYTES:
        extra = library["extra_bytes"]
        yield f"{extra:.0f} bytes beside the log's", extra, EXTRA_BYTES[name]
    if name in GROWTH_BYTES:
        growth = library["growth_bytes"]
        yield f"{growth:+.0f} bytes after {library['jobs']:.0f} jobs", growth, GROWTH_BYTES[name]


def main():
    best = read(sys.argv[1])
    if not best:
        sys.exit("no benchmark ran")
    failed = False
    for name, runs in sorted(best.items()):
        times = [f"{kind} {readable(runs[kind]['ns'])}" for kind in ("floor", "library") if kind in runs]
        texts = []
        for text, value, limit in figures(name, runs):
            over = limit is not None and value > limit
            failed = failed or over
            texts.append(text + (" OVER THE LIMIT" if over else ""))
        print(f"{name:16} {', '.join(times):34} {', '.join(texts)}")
    sys.exit(1 if failed else 0)


main()
