#!/usr/bin/env python3
"""Compares what the library found on bad drives inside the guest with what other tools found.

    check_testing.py RESULTS WIDTH QUESTION
"""
import csv
import re
import unittest

from answers import RESULTS, ask, exit_of, json_of, last_message, own, text_of, values_of

CODE_WRITE_FAILED = 8
CODE_READ_FAILED = 10
CODE_DATA_CHANGED = 11
CODE_BAD_BLOCK = 82
EXIT_CANCELED = 130

# Drives with bad blocks: the size of a block.
BAD_DRIVES = {"sata": 512, "nvme": 512, "sas512": 512, "sas4096": 4096}


def whole_records(name):
    """How many blocks dd or sg_dd had read, one at a time, when a read failed."""
    return int(re.search(r"^(\d+)\+\d+ records in", text_of(name), re.MULTILINE)[1])


def mounts_of(name):
    return [line for line in text_of(own(name)).splitlines() if line.startswith("/dev/")]


class Guest(unittest.TestCase):
    maxDiff = None

    def first_bad(self, drive, size):
        bad = whole_records(f"{drive}.dd.err")
        if (RESULTS / f"{drive}.sg_dd.err").exists():
            self.assertEqual(bad, whole_records(f"{drive}.sg_dd.err"))
        # It reads by the page.
        page = int(text_of(f"{drive}.badblocks").split()[0])
        self.assertEqual(page, bad * size // 4096)
        return bad

    def test_scan_finds_the_block_that_others_find(self):
        for drive, size in BAD_DRIVES.items():
            bad = self.first_bad(drive, size)
            self.assertEqual(bad, self.found(f"{drive}.full"), drive)
            self.assertEqual(bad, self.found(f"{drive}.at"), drive)
            # A random read may begin in the middle of the bad blocks.
            self.assertIn(self.found(f"{drive}.fast") - bad, range(8), drive)

    def found(self, name):
        self.assertEqual(CODE_BAD_BLOCK, exit_of(name), name)
        return int(re.search(r"^Failed reading LBA (\d+)\.$", text_of(own(name)), re.MULTILINE)[1])

    def test_scan_passes_beside_bad_blocks(self):
        for drive, size in BAD_DRIVES.items():
            bad, last = self.first_bad(drive, size), (64 << 20) // size - 1
            for kind, first, end in (("before", 1, bad - 1), ("behind", bad + 8, last)):
                name = f"{drive}.{kind}"
                self.assertEqual(0, exit_of(name), name)
                self.assertIn(f"Read {end - first + 1} LBAs, LBA {first} to {end},",
                              text_of(own(name)), name)

    def test_job_tells_the_block(self):
        for drive in ("sata", "nvme"):  # by message no SAS drive is published
            reply = last_message(f"{drive}.xml")
            values = values_of(reply)
            for item in reply.iter("Object"):
                values.update(values_of(item))
            self.assertEqual(str(CODE_BAD_BLOCK), values["ErrorCode"], drive)
            self.assertEqual(str(self.first_bad(drive, BAD_DRIVES[drive])), values["FailingLBA"], drive)

    def test_interrupted_scan_ends(self):
        self.assertEqual(EXIT_CANCELED, exit_of("canceled"))
        self.assertRegex(text_of(own("canceled")), r"Read \d+ LBAs, LBA 0 to \d+")

    def test_volume_is_the_disk_of_its_controller(self):
        volume, theirs = json_of("volume"), json_of("volume.smartctl.json")
        self.assertEqual(theirs["device"]["name"], volume["disk"])
        rows = {row[4]: row for row in csv.reader(text_of(own("volume.csv")).splitlines())}
        self.assertEqual([theirs["scsi_product"], theirs["serial_number"], theirs["scsi_revision"]],
                         rows[volume["node"]][1:4])
        self.assertRegex(text_of(own("volume.disk")), r"Drive Index: +\| \d+ \(RAID Volume\)")
        self.assertRegex(text_of(own("volume.member")), r"Drive Index: +\| \d+ \(RAID Member\)")

    def test_good_disk_keeps_its_data(self):
        for kind in ("ext4", "xfs", "vfat"):
            name = f"integrity.{kind}"
            self.assertEqual(0, exit_of(name), text_of(own(name)))
            self.assertGreater(self.tested(name), 32 << 20)
            self.assert_left_as_it_was(name, {"own"})

    def test_bad_disk_fails(self):
        for name, code, line in (
                ("reads", CODE_READ_FAILED, "Failed to read from file."),
                ("writes", CODE_WRITE_FAILED, "Failed to write to file."),
                ("changed", CODE_DATA_CHANGED, "Data verification failed.")):
            name = f"integrity.{name}"
            self.assertEqual(code, exit_of(name), name)
            self.assertIn(line, text_of(own(name)))
            self.assert_left_as_it_was(name, set())
        self.assertEqual(20 << 20, self.tested("integrity.changed"))  # up to the changed byte's MiB

    def test_next_run_takes_away_what_a_killed_one_left(self):
        self.assertIn("Morvu_Integrity_File_0", text_of(own("integrity.killed.left")))
        self.assertEqual(0, exit_of("integrity.after"))
        self.assert_left_as_it_was("integrity.after", set())

    @staticmethod
    def tested(name):
        return int(re.search(r"Tested (\d+) bytes", text_of(own(name)))[1])

    def assert_left_as_it_was(self, name, files):
        self.assertEqual([], mounts_of(f"{name}.mounts"), name)
        self.assertEqual(files, set(text_of(own(f"{name}.files")).split()) - {"lost+found"}, name)
        # No run, and no mount behind one, found a journal that had to be replayed.
        replays = r"(EXT4-fs|XFS) \(\w+\): .*(recovery complete|Starting recovery)"
        self.assertIsNone(re.search(replays, text_of("dmesg.txt")))


if __name__ == "__main__":
    ask(Guest)
