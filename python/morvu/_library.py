"""The library, its drives, its jobs and what it notifies of."""

from __future__ import annotations

import atexit
import dataclasses
import threading
import time
import xml.etree.ElementTree as ElementTree
from types import TracebackType
from typing import Dict, Iterable, Iterator, List, Optional, Type, Union

from . import _messages as messages
from ._binding import LIBRARY_FILE, Binding, Inbox, open_binding, wait_through
from ._errors import Error, JobTimeout, StatusError
from ._messages import Message, Partition, Property, Reply, Value
from ._status import Status

# Between two looks for a message: the first comes soon, later ones cost little.
FIRST_PAUSE = 0.002
LONGEST_PAUSE = 0.1

DAY = 24 * 60 * 60.0

Parameter = Union[str, int, bool]


class Job:
    """An operation that runs. Iterating gives its percentages until it has ended, and raises JobError
    when it did not end in 0. A job that nobody waits for runs on. One thread follows it; any may
    cancel it."""

    def __init__(self, binding: Binding, request: bytes) -> None:
        self._binding = binding
        self._reply: Optional[Reply] = None
        # Its number may be another job's as soon as the reply was received, or the library unloaded.
        self._lock = threading.RLock()  # a handler of a signal may cancel
        self._load = binding.loads
        self._inbox = Inbox()
        self.id = binding.send(request, load=self._load)

    @property
    def reply(self) -> Optional[Reply]:
        """The reply, when it was seen to end; also one of a job that failed."""
        return self._reply

    def cancel(self) -> None:
        """Asks the operation to stop: it does at its next safe point and ends in code 2, or runs to
        its end if it has none. Does nothing when it was seen to end."""
        request = messages.make_request(
            {"subject": "MorvuJob", "type": "cancel", "identifier": str(self.id)})
        with self._lock:
            if self._reply is None:
                self._binding.send(request, True, self._load)

    def __iter__(self) -> Iterator[int]:
        return self.progress()

    def progress(self, timeout: Optional[float] = None) -> Iterator[int]:
        """The percentages as they change. JobTimeout when the end has not come after so many
        seconds."""
        end = None if timeout is None else time.monotonic() + timeout
        shown = -1
        while self._reply is None:
            message = self._next(end)
            if message.percent != shown and not message.is_last:
                shown = message.percent
                yield shown
        self._reply.raise_for_code()
        if shown != 100:
            yield 100

    def wait(self, timeout: Optional[float] = None) -> Reply:
        """Waits for the end, at most so many seconds."""
        for _ in self.progress(timeout):
            pass
        assert self._reply is not None
        return self._reply

    def _next(self, end: Optional[float]) -> Message:
        pause = FIRST_PAUSE
        while True:
            message = self._receive()
            if message is not None:
                return message
            if end is not None and time.monotonic() >= end:
                raise JobTimeout(f"job {self.id} has not ended")
            time.sleep(pause if end is None else max(0.0, min(pause, end - time.monotonic())))
            pause = min(2 * pause, LONGEST_PAUSE)

    def _receive(self) -> Optional[Message]:
        with self._lock:
            if self._reply is not None:  # another thread took it
                return self._reply
            text = self._binding.receive(self.id, self._inbox, self._load)
            if text is None:
                return None
            message = Reply(text)
            if message.is_last:
                self._reply = message
            self._inbox.take()
            return message


def one_drive(reply: Reply, serial: str) -> ElementTree.Element:
    """A key is an Index too: what a list shows must be the drive that was named."""
    listed = reply.objects("Device")
    if len(listed) != 1 or not serial or listed[0].get("uniqueId") != serial:
        raise StatusError(Status.NO_DEVICE_SELECTED, f"not one drive is called {serial!r}")
    return listed[0]


