#!/usr/bin/env python3
"""tidy_sources.py BUILD PLUGIN [FILE...]: runs clang-tidy on these sources of BUILD, on all of its own
if none is named, as many at once as there are processors. PLUGIN is built from skip_system_headers.cpp.

A source that several programs contain is read once, or once for each set of macros that they define.
What passed is remembered beside the compiler cache, by all that goes into it: a source is read again
once it, a header that it includes, its options, the checks or clang-tidy change.
"""

import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
TIDY = "clang-tidy-14"
COMPILER = "clang++-14"
RULES = (
    PROJECT / ".clang-tidy",
    PROJECT / "scripts/skip_system_headers.cpp",
    pathlib.Path(__file__),
)
DAYS_TO_REMEMBER = 90
# All that the precompiled header of the preset tidy includes.
PRECOMPILED = "/gmock/gmock.h"


def sources_of(build, wanted):
    """Each source with the compiler's options for it, without input and output."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = os.path.realpath(os.path.join(entry["directory"], entry["file"]))
        # Mistakes are seeded into generated sources on purpose.
        if file.startswith(str(build) + os.sep) or (wanted and file not in wanted):
            continue
        words = shlex.split(entry["command"])
        output = words.index("-o")
        options = [word for word in words[1:output] + words[output + 2 :] if word != "-c"]
        options.remove(entry["file"])
        macros = tuple(word for word in options if word.startswith("-D"))
        found.setdefault((file, macros), options)
    return [(file, options) for (file, _), options in found.items()]


@functools.lru_cache(maxsize=None)
def digest(file):
    contents = pathlib.Path(file).read_bytes().replace(bytes(PROJECT), b".")
    return hashlib.sha256(contents).hexdigest()


@functools.lru_cache(maxsize=None)
def version():
    return subprocess.run([TIDY, "--version"], check=True, capture_output=True, text=True).stdout


def without_precompiled(options):
    """Leaves out -Xclang -include-pch -Xclang FILE.pch -Xclang -include -Xclang FILE."""
    if "-include-pch" not in options:
        return options
    at = options.index("-include-pch")
    return options[: at - 1] + options[at + 7 :]


def files_read(file, options):
    """The source and all that it includes. None if a header is missing."""
    command = [COMPILER, *without_precompiled(options), "-M", "-MT", "source", file]
    listed = subprocess.run(command, capture_output=True, text=True, check=False)
    if listed.returncode != 0:
        return None
    return shlex.split(listed.stdout.replace("\\\n", " "))[1:]


def options_to_read_with(options, read):
    """The precompiled header only spares time: a source that lacks an include is not to get it there."""
    if read and any(name.endswith(PRECOMPILED) for name in read):
        return options
    return without_precompiled(options)


def key_of(options, read):
    """Depends on all that a result does, but not on where the project is."""
    parts = [version(), *map(digest, RULES), *options]
    for name in read:
        parts += [os.path.realpath(name), digest(name)]
    text = "\n".join(parts).replace(str(PROJECT), ".")
    return hashlib.sha256(text.encode()).hexdigest()


def memory(build):
    """Where it is noted what passed."""
    try:
        asked = ["ccache", "--get-config", "cache_dir"]
        cache = subprocess.run(asked, check=True, capture_output=True, text=True).stdout.strip()
        folder = pathlib.Path(cache) / "clang-tidy"
        folder.mkdir(parents=True, exist_ok=True)
    except (OSError, subprocess.CalledProcessError):
        folder = build / "passed"
        folder.mkdir(exist_ok=True)
    return folder


def forget_the_old(folder):
    limit = time.time() - DAYS_TO_REMEMBER * 24 * 3600
    for note in folder.iterdir():
        if note.stat().st_mtime < limit:
            note.unlink(missing_ok=True)


def check(source, plugin, passed):
    """None if it is known to pass, else clang-tidy's exit status and words."""
    file, options = source
    read = files_read(file, options)
    options = options_to_read_with(options, read)
    key = key_of(options, read) if read else None
    if key and (passed / key).exists():
        (passed / key).touch()
        return None
    command = [TIDY, "--quiet", "--load", plugin, "--checks", "vortan-skip-system-headers", file]
    done = subprocess.run([*command, "--", *options], capture_output=True, text=True, check=False)
    if key and done.returncode == 0 and not done.stdout:
        (passed / key).touch()
    return done.returncode, done.stdout + (done.stderr if done.returncode else "")


def main():
    build, plugin = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    sources = sources_of(build, {os.path.realpath(name) for name in sys.argv[3:]})
    if not sources:
        sys.exit("None of these is a source of " + str(build))
    passed = memory(build)
    forget_the_old(passed)
    read = failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = pool.map(lambda source: check(source, plugin, passed), sources)
        for (file, _), result in zip(sources, results):
            if result is not None:
                read += 1
                failed += result[0] != 0
                print("\n".join(filter(None, (file, result[1].strip()))), flush=True)
    print(f"Sources: {len(sources)}, known to pass: {len(sources) - read}, failed: {failed}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
