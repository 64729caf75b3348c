#!/usr/bin/env python3
"""own_instructions.py FILE NAME...: how many instructions of callgrind's FILE were executed in objects
whose file names begin with one of NAMES, functions that they call in others left out."""

import pathlib
import re
import sys


def instructions(lines, names):
    objects, current, total, callee = {}, "", 0, False
    for line in lines:
        named = re.match(r"(c?)ob=\((\d+)\)(?: (.*))?$", line)
        if named:
            if named[3]:
                objects[named[2]] = pathlib.PurePath(named[3]).name
            if not named[1]:
                current = objects[named[2]]
        elif line.startswith("calls="):
            callee = True  # The next line holds what the callee took.
        elif re.match(r"[-+*\d]", line):
            if not callee and current.startswith(names):
                total += int(line.split()[1])
            callee = False
    return total


def main():
    if len(sys.argv) < 3:
        sys.exit("usage: own_instructions.py FILE NAME...")
    with open(sys.argv[1], encoding="utf-8") as lines:
        print(instructions(lines, tuple(sys.argv[2:])))


if __name__ == "__main__":
    main()
