#!/usr/bin/env python3
"""Compares what the library said inside the guest with what other tools said there.

    check_devices.py RESULTS WIDTH QUESTION
"""
import collections
import csv
import pathlib
import re
import unittest

from answers import (RESULTS, WIDTH, ask, exit_of, json_of, last_message, own, text_of, values_of)

# By message a scan publishes a few products only, by the tool all drives.
CODE_PARTITION = 13
CODE_UPDATE_FAILED = 19
CODE_SMART_NOT_READ = 23
CODE_NO_MORVU_DRIVE = 45
CODE_BAD_ARGUMENTS = 73
CODE_ANSWERED_NO = 81
CODE_NOT_IN_STANDBY = 86
CODE_BAD_INDEX = 87
CODE_SCT_REFUSED = 116
CODE_NO_SELF_TEST = 302

# Exit statuses of codes above 255.
EXIT_NO_SECURITY = 24  # 284
EXIT_NO_SANITIZE = 36  # 296
EXIT_NO_SELF_TEST = 42


def drive_objects(name):
    reply = last_message(name)
    found = [values_of(item) for item in reply.iter("Object") if item.get("uniqueId") is not None]
    return {values["DevicePath"]: values for values in found}


def job_of(name):
    for item in last_message(name).iter("Object"):
        values = values_of(item)
        if "ErrorCode" in values:
            return values
    raise AssertionError(f"{name} has no job")


def information_of(path):
    """The rows of the tool's tables: one table for the drive, then one for each partition."""
    return tables_of(f"information.{pathlib.Path(path).name}.txt")


def tables_of(name):
    tables = [{}]
    for line in text_of(own(name)).splitlines():
        row = re.fullmatch(r"\| (.+?):? +\| (.*?) *\|", line)
        if row:
            tables[-1][row[1].rstrip(":")] = row[2]
        elif tables[-1] and not line:
            tables.append({})
    return [table for table in tables if table]


def listed_by_tool():
    rows = list(csv.reader(text_of(own("list.csv")).splitlines()))
    return {row[4]: row for row in rows[1:]}


def disks():
    """lsblk's disks by path, the CD-ROM not among them."""
    return {disk["path"]: disk for disk in json_of("lsblk.json")["blockdevices"]
            if disk["type"] == "disk"}


