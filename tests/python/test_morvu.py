"""The module morvu on the simulator's own fleet, in one interpreter.

    test_morvu.py DOCUMENT
"""

import contextlib
import io
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import unittest
from unittest import mock

import morvu
from morvu import Library, _binding, _messages

NVME, PARTITIONED, FREE = "CVFT4174000E400BGN", "BTWL407301AB480QGN", "BTTV252600CD200GGN"
PATIENCE = 60


class Load(unittest.TestCase):
    def test_what_is_no_library_of_this_version(self):
        for file in ("libNoSuch.so", "libc.so.6", __file__):
            with self.assertRaises(morvu.LoadError):
                Library(file)
        for version in (20200400, 10200300, 200400):
            binding = mock.MagicMock()
            binding.return_value.GetVer.return_value = version
            with mock.patch("ctypes.CDLL", binding), self.assertRaises(morvu.LoadError):
                Library()

    def test_a_closed_library_answers_nothing(self):
        with Library() as library:
            job = library.start("<Message subject='MorvuJob'/>")
            with Library() as other:
                self.assertEqual(3, len(other.drives()))
            self.assertEqual(0, job.wait(PATIENCE).code)
            left = library.start("<Message subject='MorvuJob'/>")
        for call in (library.drives, left.cancel, library.notifications):
            with self.assertRaises(morvu.StatusError) as caught:
                call()
            self.assertEqual(morvu.Status.NOT_INITIALIZED, caught.exception.code)
        # Its number may be that of a new job by then.
        with library, self.assertRaises(morvu.StatusError):
            left.wait(PATIENCE)

    def test_an_interrupt_while_it_closes_leaves_nothing_open(self):
        library = Library().open()
        library._notifications = mock.Mock()
        library._notifications.close.side_effect = KeyboardInterrupt
        self.assertRaises(KeyboardInterrupt, library.close)
        with self.assertRaises(morvu.StatusError):
            library._binding.set_lsi(True)
        wait = mock.Mock(side_effect=[KeyboardInterrupt, None])
        self.assertRaises(KeyboardInterrupt, _binding.wait_through, wait)
        self.assertEqual(2, wait.call_count)

    def test_a_forked_child_ends_whatever_its_parent_was_at(self):
        held, free = threading.Event(), threading.Event()

        def hold():
            with library._binding._changed:
                held.set()
                free.wait(PATIENCE)

        with Library() as library:
            threading.Thread(target=hold).start()
            held.wait(PATIENCE)
            child = os.fork()
            if child == 0:
                signal.alarm(5)
                library.close()
                os._exit(0)
            free.set()
            self.assertEqual(0, os.waitpid(child, 0)[1])

    def test_the_interpreters_end_leaves_no_drive_in_the_middle(self):
        # It ends when the erase has set its password.
        script = (f"from morvu import Library\nlibrary = Library().open()\n"
                  f"for percent in library.drive('{FREE}').start('SecureErase'):\n"
                  f"    if percent >= 10: break")
        ended = subprocess.run([sys.executable, "-c", script], timeout=PATIENCE, check=False,
                               capture_output=True, text=True)
        self.assertEqual((0, ""), (ended.returncode, ended.stderr))
        with Library() as library:
            drive = library.drive(FREE)
            self.assertEqual((False, False), (drive.is_busy, drive["SecurityEnabled"]))

    def test_garbage_is_an_error(self):
        for text in (b"", b"<", b"<Message/>", b"\xff", b"<Message><Object name='Morvu Job'/></Message>"):
            with self.assertRaises(morvu.Error):
                morvu.Reply(text)


class Values(unittest.TestCase):
    def test_have_their_types_and_unknown_is_not_none_of_it(self):
        for kind, text, value in (
                ("uint64", "18446744073709551614", 18446744073709551614), ("sint32", "-1", -1),
                ("boolean", "False", False), ("boolean", "", None), ("uint16", "", None),
                ("uint16", "18446744073709551615", None),
                ("uint16", "1 (Client)", "1 (Client)"), ("string", "", ""), ("uint8", "-1", "-1"),
                ("binary", "AQI=", b"\x01\x02")):
            self.assertEqual(value, _messages.to_value(kind, text), (kind, text))
        told = _messages.Property.read(_messages.ElementTree.fromstring(
            "<Property name='A' type='string' status='4' detail='d'/>"))
        self.assertEqual((None, 4, "d"), (told.value, told.status, told.detail))