class Drive:
    """A drive as the library's last look at it showed it; `refresh` looks again."""

    def __init__(self, library: Library, element: ElementTree.Element) -> None:
        self._library = library
        self._read(element)

    def _read(self, element: ElementTree.Element) -> None:
        self.serial: str = element.get("uniqueId", "")
        self.is_morvu = element.get("cimClass") == "MorvuSSD"
        # A job or another program works on it: its properties are those of the scan before.
        self.is_busy = element.get("busy") == "True"
        self.busy_job: Optional[int] = messages.attribute_code(element, "busyJob")
        self.properties: Dict[str, Property] = {}
        for part in element.findall("Property"):
            if part.get("type") is None and part.text == "Property does not exist.":
                raise messages.unknown_property(part.get("name", ""))
            read = Property.read(part)
            self.properties[read.name] = read
        lists = {part.get("name", ""): part for part in element.findall("List")}
        self.partitions: List[Partition] = [
            Partition.read(part) for part in lists.get("Partition", ElementTree.Element("List"))]
        # The status of each method that the drive offers, where the library was asked: 1 means that it
        # can run now, any other is the code that it would end in, None that it is not known before.
        self.methods: Dict[str, Optional[int]] = {}
        for part in element.findall("Object"):
            if part.get("type") == "method":
                status = part.findtext("List[@type='status']/Object/Property")
                self.methods[part.get("name", "")] = int(status) if status else None

    def __repr__(self) -> str:
        return f"<morvu.Drive {self.serial!r}>"

    def __contains__(self, name: str) -> bool:
        return name in self.properties

    def __getitem__(self, name: str) -> Optional[Value]:
        """A property's value; None when the drive does not tell it. KeyError when it has none such."""
        return self.properties[name].value

    def refresh(self, *names: str) -> None:
        """Asks the drive for all properties, or for these alone."""
        choice = messages.choice_element(names) if names else None
        reply = self._library.call(messages.make_request(
            {"cimClass": "Device"}, self._element(), choice))
        self._read(one_drive(reply, self.serial))

    def write(self, name: str, value: Parameter, timeout: Optional[float] = None) -> Reply:
        """Sets a property. The reply's `needs_power_cycle` tells when it comes into force."""
        element = ElementTree.Element("Property", name=name, direction="io")
        element.text = messages.to_text(value)
        return self._library.call(messages.make_request(
            {"cimClass": "Device"}, self._element(), element), timeout)

    def start(self, method: str, partition: Optional[Partition] = None,
              **parameters: Parameter) -> Job:
        """Starts a method: drive.start("SecureErase", EnhancedErase=True)."""
        return self._library.start(messages.make_request(
            {"cimClass": "Device"}, self._element(),
            None if partition is None else messages.partition_element(partition),
            messages.method_element(method, parameters)))

    def run(self, method: str, partition: Optional[Partition] = None,
            timeout: Optional[float] = None, **parameters: Parameter) -> Reply:
        """Runs a method to its end."""
        return self.start(method, partition, **parameters).wait(timeout)

    def _element(self) -> ElementTree.Element:
        # The place in the list is no name: it shifts from scan to scan.
        if not self.serial:
            raise Error("a drive without a serial number cannot be named")
        return messages.drive_element(self.serial)


@dataclasses.dataclass(frozen=True)
class Notification:
    """A fact about a drive."""

    STATE = 0  # the values of `type`
    HEALTH = 1
    TEMPERATURE = 2

    type: int
    status: int  # 1: somebody should act; 3: for the record; 0: a value
    serial: str
    name: str
    display_name: str
    value: Optional[Value]

    @staticmethod
    def read(message: Message) -> Optional[Notification]:
        root = message.root
        fact = root.find("Property")
        if fact is None or root.get("ObjectPath") is None:
            return None
        return Notification(
            messages.attribute_code(root, "NotificationType") or 0,
            messages.attribute_code(root, "NotificationStatus") or 0,
            root.get("ObjectPath", "").partition(".")[2],
            fact.get("name", ""), fact.get("displayName", ""),
            messages.to_value(fact.get("type", "string"), fact.get("value", "")))


class Notifications:
    """An iterator over facts about drives. Looks for drives and asks them at once and then at each
    interval; never ends of itself: `close`, which any thread may call, ends it. There is one in a
    process at a time."""

    def __init__(self, binding: Binding, interval: float) -> None:
        if not binding.notifying.acquire(blocking=False):
            raise Error("a notification service runs already")
        self._binding = binding
        self._interval = interval
        self._inbox = Inbox()
        self._closed = threading.Event()
        self._close_lock = threading.Lock()
        self._pass_lock = threading.Lock()  # no pass begins once it is closed
        self._pass: Optional[threading.Thread] = None
        self._next_pass = time.monotonic()
        try:
            self._job = binding.send(messages.make_request(
                {"subject": "Notification"}, _switch("Enabled", True)))
        except BaseException:
            binding.notifying.release()
            raise

    def __iter__(self) -> Iterator[Notification]:
        return self

    def __next__(self) -> Notification:
        pause = FIRST_PAUSE
        while not self._closed.is_set():
            try:
                text = self._binding.receive(self._job, self._inbox)
            except StatusError:
                if self._closed.is_set():
                    break
                raise
            if text is not None:
                self._inbox.take()
                notification = Notification.read(Message(text))
                if notification is not None:
                    return notification
                continue
            self._begin_pass()
            self._closed.wait(pause)
            pause = min(2 * pause, LONGEST_PAUSE)
        raise StopIteration

    def _begin_pass(self) -> None:
        """A pass is not begun while one is still at work, however long a drive takes."""
        now = time.monotonic()
        if now < self._next_pass or (self._pass is not None and self._pass.is_alive()):
            return
        self._next_pass = now + self._interval
        request = messages.make_request(
            {"subject": "Notification", "scan": "True"}, _switch("scan", True))
        # Synchronous, on a thread that waits for it: a pass has no reply that tells its end.
        begun = threading.Thread(target=self._run_pass, args=(request,), daemon=True)
        with self._pass_lock:
            if not self._closed.is_set():
                begun.start()
                self._pass = begun

    def _run_pass(self, request: bytes) -> None:
        try:
            self._binding.send(request, True)
        except StatusError:
            pass  # the library was unloaded meanwhile, which ends the iteration too

    def close(self) -> None:
        """Ends the service; what it has not told yet is lost."""
        with self._close_lock:  # a second closer returns when it is closed
            if not self._closed.is_set():
                self._closed.set()
                self._end_service()

    def _end_service(self) -> None:
        try:
            # Before the stop: a pass without a service would become one itself.
            with self._pass_lock:
                running = self._pass
            try:
                if running is not None:
                    wait_through(running.join)
            finally:
                self._binding.send(messages.make_request(
                    {"subject": "Notification"}, _switch("Enabled", False)), True)
                while self._binding.receive(self._job, self._inbox) is not None:
                    self._inbox.take()
        except StatusError as error:
            if error.code != Status.NOT_INITIALIZED:
                raise
        finally:
            self._binding.notifying.release()

    def __enter__(self) -> Notifications:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()


