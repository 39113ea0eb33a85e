#!/usr/bin/env python3
"""Runs the play for firmware updates on fleets of simulated drives, a fleet for each host.

  check_play.py MORVUSSD MORVU-SIMDRIVES SOURCE

Ends with 77 where there is no ansible-playbook (Debian's package ansible-core).
"""
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

TOOL, SIMDRIVES, SOURCE = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
PLAY = SOURCE / "examples/fleet/update_firmware.yml"
ANSIBLE = shutil.which("ansible-playbook")
MODEL, OLD, NEW = "MORVU SSDSC2BB480G4", "D2010370", "D2010380"
WRITE_MICROCODE = "92"  # DOWNLOAD MICROCODE (ACS-3)


def simdrives(*words):
    return subprocess.run([SIMDRIVES, *words], check=True, capture_output=True, text=True).stdout


class Play(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="play-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.place = self.folder / "image.bin"
        self.image = self.folder / "new.bin"
        head = b"MorvuSimFirmware" + NEW.encode() + struct.pack("<I", 65536)
        self.image.write_bytes(head.ljust(65536, b"\1"))

    def host(self, name, *drives):
        """Drives are words of "add". The host's interpreter finds a tool that meets its fleet."""
        fleet = self.folder / name / "fleet"
        (self.folder / name / "bin").mkdir(parents=True)
        simdrives("make", fleet)
        for serial, *words in drives:
            simdrives("add", fleet, "--serial", serial, "--model", MODEL, "--firmware", OLD, *words)
        tool, python = self.folder / name / "bin/morvussd", self.folder / name / "python"
        tool.write_text(f'#!/bin/sh\nexec {SIMDRIVES} run {fleet} -- {TOOL} "$@"\n')
        python.write_text(f'#!/bin/sh\nPATH={tool.parent}:$PATH exec {sys.executable} "$@"\n')
        for path in (tool, python):
            path.chmod(0o755)
        return fleet

    def play(self, *words):
        """The exit status, what was said, and "ok=... changed=... failed=..." by host."""
        hosts = sorted(path.name for path in self.folder.iterdir() if (path / "fleet").is_dir())
        inventory = self.folder / "inventory"
        inventory.write_text("[storage]\n" + "".join(
            f"{host} ansible_connection=local ansible_become=false "
            f"ansible_python_interpreter={self.folder / host / 'python'}\n" for host in hosts))
        settings = self.folder / "ansible.cfg"  # and not the user's
        settings.write_text(f"[defaults]\nnocolor = True\nlocal_tmp = {self.folder}/.local\n"
                            f"remote_tmp = {self.folder}/.remote\n")
        done = subprocess.run(
            [ANSIBLE, "-i", inventory, PLAY, "-e", "fleet=storage", "-e", f"model='{MODEL}'",
             "-e", f"image={self.image}", "-e", f"place={self.place}", "-e", f"firmware={NEW}", *words],
            capture_output=True, text=True, check=False,
            env={**os.environ, "ANSIBLE_CONFIG": str(settings)})
        said = done.stdout + done.stderr
        self.assertNotIn("Traceback", said)
        self.assertFalse(self.place.exists(), said)
        return done.returncode, said, dict(re.findall(r"^(\w+) +: (ok=.*)$", said, re.MULTILINE))

    def revisions(self, fleet):
        return re.findall(r"D20103[78]0", simdrives("list", fleet))

    def sent(self, fleet, node="/dev/sg0"):
        return re.findall(rf"^ATA\S* {WRITE_MICROCODE}\b", simdrives("journal", fleet, node), re.MULTILINE)

    def test_updates_in_waves_and_again_without_harm(self):
        sata = self.host("sata", ("ONE", "--kind", "ata"), ("TWO", "--kind", "ata"),
                         ("OTHER", "--kind", "ata", "--model", "ANOTHER"))
        nvme = self.host("waits", ("THREE", "--kind", "nvme"))
        self.host("without")

        ended, said, hosts = self.play("--check")
        self.assertEqual(0, ended, said)
        self.assertIn("ONE, TWO", said)
        self.assertEqual([OLD] * 3, self.revisions(sata))
        self.assertFalse(self.sent(sata))

        ended, said, hosts = self.play()
        self.assertEqual(0, ended, said)
        self.assertEqual([NEW, NEW, OLD], self.revisions(sata))
        self.assertFalse(self.sent(sata, "/dev/sg2"))
        self.assertIn("Run it after a reset: THREE", said)
        self.assertIn("ONE: Completed successfully.", said)
        self.assertEqual(["sata", "waits", "without"], sorted(hosts))
        sent = len(self.sent(sata))
        self.assertTrue(sent)

        ended, said, hosts = self.play()
        self.assertEqual(0, ended, said)
        self.assertEqual(sent, len(self.sent(sata)))
        self.assertTrue(all("changed=0" in told for told in hosts.values()), said)
        simdrives("power-cycle", nvme)
        self.assertEqual([NEW], self.revisions(nvme))

    def test_stops_at_the_first_drive_that_does_not_take_the_image(self):
        first = self.host("afirst", ("ONE", "--kind", "ata"))
        bad = self.host("bad", ("TWO", "--kind", "ata"), ("THREE", "--kind", "ata"))
        others = [self.host(name, (name.upper(), "--kind", "ata"))
                  for name in ("c", "d", "e", "f", "zlast")]
        simdrives("fault", bad, "/dev/sg1", "fail", "--opcode", WRITE_MICROCODE)
        ended, said, hosts = self.play()
        self.assertNotEqual(0, ended, said)
        self.assertEqual([NEW], self.revisions(first))
        self.assertEqual([NEW, OLD], self.revisions(bad))
        self.assertIn("THREE: Error: Firmware update failed.", said)
        self.assertIn("TWO: Completed successfully.", said)
        # Of the same wave, and behind it.
        self.assertEqual([[NEW]] * 4 + [[OLD]], [self.revisions(fleet) for fleet in others])
        self.assertNotIn("zlast", hosts)

    def test_begins_on_no_machine_with_a_drive_that_fails(self):
        failing = self.host("failing", ("ONE", "--kind", "ata"))
        last = self.host("last", ("TWO", "--kind", "ata"))
        simdrives("set", failing, "/dev/sg0", "smart-failing=1")
        ended, said, _ = self.play()
        self.assertNotEqual(0, ended, said)
        self.assertEqual([[OLD], [OLD]], [self.revisions(failing), self.revisions(last)])

    def test_stops_where_the_image_is_of_another_revision(self):
        first, last = (self.host(name, (name.upper(), "--kind", "ata")) for name in ("first", "last"))
        self.image.write_bytes(self.image.read_bytes().replace(NEW.encode(), b"D2010350"))
        ended, said, _ = self.play()
        self.assertNotEqual(0, ended, said)
        self.assertIn(f"Not on {NEW}: FIRST", said)
        self.assertFalse(self.sent(last))
        self.assertTrue(self.sent(first))


if __name__ == "__main__":
    if ANSIBLE is None:
        print("no ansible-playbook: Debian's package ansible-core has it")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[4:])
