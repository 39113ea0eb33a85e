#!/usr/bin/env python3
"""What systemd and the kernel let the units do inside the guest, and what came of it.

    check_units.py RESULTS WIDTH QUESTION
"""
import re
import unittest

from answers import RESULTS, ask, exit_of, own, text_of

# ACS-3, and all commands that read sectors; queued ones are told by name.
STANDBY, CHECK_POWER, SMART = 0xe0, 0xe5, 0xb0
READS = {0x20, 0x24, 0x25, 0x29, 0xc4, 0xc8, "queued read"}


def series(name):
    """Values by metric and drive."""
    found = re.findall(r"^(\w+)(\{.*\})? (\S+)$", text_of(name), re.MULTILINE)
    return {metric + labels: value for metric, labels, value in found}


def probed(name):
    return {what: int(status) for what, status in map(str.split, text_of(name).splitlines())}


def properties(name):
    return dict(line.split("=", 1) for line in text_of(name).splitlines())


def seconds(text):
    """Of "1min 26.025949s" and the like; "infinity" is an error."""
    units = {"h": 3600, "min": 60, "s": 1, "ms": 1e-3, "us": 1e-6}
    words = (re.fullmatch(r"([\d.]+)([a-z]+)", word).groups() for word in text.split())
    return sum(float(number) * units[unit] for number, unit in words)


class Guest(unittest.TestCase):
    maxDiff = None

    def test_service_writes_what_the_tool_prints_outside(self):
        self.assertEqual(0, exit_of("bare.prom"))
        self.assertEqual(0, exit_of("service"))
        free, bound = series(own("bare.prom")), series(own("prom"))
        self.assertEqual("3", bound["morvu_drives"])
        self.assertEqual(free.keys(), bound.keys())
        changing = re.compile("morvu_run|_seconds_total|_bytes_total")
        self.assertEqual({key: value for key, value in free.items() if not changing.match(key)},
                         {key: value for key, value in bound.items() if not changing.match(key)})
        for kind in ("up", "failing", "temperature_celsius"):
            self.assertEqual(3, sum(key.startswith(f"morvu_drive_{kind}{{") for key in bound), kind)

    def test_file_is_whole_and_readable_and_alone(self):
        self.assertEqual("644 root\n", text_of(own("mode")))
        self.assertEqual("morvussd.prom\n", text_of(own("folder")))

    def test_service_waits_for_the_folder(self):
        self.assertEqual(0, exit_of("nowhere"))
        self.assertNotEqual(0, exit_of("nowhere.folder"))

    def test_service_asks_for_the_power_mode_and_reads_nothing(self):
        # The emulated drive knows no standby: what counts is what it is asked, and what first.
        runs = [[]]
        for line in text_of("trace").splitlines():
            found = re.search(r"cmd (0x\w+)$", line)
            command = int(found[1], 16) if found else "queued read"
            if command == STANDBY:
                runs.append([])
            else:
                runs[-1].append(command)
        # Of each width: from its first STANDBY IMMEDIATE to its second.
        for sent in (runs[1], runs[3]):
            self.assertEqual(CHECK_POWER, sent[0], sent)
            self.assertIn(SMART, sent)
            self.assertFalse(READS & set(sent), sent)

    def test_drive_that_another_works_on_is_told_so(self):
        self.assertEqual(0, exit_of("used"))
        used = [key for key, value in series(own("used.prom")).items()
                if key.startswith("morvu_drive_in_use") and value == "1"]
        self.assertEqual(1, len(used), used)

    def test_filter_refuses_no_call_that_is_made(self):
        self.assertEqual(0, exit_of("filter"))
        self.assertEqual(series(own("prom")).keys(), series(own("filter.prom")).keys())

    def test_service_may_do_no_more_than_it_needs(self):
        free, bound = probed("probed"), probed(own("probed"))
        self.assertEqual({0}, set(free.values()), free)
        self.assertEqual(free.keys(), bound.keys())
        self.assertEqual({"folder", "read-drive"}, {what for what, status in bound.items() if not status})

    def test_journal_holds_no_complaint(self):
        self.assertNotRegex(text_of(own("journal")), r"(?i)denied|fail|not permitted|refus|unknown")
        self.assertIn("Finished", text_of(own("journal")))

    def test_timer_calls_the_service_again_and_again(self):
        before, behind = properties("timer.before"), properties("timer.behind")
        # One minute behind the boot, and up to half a minute more; at once where that is over.
        if before["NextElapseUSecMonotonic"] == "infinity":
            self.assertGreaterEqual(seconds(before["LastTriggerUSecMonotonic"]), 60)
        else:
            self.assertIn(int(seconds(before["NextElapseUSecMonotonic"])), range(60, 91))
        self.assertEqual("success", behind["Result"])
        pause = (seconds(behind["NextElapseUSecMonotonic"]) -
                 seconds(behind["LastTriggerUSecMonotonic"]))
        self.assertAlmostEqual(300, pause, delta=60)
        self.assertEqual("3", series("timer.prom")["morvu_drives"])


if __name__ == "__main__":
    ask(Guest)
