#!/usr/bin/env python3
"""Checks that the product's sources use the one form that there is for a thing.

Each row of the table names where it is looked for, the form that is not used, and the one
that is.
"""
import pathlib
import re
import sys

FORMS = (
    # where                               not                                         but
    (r"^(src|host)/.*\.h$",               r"\busing namespace\b",                     "full names in headers"),
    (r"^(src|host)/",                     r"\bint(8|16|32|64)_t k?\w*(Seconds|Minutes|Milliseconds)\b",
                                                                                      "std::chrono for a duration"),
    (r"^(src|host)/",                     r"\bint32_t (code|errorCode|status)\b(?! ?;)",
                                                                                      "StatusCode for a code"),
    (r"^(src|host)/",                     r"\b(boost|std)::(j?thread)\b(?!::)",       "Morvu::Thread for a thread"),
    (r"^(src|host)/",                     r"\bbool (Parse|TryParse)\w*\([^)]*& ?\w+\)",
                                                                                      "std::optional for a result"),
    (r"^src/(operations|parsers)/",       r"\b(QRKCLI|CLIParser|Prompt)\b",           "Face for whoever asked"),
    (r"^(src|host)/",                     r"\b(strto[a-z]+|ato[il]l?|sto[a-z]+)\(",   "ParseDecimal and its like for a number"),
    (r"^(src|host)/",                     r"\b(toupper|tolower|isdigit|isspace)\(",   "frame/Text.h for letters, whatever the locale"),
)


def find_faults(root):
    for path in sorted(root.glob("src/**/*")) + sorted(root.glob("host/*")):
        name = path.relative_to(root).as_posix()
        if path.suffix not in (".h", ".cpp", ".inc"):
            continue
        rows = [(re.compile(form), instead) for where, form, instead in FORMS if re.search(where, name)]
        for number, line in enumerate(path.read_text().splitlines(), 1):
            code = line.split("//")[0]
            for form, instead in rows:
                if form.search(code):
                    yield f"{name}:{number}: {code.strip()}: {instead}"


def main():
    faults = list(find_faults(pathlib.Path(__file__).resolve().parent.parent))
    for fault in faults:
        print(f"forms: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
