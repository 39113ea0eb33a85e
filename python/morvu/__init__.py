"""The Morvu SSD library for Python.

    from morvu import Library

    with Library() as library:
        for drive in library.drives():
            print(drive.serial, drive["Firmware"], drive["DeviceStatus"])

docs/python.md tells all of it; docs/messages.md tells what drives, methods and tables there are.
"""

from ._binding import LIBRARY_FILE
from ._errors import Error, JobError, JobTimeout, LoadError, StatusError, status_text
from ._library import Drive, Job, Library, Notification, Notifications
from ._messages import Partition, Property, Reply, Table, Value
from ._status import Status

__all__ = [
    "LIBRARY_FILE", "Drive", "Error", "Job", "JobError", "JobTimeout", "Library", "LoadError",
    "Notification", "Notifications", "Partition", "Property", "Reply", "Status", "StatusError",
    "Table", "Value", "status_text",
]
