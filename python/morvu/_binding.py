"""The library's functions by ctypes.

No callback is registered: one that a thread of the library calls while the interpreter ends would
end that thread, and with it an operation in the middle of its commands. Messages are polled for.
"""

from __future__ import annotations

import contextlib
import ctypes
import os
import threading
from typing import Any, Callable, Dict, Iterator, List, Optional, Union

from ._errors import LoadError, StatusError
from ._status import Status

LIBRARY_FILE = "libMorvu.SSDFeatures.so.1.2.0"

# GetVer of the version that this module was written for, and what one major version spans.
VERSION = 10200400
MAJOR = 10000000


def wait_through(wait: Callable[[], object]) -> None:
    """Waits to the end, and raises what a signal raised meanwhile afterwards: in the middle it would
    leave work undone that keeps a drive whole."""
    interrupt: Union[KeyboardInterrupt, SystemExit, None] = None
    while True:
        try:
            wait()
            break
        except (KeyboardInterrupt, SystemExit) as caught:
            interrupt = caught
    if interrupt is not None:
        raise interrupt


class Inbox:
    """Where a job's messages arrive. One stays until it is taken: an interrupt between the library's
    function and the reader would lose the job's end."""

    def __init__(self) -> None:
        self.buffer: Any = None

    def take(self) -> None:
        self.buffer = None


class Binding:
    """A library that is loaded in this process. Load and Unload overlap no other call."""

    def __init__(self, functions: ctypes.CDLL) -> None:
        self._functions = functions
        self._changed = threading.Condition()
        self._users = 0  # guarded by _changed, as the two below
        self._callers: List[int] = []  # the threads in a call
        self._pid = 0
        self.loads = 0  # how often; a job ends with the load that it began in
        # Another thread may hold it at the fork, and has no life in the child to let it go.
        os.register_at_fork(after_in_child=self._renew_lock)
        self.notifying = threading.Lock()  # held by the one notification service of a process
        pointer = ctypes.POINTER
        functions.Load.restype = ctypes.c_int32
        functions.Unload.restype = None
        functions.EnableLSIAdapter.restype = functions.DisableLSIAdapter.restype = None
        functions.EnableLogger.restype = ctypes.c_int32
        functions.EnableLogger.argtypes = [
            ctypes.c_char_p, ctypes.c_uint32, ctypes.c_uint32, ctypes.c_bool]
        functions.SendXMLMessage.restype = ctypes.c_int32
        functions.SendXMLMessage.argtypes = [
            ctypes.c_char_p, ctypes.c_uint32, pointer(ctypes.c_uint64), ctypes.c_bool]
        functions.ReceiveXMLMessage.restype = ctypes.c_int32
        functions.ReceiveXMLMessage.argtypes = [
            ctypes.c_uint64, ctypes.c_char_p, pointer(ctypes.c_uint32)]

    def _renew_lock(self) -> None:
        self._changed = threading.Condition()

    def load(self) -> None:
        """Once for each user."""
        with self._changed:
            if self._users == 0:
                check(self._functions.Load())
                self._pid = os.getpid()
                self.loads += 1
            self._users += 1

    def unload(self) -> None:
        """The last user's asks the jobs that run to end, and waits for them."""
        with self._changed:
            self._users -= 1
            # A forked child has the parent's jobs without their threads.
            if self._users > 0 or self._pid != os.getpid():
                return
            try:
                # This thread is in none, even if an interrupt kept it from saying so.
                own = {threading.get_ident()}
                wait_through(lambda: self._changed.wait_for(lambda: own.issuperset(self._callers)))
            finally:
                self._functions.Unload()

    @contextlib.contextmanager
    def _call(self, load: Optional[int] = None) -> Iterator[ctypes.CDLL]:
        with self._changed:
            is_over = load is not None and load != self.loads
            if self._users == 0 or self._pid != os.getpid() or is_over:
                raise StatusError(Status.NOT_INITIALIZED)
            self._callers.append(threading.get_ident())
        try:
            yield self._functions
        finally:
            with self._changed:
                self._callers.remove(threading.get_ident())
                self._changed.notify_all()

    def send(self, request: bytes, synchronous: bool = False, load: Optional[int] = None) -> int:
        """Starts a job, in that load and no later one; its identifier."""
        job = ctypes.c_uint64()
        with self._call(load) as functions:
            check(functions.SendXMLMessage(request, len(request), ctypes.byref(job), synchronous))
        return job.value

    def receive(self, job: int, inbox: Inbox, load: Optional[int] = None) -> Optional[bytes]:
        """The next message of a job of that load, which stays in the inbox; None when none waits."""
        while inbox.buffer is None or not inbox.buffer.value:
            size = ctypes.c_uint32(0 if inbox.buffer is None else len(inbox.buffer))
            with self._call(load) as functions:
                status = functions.ReceiveXMLMessage(job, inbox.buffer, ctypes.byref(size))
            if status == Status.NO_MESSAGE:
                return None
            if status != Status.BUFFER_TOO_SMALL:
                check(status)
            else:
                # A newer message may take the place of this one: it is asked again until it fits.
                inbox.buffer = ctypes.create_string_buffer(size.value)
        text: bytes = inbox.buffer.value
        return text

    def set_lsi(self, scan: bool) -> None:
        with self._call() as functions:
            (functions.EnableLSIAdapter if scan else functions.DisableLSIAdapter)()

    def enable_log(self, path: str, level: int) -> None:
        name = os.fsencode(path)
        with self._call() as functions:
            check(functions.EnableLogger(name, len(name), level, False))


def check(status: int) -> None:
    if status != Status.COMPLETED:
        raise StatusError(status)


_bindings: Dict[int, Binding] = {}  # by the handle that the system's loader gives a file
_bindings_lock = threading.Lock()


def open_binding(file: str) -> Binding:
    try:
        functions = ctypes.CDLL(file)
        functions.GetVer.restype = ctypes.c_uint64
        version = functions.GetVer()
    except (OSError, AttributeError) as error:
        raise LoadError(f"{file} is no library that can be loaded: {error}") from error
    if version // MAJOR != VERSION // MAJOR or version < VERSION:
        raise LoadError(f"{file} has the version {version}; {VERSION} or a later one of its kind "
                        "is needed")
    with _bindings_lock:
        binding = _bindings.get(functions._handle)
        if binding is None:
            try:
                binding = Binding(functions)
            except AttributeError as error:
                raise LoadError(f"{file} lacks a function: {error}") from error
            _bindings[functions._handle] = binding
        return binding
