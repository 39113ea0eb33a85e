#!/usr/bin/env python3
"""What a run of morvussd costs, on simulated drives, beside smartctl on the same nodes.

  benchmarks/command_line.py [BUILD]

BUILD is a build folder with morvussd and morvu-simdrives in it (build/x86_64). Each figure
is the smallest of several runs: wall time, and user and system time with those of the shells
that the run started. Without smartctl its columns are left out.
"""
import os
import re
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


def make_fleet(folder, count):
    subprocess.run([SIMDRIVES, "make", folder], check=True)
    for number in range(count):
        subprocess.run([SIMDRIVES, "add", folder, "--kind", "ata", "--model", MODEL,
                        "--serial", f"BTWL{number:04}"], check=True, stdout=subprocess.DEVNULL)


def run_once(command):
    """Wall seconds and processor seconds of the command and of all that it waited for."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    return wall, usage.ru_utime + usage.ru_stime, process.returncode


def measure_command(command):
    """The smallest wall and processor time of a command, in milliseconds."""
    runs = [run_once(command) for _ in range(RUNS)]
    if runs[0][2] != 0:
        sys.exit(f"{' '.join(command)} ended with {runs[0][2]}")
    return min(run[0] for run in runs) * 1000, min(run[1] for run in runs) * 1000


def measure(fleet, *command):
    """The same of a command on the fleet."""
    return measure_command([SIMDRIVES, "run", fleet, "--", *command])


def find_pipelines(fleet, *command):
    """The shell lines that a run of the command starts, or None without strace."""
    if shutil.which("strace") is None:
        return None
    with tempfile.NamedTemporaryFile("r") as trace:
        subprocess.run(["strace", "-f", "-qq", "-e", "trace=execve", "-s", "4096", "-o", trace.name,
                        SIMDRIVES, "run", fleet, "--", *command],
                       stdout=subprocess.DEVNULL, check=True)
        lines = re.findall(r'\["sh", "-c", (?:"--", )?"((?:[^"\\]|\\.)*)"\].* = 0$', trace.read(),
                           re.MULTILINE)
    return [line.encode().decode("unicode_escape") for line in lines]


def measure_pipelines(lines):
    """What the lines cost when one shell after the other runs them, and nothing else.

    Their paths lead into the fleet already, so no simulator is needed."""
    script = "".join(f"sh -c {quote(line)} >/dev/null\n" for line in lines) + "true\n"
    return measure_command(["sh", "-c", script])


def quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def show(name, ours, floor, floor_name):
    text = f"{name:<28} {ours[0]:8.1f} {ours[1]:8.1f}"
    if floor is not None:
        text += f"   {floor_name:<22} {floor[0]:8.1f} {floor[1]:8.1f}"
        text += f"   x{ours[0] / floor[0]:.2f} x{ours[1] / max(floor[1], 0.1):.2f}"
    print(text)


def main():
    smartctl = shutil.which("smartctl")
    print(f"{'morvussd':<28} {'wall ms':>8} {'cpu ms':>8}   {'beside':<22} "
          f"{'wall ms':>8} {'cpu ms':>8}   ratios")
    for count in (1, 8, 24):
        # A name of digits: a fleet's path may not look like a node's.
        fleet = os.path.join(tempfile.gettempdir(), f"morvu-fleet-{os.getpid()}-{count}")
        try:
            make_fleet(fleet, count)
            if count == 1:
                show("-license (start alone)", measure(fleet, TOOL, "-license"),
                     measure(fleet, "/bin/true"), "true")
                show("-drive_index 0 -smart", measure(fleet, TOOL, "-drive_index", "0", "-smart"),
                     smartctl and measure(fleet, smartctl, "-A", "/dev/sg0"), "smartctl -A")
            ours = measure(fleet, TOOL, "-drive_list")
            show(f"-drive_list, {count} drives", ours,
                 smartctl and measure(fleet, smartctl, "--scan-open"), "smartctl --scan-open")
            lines = find_pipelines(fleet, TOOL, "-drive_list")
            if lines is not None:
                show("", ours, measure_pipelines(lines), f"its {len(lines)} shell lines")
        finally:
            shutil.rmtree(fleet, ignore_errors=True)


if __name__ == "__main__":
    main()
