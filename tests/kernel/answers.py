"""What the guest left: answers of the library, of its tool and of others.

Of a script "NAME RESULTS WIDTH QUESTION": RESULTS is the folder that the guest filled, WIDTH 64
or 32, QUESTION the name of a test.
"""
import json
import pathlib
import re
import sys
import unittest
import xml.etree.ElementTree as ElementTree

RESULTS, WIDTH, QUESTION = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]


def text_of(name):
    return (RESULTS / name).read_text()


def json_of(name):
    return json.loads(text_of(name))


def own(name):
    return f"{WIDTH}.{name}"


def exit_of(name):
    return int(text_of(own(name) + ".exit"))


def last_message(name):
    """A job's messages follow one another; the last is its reply."""
    documents = re.split(r"(?=<\?xml )", text_of(own(name)))
    return ElementTree.fromstring(documents[-1].strip())


def values_of(element):
    return {item.get("name"): item.text or "" for item in element.findall("Property")}


def ask(questions):
    unittest.main(argv=[sys.argv[0], f"{questions.__name__}.test_{QUESTION}"], module="__main__")
