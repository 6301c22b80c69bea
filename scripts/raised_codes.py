# SPDX-License-Identifier: Apache-2.0
"""Prints the result codes that no test raises. A code is raised when a line of
src/ that names its constant, other than to compare with it, was run, or when a test
that passed asserts it: codes of record accesses and of table files stand in tables,
which are not run.

    raised_codes.py COVERAGE.json PROJECT
"""
import json
import pathlib
import re
import sys

coverage, project = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
listed = re.findall(r"X\((\d+), (\w+),", (project / "include/tavdb_errors.h").read_text())

run = set()
for file in json.loads(coverage.read_text())["files"]:
    lines = (project / file["file"]).read_text().splitlines()
    for line in file["lines"]:
        if line["count"] > 0:
            run.update(re.findall(r"(?<![=!]= )TAVDB_ERR_(\w+)", lines[line["line_number"] - 1]))

# how the tests write the code that a failure has to have
assertions = [
    r"(?:recorded|failedWith)\((?:TAVDB_ERR_)?(\w+)\b",
    r"expectEach\(&session, \{(\d+)",
    r"new\w+Table,\s*(\d+)",
]
asserted = set()
for test in (project / "tests").rglob("*_test*"):
    for assertion in assertions:
        asserted.update(re.findall(assertion, test.read_text()))

missing = [(code, name) for code, name in listed if name not in run and not {code, name} & asserted]
print(f"{len(listed)} codes, {len(listed) - len(missing)} raised by tests")
for code, name in missing:
    print(f"not raised: {code} {name}")
sys.exit(1 if missing else 0)
