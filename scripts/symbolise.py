#!/usr/bin/env python3
"""Puts functions and lines to the addresses of a backtrace.

Reads a backtrace as glibc's backtrace_symbols() writes it,

    /usr/lib/libvortantransferagent.so.0(+0x8f3c)[0xf7a1ef3c]

from standard input. The addresses are taken for return addresses: the line is that of the call. What
is known of a binary is looked for under its build ID, as in the packages with debug symbols.
"""

import argparse
import pathlib
import re
import subprocess
import sys

FRAME = re.compile(r"^(?P<path>/[^(]+)\((?P<symbol>[^+)]*)\+0x(?P<offset>[0-9a-f]+)\)")


def run(*command):
    """Returns what the command prints, which is nothing about a file that is of no use to it."""
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False).stdout


def debug_file(binary, folder):
    """Returns None if there is no debug information for the binary."""
    found = re.search(r"Build ID: (..)([0-9a-f]+)", run("eu-readelf", "--notes", str(binary)))
    if not found:
        return None
    path = folder / ".build-id" / found.group(1) / (found.group(2) + ".debug")
    return path if path.exists() else None


def address_of(symbol, binary):
    """Offsets from an exported function are counted from its start."""
    table = run("eu-readelf", "--symbols=.dynsym", "--wide", str(binary)) if symbol else ""
    for line in table.splitlines():
        columns = line.split()
        if len(columns) > 7 and columns[7].split("@")[0] == symbol:
            return int(columns[1], 16) & ~1  # the lowest bit says that it is Thumb code
    return 0


def symbolised(line, root, folder):
    frame = FRAME.match(line)
    if not frame:
        return line
    binary = pathlib.Path(f"{root}{frame['path']}")
    if not binary.exists():
        return f"{line}\n    there is no {binary}"
    debug = debug_file(binary, folder)
    if not debug:
        return f"{line}\n    no debug symbols for its build ID in {folder}"
    address = address_of(frame["symbol"], binary) + int(frame["offset"], 16) - 1
    said = run("eu-addr2line", "-f", "-C", "-i", "-e", str(debug), hex(address)).splitlines()
    places = (f"    {function} at {place}" for function, place in zip(said[::2], said[1::2]))
    return "\n".join([line, *places])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default="", help="the folder that holds the device's files")
    parser.add_argument(
        "--debug",
        default="/usr/lib/debug",
        type=pathlib.Path,
        help="the folder with .build-id, from a package with debug symbols",
    )
    arguments = parser.parse_args()
    for line in sys.stdin:
        print(symbolised(line.rstrip("\n"), arguments.root, arguments.debug))


if __name__ == "__main__":
    main()
