"""A server that answers "not modified" leaves a file as it is."""

import os

from client_support import (
    BODY,
    ClientTest,
    SUCCEEDED,
    main,
)

TAG = '"a"'
ASK = ("-H", "If-None-Match: " + TAG)


class NotModified(ClientTest):
    def setUp(self):
        super().setUp()
        self.server.answers["/a"] = self.answer
        self.url = self.server.url("/a")
        self.told = "vortan-transfer: %s: not modified\n" % self.url

    @staticmethod
    def answer(request):
        if request.headers["If-None-Match"] == TAG:
            request.send_header(304, [("ETag", TAG)])
        else:
            request.reply(BODY)

    def assert_not_modified(self, result):
        self.assertEqual((result.status, result.errors), (SUCCEEDED, self.told))

    def test_leaves_an_existing_file_untouched(self):
        self.write("keep", b"before")
        before = os.stat(self.path("keep"))
        for mode in ("--segmented", "--plain", "--no-fail", "-i"):
            for handler in ("curl", "vendor"):
                self.assert_not_modified(
                    self.run_client(*ASK, mode, "--handler", handler, self.url, "-o", "keep")
                )
                self.assertEqual(self.read("keep"), b"before")
                after = os.stat(self.path("keep"))
                self.assertEqual(
                    (after.st_ino, after.st_mtime_ns), (before.st_ino, before.st_mtime_ns)
                )
        self.assert_files("keep")

    def test_makes_no_file_where_there_was_none(self):
        self.assert_not_modified(self.run_client(*ASK, self.url, "-o", "out"))
        self.assert_files()

    def test_writes_nothing_to_standard_output_but_the_header_that_was_asked_for(self):
        result = self.run_client(*ASK, self.url)
        self.assert_not_modified(result)
        self.assertEqual(result.output, b"")
        result = self.run_client(*ASK, "-i", self.url)
        self.assert_not_modified(result)
        self.assertEqual(
            result.output, b"HTTP/1.1 304 Reason\r\nConnection: close\r\n" b'ETag: "a"\r\n\r\n'
        )

    def test_replaces_the_file_when_there_is_another_version(self):
        self.write("keep", b"before")
        self.assert_succeeded(self.run_client("-H", 'If-None-Match: "old"', self.url, "-o", "keep"))
        self.assertEqual(self.read("keep"), BODY)

    def test_is_told_in_the_summary_of_several_sources(self):
        self.server.answers["/b"] = self.answer
        result = self.run_client(*ASK, "-O", self.url, self.server.url("/b"))
        self.assertEqual(result.status, SUCCEEDED)
        lines = result.errors.splitlines()
        self.assertEqual(len(lines), 4, result.errors)
        self.assertTrue(lines[1].startswith("not modified"), lines[1])
        self.assertTrue(lines[3].startswith("2 of 2"), lines[3])
        self.assert_files()

    def test_is_not_told_when_the_user_wants_quiet(self):
        self.assert_succeeded(self.run_client(*ASK, "-q", self.url, "-o", "out"))


if __name__ == "__main__":
    main()
