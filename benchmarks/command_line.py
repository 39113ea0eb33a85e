#!/usr/bin/env python3
"""What a run of morvussd costs, on simulated drives, beside smartctl on the same nodes.

  benchmarks/command_line.py [BUILD]

BUILD is a build folder with morvussd and morvu-simdrives in it (build/x86_64). Each figure
is the smallest of several runs, ours and the peer's in turn: wall time, and user and system
time. Ends with a failure when a ratio of the wall times is over its limit. Without smartctl
only the start is measured; its peers hdparm and nvme are taken to be there where it is.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/x86_64")
TOOL = os.path.join(BUILD, "host/morvussd")
SIMDRIVES = os.path.join(BUILD, "simulator/morvu-simdrives")
RUNS = int(os.environ.get("MORVU_BENCH_REPETITIONS", "7"))
MODEL = "MORVU SSDSC2BB480G4"

# What a run may cost at most, beside its peer's in the same fleet.
START, SMART_ALONE, LIST, SMART_OF_MANY, TABLE, HEALTH = 2.0, 1.2, 1.5, 1.5, 1.2, 1.0
# hdparm opens the node that it is given and looks at nothing else, and starts in less time than
# there is left to 1.2, which is what is wished for.
IDENTIFY = 2.2


def make_fleet(folder, count):
    subprocess.run([SIMDRIVES, "make", folder], check=True)
    for number in range(count):
        subprocess.run([SIMDRIVES, "add", folder, "--kind", "ata", "--model", MODEL, "--no-journal",
                        "--serial", f"BTWL{number:04}"], check=True, stdout=subprocess.DEVNULL)


def run_once(command):
    """Wall and processor milliseconds of the command and of all that it waited for."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} ended with {process.returncode}")
    return wall * 1000, (usage.ru_utime + usage.ru_stime) * 1000


def measure_both(fleet, ours, peer):
    """The smallest wall and processor time of each, run in turn."""
    runs = ([], [])
    for _ in range(RUNS):
        for command, times in zip((ours, peer), runs):
            times.append(run_once([SIMDRIVES, "run", fleet, "--", *command]))
    return [tuple(min(run[i] for run in times) for i in (0, 1)) for times in runs]


def show(name, fleet, limit, ours, peer, peer_name=None):
    """Prints a row; whether it is within its limit."""
    mine, theirs = measure_both(fleet, [TOOL, *ours], peer)
    ratio = mine[0] / theirs[0]
    over = ratio > limit
    print(f"{name:<32} {mine[0]:8.1f} {mine[1]:8.1f}   {peer_name or ' '.join(map(os.path.basename, peer)):<22} "
          f"{theirs[0]:8.1f} {theirs[1]:8.1f}   x{ratio:.2f} of x{limit}"
          f"{' OVER THE LIMIT' if over else ''}", flush=True)
    return not over


def measure_fleet(fleet, count, smartctl):
    good = True
    if count == 1:
        good &= show("-license (a start alone)", fleet, START, ["-license"], ["/bin/true"])
    if smartctl is None:
        return good
    good &= show(f"-drive_list, {count} drives", fleet, LIST, ["-drive_list"],
                 [smartctl, "--scan-open"])
    node = f"/dev/sg{count // 2}"
    if count == 1:
        good &= show("-drive_index 0 -smart", fleet, SMART_ALONE, ["-drive_index", "0", "-smart"],
                     [smartctl, "-A", node])
        good &= show("-drive_path ... -identify", fleet, IDENTIFY,
                     ["-drive_path", node, "-identify"], ["hdparm", "-I", node])
        subprocess.run([SIMDRIVES, "add", fleet, "--kind", "nvme", "--model", "MORVU SSDPEDMD400G4",
                        "--no-journal"], check=True, stdout=subprocess.DEVNULL)
        good &= show("-drive_path ... -get_log 2", fleet, TABLE,
                     ["-drive_path", "/dev/nvme0n1", "-get_log", "2"],
                     ["nvme", "smart-log", "/dev/nvme0"])
    if count == 24:
        for selector in (["-drive_path", node], ["-drive_serial", f"BTWL{count // 2:04}"]):
            good &= show(f"{selector[0]} ... -smart, of {count}", fleet, SMART_OF_MANY,
                         [*selector, "-smart"], [smartctl, "-A", node])
        each = "; ".join(f"{smartctl} -A /dev/sg{i}" for i in range(count)) + "; true"
        good &= show(f"-health, {count} drives", fleet, HEALTH, ["-quiet", "-health"],
                     ["/bin/sh", "-c", each], f"{count} x smartctl -A")
    return good


def main():
    smartctl = shutil.which("smartctl")
    print(f"{'morvussd':<32} {'wall ms':>8} {'cpu ms':>8}   {'beside':<22} "
          f"{'wall ms':>8} {'cpu ms':>8}   ratio")
    good = True
    for count in (1, 8, 24, 64):
        # A name of digits: a fleet's path may not look like a node's.
        fleet = os.path.join(tempfile.gettempdir(), f"morvu-fleet-{os.getpid()}-{count}")
        try:
            make_fleet(fleet, count)
            good &= measure_fleet(fleet, count, smartctl)
        finally:
            shutil.rmtree(fleet, ignore_errors=True)
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
