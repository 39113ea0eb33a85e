#!/usr/bin/env python3
"""What Prometheus's own tools make of the metrics of simulated drives, of the alerts, and systemd of
the units.

  check.py MORVUSSD MORVU-SIMDRIVES SOURCE

Ends with 77 where promtool or the node exporter is missing.
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request

TOOL, SIMDRIVES, SOURCE = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
UNPACKED = SOURCE / "build/metrics-root/usr/bin"
RULES = SOURCE / "host/prometheus/morvussd.rules.yml"


def find(name):
    return shutil.which(name, path=f"{UNPACKED}:/usr/bin:/usr/sbin:/usr/local/bin")


PROMTOOL, EXPORTER = find("promtool"), find("prometheus-node-exporter")


class Metrics(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="metrics-"))
        cls.fleet, cls.file = folder / "fleet", folder / "out/morvussd.prom"
        cls.file.parent.mkdir()
        simdrives("make", cls.fleet)
        for words in (("ata", 'A"B\\C'), ("ata", "ASLEEP"), ("nvme", "TWO", "--namespaces", "2"),
                      ("scsi", "SAS")):
            simdrives("add", cls.fleet, "--kind", words[0], "--serial", *words[1:])
        simdrives("set", cls.fleet, "/dev/sg1", "standby=1")
        simdrives("run", cls.fleet, "--", TOOL, "-metrics", cls.file)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def test_promtool_has_nothing_to_say(self):
        done = subprocess.run([PROMTOOL, "check", "metrics"], input=self.file.read_bytes(),
                              capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, b""))

    def test_the_node_exporter_serves_each_series(self):
        served = serve(self.file.parent)
        self.assertIn("node_textfile_scrape_error 0", served)
        ours = [line for line in self.file.read_text().splitlines() if line[0] != "#"]
        self.assertGreater(len(ours), 50)
        shown = {series(line) for line in served.splitlines() if line.startswith("morvu_")}
        self.assertEqual(shown, {series(line) for line in ours})

    def test_the_alerts_fire_when_they_should(self):
        for path in (RULES, SOURCE / "tests/metrics/rules_test.yml"):
            shutil.copy(path, self.folder)
        done = subprocess.run([PROMTOOL, "test", "rules", self.folder / "rules_test.yml"],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_each_alert_is_tested_and_reads_what_there_is(self):
        rules, tests = RULES.read_text(), (SOURCE / "tests/metrics/rules_test.yml").read_text()
        for alert in re.findall(r"alert: (\w+)", rules):
            self.assertIn(f'alertname="{alert}"', tests)
        for name in set(re.findall(r"\bmorvu_\w+", rules)):
            self.assertIn(f"# TYPE {name} ", self.file.read_text())

    def test_the_play_reads_what_the_tool_prints(self):
        play = (SOURCE / "examples/fleet/update_firmware.yml").read_text()
        known = subprocess.run([TOOL, "-help"], capture_output=True, text=True, check=True).stdout
        for option in set(re.findall(r"(?<=[ '])-[a-z_]{4,}", play)):
            self.assertRegex(known, rf"(?m)^{option}\b")
        listed = self.tell("-drive_list")
        self.assertEqual({drive["properties"]["SerialNumber"] for drive in listed["drives"]},
                         {'A"B\\C', "ASLEEP", "TWO", "SAS"})
        self.assertTrue(all("ModelNumber" in drive["properties"] for drive in listed["drives"]))
        ran = self.tell("-drives", "ASLEEP", "SAS", "-smart")
        self.assertEqual([run["result"]["code"] for run in ran["runs"]], [0, 118])
        self.assertEqual([run["drive"]["SerialNumber"] for run in ran["runs"]], ["ASLEEP", "SAS"])
        self.assertTrue(all(run["result"]["text"] for run in ran["runs"]))

    def tell(self, *words):
        done = subprocess.run([SIMDRIVES, "run", self.fleet, "--", TOOL, *words, "-json"],
                              capture_output=True, text=True, check=False)
        return json.loads(done.stdout)

    @unittest.skipUnless(shutil.which("systemd-analyze"), "no systemd")
    def test_systemd_takes_the_units(self):
        units = []
        for path in sorted((SOURCE / "host/systemd").iterdir()):
            text = path.read_text().replace("@CMAKE_INSTALL_FULL_SBINDIR@", str(pathlib.Path(TOOL).resolve().parent))
            text = text.replace("@MORVU_TEXTFILE_FOLDER@", str(self.file.parent))
            text = text.replace("@MORVU_SYSTEMD_ARCHITECTURE@", "native")
            text = text.replace("man:morvussd(8)", "man:true(1)")
            units.append(self.folder / path.name.removesuffix(".in"))
            units[-1].write_text(text)
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", *units],
                              capture_output=True, text=True, check=False)
        self.assertNotIn(str(self.folder), done.stdout + done.stderr)
        self.assertEqual(done.returncode, 0, done.stderr)


def simdrives(*words):
    subprocess.run([SIMDRIVES, *words], check=True, stdout=subprocess.DEVNULL)


def series(line):
    """Name, labels in order, value as a number."""
    name, labels, value = re.fullmatch(r"(\w+)(?:\{(.*)\})? (\S+)", line).groups()
    return name, tuple(sorted(re.findall(r'\w+="(?:[^"\\]|\\.)*"', labels or ""))), float(value)


def serve(folder):
    """What a node exporter shows of the folder."""
    words = [EXPORTER, "--collector.disable-defaults", "--collector.textfile",
             f"--collector.textfile.directory={folder}", "--web.listen-address=127.0.0.1:0"]
    with subprocess.Popen(words, stderr=subprocess.PIPE, text=True) as exporter:
        try:
            for line in exporter.stderr:
                if found := re.search(r"address=(127\.0\.0\.1:\d+)", line):
                    with urllib.request.urlopen(f"http://{found[1]}/metrics", timeout=60) as page:
                        return page.read().decode()
            raise AssertionError("the node exporter ended")
        finally:
            exporter.kill()


if __name__ == "__main__":
    if PROMTOOL is None or EXPORTER is None:
        print("no promtool or no node exporter: scripts/setup metrics unpacks them")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
