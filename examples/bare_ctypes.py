#!/usr/bin/env python3
"""Lists the drives of this machine by the library's C functions alone.

    bare_ctypes.py [LIBRARY]

LIBRARY is the library's file; without it the system's own search finds it. Opening
drives needs the rights to do so. Shows what the module morvu does underneath, for other
languages too; list_drives.py does the same by the module.
"""

import ctypes
import sys
import xml.etree.ElementTree as ElementTree

LIBRARY_FILE = "libMorvu.SSDFeatures.so.1.2.0"

# The status codes that this program meets; the others stand in morvu/status_codes.h.
COMPLETED = 0
BUFFER_TOO_SMALL = 141

COLUMNS = ["Index", "ModelNumber", "SerialNumber", "Firmware", "DevicePath", "DeviceStatus"]


class Library:
    """The library, loaded from a file; a context manager that unloads it."""

    def __init__(self, file):
        self._functions = ctypes.CDLL(file)
        self._functions.Load.restype = ctypes.c_int32
        self._functions.SendXMLMessage.restype = ctypes.c_int32
        self._functions.SendXMLMessage.argtypes = [
            ctypes.c_char_p, ctypes.c_uint32, ctypes.POINTER(ctypes.c_uint64), ctypes.c_bool]
        self._functions.ReceiveXMLMessage.restype = ctypes.c_int32
        self._functions.ReceiveXMLMessage.argtypes = [
            ctypes.c_uint64, ctypes.c_char_p, ctypes.POINTER(ctypes.c_uint32)]

    def __enter__(self):
        status = self._functions.Load()
        if status != COMPLETED:
            raise OSError(f"the library does not load: status {status}")
        return self

    def __exit__(self, *_):
        self._functions.Unload()

    def call(self, request):
        """Runs a request to its end; the reply is an element tree."""
        text = ElementTree.tostring(request)
        job = ctypes.c_uint64()
        status = self._functions.SendXMLMessage(text, len(text), ctypes.byref(job), True)
        if status != COMPLETED:
            raise ValueError(f"the request was not taken: status {status}")
        reply = ElementTree.fromstring(self._receive(job))
        code = int(reply.findtext("./Object[@name='Morvu Job']/Property[@name='ErrorCode']"))
        if code != COMPLETED:
            raise RuntimeError(f"the request ended in code {code}")
        return reply

    def _receive(self, job):
        size = ctypes.c_uint32(0)
        buffer = None
        while True:
            status = self._functions.ReceiveXMLMessage(job, buffer, ctypes.byref(size))
            if status == COMPLETED:
                return buffer.value
            if status != BUFFER_TOO_SMALL:
                raise RuntimeError(f"no message waits: status {status}")
            buffer = ctypes.create_string_buffer(size.value)


def list_drives(library):
    """A row for each drive, of whatever make, after a fresh scan."""
    request = ElementTree.Element("Message", cimClass="Device", scan="True")
    chosen = ElementTree.SubElement(request, "Object", name="cimProperties")
    for name in COLUMNS:
        ElementTree.SubElement(chosen, "Property", name=name)
    rows = []
    for drive in library.call(request).findall("./List/Object"):
        values = {p.get("name"): p.text or "" for p in drive.findall("./Property")}
        rows.append([values.get(name, "") for name in COLUMNS])
    return rows


def print_table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(COLUMNS))]
    for row in rows:
        print("  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip())


def main():
    file = sys.argv[1] if len(sys.argv) > 1 else LIBRARY_FILE
    try:
        with Library(file) as library:
            rows = list_drives(library)
    except (OSError, RuntimeError, ValueError) as error:
        sys.exit(f"bare_ctypes.py: {error}")
    print_table([COLUMNS] + rows)


if __name__ == "__main__":
    main()
