#!/usr/bin/env python3
"""Prints what the tests of a drive cost inside the guest, beside bare reads and other tools.

    figures.py RESULTS

Of the runs of one kind the fastest counts. Ends with a failure when a rate is below its limit,
a share of its peer's. Beside sg_dd and dd on SATA a scan has none: ATA commands by a generic node,
one at a time and with their data copied, are what it sends, and the loop shows what they reach.
"""
import collections
import pathlib
import sys

# What is measured, beside whom, and the least share of that one's rate.
ROWS = [
    ("scan", "loop", "full read scan, SATA, beside a loop of the same reads", 0.95),
    ("scan", "sg_dd", "the same beside sg_dd", None),
    ("scan", "dd", "the same beside dd iflag=direct", None),
    ("direct", "dd", "full read scan, NVMe, beside dd iflag=direct", 0.95),
    ("queue_fast", "fio", "32 transfers in flight, at once, beside fio", None),
    ("queue_slow", "fio", "the same of a drive that takes a millisecond", None),
    ("integrity", "dd_cmp", "data integrity beside dd and cmp", 0.8),
]


def main():
    results = pathlib.Path(sys.argv[1])
    failures = results / "failures"
    if failures.exists():
        sys.exit(failures.read_text())
    runs = collections.defaultdict(list)
    for line in (results / "times").read_text().splitlines():
        name, who, count, *times = line.split()
        real, user, system, *rate = map(float, times)
        rate = rate[0] if rate else int(count) / real / 1e6
        runs[name, who].append((rate, user + system, int(count)))
    failed = False
    print(f"{'':<56}{'ours':>9}{'theirs':>9}  share  processor s/GiB")
    for name, peer, text, limit in ROWS:
        best = [max(runs[name, who]) for who in ("ours", peer)]
        rates = [rate for rate, _, _ in best]
        busy = [processor * 2**30 / count for _, processor, count in best]
        share = rates[0] / rates[1]
        below = limit is not None and share < limit
        failed |= below
        print(f"{text:<56}{rates[0]:9.0f}{rates[1]:9.0f}{share:7.2f}  {busy[0]:.2f} {busy[1]:.2f}"
              f"{f'  BELOW {limit}' if below else ''}")
    sys.exit(1 if failed else 0)


main()
