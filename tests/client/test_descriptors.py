"""A name that stands for an open descriptor is written to, whatever file is behind it."""

import os
import socket
import subprocess
import unittest

from client_support import (
    CANNOT_WRITE,
    ClientTest,
    EMULATED,
    PROGRAM,
    Result,
    SUCCEEDED,
    TIMEOUT,
    environment,
    main,
)


class Descriptors(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a", b"contents")

    def run_into_log(self, *arguments, descriptor=2, flags=os.O_APPEND, run=None):
        """Runs with a log behind the descriptor that others wrote to and go on writing to. Returns
        what the program wrote."""
        log = os.open(self.path("log"), os.O_WRONLY | os.O_CREAT | flags, 0o600)
        os.write(log, b"before\n")
        options = {"preexec_fn": lambda: os.dup2(log, descriptor)}
        if descriptor > 2:
            options["close_fds"] = False
        result = (run or self.run_client)(*arguments, **options)
        self.assertEqual((result.status, result.errors), (SUCCEEDED, ""))
        os.write(log, b"after\n")
        os.close(log)
        text = self.read("log")
        os.remove(self.path("log"))
        self.assertTrue(text.startswith(b"before\n") and text.endswith(b"after\n"), text)
        return text[len(b"before\n") : -len(b"after\n")]

    def test_a_redirected_log_keeps_what_is_before_and_after(self):
        for descriptor, names in (
            (1, ("-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1")),
            (2, ("/dev/stderr", "/dev/fd/2", "/proc/self/fd/2")),
            (9, ("/dev/fd/9", "/proc/self/fd/9", "/proc/thread-self/fd/9")),
        ):
            for name in names:
                for flags in (os.O_APPEND, os.O_TRUNC):
                    written = self.run_into_log(
                        self.url, "-o", name, descriptor=descriptor, flags=flags
                    )
                    self.assertEqual(written, b"contents", name)
                    self.assert_files()

    def test_a_trace_and_its_plot_keep_the_log_too(self):
        for option, expected in (("--trace", b'"event":"complete"'), ("--trace-plot", b"</svg>")):
            self.assertIn(expected, self.run_into_log(self.url, "-o", "out", option, "/dev/stderr"))
            self.assert_files("out")

    def test_a_link_may_lead_to_it(self):
        os.symlink("/dev/stderr", self.path("first"))
        os.symlink("first", self.path("second"))
        os.symlink("/proc/self/fd", self.path("folder"))
        for name in ("first", "second", "folder/2", "../../../../../../../../dev/stderr"):
            self.assertEqual(self.run_into_log(self.url, "-o", name), b"contents", name)
        self.assertEqual(
            self.run_into_log("-O", self.server.url("/a"), run=self.run_with_link), b"contents"
        )
        self.assert_files("first", "folder", "second")

    def run_with_link(self, *arguments, **options):
        os.symlink("/dev/stderr", self.path("a"))
        result = self.run_client(*arguments, **options)
        os.remove(self.path("a"))
        return result

    def test_the_number_of_the_process_may_be_in_the_name(self):
        def run_in_shell(*arguments, **options):
            process = subprocess.run(
                ["sh", "-c", 'exec "$@" -o /proc/$$/fd/2', "sh", *PROGRAM, *arguments],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                cwd=self.folder,
                env=environment(),
                timeout=TIMEOUT,
                check=False,
                **options
            )
            return Result(process, process.stdout, process.stderr)

        self.assertEqual(self.run_into_log(self.url, run=run_in_shell), b"contents")

    def test_a_socket_is_written_to(self):
        ours, theirs = socket.socketpair()
        name = "/dev/fd/%d" % theirs.fileno()
        self.assert_succeeded(self.run_client(self.url, "-o", name, pass_fds=[theirs.fileno()]))
        theirs.close()
        self.assertEqual(ours.makefile("rb").read(), b"contents")
        ours.close()

    def assert_bad(self, name):
        self.assert_failed(
            self.run_client(self.url, "-o", name),
            CANNOT_WRITE,
            "%s: cannot write '%s': Bad file descriptor" % (self.url, name),
        )
        self.assertTrue(self.server.requests.empty())

    def test_one_that_is_not_open_is_told_before_anything_is_requested(self):
        self.assert_bad("/dev/fd/999")

    @unittest.skipIf(EMULATED, "the emulator's own descriptors are open, too")
    def test_the_programs_own_are_out_of_reach(self):
        for descriptor in range(3, 12):
            self.assert_bad("/dev/fd/%d" % descriptor)

    def test_other_names_in_such_a_folder_are_none(self):
        for name in ("/dev/fd/02", "/dev/fd/-1", "/dev/fd/99999999999", "/dev/fd/2x"):
            result = self.run_client(self.url, "-o", name)
            self.assertEqual(result.status, CANNOT_WRITE)
            self.assertIn("cannot write '%s': " % name, result.errors)


if __name__ == "__main__":
    main()
