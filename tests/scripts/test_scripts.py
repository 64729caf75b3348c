"""The scripts answer a wrong argument, a missing tool and a missing network with a sentence and a non-zero
exit, before they do any work. They run in a copy, so that they leave nothing behind."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SOON = 60

WRONG_ARGUMENTS = {
    ".ci/stage": ('There is no stage "". Name one of: abi armhf',),
    ".ci/stage nonsense": ('There is no stage "nonsense". Name one of: abi armhf',),
    ".ci/stages/abi nonsense": ("--accept",),
    ".ci/stages/fuzz nonsense": ("SECONDS must be an integer above 0",),
    ".ci/stages/schedules nonsense": ("--thorough",),
    ".ci/nightly 0": ("SECONDS must be an integer above 0",),
    "scripts/armhf_sysroot.sh": ("armhf_sysroot.sh FOLDER",),
    "scripts/clang_tidy.sh nonsense.cpp": ("not configured",),
    "scripts/demonstrate.sh nonsense": ("demonstrate.sh PROGRAM",),
    "scripts/measure_client.sh nonsense": ("takes no arguments",),
    "scripts/measure_costs.sh nonsense": ("takes no arguments", "nonsense"),
    "scripts/measure_footprint.sh nonsense": ("nothing called nonsense",),
    "scripts/measure_kit.sh nonsense": ("takes no arguments",),
    "scripts/measure_peers.sh 11 nonsense": ("MIB must be an integer above 0",),
    "scripts/measure_scale.sh nonsense": ("ROUNDS must be an integer above 0",),
    "scripts/run_on_armhf.sh": ("run_on_armhf.sh SYSROOT PROGRAM",),
    "scripts/simulate_pacing.sh nonsense": ("takes no arguments",),
    "scripts/soak.sh -5": ('SECONDS must be an integer above 0, not "-5"',),
}

# A tool of each that is missing then.
NEEDED = {
    "run": "cmake",
    "test": "ninja",
    ".ci/run": "cmake",
    ".ci/stages/packages": "rpmbuild",
    ".ci/stages/static-checks": "shellcheck",
    "scripts/soak.sh": "gnuplot",
}

# Enough for a script to find out that nothing else is there.
TOOLS = "awk basename bash cat comm cut dirname env find grep head mkdir nproc sed sort tail xargs".split()
# Which are asked for, or would change the machine.
DO_NOTHING = "chmod dpkg-query rm tee update-rc.d".split()
WITHOUT_NETWORK = "#!/bin/sh\necho 'E: Temporary failure resolving the archive' >&2\nexit 100\n"


class ScriptTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.copy = pathlib.Path(work.name) / "copy"
        for part in (".ci", "scripts"):
            shutil.copytree(PROJECT / part, self.copy / part)
        for part in ("run", "test", "CMakeLists.txt", "CMakePresets.json"):
            shutil.copy(PROJECT / part, self.copy / part)
        self.tools = pathlib.Path(work.name) / "tools"
        self.tools.mkdir()
        for tool in TOOLS:
            (self.tools / tool).symlink_to(shutil.which(tool))

    def make_tool(self, name, text):
        (self.tools / name).write_text(text, encoding="utf-8")
        (self.tools / name).chmod(0o755)

    def run_script(self, command, **environment):
        path, *arguments = command.split()
        done = subprocess.run(
            [self.copy / path, *arguments],
            env={**os.environ, "VORTAN_PROGRESS_FD": "", **environment},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=SOON,
            check=False,
        )
        self.assertNotEqual(done.returncode, 0, command)
        self.assertNotIn("unbound variable", done.stderr, command)
        return done.stderr

    def test_a_wrong_argument_is_named(self):
        for command, expected in WRONG_ARGUMENTS.items():
            with self.subTest(command):
                said = self.run_script(command, VORTAN_NO_INSTALL="1")
                for words in expected:
                    self.assertIn(words, said)
                self.assertEqual(len(said.splitlines()), 1, said)

    def test_missing_tools_are_named_in_one_line(self):
        for command, tool in NEEDED.items():
            with self.subTest(command):
                said = self.run_script(command, VORTAN_NO_INSTALL="1", PATH=str(self.tools))
                self.assertEqual(len(said.splitlines()), 1, said)
                self.assertRegex(said, rf"Not installed, but needed here .*: .*\b{tool}\b")

    def test_a_missing_network_is_named(self):
        self.make_tool("apt-get", WITHOUT_NETWORK)
        self.make_tool("sudo", '#!/bin/sh\n[ "$1" != -- ] || shift\nexec "$@"\n')
        for tool in DO_NOTHING:
            self.make_tool(tool, "#!/bin/sh\n")
        said = self.run_script("run", VORTAN_NO_INSTALL="", PATH=str(self.tools))
        self.assertIn("E: Temporary failure resolving the archive", said)
        self.assertIn("is there a network, and room on the disk?", said)
        self.assertIn("apt-get install --no-install-recommends", said)

    def test_a_disk_that_was_full_is_named(self):
        for tool in ("cksum", "df", "tr"):
            (self.tools / tool).symlink_to(shutil.which(tool))
        for tool in ("g++", "ninja", "pkg-config", "python3", "rm"):
            self.make_tool(tool, "#!/bin/sh\n")
        self.make_tool("cmake", "#!/bin/sh\necho 'write: No space left on device'\nexit 1\n")
        said = self.run_script("run", VORTAN_NO_INSTALL="1", PATH=str(self.tools))
        self.assertRegex(said, r"CMake stopped: the disk is full\. KiB free in .*: \d+, in .*: \d+")


if __name__ == "__main__":
    unittest.main()
