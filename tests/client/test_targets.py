"""Two outputs of one run never share a file, whatever names lead to it."""

import os

from client_support import (
    ClientTest,
    TIMEOUT,
    WRONG_ARGUMENTS,
    main,
)


class Targets(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a", b"a")
        self.other = self.serve("/b", b"b")

    def assert_refused(self, line, *arguments, **options):
        self.assert_failed(
            self.run_client(*arguments, **options), WRONG_ARGUMENTS, line + " (--help tells more)"
        )
        self.assertTrue(self.server.requests.empty())

    def assert_trace_refused(self, output, trace, option="--trace", **options):
        self.assert_refused(
            "%s: '%s' has the body already, name another file" % (option, trace),
            self.url,
            "-o",
            output,
            option,
            trace,
            **options
        )

    def test_an_absolute_and_a_relative_name_of_one_file_are_refused(self):
        for option in ("--trace", "--trace-plot"):
            self.assert_trace_refused("o", self.path("o"), option)
        self.assert_files()

    def test_links_to_one_file_are_refused(self):
        os.mkdir(self.path("real"))
        os.symlink("real", self.path("folder"))
        os.symlink("folder/o", self.path("link"))
        for exists in (False, True):
            if exists:
                self.write("real/o", b"before")
            for output, trace in (("real/o", "folder/o"), ("link", "real/o"), ("folder/o", "link")):
                self.assert_trace_refused(output, trace)
        self.assert_files("folder", "link", "real")

    def test_sources_whose_names_are_links_to_one_file_are_refused(self):
        self.write("kept", b"before")
        for name in ("a", "b"):
            os.symlink("kept", self.path(name))
        self.assert_refused(
            "'%s': 'b' leads to the same file as 'a' of another source" % self.other,
            "-O",
            self.url,
            self.other,
        )
        self.assertEqual(self.read("kept"), b"before")

    def test_sources_whose_names_are_links_to_one_missing_file_are_refused(self):
        os.symlink("b", self.path("a"))
        self.assert_refused(
            "'%s': 'b' leads to the same file as 'a' of another source" % self.other,
            "-O",
            self.url,
            self.other,
        )

    def test_the_file_behind_standard_output_or_error_is_refused(self):
        with open(self.path("log"), "ab") as log:
            self.assert_refused(
                "--trace: 'log' has the body already, name another file",
                self.url,
                "--trace",
                "log",
                stdout=log,
            )
            self.assert_refused(
                "--json: standard output has the body already, write that to a "
                "file with -o or -O",
                self.url,
                "-o",
                "log",
                "--json",
                stdout=log,
            )
        with open(self.path("log"), "ab") as log:
            client = self.start(self.url, "-o", "log", "--trace", "/dev/stderr", stderr=log)
            client.process.communicate(timeout=TIMEOUT)
        self.assertEqual(client.process.returncode, WRONG_ARGUMENTS)
        self.assertIn(b"--trace: '/dev/stderr' has the body already", self.read("log"))

    def test_one_file_behind_two_descriptors_is_refused(self):
        with open(self.path("log"), "wb") as first, open(self.path("log"), "wb") as second:
            names = ["/dev/fd/%d" % file.fileno() for file in (first, second)]
            self.assert_trace_refused(*names, pass_fds=[first.fileno(), second.fileno()])

    def test_hard_links_part_when_they_are_replaced(self):
        self.write("a", b"before")
        os.link(self.path("a"), self.path("b"))
        self.assert_succeeded(self.run_client("-q", "-O", self.url, self.other))
        self.assertEqual((self.read("a"), self.read("b")), (b"a", b"b"))

    def test_one_device_may_take_several_outputs(self):
        with open("/dev/null", "wb") as null:
            result = self.run_client(
                self.url,
                "--json",
                "-o",
                "/dev/fd/%d" % null.fileno(),
                stdout=null,
                pass_fds=[null.fileno()],
            )
        self.assert_succeeded(result)

    def test_files_of_one_name_in_two_folders_are_two(self):
        for folder in ("x", "y"):
            os.mkdir(self.path(folder))
        self.assert_succeeded(self.run_client(self.url, "-o", "x/o", "--trace", "y/o"))
        self.assertEqual(self.read("x/o"), b"a")


if __name__ == "__main__":
    main()
