#!/usr/bin/env python3
"""compare_peers.py PROGRAMS SERVER TLS_SERVER FOLDER ROUNDS MIB REQUESTS PLOTS: runs the programs
vortan_peer_* of the folder PROGRAMS against the server at the URLs SERVER and TLS_SERVER, each piece of
work in a process of its own, in random order within each round. The server has files/body of MIB MiB
and files/small of 1 KiB. The authority that signed its certificate is in FOLDER/authorities.pem, and,
with names by their hashes, in FOLDER/authorities.

Prints a table for each kind of work, medians and their ratios to bare libcurl's, and writes the same
as data for gnuplot to PLOTS/WORK.
"""

import os
import pathlib
import random
import statistics
import subprocess
import sys

LIBRARIES = {
    "libcurl": "libcurl",
    "agent": "**the agent**",
    "curlpp": "curlpp",
    "poco": "POCO",
    "httplib": "cpp-httplib",
    "cpprest": "cpprestsdk",
    "beast": "Boost.Beast",
    "aria2": "libaria2",
}
FIRST = "small"
# Each of these loads Debian's bundle of authorities again.
TLS_REQUESTS = 20
CANNOT_DO = 3
GENEROUS_SECONDS = 600
KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30


class Work:
    """Figures are per unit: of the CPU time, and of the rate. The kind is what the programs call it."""

    # What to trust over TLS, below the folder.
    authorities = ""

    def __init__(self, kind, title, path, size, count, cpu_unit, cpu_scale, rate_unit, units):
        self.kind = kind
        self.title, self.path, self.size, self.count = title, path, size, count
        self.cpu_unit, self.cpu_scale, self.rate_unit, self.units = (
            cpu_unit,
            cpu_scale,
            rate_unit,
            units,
        )

    def figures(self, cpu_us, wall_us, peak_kib):
        return cpu_us * self.cpu_scale / self.units, self.units * 1e6 / wall_us, peak_kib / KIB


def large(kind, title, path, mib):
    return Work(kind, title, path, mib * MIB, 1, "CPU s/GiB", 1e-6, "GiB/s", mib * MIB / GIB)


def many(title, requests):
    units = ("CPU us/request", 1, "requests/s", requests)
    return Work("many", title, FIRST, KIB, requests, *units)


def works(mib, requests):
    result = {
        "stream": large("stream", f"A body of {mib} MiB, streamed", "body", mib),
        "memory": large("memory", f"A body of {mib} MiB, wanted whole in memory", "body", mib),
        "upload": large("upload", f"An upload of {mib} MiB from memory", "upload/uploaded", mib),
        "many": many(f"{requests} requests for 1 KiB, four at a time", requests),
    }
    for file, named in (("authorities.pem", "Debian's bundle"), ("authorities", "a hashed folder")):
        over_tls = {
            f"stream over TLS, {file}": large(
                "stream", f"A body of {mib} MiB, streamed over TLS with {named}", "body", mib
            ),
            f"many over TLS, {file}": many(
                f"{TLS_REQUESTS} requests for 1 KiB over TLS with {named}, four at a time",
                TLS_REQUESTS,
            ),
        }
        for work in over_tls.values():
            work.authorities = file
        result.update(over_tls)
    return result


class Unmeasured(Exception):
    pass


class Server:
    def __init__(self, url, tls_url, folder):
        self.url, self.tls_url, self.folder = url, tls_url, pathlib.Path(folder)

    def arguments(self, work):
        url = self.tls_url if work.authorities else self.url
        authorities = str(self.folder / work.authorities) if work.authorities else ""
        return [url + work.path, str(work.size), str(work.count), url + FIRST, authorities]


def measure(program, server, work):
    if not program.exists():
        raise Unmeasured("not installed")
    command = [program, work.kind, *server.arguments(work)]
    environment = {
        key: value for key, value in os.environ.items() if not key.lower().endswith("_proxy")
    }
    try:
        done = subprocess.run(
            command,
            env=environment,
            capture_output=True,
            text=True,
            timeout=GENEROUS_SECONDS,
            check=False,
        )
    except subprocess.TimeoutExpired as late:
        raise Unmeasured("failed: no end") from late
    if done.returncode == CANNOT_DO:
        raise Unmeasured(done.stdout.strip())
    if done.returncode != 0:
        reason = done.stderr.strip().splitlines() or [f"ended with {done.returncode}"]
        raise Unmeasured("failed: " + reason[-1])
    # Some libraries print as well; the figures are last.
    return work.figures(*map(int, done.stdout.split()[-3:]))


def run_rounds(programs, server, all_works, rounds):
    """For each library and work, the figures of all rounds, or why there are none."""
    results = {(library, name): [] for library in LIBRARIES for name in all_works}
    for number in range(rounds):
        print(f"Round {number + 1} of {rounds}", file=sys.stderr)
        open_pairs = [pair for pair, result in results.items() if isinstance(result, list)]
        for library, name in random.Random(number).sample(open_pairs, len(open_pairs)):
            try:
                results[library, name].append(
                    measure(programs / f"vortan_peer_{library}", server, all_works[name])
                )
            except Unmeasured as reason:
                results[library, name] = str(reason)
    return {
        pair: result
        if isinstance(result, str)
        else [statistics.median(column) for column in zip(*result)]
        for pair, result in results.items()
    }


def spelled(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def row(label, result, bare):
    if isinstance(result, str):
        return f"| {label}: {result} |" + " – |" * 6
    cells = []
    for value, reference in zip(result, bare):
        cells += [spelled(value), f"{value / reference:.2f}" if reference else "–"]
    return f"| {label} | " + " | ".join(cells) + " |"


def print_table(name, work, results):
    bare = results["libcurl", name]
    bare = [None] * 3 if isinstance(bare, str) else bare
    print(f"\n{work.title}:\n")
    print(f"| library | {work.cpu_unit} | ratio | {work.rate_unit} | ratio | peak MiB | ratio |")
    print("|---|" + "---:|" * 6)
    for library, label in LIBRARIES.items():
        print(row(label, results[library, name], bare))


def write_plot(path, name, results):
    with open(path, "w", encoding="utf-8") as data:
        for library, label in LIBRARIES.items():
            result = results[library, name]
            if not isinstance(result, str):
                colour = 2 if library == "agent" else 1
                print(f'"{label.strip("*")}"', result[0], result[2], colour, file=data)


def main():
    programs, url, tls_url, folder, rounds, mib, requests, plots = sys.argv[1:]
    server = Server(url, tls_url, folder)
    all_works = works(int(mib), int(requests))
    results = run_rounds(pathlib.Path(programs).resolve(), server, all_works, int(rounds))
    print(f"Medians of {rounds} rounds on {os.cpu_count()} processors.")
    for name, work in all_works.items():
        print_table(name, work, results)
        if not work.authorities:
            write_plot(pathlib.Path(plots) / name, name, results)


if __name__ == "__main__":
    main()
