"""Requests and replies: the XML of docs/messages.md as values."""

from __future__ import annotations

import base64
import dataclasses
import xml.etree.ElementTree as ElementTree
from typing import Dict, Iterable, List, Mapping, Optional, Union

from ._errors import Error, JobError, StatusError
from ._status import Status

Value = Union[str, int, bool, bytes]
Element = ElementTree.Element

JOB_COMPLETED = 7  # CIM_ConcreteJob.JobState


def to_text(value: Union[str, int, bool]) -> str:
    """A parameter as the library reads it; True and False are its words for a boolean."""
    return str(value)


UNKNOWN_NUMBER = "18446744073709551615"


def to_value(kind: str, text: str) -> Optional[Value]:
    """A text by its "type"; None for a number that is not told. A number with words behind it, as
    "0 (Default Enterprise Settings)", stays a text."""
    if kind == "boolean":
        return text == "True" if text else None
    if kind == "binary":
        return base64.b64decode(text)
    if kind.startswith(("uint", "sint")):
        if text in ("", UNKNOWN_NUMBER):
            return None
        digits = text[1:] if kind.startswith("sint") and text[0] == "-" else text
        return int(text) if digits.isascii() and digits.isdigit() else text
    return text


def attribute_code(element: Element, name: str) -> Optional[int]:
    text = element.get(name, "")
    try:
        return int(text) if text else None
    except ValueError:
        return None


@dataclasses.dataclass(frozen=True)
class Property:
    """A property of a drive."""

    name: str
    display_name: str
    value: Optional[Value]  # None: the drive does not tell it, and `status` says why
    is_writable: bool
    status: Optional[int] = None
    detail: str = ""  # what the drive itself said

    @staticmethod
    def read(element: Element) -> Property:
        status = attribute_code(element, "status")
        text = element.text or ""
        value = to_value(element.get("type", "string"), text) if status is None or text else None
        return Property(element.get("name", ""), element.get("displayName", ""), value,
                        element.get("direction") == "io", status, element.get("detail", ""))


@dataclasses.dataclass(frozen=True)
class Partition:
    """A partition of a drive. Sizes are in bytes, None where they are not known."""

    id: int
    path: str
    type: str
    size: Optional[int]
    free: Optional[int]
    used: Optional[int]

    @staticmethod
    def read(element: Element) -> Partition:
        texts = properties(element)

        def number(name: str) -> Optional[int]:
            text = texts.get(name, "")
            return int(text) if text.isascii() and text.isdigit() else None

        return Partition(number("Id") or 0, texts.get("Path", ""), texts.get("Type", ""),
                         number("LogicalSize"), number("FreeSpace"), number("UsedSpace"))


@dataclasses.dataclass(frozen=True)
class Table:
    """A table of a reply: columns by name, in order, and a row for each line."""

    name: str
    columns: List[str]
    rows: List[Dict[str, str]]

    @staticmethod
    def read(element: Element) -> Table:
        columns: Dict[str, int] = {}
        rows = []
        for line in element.findall("Object"):
            cells = [cell for cell in line.findall("Property") if cell.get("column")]
            for cell in cells:
                columns.setdefault(cell.get("name", ""), attribute_code(cell, "column") or 0)
            rows.append({cell.get("name", ""): cell.text or "" for cell in cells})
        return Table(element.get("name", ""), sorted(columns, key=lambda name: columns[name]), rows)


def properties(element: Element) -> Dict[str, str]:
    return {p.get("name", ""): p.text or "" for p in element.findall("Property")}


class Message:
    """A message of a job. `root` is its element tree, for what has no member here."""

    def __init__(self, text: bytes) -> None:
        try:
            self.root = ElementTree.fromstring(text)
            job = next(o for o in self.root.findall("Object") if o.get("name") == "Morvu Job")
            told = properties(job)
            self.percent = int(told["PercentComplete"])
            self.is_last = int(told["JobState"]) == JOB_COMPLETED
            self.code = int(told["ErrorCode"])
            self.nvme_status = told.get("NVMeStatus", "")
        except (ElementTree.ParseError, StopIteration, KeyError, ValueError) as error:
            raise Error(f"a message that cannot be read: {error!r}") from error


class Reply(Message):
    """The last message of a job, with its result."""

    def raise_for_code(self) -> None:
        if self.code != Status.COMPLETED or self.nvme_status:
            raise JobError(self)

    @property
    def reason(self) -> str:
        """What of the request was not understood."""
        return self.root.get("reason", "")

    @property
    def warnings(self) -> List[str]:
        """What a host shows to its user beside the result."""
        return [p.text or "" for p in self.root.findall("Property") if p.get("name") == "Warning"]

    @property
    def needs_power_cycle(self) -> bool:
        """What was written comes into force after the drive's power was off."""
        return self.root.get("powercycle") == "True"

    @property
    def values(self) -> Dict[str, Optional[Value]]:
        """The reply's own properties: "DriveVerdict", "SelfTestStatus", "data" of a log, ..."""
        return {p.get("name", ""): to_value(p.get("type", "string"), p.text or "")
                for p in self.root.findall("Property")}

    @property
    def tables(self) -> Dict[str, Table]:
        tables = (Table.read(e) for e in self.root.findall("List") if e.get("type") == "table")
        return {table.name: table for table in tables}

    def objects(self, name: str) -> List[Element]:
        """The Objects of the List of this name."""
        return [o for e in self.root.findall("List") if e.get("name") == name
                for o in e.findall("Object")]


def drive_element(serial: str) -> Element:
    drive = ElementTree.Element("Object", cimClass="Device")
    ElementTree.SubElement(drive, "Property", name="SerialNumber", key="True").text = serial
    return drive


def partition_element(partition: Partition) -> Element:
    element = ElementTree.Element("Object", name="Partition")
    ElementTree.SubElement(element, "Property", name="Id").text = str(partition.id)
    return element


def choice_element(names: Iterable[str]) -> Element:
    chosen = ElementTree.Element("Object", name="cimProperties")
    for name in names:
        ElementTree.SubElement(chosen, "Property", name=name)
    return chosen


def method_element(name: str, parameters: Mapping[str, Union[str, int, bool]]) -> Element:
    method = ElementTree.Element("Object", type="method", name=name)
    for parameter, value in parameters.items():
        ElementTree.SubElement(method, "Property", name=parameter).text = to_text(value)
    return method


def make_request(attributes: Mapping[str, str], *parts: Optional[Element]) -> bytes:
    message = ElementTree.Element("Message", dict(attributes))
    message.extend(part for part in parts if part is not None)
    return ElementTree.tostring(message)


def unknown_property(name: str) -> StatusError:
    return StatusError(Status.UNKNOWN_PROPERTY, f"no property is called {name!r}")