def _switch(name: str, value: bool) -> ElementTree.Element:
    element = ElementTree.Element("Property", name=name)
    element.text = messages.to_text(value)
    return element


class Library:
    """The library, loaded while the context lasts. Its end, and the interpreter's, ask the jobs that run to
    stop, and wait for them. May be used by several threads, and opened several times.

    `file` is the library's file, or a name that the system's search finds. `lsi` looks for drives behind
    LSI RAID controllers too. `log` is a file to write a log to, of `log_level` 1 (errors) to 5."""

    def __init__(self, file: str = LIBRARY_FILE, *, lsi: bool = False, log: Optional[str] = None,
                 log_level: int = 3) -> None:
        self._binding = open_binding(file)
        self._lsi = lsi
        self._log = (log, log_level)
        self._open_lock = threading.Lock()
        self._is_open = False
        self._notifications: Optional[Notifications] = None  # the last one

    def open(self) -> Library:
        """What entering the context does."""
        with self._open_lock:
            if self._is_open:
                raise Error("the library is open already")
            self._binding.load()
            self._is_open = True
        atexit.register(self.close)  # a process that ends leaves no drive in the middle of its work
        try:
            if self._lsi:
                self._binding.set_lsi(True)
            if self._log[0] is not None:
                self._binding.enable_log(self._log[0], self._log[1])
        except BaseException:
            self.close()
            raise
        return self

    def close(self) -> None:
        with self._open_lock:
            if not self._is_open:
                return
            self._is_open = False
        try:
            if self._notifications is not None:
                self._notifications.close()
        finally:
            self._binding.unload()
            atexit.unregister(self.close)

    def __enter__(self) -> Library:
        return self.open()

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def _require_open(self) -> None:
        if not self._is_open:
            raise StatusError(Status.NOT_INITIALIZED)

    def start(self, request: Union[str, bytes]) -> Job:
        """Starts any request of docs/messages.md that has a reply."""
        self._require_open()
        return Job(self._binding, request.encode() if isinstance(request, str) else request)

    def call(self, request: Union[str, bytes], timeout: Optional[float] = None) -> Reply:
        """Runs it to its end."""
        return self.start(request).wait(timeout)

    def drives(self, *, scan: bool = True, all_makes: bool = True,
               properties: Optional[Iterable[str]] = None, methods: bool = False) -> List[Drive]:
        """Morvu's drives, and with `all_makes` those of whatever make that no command reaches: after a look
        for new ones or as the last one found them, with all properties or with these, which asks drives
        for less. Other makes' drives that answer are not listed."""
        subject = "Device" if all_makes else "MorvuSSD"
        attributes = {"cimClass": subject, "scan": str(scan), "includeMethods": str(methods)}
        choice = None if properties is None else messages.choice_element(properties)
        reply = self.call(messages.make_request(attributes, choice))
        return [Drive(self, element) for element in reply.objects(subject)]

    def drive(self, serial: str, *, scan: bool = True, methods: bool = False) -> Drive:
        """The drive of this serial number. StatusError 245 when there is none, or more than one."""
        reply = self.call(messages.make_request(
            {"cimClass": "Device", "scan": str(scan), "includeMethods": str(methods)},
            messages.drive_element(serial)))
        return Drive(self, one_drive(reply, serial))

    def notifications(self, interval: float = DAY) -> Notifications:
        """What is to be told of the drives, asked now and after each so many seconds."""
        self._require_open()
        notifications = Notifications(self._binding, interval)
        self._notifications = notifications
        return notifications
