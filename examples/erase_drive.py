#!/usr/bin/env python3
"""Erases a drive through the Morvu SSD library, with its progress.

    erase_drive.py LIBRARY SERIAL [--enhanced] [--force] [--cancel-at PERCENT]

The drive of this serial number loses all data. A drive with a partition is refused
unless --force is given. Ctrl-C, or reaching PERCENT, asks the library to stop: it does
where the drive allows that, and leaves no password behind.
"""

import argparse
import ctypes
import sys
import time
import xml.etree.ElementTree as ElementTree

from list_drives import COMPLETED, Library

NO_MESSAGE = 243


class EraseHost(Library):
    """Runs a request as a job beside this program."""

    def start(self, request):
        text = ElementTree.tostring(request)
        job = ctypes.c_uint64()
        status = self._functions.SendXMLMessage(text, len(text), ctypes.byref(job), False)
        if status != COMPLETED:
            raise ValueError(f"the request was not taken: status {status}")
        return job

    def receive(self, job):
        """The next message of the job; None when none waits."""
        size = ctypes.c_uint32(0)
        status = self._functions.ReceiveXMLMessage(job, None, ctypes.byref(size))
        if status == NO_MESSAGE:
            return None
        return ElementTree.fromstring(self._receive(job))

    def cancel(self, job):
        self.start(ElementTree.Element(
            "Message", subject="MorvuJob", type="cancel", identifier=str(job.value)))


def make_request(serial, enhanced, force):
    request = ElementTree.Element("Message", cimClass="MorvuSSD", scan="True")
    drive = ElementTree.SubElement(request, "Object", cimClass="MorvuSSD")
    ElementTree.SubElement(drive, "Property", name="SerialNumber", key="True").text = serial
    method = ElementTree.SubElement(request, "Object", type="method", name="SecureErase")
    for name, value in (("EnhancedErase", enhanced), ("force", force)):
        ElementTree.SubElement(method, "Property", name=name).text = str(value)
    return request


def job_property(message, name):
    return int(message.findtext(f"./Object[@name='Morvu Job']/Property[@name='{name}']"))


def erase(host, request, cancel_at):
    """Follows the job to its reply; the code that it ended in."""
    job = host.start(request)
    percent = None
    while True:
        try:
            message = host.receive(job)
            if message is None:
                time.sleep(0.05)
                continue
            if job_property(message, "PercentComplete") != percent:
                percent = job_property(message, "PercentComplete")
                print(f"{percent} %", flush=True)
            if message.get("subject") is not None:
                return job_property(message, "ErrorCode")
            if cancel_at is not None and percent >= cancel_at:
                cancel_at = None
                print("canceling", flush=True)
                host.cancel(job)
        except KeyboardInterrupt:
            print("canceling", flush=True)
            host.cancel(job)


def main():
    parser = argparse.ArgumentParser(description="Erases a drive.")
    parser.add_argument("shared_object", metavar="library")
    parser.add_argument("serial")
    parser.add_argument("--enhanced", action="store_true")
    parser.add_argument("--force", action="store_true")
    parser.add_argument("--cancel-at", type=int)
    options = parser.parse_args()
    try:
        with EraseHost(options.shared_object) as host:
            request = make_request(options.serial, options.enhanced, options.force)
            code = erase(host, request, options.cancel_at)
    except (OSError, RuntimeError, ValueError) as error:
        sys.exit(f"erase_drive.py: {error}")
    print(f"The erase ended with code {code}.")
    sys.exit(0 if code == COMPLETED else 1)


if __name__ == "__main__":
    main()
