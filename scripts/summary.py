#!/usr/bin/env python3
"""Prints what the runs of a results folder passed, failed and skipped, and why.

Reads ctest's JUnit files (NAME.xml), GoogleTest's own of the processes that ran many tests
(NAME.shards/), and the file "notes", whose lines begin with "passed", "failed" or "skipped". Ends with a failure when a test failed, or when there was none at all.
"""
import collections
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

COLUMNS = ("passed", "failed", "skipped")


def skip_reason(case):
    """GoogleTest prints the reason in a line behind the place of the skip; what ends with the number
    for a skip says it last."""
    output = case.findtext("system-out") or ""
    found = re.search(r": Skipped\n(.+)", output)
    if found:
        return found.group(1).strip()
    skipped = case.find("skipped")
    message = skipped.get("message", "") if skipped is not None else case.get("status", "")
    return (output.strip().splitlines() or [message])[-1] if "SKIP_RETURN_CODE" in message else message


def read_junit(path):
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        name = case.get("name")
        status = case.get("status")
        if status == "run":
            yield name, "passed", ""
        elif status == "fail":
            failure = case.find("failure")
            yield name, "failed", failure.get("message", "") if failure is not None else ""
        else:
            yield name, "skipped", skip_reason(case)


def read_shard(path):
    """GoogleTest's own form. None for a file that a process did not come to write whole."""
    try:
        root = ElementTree.parse(path).getroot()
    except (OSError, ElementTree.ParseError):
        return None
    cases = []
    for case in root.iter("testcase"):
        name = f"{case.get('classname')}.{case.get('name')}"
        failure, skipped = case.find("failure"), case.find("skipped")
        if failure is not None:
            cases.append((name, "failed", failure.get("message", "").split("\n")[0]))
        elif skipped is not None:
            cases.append((name, "skipped", (skipped.get("message") or "").split("\n")[-1].strip()))
        elif case.get("status") == "run":
            cases.append((name, "passed", ""))
    return cases


def read_run(path):
    """A shard stands for the tests in it, unless it failed by more than they did."""
    for name, outcome, reason in read_junit(path):
        shard = path.with_suffix(".shards") / f"{name}.xml"
        cases = read_shard(shard) if ".shard-" in name else None
        if cases is None:
            yield name, outcome, reason
            continue
        yield from cases
        if outcome == "failed" and all(each[1] != "failed" for each in cases):
            yield name, outcome, reason


def read_notes(path):
    for line in path.read_text().splitlines():
        outcome, name, *reason = line.split(" ", 2)
        yield name, outcome, "".join(reason)


def print_stages(path):
    """Each line of the file is the second at which a stage began, and its name."""
    if not path.exists():
        return
    begun = [line.split("\t", 1) for line in path.read_text().splitlines()]
    print()
    for (begin, name), (end, _) in zip(begun, begun[1:]):
        print(f"{int(end) - int(begin):6} s  {name}")
    if begun:
        print(f"{begun[-1][0]:>6} s  in all\n")


def main(folder):
    runs = {path.stem: list(read_run(path)) for path in sorted(folder.glob("*.xml"))
            if path.stat().st_size}
    if (folder / "notes").exists():
        runs["others"] = list(read_notes(folder / "notes"))

    total = collections.Counter()
    print(f"{'':12}" + "".join(f"{column:>9}" for column in COLUMNS))
    for run, cases in runs.items():
        count = collections.Counter(outcome for _, outcome, _ in cases)
        total += count
        print(f"{run:12}" + "".join(f"{count[column]:9}" for column in COLUMNS))

    print_stages(folder / "stages")

    skipped = collections.defaultdict(list)
    for run, cases in runs.items():
        for name, outcome, reason in cases:
            if outcome == "failed":
                print(f"failed: {run}: {name} {reason}".rstrip())
            elif outcome == "skipped":
                skipped[(run, reason)].append(name)
    for (run, reason), names in skipped.items():
        what = names[0] if len(names) == 1 else f"{len(names)} tests ({names[0]}, ...)"
        print(f"skipped: {run}: {what}: {reason}")

    print(f"{total['passed']} passed, {total['failed']} failed, {total['skipped']} skipped")
    return 1 if total["failed"] or not total["passed"] else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
