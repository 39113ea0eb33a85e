#!/usr/bin/env python3
"""Erases a drive through the Morvu SSD library, with its progress.

    erase_drive.py LIBRARY SERIAL [--enhanced] [--force] [--cancel-at PERCENT]

The drive of this serial number loses all data. A drive with a partition is refused
unless --force is given. Ctrl-C, or reaching PERCENT, asks the library to stop: it does
where the drive allows that, and leaves no password behind.
"""

import argparse
import sys

import morvu
from morvu import Library


def erase(drive, enhanced, force, cancel_at):
    """Erases it, however often it is interrupted; the code that it ended in."""
    job = drive.start("SecureErase", EnhancedErase=enhanced, force=force)
    code = follow(job, cancel_at)
    # What the code does not tell: data that may still be there, a password that may be left.
    for warning in job.reply.warnings:
        print(f"WARNING! {warning}")
    return code


def follow(job, cancel_at):
    while True:
        try:
            for percent in job:
                print(f"{percent} %", flush=True)
                if cancel_at is not None and percent >= cancel_at:
                    cancel_at = None
                    print("canceling", flush=True)
                    job.cancel()
            return morvu.Status.COMPLETED
        except KeyboardInterrupt:
            print("canceling", flush=True)
            job.cancel()
        except morvu.JobError as error:
            print(error.text)
            return error.code


def main():
    parser = argparse.ArgumentParser(description="Erases a drive.")
    parser.add_argument("shared_object", metavar="library")
    parser.add_argument("serial")
    parser.add_argument("--enhanced", action="store_true")
    parser.add_argument("--force", action="store_true")
    parser.add_argument("--cancel-at", type=int)
    options = parser.parse_args()
    try:
        with Library(options.shared_object) as library:
            drive = library.drive(options.serial)
            code = erase(drive, options.enhanced, options.force, options.cancel_at)
    except morvu.Error as error:
        sys.exit(f"erase_drive.py: {error}")
    print(f"The erase ended with code {int(code)}.")
    sys.exit(0 if code == morvu.Status.COMPLETED else 1)


if __name__ == "__main__":
    main()
