"""What can go wrong, as exceptions."""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional

from ._status import TEXTS

if TYPE_CHECKING:
    from ._messages import Reply


def status_text(code: int) -> str:
    """The text of a status code; the meaning of one that has none."""
    if code in TEXTS:
        return TEXTS[code]
    return f"OS Error: {code}" if code < 0 else f"Unknown error: {code}"


class Error(Exception):
    """Anything that this module raises of its own."""


class LoadError(Error):
    """The library is not there, is none, or has a version that this module does not know."""


class StatusError(Error):
    """The library said no: `code` is one of Status or another number, `text` says it in words."""

    def __init__(self, code: int, text: Optional[str] = None) -> None:
        self.code = code
        self.text = status_text(code) if text is None else text
        super().__init__(f"{self.text} ({code})")


class JobError(StatusError):
    """An operation that did not end in 0. `reply` may hold more: warnings, results of other drives.

    With `nvme_status` the code is the number of that NVMe status."""

    def __init__(self, reply: Reply) -> None:
        self.reply = reply
        self.nvme_status = reply.nvme_status
        text = self.nvme_status or status_text(reply.code)
        super().__init__(reply.code, f"{text}: {reply.reason}" if reply.reason else text)


class JobTimeout(Error, TimeoutError):
    """The end of a job did not come in time. The job runs on: wait again, or cancel it."""
