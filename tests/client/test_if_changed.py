"""A file that has not changed is not downloaded again."""

import os

from client_support import BODY, ClientTest, STATUS_IS_ERROR, main

TAG = '"first"'


class IfChanged(ClientTest):
    def setUp(self):
        super().setUp()
        self.tag = TAG
        self.body = BODY
        self.url = self.offer("/file")

    def offer(self, path):
        self.server.answers[path] = self.answer
        return self.server.url(path)

    def answer(self, request):
        if request.headers["If-None-Match"] == self.tag:
            request.send_header(304, [("ETag", self.tag)])
        else:
            request.reply(self.body, headers=[("ETag", self.tag)])

    def fetch(self, *arguments, url=None):
        """Returns the condition that the one request made."""
        result = self.run_client("-q", "--if-changed", "-o", "out", *arguments, url or self.url)
        self.assert_succeeded(result)
        self.assertEqual(self.server.requests.qsize(), 1)
        return self.server.requests.get().headers["If-None-Match"]

    def test_leaves_the_file_as_it_is(self):
        self.assertIsNone(self.fetch())
        self.assert_files("out", "out.validator")
        before = os.stat(self.path("out"))
        self.assertEqual(self.fetch(), TAG)
        after = os.stat(self.path("out"))
        self.assertEqual((after.st_ino, after.st_mtime_ns), (before.st_ino, before.st_mtime_ns))
        self.assertEqual(self.read("out"), BODY)
        self.assertEqual(self.fetch(), TAG)
        self.assert_files("out", "out.validator")

    def test_takes_another_version(self):
        self.fetch()
        self.tag, self.body = '"second"', BODY[::-1]
        self.assertEqual(self.fetch(), TAG)
        self.assertEqual(self.read("out"), BODY[::-1])
        self.assertEqual(self.fetch(), '"second"')

    def test_downloads_a_file_that_was_edited(self):
        self.fetch()
        self.write("out", BODY[:-1] + b"?")
        self.assertIsNone(self.fetch())
        self.assertEqual(self.read("out"), BODY)

    def test_downloads_a_file_that_is_gone(self):
        self.fetch()
        os.remove(self.path("out"))
        self.assertIsNone(self.fetch())
        self.assertEqual(self.read("out"), BODY)

    def test_asks_no_other_url_with_the_validator(self):
        self.fetch()
        self.assertIsNone(self.fetch(url=self.offer("/other")))
        self.assertEqual(self.fetch(url=self.server.url("/other")), TAG)

    def test_survives_a_validator_that_makes_no_sense(self):
        for contents in (b"", b"{", b"[1]", b"{}", b'{"url": 1}', b"\0\xff" * 1000):
            self.fetch()
            self.write("out.validator", contents)
            self.assertIsNone(self.fetch(), contents)
            os.remove(self.path("out"))

    def test_sends_no_header_line_of_a_validator_that_was_tampered_with(self):
        self.fetch()
        kept = self.read("out.validator").replace(b"first", b"first\\r\\nX-Other: 1")
        self.write("out.validator", kept)
        self.assertIsNone(self.fetch())

    def test_forgets_the_validator_when_the_server_has_none(self):
        self.fetch()
        self.body = BODY[::-1]
        self.server.answers["/file"] = lambda request: request.reply(self.body)
        self.fetch()
        self.assert_files("out")
        self.assertIsNone(self.fetch())

    def test_leaves_file_and_validator_after_a_failure(self):
        self.fetch()
        self.server.answers["/file"] = lambda request: request.reply(b"no", status=404)
        result = self.run_client("-q", "--if-changed", "-o", "out", self.url)
        self.assertEqual(result.status, STATUS_IS_ERROR)
        self.server.requests.get()
        self.server.answers["/file"] = self.answer
        self.assertEqual(self.fetch(), TAG)

    def test_a_download_without_the_option_makes_the_validator_useless(self):
        self.fetch()
        self.body = BODY[::-1]
        self.assert_succeeded(self.run_client("-q", "-o", "out", self.url))
        self.server.requests.get()
        self.assertIsNone(self.fetch())
        self.assertEqual(self.read("out"), self.body)


if __name__ == "__main__":
    main()
