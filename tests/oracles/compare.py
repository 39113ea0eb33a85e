#!/usr/bin/env python3
"""Compares what morvussd tells of simulated drives with what other tools tell of the same drives,
value by value, and the prints in the documents with what is printed.

  compare.py MORVUSSD MORVU-SIMDRIVES DOCUMENT...

Ends with 77 where the other tools are missing.
"""
import csv
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

TOOL, SIMDRIVES, *DOCUMENTS = sys.argv[1:]
FLEET = tempfile.mkdtemp(prefix="fleet-")
SATA, CONTROLLER, NAMESPACE = "/dev/sg0", "/dev/nvme0", "/dev/nvme0n1"


def simdrives(*words):
    subprocess.run([SIMDRIVES, words[0], FLEET, *words[1:]], check=True, stdout=subprocess.DEVNULL)


def run(*words):
    """What a program prints on the fleet, and its exit status."""
    done = subprocess.run([SIMDRIVES, "run", FLEET, "--", *words], capture_output=True, check=False)
    return done.stdout.decode(), done.returncode


def told(*words):
    text, status = run(*words)
    assert status == 0, f"{words} ended with {status}: {text[:2000]}"
    return text


def table(node, option, *more):
    """The rows of a table that our tool saves, without the header."""
    file = f"{FLEET}/table.csv"
    told(TOOL, "-drive_path", node, option, file, *more)
    return list(csv.reader(pathlib.Path(file).read_text().splitlines()))[1:]


def shown(node, *words):
    """The rows of a table of two columns that our tool prints last, by label."""
    rows = re.findall(r"^\| (.*?) +\| (.*?) +\|$", told(TOOL, "-drive_path", node, *words),
                      re.MULTILINE)
    return dict(rows)


def by_position(rows):
    return {row[0]: row[2] for row in rows if row[0]}


class Identify(unittest.TestCase):
    def test_all_words_are_those_of_hdparm(self):
        words = [int(word, 16) for word in told("hdparm", "--Istdout", SATA).split()[1:]]
        self.assertEqual(256, len(words))
        position, covered = 0, 0
        for first, label, value in table(SATA, "-identify"):
            if first:
                position, *last = map(int, first.split("-"))
                expected = words[position:(last or [position])[0] + 1]
                covered += len(expected)
                if label in ("Serial Number", "Firmware Version", "Model Number"):
                    text = b"".join(word.to_bytes(2, "big") for word in expected).decode()
                    self.assertEqual(text.strip(), value, first)
                else:
                    told_words = re.findall("....", value)
                    told_words = told_words[::-1] if len(told_words) == 2 else told_words
                    self.assertEqual(expected, [int(word, 16) for word in told_words], first)
            else:
                high, low = re.match(r"    Bit (\d+)(?::(\d+))? - ", label).groups()
                low = int(low or high)
                mask = (1 << int(high) - low + 1) - 1
                self.assertEqual(words[position] >> low & mask, int(value, 16), (position, label))
        self.assertEqual(256, covered)

    def test_controller_is_that_of_nvme(self):
        theirs = json.loads(told("nvme", "id-ctrl", "-o", "json", CONTROLLER))
        rows = table(NAMESPACE, "-identify", "-controller")
        names = {"0-1": "vid", "2-3": "ssvid", "72": "rab", "76": "cmic", "77": "mdts",
                 "256-257": "oacs", "258": "acl", "259": "aerl", "260": "frmw", "261": "lpa",
                 "262": "elpe", "263": "npss", "264": "avscc", "512": "sqes", "513": "cqes",
                 "516-519": "nn", "520-521": "oncs", "522-523": "fuses", "524": "fna",
                 "525": "vwc", "526-527": "awun", "528-529": "awupf", "530": "icsvscc"}
        ours = by_position(rows)
        self.assertEqual({name: theirs[name] for name in names.values()},
                         {name: int(ours[place], 16) for place, name in names.items()})
        for place, name in (("4-23", "sn"), ("24-63", "mn"), ("64-71", "fr")):
            self.assertEqual(theirs[name].strip(), ours[place])
        self.power_states(theirs["psds"], rows)

    def power_states(self, theirs, rows):
        names = {"Relative Write Latency": "write_lat", "Relative Write Throughput": "write_tput",
                 "Relative Read Latency": "read_lat", "Relative Read Throughput": "read_tput",
                 "Exit Latency": "exit_lat", "Entry Latency": "entry_lat",
                 "Maximum Power": "max_power"}
        states = []
        for _, label, value in rows:
            if label.startswith("Power State"):
                states.append({})
            elif states and label.split(": ")[-1] in names:
                states[-1][names[label.split(": ")[-1]]] = int(value, 16)
        self.assertEqual(3, len(states))
        self.assertEqual([{name: state[name] for name in names.values()} for state in theirs[:3]],
                         states)

    def test_namespace_is_that_of_nvme(self):
        theirs = json.loads(told("nvme", "id-ns", "-o", "json", NAMESPACE))
        rows = table(NAMESPACE, "-identify")
        ours = by_position(rows)
        names = {"0-7": "nsze", "8-15": "ncap", "16-23": "nuse", "24": "nsfeat", "25": "nlbaf",
                 "26": "flbas", "27": "mc", "28": "dpc", "29": "dps"}
        self.assertEqual({name: theirs[name] for name in names.values()},
                         {name: int(ours[place], 16) for place, name in names.items()})
        formats = [value.split()[0] for _, label, value in rows
                   if re.search("Relative Performance|LBA Data Size|Metadata Size", label)]
        formats = [int(value, 16) for value in formats]
        self.assertEqual([[each["rp"], each["ds"], each["ms"]] for each in theirs["lbafs"]],
                         [formats[at:at + 3] for at in range(0, len(theirs["lbafs"]) * 3, 3)])