class Guest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.nodes = json_of("nodes")

    def test_tool_lists_exactly_the_disks(self):
        smart = {kind: json_of(f"smartctl.{kind}.json") for kind in ("sata", "foreign", "nvme")}
        sas = json_of("smartctl.sas.json")

        def row(kind):
            return [smart[kind][key] for key in ("model_name", "serial_number", "firmware_version")]
        nvme = [path for path in disks() if "nvme" in path]
        # The emulated SAS drive's INQUIRY ends before the serial number; it has a page for it.
        self.assertEqual(36, (RESULTS / "sas.inquiry").stat().st_size)
        expected = {
            self.nodes["sata"]: row("sata"),
            self.nodes["foreign"]: row("foreign"),
            self.nodes["sas"]: [sas["scsi_product"], sas["serial_number"], sas["scsi_revision"]],
            **{path: row("nvme") for path in nvme}}
        self.assertEqual(2, len(nvme))
        self.assertEqual(len(disks()), len(expected))
        self.assertEqual(expected, {path: row[1:4] for path, row in listed_by_tool().items()})
        self.assertEqual([str(index) for index in range(len(expected))],
                         [row[0] for row in listed_by_tool().values()])
        self.assertEqual(0, exit_of("csv.txt"))
        for path in expected:
            self.assertIn(path, text_of(own("list.txt")))

    def test_tool_sees_a_disk_for_each_that_smartctl_scans(self):
        scanned = [device["name"] for device in json_of("scan.json")["devices"]]
        listed = listed_by_tool()
        self.assertEqual(len([name for name in scanned if name.startswith("/dev/sd")]),
                         len([path for path in listed if path.startswith("/dev/sg")]))
        controllers = {path[:len("/dev/nvme0")] for path in listed if "nvme" in path}
        self.assertEqual({name for name in scanned if "nvme" in name}, controllers)

    def test_message_lists_sata_as_ata(self):
        smart, hdparm = json_of("smartctl.sata.json"), text_of("hdparm.txt")
        drive = drive_objects("list.xml")[self.nodes["sata"]]
        # The kernel's own texts are cut to 16 and 4 characters: these come from IDENTIFY DEVICE.
        self.assertEqual(smart["model_name"], drive["ModelNumber"])
        self.assertEqual(smart["serial_number"], drive["SerialNumber"])
        self.assertEqual(smart["firmware_version"], drive["Firmware"])
        self.assertEqual(str(smart["logical_block_size"]), drive["SectorSize"])
        self.assertNotIn("DriverCommunicationError", drive)
        self.assertEqual("Morvu SSD Datacenter C400 Series", drive["ProductFamily"])
        self.assertEqual("True", drive["Morvu"])
        self.assertEqual("True", drive["SMARTEnabled"])
        self.assertEqual(str(smart["trim"]["supported"]), drive["TrimSupported"])
        self.assertEqual(str("*\tWrite cache" in hdparm), drive["WriteCacheEnabled"])
        self.assertEqual(str("Security:" in hdparm), drive["SecurityEnabled"])

    def test_message_gives_the_sectors_of_sata(self):
        # Words 60 and 61 of IDENTIFY DEVICE as they stand: a count of sectors.
        sectors = int(re.search(r"LBA +user addressable sectors: +(\d+)", text_of("hdparm.txt"))[1])
        self.assertEqual(disks()[self.disk_of("sata")]["size"], sectors * 512)
        drive = drive_objects("list.xml")[self.nodes["sata"]]
        self.assertEqual(str(sectors), drive["MaximumLBA"])

    def test_message_lists_each_namespace(self):
        controller = json_of("nvme.ctrl.json")
        listed = drive_objects("list.xml")
        for number in (1, 2):
            namespace = json_of(f"nvme.ns{number}.json")
            drive = listed[f"/dev/nvme0n{number}"]
            used_format = namespace["flbas"] & 0xF
            expected = {
                "ModelNumber": controller["mn"].strip(),
                "SerialNumber": controller["sn"].strip(),
                "Firmware": controller["fr"].strip(),
                "MaximumLBA": str(namespace["nsze"] - 1),
                "SectorSize": str(1 << namespace["lbafs"][used_format]["ds"]),
                "PhysicalSize": str(disks()[f"/dev/nvme0n{number}"]["size"]),
                "NumLBAFormats": str(namespace["nlbaf"]),
                "LBAFormat": str(used_format),
                "NumErrorLogPageEntries": str(controller["elpe"]),
                "ProductFamily": "Morvu SSD Datacenter C700 Series",
            }
            self.assertEqual(expected, {name: drive.get(name) for name in expected})
        self.assertNotEqual(listed["/dev/nvme0n1"]["SectorSize"],
                            listed["/dev/nvme0n2"]["SectorSize"])

    def test_message_publishes_no_other_drives(self):
        expected = {self.nodes["sata"], "/dev/nvme0n1", "/dev/nvme0n2"}
        self.assertEqual(expected, set(drive_objects("list.xml")))
        self.assertEqual(expected, set(drive_objects("devices.xml")))

    def test_tool_describes_sas(self):
        sas = json_of("smartctl.sas.json")
        drive = information_of(self.nodes["sas"])[0]
        self.assertEqual(sas["scsi_product"], drive["Model Number"])
        self.assertEqual("Morvu SSD Datacenter S400 SAS Series", drive["Drive Series"])
        self.assertEqual(sas["user_capacity"]["blocks"] - 1, int(drive["Current MAX LBA"], 16))
        self.assertEqual("0.27 GB", drive["Current Capacity"])

    def test_tool_describes_sata(self):
        drive = information_of(self.nodes["sata"])[0]
        native = int(re.search(r"max sectors += +\d+/(\d+)", text_of("hdparm-max.txt"))[1])
        self.assertEqual(native - 1, int(drive["Native MAX LBA"], 16))
        self.assertEqual("ON", drive["SMART"])
        self.assertEqual("ON" if "*\tWrite cache" in text_of("hdparm.txt") else "OFF",
                         drive["Write Cache"])

    def test_tool_describes_each_namespace(self):
        for number in (1, 2):
            drive = information_of(f"/dev/nvme0n{number}")[0]
            self.assertEqual(json_of(f"nvme.ns{number}.json")["nsze"] - 1,
                             int(drive["Current MAX LBA"], 16))

    def test_tool_shows_partitions(self):
        children = disks()[self.disk_of("sata")]["children"]
        shown = information_of(self.nodes["sata"])[1:]
        self.assertEqual([child["path"] for child in children], [table["Path"] for table in shown])
        used, free = map(int, text_of("df.txt").splitlines()[1].split()[2:4])
        self.assertEqual("ext4", shown[0]["Type"])
        self.assertEqual(f"{free / 1e6:.2f} MB / {(used + free) / 1e6:.2f} MB",
                         shown[0]["Free Space"])
        self.assertEqual("Unknown / Unknown", shown[1]["Free Space"])

    def test_asking_closes_no_node_as_a_writer(self):
        def closed(name):
            return set(re.findall(r"^/dev/(?:sd|sg|nvme)\w+$", text_of(own(name)), re.MULTILINE))
        for name in ("writers.list", "writers.information", "writers.message"):
            self.assertEqual(0, exit_of(name), name)
            self.assertEqual(set(), closed(name), name)
        self.assertEqual({self.disk_of("sata")}, closed("writers.dd"))

    def test_asking_writes_to_no_file_system(self):
        for kind in ("ext4", "vfat", "btrfs", "xfs"):
            shown = [table for table in tables_of(f"dirty.{kind}.txt") if "Path" in table][1]
            self.assertEqual(kind, shown["Type"])
            self.assertNotIn("Unknown", shown["Free Space"])
            before, after = (text_of(own(f"dirty.{kind}.{when}")) for when in ("before", "after"))
            self.assertEqual(before, after, kind)
            # The file systems with a journal were in need of it.
            mounted = text_of(f"dirty.{kind}.mounted")
            self.assertEqual(kind == "vfat", mounted == after, kind)

    def test_message_reads_smart_of_sata(self):
        self.assertEqual("0", job_of("smart.xml")["ErrorCode"])
        shown = {}
        for item in last_message("smart.xml").iter("Object"):
            if item.get("name") == "SMART Attribute":
                values = values_of(item)
                shown[int(values["ID"], 16)] = [
                    int(values[name]) for name in ("Normalized", "Worst", "Threshold", "Status",
                                                   "Raw")]
        self.assertEqual(self.attributes(), shown)

    def test_tool_saves_smart_of_sata(self):
        self.assertEqual(0, exit_of("smart-csv.txt"))
        rows = list(csv.reader(text_of(own("smart.csv")).splitlines()))
        # A row without an identifier is a part of the raw value above it.
        shown = {int(row[0], 16): [int(row[3]), int(row[5]), int(row[4]), int(row[6]),
                                   int(re.match(r"0x[0-9A-F]+|\d+", row[2])[0], 0)]
                 for row in rows[1:] if row[0]}
        self.assertEqual(self.attributes(), shown)
        self.assertEqual({"Pass"}, {row[7] for row in rows[1:] if row[0]})

    def test_tool_shows_smart_of_sata(self):
        self.assertEqual(0, exit_of("smart.txt"))
        shown = re.findall(r"^\|? *([0-9A-F]{2}) ", text_of(own("smart.txt")), re.MULTILINE)
        self.assertEqual(sorted(self.attributes()), [int(identifier, 16) for identifier in shown])

    def test_smart_of_nvme_without_its_log_fails(self):
        # The emulated controller has no vendor log.
        self.assertEqual(str(CODE_SMART_NOT_READ), job_of("smart-nvme.xml")["ErrorCode"])
        self.assertEqual(CODE_SMART_NOT_READ, exit_of("smart-nvme.txt"))

    def test_tool_refuses_a_bad_index(self):
        self.assertEqual(CODE_BAD_INDEX, exit_of("bad-index.txt"))
        self.assertIn("Given drive index is invalid", text_of(own("bad-index.txt")))

    def test_features_are_those_that_nvme_reads(self):
        thresholds = []
        for when in ("features", "features-set"):
            shown = re.findall(r"get-feature:0x([0-9a-f]+).*Current value: *(?:0x)?([0-9a-f]+)",
                               text_of(own(f"{when}.theirs")))
            theirs = {int(number, 16): int(value, 16) for number, value in shown}
            self.assertEqual(9, len(theirs))
            self.assertEqual(theirs, {number: self.features(f"{when}.xml")[title]
                                      for number, title in self.titles.items()})
            thresholds.append(theirs[4] - 273)
        self.assertEqual(0, exit_of("threshold.txt"))
        wanted = int(WIDTH) // 32 + 63
        self.assertNotEqual(wanted, thresholds[0])
        self.assertEqual(wanted, thresholds[1])

    titles = {1: "Arbitration", 2: "Power Management", 4: "Temperature Threshold",
              5: "Error Recovery", 7: "Number of Queues", 8: "Interrupt Coalescing",
              9: "Interrupt Vector Config", 10: "Write Atomicity", 11: "Async Event Config"}

    @staticmethod
    def features(name):
        """The raw value of each table."""
        return {table.get("name"): int(list(table.iter("Property"))[1].text, 16)
                for table in last_message(name).iter("List") if table.get("type") == "table"}

    def test_sct_that_the_drive_lacks_is_refused(self):
        for theirs in ("scterc.theirs", "scttemp.theirs"):
            self.assertRegex(text_of(own(theirs)), "SCT .*not supported")
        for name in ("scterc.txt", "scterc-set.txt", "temp-interval.txt", "wc-state.0.txt"):
            self.assertEqual(CODE_SCT_REFUSED, exit_of(name), name)

    def test_settings_of_sata_are_those_that_others_show(self):
        native = int(re.search(r"max sectors += +\d+/(\d+)", text_of("hdparm-max.txt"))[1])
        for state, word in ((0, "Disabled"), (1, "Enabled")):
            self.assertRegex(text_of(own(f"cache.{state}.theirs")), rf"write-caching = +{state}")
            self.assertRegex(text_of(own(f"settings.{state}.theirs")), rf"Write cache is: +{word}")
            drive = drive_objects(f"settings.{state}.xml")[self.nodes["sata"]]
            self.assertEqual(str(state == 1), drive["WriteCacheEnabled"])
            self.assertEqual(str(native - 1), drive["NativeMaxLBA"])
            self.assertEqual(str(int(text_of("discard.txt")) > 0), drive["SystemTrimEnabled"])

    def test_maximum_of_a_disk_in_use_stays(self):
        self.assertEqual(CODE_PARTITION, exit_of("max-address.txt"))
        self.assertEqual(text_of("hdparm-max.txt"), text_of(own("hdparm-max.txt")))
        self.assertFalse({"37", "f9"} & set(self.traced_ata()))

    def test_refused_firmware_leaves_the_drive_as_it_was(self):
        sata, foreign = (self.nodes[kind][len("/dev/"):] for kind in ("sata", "foreign"))
        self.assertEqual(CODE_UPDATE_FAILED, exit_of(f"firmware.{sata}.txt"))
        self.assertEqual(CODE_UPDATE_FAILED, exit_of("firmware.nvme0n1.txt"))
        self.assertEqual(CODE_NO_MORVU_DRIVE, exit_of(f"firmware.{foreign}.txt"))
        # SMART is off during the transfer.
        after = json_of(own("after-firmware.json"))
        self.assertTrue(after["smart_support"]["enabled"])
        self.assertEqual(json_of("smartctl.sata.json")["firmware_version"],
                         after["firmware_version"])

    def test_tool_refuses_erases_that_the_drive_cannot_do(self):
        self.assertNotIn("Security:", text_of("hdparm.txt"))
        self.assertEqual(EXIT_NO_SECURITY, exit_of("secure-erase.txt"))
        self.assertIn("ATA security is not", text_of(own("secure-erase.txt")))
        self.assertEqual(EXIT_NO_SANITIZE, exit_of("sanitize.txt"))
        self.assertIn("Sanitize command is unsupported", text_of(own("sanitize.txt")))
        self.assertFalse({"f1", "f3", "f4", "b4"} & set(self.traced_ata()))

    def test_self_test_needs_its_bit_in_identify(self):
        # The emulated drive would run one, but does not say so (ACS-3, word 84 bit 1).
        self.assertEqual(EXIT_NO_SELF_TEST, exit_of("self-test.txt"))
        self.assertEqual(str(CODE_NO_SELF_TEST), job_of("self-test.xml")["ErrorCode"])

    def test_standby_sends_what_hdparm_sends(self):
        # The emulated drive takes the command and stays awake, which both notice.
        self.assertEqual(CODE_NOT_IN_STANDBY, exit_of("standby.txt"))
        self.assertIn("active/idle", text_of(own("hdparm-mode.txt")))
        first = 1 if WIDTH == "64" else 4
        parts = " ".join(self.traced_ata()).split("e3")
        ours, theirs = (re.findall("e0|e5", part) for part in (parts[first], parts[first + 1]))
        self.assertEqual(["e0", "e5"], theirs)
        self.assertEqual(theirs, ours)

    def test_format_sends_what_nvme_sends(self):
        self.assertEqual(0, exit_of("format.txt"))
        self.assertEqual(0, exit_of("nvme-format.txt"))
        self.assertEqual(bytes(4 << 20), (RESULTS / own("formatted.bin")).read_bytes())
        self.assertEqual(json_of("nvme.ns2.json")["flbas"], json_of("nvme.ns2.after.json")["flbas"])
        formats = [line.split("nsid", 1)[1] for line in text_of("trace").splitlines()
                   if "pci_nvme_format_set" in line]
        self.assertEqual(6, len(formats))  # each width's two, and that of a partition
        self.assertEqual(1, len(set(formats)), formats)
        self.assertRegex(formats[0], r"^ 3\b")
        kept = (RESULTS / own("not-formatted.bin")).read_bytes()
        self.assertEqual((b"first\n" * (1 << 20))[:4 << 20], kept)

    def test_a_namespace_in_use_is_not_formatted(self):
        for use, told in (("swapped", "In use: swap"),
                          ("mounted", "/dev/nvme0n2p1: mounted on /held")):
            self.assertEqual(str(CODE_PARTITION), job_of(f"{use}.xml")["ErrorCode"], use)
            # The question is answered by the end of the input.
            self.assertEqual(CODE_ANSWERED_NO, exit_of(f"{use}.txt"), use)
            self.assertIn(told, text_of(own(f"{use}.txt")))

    def test_partitions_are_gone_behind_a_format(self):
        self.assertIn("nvme0n2p1", text_of(own("blocks.before")))
        self.assertEqual(0, exit_of("format-partition.txt"))
        self.assertNotIn("nvme0n2p1", text_of(own("blocks.after")))
        self.assertNotIn("keeps the old", text_of(own("format-partition.txt")))

    def test_tool_refuses_a_layout_that_the_namespace_lacks(self):
        self.assertEqual(CODE_BAD_ARGUMENTS, exit_of("format-too-high.txt"))
        self.assertIn("Invalid value for LBA Format", text_of(own("format-too-high.txt")))

    def test_signals_send_no_command_twice(self):
        # READ DMA (C8h) by drive, between the last timer commands (E3h).
        commands = re.findall(r"ide_exec_cmd .*state (\w+); cmd 0x([0-9a-f]{2})", text_of("trace"))
        marks = [place for place, (_, command) in enumerate(commands) if command == "e3"]
        marks = marks[-6:-3] if WIDTH == "64" else marks[-3:]
        bare, ours = (collections.Counter(drive for drive, command in commands[start:end]
                                          if command == "c8")
                      for start, end in zip(marks, marks[1:]))
        self.assertEqual(0, exit_of("bare-read"))
        self.assertEqual([2], list(bare.values()))  # the kernel sends again what a signal interrupts
        self.assertEqual(0, exit_of("interrupted.xml"))
        self.assertIn("SLOW0001", text_of(own("interrupted.xml")))
        slow = next(iter(bare))
        self.assertEqual(1, ours[slow])

    def traced_ata(self):
        return re.findall(r"ide_exec_cmd .*cmd 0x([0-9a-f]{2})", text_of("trace"))

    def attributes(self):
        return {row["id"]: [row["value"], row["worst"], row["thresh"], row["flags"]["value"],
                            row["raw"]["value"]]
                for row in json_of("smartctl.sata.json")["ata_smart_attributes"]["table"]}

    def disk_of(self, kind):
        model = json_of(f"smartctl.{kind}.json")["model_name"]
        return next(path for path, disk in disks().items()
                    if (disk["model"] or "").strip() == model[:16])


if __name__ == "__main__":
    ask(Guest)
