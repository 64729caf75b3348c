"""The folders of the client program's source depend on each other in one direction only."""

import os
import re
import unittest

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools/vortan-transfer")
# Each may include itself and those before it.
FOLDERS = ["base", "trace", "options", "report", "transfer"]
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def files_of(folder):
    path = os.path.join(SOURCES, folder)
    return [os.path.join(path, name) for name in sorted(os.listdir(path))]


def included_by(file):
    with open(file, encoding="utf-8") as source:
        return INCLUDE.findall(source.read())


class Layers(unittest.TestCase):
    def test_every_folder_has_its_place_in_the_order(self):
        folders = {entry.name for entry in os.scandir(SOURCES) if entry.is_dir()}
        self.assertEqual(folders - {"completion"}, set(FOLDERS))

    def test_a_folder_includes_only_itself_and_those_before_it(self):
        wrong = []
        for place, folder in enumerate(FOLDERS):
            for file in files_of(folder):
                wrong += [
                    f"{folder}/{os.path.basename(file)} includes {name}"
                    for name in included_by(file)
                    if os.path.dirname(name) not in FOLDERS[: place + 1]
                ]
        self.assertEqual(wrong, [])

    def test_a_header_is_not_left_unused(self):
        every = [os.path.join(SOURCES, "main.cpp")]
        every += [file for folder in FOLDERS for file in files_of(folder)]
        used = {name for file in every for name in included_by(file)}
        headers = {
            f"{folder}/{os.path.basename(file)}"
            for folder in FOLDERS
            for file in files_of(folder)
            if file.endswith(".h")
        }
        self.assertEqual(headers - used, set())


if __name__ == "__main__":
    unittest.main()