class Logs(unittest.TestCase):
    def test_health_is_that_of_nvme(self):
        theirs = json.loads(told("nvme", "smart-log", "-o", "json", CONTROLLER))
        ours = shown(NAMESPACE, "-get_log", "2")
        names = {
            "Critical Warnings": "critical_warning", "Temperature (Kelvin)": "temperature",
            "Available Spare Normalized percentage of the remaining spare capacity available":
                "avail_spare",
            "Available Spare Threshold Percentage": "spare_thresh",
            "Percentage Used": "percent_used", "Data Units Read": "data_units_read",
            "Data Units Written": "data_units_written", "Host Read Commands": "host_read_commands",
            "Host Write Commands": "host_write_commands",
            "Controller Busy Time": "controller_busy_time", "Power Cycles": "power_cycles",
            "Power On Hours": "power_on_hours", "Unsafe Shutdowns": "unsafe_shutdowns",
            "Media Errors": "media_errors",
            "Number of Error Info Log Entries": "num_err_log_entries"}
        self.assertEqual({name: int(theirs[name]) for name in names.values()},
                         {name: int(ours[label], 0) for label, name in names.items()})
        for bit in range(5):
            label = list(ours)[list(ours).index("Critical Warnings") + 1 + bit]
            self.assertEqual(theirs["critical_warning"] >> bit & 1, int(ours[label]), label)

    def test_errors_are_those_of_nvme(self):
        run("nvme", "get-log", CONTROLLER, "-i", "9", "-l", "512")
        run("nvme", "id-ns", CONTROLLER, "-n", "77")
        theirs = json.loads(told("nvme", "error-log", "-o", "json", "-e", "8", CONTROLLER))
        theirs = [error for error in theirs["errors"] if error["error_count"]]
        text = told(TOOL, "-drive_path", NAMESPACE, "-get_log", "1")
        ours = []
        for label, value in re.findall(r"^\| (.*?) +\| (.*?) +\|$", text, re.MULTILINE):
            if label == "Error Info Log Entry":
                ours.append({})
            elif ours:
                ours[-1][label] = value
        self.assertGreater(len(theirs), 1)
        self.assertEqual(
            [[each["error_count"], each["sqid"], each["cmdid"],
              each["status_field"] << 1 | each["phase_tag"], each["lba"], each["nsid"] % 2 ** 32]
             for each in theirs],
            [[int(each[name], 16 if name == "LBA" else 10)
              for name in ("Error Count Identifier", "Submission Queue ID", "Command ID",
                           "Status Field", "LBA", "Namespace")] for each in ours])

    def test_slots_are_those_of_nvme(self):
        theirs = json.loads(told("nvme", "fw-log", "-o", "json", CONTROLLER))["nvme0"]
        ours = shown(NAMESPACE, "-get_log", "3")
        self.assertEqual(str(theirs.pop("Active Firmware Slot (afi)")),
                         ours["Active Firmware Slot"])
        self.assertEqual({name: re.search(r"\((.*)\)", text)[1] for name, text in theirs.items()},
                         {name: text for name, text in ours.items()
                          if name.startswith("Firmware Rev") and text})

    def test_counters_are_those_of_smartctl(self):
        theirs = re.findall(r"^(0x\w{4})  \d +(\d+)\+? +", told("smartctl", "-l", "sataphy", SATA),
                            re.MULTILINE)
        ours = re.findall(r"^\| (0x\w+) +\|.*\| (\d+) +\|$",
                          told(TOOL, "-drive_path", SATA, "-phy_counters"), re.MULTILINE)
        self.assertEqual(14, len(ours))
        self.assertEqual([(int(number, 16), value) for number, value in theirs],
                         [(int(number, 16), value) for number, value in ours])

    def test_temperatures_are_those_of_smartctl(self):
        theirs = told("smartctl", "-l", "scttemphist", SATA)
        ours = told(TOOL, "-drive_path", SATA, "-hda_temp")
        fields = dict(re.findall(r"^\| (.*?) +\| (-?\d+) +\|$", ours, re.MULTILINE))
        names = ("Minimum recommended continuous operating temperature",
                 "Maximum recommended continuous operating temperature",
                 "Minimum Temperature Limit", "Maximum Temperature Limit")
        self.assertEqual(re.search(r"recommended Temperature: +(-?\d+)/(-?\d+)", theirs).groups() +
                         re.search(r"Temperature Limit: +(-?\d+)/(-?\d+)", theirs).groups(),
                         tuple(fields[name] for name in names))
        taken = re.findall(r"^ +(\d+) +\S+ \S+ +(-?\d+|\?) +[-*]+$", theirs, re.MULTILINE)
        samples = []
        for first, last, degrees in re.findall(r"^\| (\d+)(?: - (\d+))? +\|.*\| (\S+) +\|$", ours,
                                               re.MULTILINE):
            samples += [(str(i), degrees) for i in range(int(first), int(last or first) + 1)]
        self.assertEqual(478, len(samples))
        self.assertEqual([(i, degrees) for i, degrees in taken if degrees != "?"],
                         [sample for sample in samples if sample[1] != "-"])
        self.assertEqual(taken[-1], samples[-1])

    def test_log_is_that_of_smartctl(self):
        file = pathlib.Path(f"{FLEET}/log")
        for log, pages in (("0x11", 1), ("0xDE", 3)):
            dump = told("smartctl", "-l", f"gplog,{log.lower()},0+{pages}", SATA)
            theirs = re.findall(r"^[0-9a-f]{7}: ((?:[0-9a-f]{2} ){16})", dump, re.MULTILINE)
            told(TOOL, "-drive_path", SATA, "-read_gpl", file, log, "0", str(pages))
            self.assertEqual(bytes.fromhex("".join(theirs)), file.read_bytes())


