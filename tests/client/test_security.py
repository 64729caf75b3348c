"""Whom the program trusts, and to whom it tells who its user is."""

import base64
import os
import threading

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    NOT_AUTHORIZED,
    SUCCEEDED,
    TIMEOUT,
    TLS_FAILED,
    WRONG_ARGUMENTS,
    environment,
    main,
)
from tls_support import Certificates, TlsServer

SECRET = "s3cret-word"
AUTHORITY = ("--cacert", Certificates.path("authority.pem"))


class Tls(ClientTest):
    tls = None

    def serve_with_tls(self, **options):
        server = TlsServer(**options)
        self.addCleanup(server.close)
        server.answers["/a"] = lambda request: request.reply(BODY)
        self.tls = server
        return server.url("/a")

    def fetch(self, url, *arguments):
        return self.run_client("-q", "--retry", "0", "-o", "out", *arguments, url)

    def assert_trusted(self, url, *arguments):
        self.assert_succeeded(self.fetch(url, *arguments))
        self.assertEqual(self.read("out"), BODY)
        os.remove(self.path("out"))

    def assert_not_trusted(self, url, *arguments):
        result = self.fetch(url, *arguments)
        self.assertEqual(result.status, TLS_FAILED, result.errors)
        self.assertIn("try --cacert", result.errors)
        self.assertTrue(self.tls.requests.empty())
        self.assert_files()

    def test_trusts_no_unknown_authority(self):
        self.assert_not_trusted(self.serve_with_tls())

    def test_trusts_the_given_authority(self):
        self.assert_trusted(self.serve_with_tls(), *AUTHORITY)

    def test_trusts_the_authorities_of_a_folder(self):
        url = self.serve_with_tls()
        self.assert_not_trusted(url, "--capath", Certificates.path("empty"))
        self.assert_trusted(url, "--capath", Certificates.path("authorities"))

    def test_demands_the_name_of_the_server(self):
        url = self.serve_with_tls().replace("127.0.0.1", "localhost")
        self.assert_not_trusted(url, *AUTHORITY)

    def test_trusts_any_server_when_told_to(self):
        url = self.serve_with_tls()
        self.assert_trusted(url, "-k")
        self.assert_trusted(url.replace("127.0.0.1", "localhost"), "--insecure")

    def test_shows_a_client_certificate(self):
        url = self.serve_with_tls(demands_client_certificate=True)
        self.assertEqual(self.fetch(url, *AUTHORITY).status, TLS_FAILED)
        pair = ("--cert", Certificates.path("client.pem"), "--key", Certificates.path("client.key"))
        self.assert_trusted(url, *AUTHORITY, *pair)
        self.assert_trusted(url, *AUTHORITY, "--cert", Certificates.path("both.pem"))

    def test_refuses_a_key_of_another_certificate(self):
        url = self.serve_with_tls(demands_client_certificate=True)
        pair = ("--cert", Certificates.path("client.pem"), "--key", Certificates.path("server.key"))
        result = self.fetch(url, *AUTHORITY, *pair)
        self.assertIn(result.status, (WRONG_ARGUMENTS, TLS_FAILED), result.errors)
        self.assertTrue(self.tls.requests.empty())

    def test_never_follows_a_redirect_to_plain_http(self):
        url = self.serve_with_tls()
        plain = self.serve("/plain")
        self.tls.answers["/a"] = lambda request: request.reply(
            status=302, headers=[("Location", plain)]
        )
        result = self.fetch(url, *AUTHORITY)
        self.assertNotEqual(result.status, SUCCEEDED)
        self.assertIn(plain, result.errors)
        self.assertTrue(self.server.requests.empty())


class Credentials(ClientTest):
    def setUp(self):
        super().setUp()
        self.server.answers["/a"] = self.answer
        self.command_lines = []
        self.client = None
        self.started = threading.Event()
        self.url = self.server.url("/a")

    def answer(self, request):
        self.command_lines.append(self.own_command_line())
        kind, _, said = request.headers.get("Authorization", "").partition(" ")
        if (kind, base64.b64decode(said)) == ("Basic", b"user:" + SECRET.encode()):
            request.reply(BODY)
        else:
            request.reply(b"who?", status=401, headers=[("WWW-Authenticate", "Basic")])

    def own_command_line(self):
        self.assertTrue(self.started.wait(TIMEOUT))
        with open("/proc/%d/cmdline" % self.client.process.pid, "rb") as file:
            return file.read()

    def fetch(self, *arguments, **variables):
        self.started.clear()
        self.client = self.start(*arguments, env=environment(**variables))
        self.started.set()
        return self.client.finish()

    def assert_kept_secret(self, *texts):
        for text in texts:
            self.assertTrue(text)
            self.assertNotIn(SECRET.encode(), text)
            self.assertNotIn(base64.b64encode(b"user:" + SECRET.encode()), text)

    def assert_sent_and_kept_secret(self, *arguments):
        reports = ("--trace", "trace", "--trace-plot", "plot", "-o", "out", "--json", "-v")
        for variables in ({}, {"VORTAN_DLOG": "file:" + self.path("log")}):
            result = self.fetch(*reports, *arguments, VORTAN_DLOG_LEVEL="debug", **variables)
            self.assertEqual(result.status, SUCCEEDED, result.errors)
            self.assertEqual(self.read("out"), BODY)
            log = self.read("log") if variables else result.errors.encode()
            self.assert_kept_secret(result.output, log, *map(self.read, ("trace", "plot")))
        if not EMULATED:  # an emulator has a command line of its own
            self.assert_kept_secret(*self.command_lines)

    def test_of_the_option_are_sent_and_shown_nowhere(self):
        self.assert_sent_and_kept_secret("-u", "user:" + SECRET, self.url)
        self.assert_sent_and_kept_secret("--user=user:" + SECRET, self.url)

    def test_of_the_url_are_sent_and_shown_nowhere(self):
        own = self.url.replace("//", "//user:%s@" % SECRET)
        self.assert_sent_and_kept_secret(own)
        self.assert_sent_and_kept_secret("-u", "other:other", own)

    def test_that_are_wrong_have_an_exit_status(self):
        result = self.fetch(
            "-q",
            "-o",
            "out",
            "-u",
            "user:" + SECRET[::-1],
            self.url,
            VORTAN_DLOG="file:" + self.path("log"),
        )
        self.assert_failed(result, NOT_AUTHORIZED, self.url + ": HTTP status 401")
        self.assertEqual(self.server.requests.qsize(), 1)
        self.assertNotIn(SECRET[::-1].encode(), self.read("log"))

    def test_are_not_sent_to_another_server(self):
        other = self.serve("/b").replace("127.0.0.1", "localhost")
        self.server.answers["/a"] = lambda request: request.reply(
            status=302, headers=[("Location", other)]
        )
        self.assertEqual(
            self.fetch("-q", "-o", "out", "-u", "user:" + SECRET, self.url).status, SUCCEEDED
        )
        first, second = (self.server.requests.get() for _ in range(2))
        self.assertIsNotNone(first.headers["Authorization"])
        self.assertIsNone(second.headers["Authorization"])


if __name__ == "__main__":
    main()
