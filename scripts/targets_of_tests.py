#!/usr/bin/env python3
"""targets_of_tests.py BUILD REGEX: prints what has to be built for the tests whose names match, one
target of ninja's a line; nothing if that cannot be told, as everything has to be then.

A test names the files it needs as its command and in its property REQUIRED_FILES. The tests of a
program that was never built are not known yet, so its sources are searched for their names.
"""

import json
import os
import re
import subprocess
import sys

# The beginning of a test: its macro, the suite and the name.
TEST = re.compile(r"^(TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\((\w+),\s*(\w+)\)", re.MULTILINE)
NOT_BUILT = "_NOT_BUILT"


def known_tests(build, *options):
    command = ["ctest", "--test-dir", build, "--show-only=json-v1", *options]
    environment = {**os.environ, "VORTAN_BEFORE_BUILD": "1"}
    said = subprocess.run(command, check=True, stdout=subprocess.PIPE, env=environment).stdout
    return json.loads(said)["tests"]


def needed_files(build, test):
    """The files of the build that the test names."""
    properties = {entry["name"]: entry["value"] for entry in test["properties"]}
    named = [*test.get("command", [])[:1], *properties.get("REQUIRED_FILES", [])]
    return {os.path.relpath(file, build) for file in named if file.startswith(build + os.sep)}


def names_in(source):
    """The names that ctest may know the source's tests by, as far as the source tells them."""
    with open(source, encoding="utf-8") as file:
        for macro, suite, name in TEST.findall(file.read()):
            yield f"{suite}.{name}" if macro in ("TEST", "TEST_F") else f"/{suite}/0.{name}/0"


def sources_of(build, program):
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        for entry in json.load(file):
            if f"/{program}.dir/" in entry["command"]:
                yield entry["file"]


def main():
    build, regex = os.path.realpath(sys.argv[1]), sys.argv[2]
    targets = set()
    for test in known_tests(build, "--tests-regex", regex):
        files = needed_files(build, test)
        if not files:
            return  # it may need anything
        targets |= files
    for test in known_tests(build):
        program = test["name"][: -len(NOT_BUILT)]
        if test["name"].endswith(NOT_BUILT):
            sources = sources_of(build, program)
            if any(re.search(regex, name) for source in sources for name in names_in(source)):
                targets.add(program)
    print("\n".join(sorted(targets)))


if __name__ == "__main__":
    main()
