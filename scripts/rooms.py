#!/usr/bin/env python3
"""Checks that no file of src/ includes one of a room above its own.

The table gives each room its floor. A file may include what stands in its own room and in
rooms of lower floors; families of one floor may use one another, but never in a circle.
"""
import pathlib
import re
import sys

FLOORS = {
    "frame": 1,
    "frame/status": 1,
    "messaging": 2,
    "devices/properties": 3,
    "devices/system": 3,
    "devices/commands": 4,
    "devices/queue": 4,
    "devices/model": 5,
    "devices/identification": 6,
    "devices/discovery": 7,
    "messaging/features": 8,
    "operations": 9,
    "operations/firmware": 9,
    "operations/erase": 9,
    "operations/testing": 9,
    "operations/settings": 9,
    "operations/endurance": 9,
    "parsers/health": 9,
    "parsers/smart": 9,
    "parsers/identify": 9,
    "parsers/nvme": 9,
    "parsers/sct": 9,
    "parsers/logs": 9,
    "messaging/drive_class": 10,
    "cli": 10,
    "messaging/jobs": 11,
    "frame/border": 12,
}
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def find_circle(edges):
    """Gives a circle of rooms as a list, or None."""
    done = set()

    def visit(room, path):
        if room in path:
            return path[path.index(room):] + [room]
        if room in done:
            return None
        for below in sorted(edges.get(room, ())):
            circle = visit(below, path + [room])
            if circle:
                return circle
        done.add(room)
        return None

    return next(filter(None, (visit(room, []) for room in sorted(edges))), None)


def main(sources):
    faults, edges = [], {}
    for path in sorted(sources.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".inc"):
            continue
        name = path.relative_to(sources).as_posix()
        room = name.rpartition("/")[0]
        if room not in FLOORS:
            faults.append(f"src/{name}: stands in no room")
            continue
        for included in INCLUDE.findall(path.read_text()):
            below = included.rpartition("/")[0]
            if not (sources / included).exists():
                continue  # a header for hosts
            if FLOORS.get(below, 0) > FLOORS[room]:
                faults.append(f"src/{name} climbs to {included}")
            elif below != room and FLOORS.get(below) == FLOORS[room]:
                edges.setdefault(room, set()).add(below)
    circle = find_circle(edges)
    if circle:
        faults.append("rooms in a circle: " + " -> ".join(circle))
    for fault in faults:
        print(f"rooms: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(__file__).resolve().parent.parent / "src"))