class Verdicts(unittest.TestCase):
    def test_verdict_is_that_of_smartctl(self):
        for node, theirs, failing, sound in (
                (SATA, SATA, "smart-failing=1", "smart-failing=0"),
                (NAMESPACE, CONTROLLER, "health.critical-warning=4", "health.critical-warning=0")):
            for setting, word, exits in ((sound, "Passed", 0), (failing, "FAILING", 191)):
                simdrives("set", node, setting)
                text, status = run(TOOL, "-drive_path", node, "-smart")
                self.assertEqual(exits, status, setting)
                self.assertIn("Drive's own verdict: " + word, text)
                told_by_smartctl = run("smartctl", "-H", theirs)[0]
                self.assertEqual(word == "Passed", "test result: PASSED" in told_by_smartctl)
                self.assertEqual(word != "Passed", "test result: FAILED!" in told_by_smartctl)


class Documents(unittest.TestCase):
    def test_prints_are_what_is_printed(self):
        prints = 0
        for document in DOCUMENTS:
            for block in re.findall(r"((?:^    .*\n)+)", pathlib.Path(document).read_text(),
                                    re.MULTILINE):
                lines = [line[4:] for line in block.splitlines()]
                if not lines[0].startswith("$ morvussd "):
                    continue
                prints += 1
                rest = run(TOOL, *lines[0].split()[2:])[0]
                for line in filter(lambda line: line != "...", lines[1:]):
                    self.assertIn(line + "\n", rest, (document, lines[0]))
                    rest = rest.split(line + "\n", 1)[1]
        self.assertGreater(prints, 0)


def main():
    if not all(map(shutil.which, ("hdparm", "nvme", "smartctl"))):
        sys.exit(77)
    simdrives("make", "--demo")
    # Prints are of the fleet as it was made.
    documents = unittest.defaultTestLoader.loadTestsFromTestCase(Documents)
    good = unittest.TextTestRunner().run(documents).wasSuccessful()
    simdrives("set", SATA, *(f"word.{word}={word * 257 % 65536}" for word in
                             (2, 7, 8, 53, 59, 63, 69, 77, 98, 99, 128, 168, 212, 213, 220)))
    simdrives("set", NAMESPACE, "controller.1=0x80", "controller.0=0x86", "controller.263=2",
              *(f"controller.{byte}={byte % 29}" for byte in range(2080, 2144)),
              "health.critical-warning=21", "health.spare=4", "health.percentage-used=130",
              "health.media-errors=18446744073709551615", "slot.2=8DV10180")
    others = unittest.TestSuite(unittest.defaultTestLoader.loadTestsFromTestCase(case)
                                for case in (Identify, Logs, Verdicts))
    good &= unittest.TextTestRunner().run(others).wasSuccessful()
    shutil.rmtree(FLEET)
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
