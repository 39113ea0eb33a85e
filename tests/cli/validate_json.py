#!/usr/bin/env python3
"""Whether documents keep to a JSON Schema: validate_json.py SCHEMA DOCUMENTS

DOCUMENTS holds one JSON array of [name, document]. The schema itself is tried too: of no object
whose keys it lists may one be renamed."""
import json
import sys

import jsonschema


def refuse_constant(text):
    raise ValueError(text + " is no JSON")


def is_valid(validator, document):
    return next(validator.iter_errors(document), None) is None


def renamed(node):
    """(object, key) of each object of a document whose keys are a promise."""
    yield node, "tool"
    for run in node["runs"]:
        yield run, "result"
        for table in run["tables"]:
            yield table, "rows"
    for drive in node["drives"]:
        yield drive, "properties"
    yield node["result"], "isGood"


def main():
    with open(sys.argv[1]) as file:
        schema = json.load(file)
    with open(sys.argv[2], encoding="utf-8") as file:
        documents = json.load(file, parse_constant=refuse_constant)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    faults = []
    for name, document in documents:
        errors = sorted(validator.iter_errors(document), key=str)
        faults += [f"{name}: {error.json_path}: {error.message}" for error in errors]
    for name, document in documents if not faults else []:
        for node, key in renamed(document):
            node["x" + key] = node.pop(key)
            if is_valid(validator, document):
                faults.append(f"{name}: the schema does not miss {key}")
            node[key] = node.pop("x" + key)
    print("\n".join(faults[:20]), file=sys.stderr)
    sys.exit(1 if faults or not documents else 0)


main()