class OnDrives(unittest.TestCase):
    def setUp(self):
        self.host = Library().open()
        self.addCleanup(self.host.close)

    def assert_code(self, code, call, *arguments, **keywords):
        with self.assertRaises(morvu.StatusError) as caught:
            call(*arguments, **keywords)
        self.assertEqual(code, caught.exception.code)
        return caught.exception

    def test_the_drive_that_is_named_is_the_one_that_is_taken(self):
        # "1" is the Index of a drive, and nobody's serial number.
        for name in ("", "1", "NONE"):
            self.assert_code(morvu.Status.NO_DEVICE_SELECTED, self.host.drive, name)
        drive = self.host.drive(NVME)
        self.assertEqual((True, 1), (drive.is_morvu, len(drive.partitions)))
        self.assertEqual(100000000000, drive.partitions[0].size)
        self.assert_code(morvu.Status.UNKNOWN_PROPERTY, self.host.drives, properties=["Nothing"])
        self.assertEqual(13, self.host.drive(PARTITIONED, methods=True).methods["SecureErase"])

    def test_a_property_is_written_and_read(self):
        drive = self.host.drive(NVME)
        drive.write("TempThreshold", 65)
        drive.refresh("TempThreshold")
        self.assertEqual({"TempThreshold": 65}, {n: p.value for n, p in drive.properties.items()})
        self.assertTrue(drive.properties["TempThreshold"].is_writable)
        self.assert_code(morvu.Status.INVALID_ARGUMENTS, drive.write, "Firmware", "NEWER")
        self.assert_code(morvu.Status.INVALID_ARGUMENTS, drive.run, "Delete", forced=True)
        error = self.assert_code(morvu.Status.HAS_PARTITION, drive.run, "Delete", force=False)
        self.assertIsNotNone(error.reply)

    def test_a_job_tells_progress_runs_on_after_a_timeout_and_is_canceled(self):
        drive = self.host.drive(FREE)
        job = drive.start("DriveSelfTest", SelfTest="extended")
        self.assertEqual(10, next(iter(job)))  # it holds its drive
        with self.assertRaises(TimeoutError):
            job.wait(0.01)
        listed = self.host.drive(FREE, scan=False)
        self.assertEqual((True, job.id), (listed.is_busy, listed.busy_job))
        self.assertIsNone(job.reply)
        threading.Thread(target=job.cancel).start()
        self.assert_code(morvu.Status.CANCELED, job.wait, PATIENCE)
        self.assertEqual(morvu.Status.CANCELED, job.reply.code)
        # A job that has ended may have its number no longer.
        with mock.patch.object(self.host._binding, "send") as send:
            job.cancel()
        send.assert_not_called()
        percents = list(drive.start("SecureErase").progress(PATIENCE))
        self.assertEqual((sorted(set(percents)), 100), (percents, percents[-1]))

    def test_an_interrupt_loses_no_reply(self):
        functions = self.host._binding._functions
        receive = functions.ReceiveXMLMessage

        def interrupted(*arguments):
            if receive(*arguments) == morvu.Status.COMPLETED:
                raise KeyboardInterrupt
            return morvu.Status.BUFFER_TOO_SMALL if arguments[2]._obj.value else morvu.Status.NO_MESSAGE

        job = self.host.start("<Message subject='MorvuJob'/>")
        with mock.patch.object(functions, "ReceiveXMLMessage", interrupted):
            self.assertRaises(KeyboardInterrupt, job.wait, PATIENCE)
        self.assertEqual(0, job.wait(PATIENCE).code)

    def test_threads_ask_at_once(self):
        found, threads = [], []
        for _ in range(8):
            threads.append(threading.Thread(
                target=lambda: found.append(len(self.host.drives(properties=["Index"])))))
            threads[-1].start()
        for thread in threads:
            thread.join(PATIENCE)
        self.assertEqual([3] * 8, found)

    def test_notifications_come_until_they_are_closed(self):
        told = set()
        with self.host.notifications(interval=0) as notifications:
            with self.assertRaises(morvu.Error):
                self.host.notifications()
            for fact in notifications:
                told.add((fact.serial, fact.name))
                if (FREE, "SmartHealth") in told:
                    break
            # Closed by another thread while this one waits.
            threading.Timer(0.05, notifications.close).start()
            for _ in notifications:
                pass
        self.assertIn((NVME, "FirmwareUpdateAvailable"), told)
        self.host.notifications().close()


class Document(unittest.TestCase):
    path = ""

    def test_shows_what_its_examples_print(self):
        text = pathlib.Path(self.path).read_text(encoding="utf-8")
        blocks = re.findall(r"```python\n(.*?)```\n\n```text\n(.*?)```", text, re.DOTALL)
        self.assertEqual(text.count("```python"), len(blocks))
        self.assertGreater(len(blocks), 4)
        names = {}
        for code, expected in blocks:
            printed = io.StringIO()
            with contextlib.redirect_stdout(printed):
                exec(compile(code, self.path, "exec"), names)  # pylint: disable=exec-used
            self.assertEqual(expected, printed.getvalue(), code)


if __name__ == "__main__":
    Document.path = sys.argv.pop()
    unittest.main()
