#!/usr/bin/env python3
"""Lists the drives of this machine through the Morvu SSD library.

    list_drives.py [LIBRARY]

LIBRARY is the library's file; without it the system's own search finds it. Opening
drives needs the rights to do so.
"""

import sys

import morvu
from morvu import LIBRARY_FILE, Library

COLUMNS = ["Index", "ModelNumber", "SerialNumber", "Firmware", "DevicePath", "DeviceStatus"]


def cell(drive, name):
    if name not in drive:
        return ""
    value = drive[name]
    return "unknown" if value is None else str(value)


def main():
    file = sys.argv[1] if len(sys.argv) > 1 else LIBRARY_FILE
    try:
        with Library(file) as library:
            drives = library.drives(properties=COLUMNS)
    except morvu.Error as error:
        sys.exit(f"list_drives.py: {error}")
    rows = [COLUMNS] + [[cell(drive, name) for name in COLUMNS] for drive in drives]
    widths = [max(map(len, column)) for column in zip(*rows)]
    for row in rows:
        print("  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip())


if __name__ == "__main__":
    main()
