"""A password in a URL reaches the server and nothing that is shown or written."""

import base64
import json

from client_support import (
    BODY,
    ClientTest,
    STATUS_IS_ERROR,
    TRANSFER_FAILED,
    WRONG_ARGUMENTS,
    environment,
    main,
)

SECRET = "s3cret"


class Password(ClientTest):
    def url_with(self, path, credentials="user:" + SECRET):
        return self.server.url(path).replace("://", "://%s@" % credentials)

    def shown(self, path):
        return self.url_with(path, "user:***")

    def assert_secret(self, *texts):
        for text in texts:
            text = text.decode() if isinstance(text, bytes) else text
            self.assertNotIn(SECRET, text)

    def test_is_sent(self):
        self.serve("/a")
        self.assert_succeeded(self.run_client(self.url_with("/a"), "-o", "out"))
        self.assertEqual(self.read("out"), BODY)
        kind, credentials = self.server.requests.get().headers["Authorization"].split()
        self.assertEqual(
            (kind, base64.b64decode(credentials)), ("Basic", b"user:" + SECRET.encode())
        )

    def test_is_not_in_a_failure(self):
        self.assert_failed(
            self.run_client(self.url_with("/missing"), "-o", "out"),
            STATUS_IS_ERROR,
            self.shown("/missing") + ": HTTP status 404",
        )

    def test_is_not_in_the_summary(self):
        self.serve("/a")
        result = self.run_client("-O", self.url_with("/a"), self.url_with("/b"))
        self.assertIn("  %s\n" % self.shown("/a"), result.errors)
        self.assert_secret(result.errors)

    def test_is_not_in_the_log(self):
        self.serve("/a")
        result = self.run_client("-v", self.url_with("/a"), "-o", "out")
        self.assertIn("Url: %s\n" % self.shown("/a"), result.errors)
        self.assert_secret(result.errors)
        self.run_client(
            self.url_with("/missing"), env=environment(VORTAN_DLOG="file:" + self.path("log"))
        )
        self.assertIn("Url: " + self.shown("/missing"), self.read("log").decode())
        self.assert_secret(self.read("log"))

    def test_is_not_in_json(self):
        self.serve("/a")
        result = self.run_client("-q", "--json", "-O", self.url_with("/a"), self.url_with("/b"))
        told = {one["index"]: one for one in map(json.loads, result.output.splitlines())}
        self.assertEqual(
            [told[0]["source"], told[1]["source"]], [self.shown("/a"), self.shown("/b")]
        )
        self.assert_secret(result.output, result.errors)

    def test_is_not_in_a_trace_or_its_picture(self):
        self.serve("/a")
        self.assert_succeeded(
            self.run_client(
                self.url_with("/a"), "-o", "out", "--trace", "trace", "--trace-plot", "plot"
            )
        )
        self.assertIn('"source":"%s"' % self.shown("/a"), self.read("trace").decode())
        self.assertIn("<title>%s: " % self.shown("/a"), self.read("plot").decode())
        self.assert_secret(self.read("trace"), self.read("plot"))

    def test_is_not_in_the_refusal_of_an_argument(self):
        for arguments in (
            ("-O", self.url_with("/")),
            ("file://user:%s@elsewhere/a" % SECRET,),
            ("-X", self.url_with("/a"), "a"),
            ("--frob=" + self.url_with("/a"),),
            ("--resource", "/r", "--handler", "vendor", self.url_with("/a")),
        ):
            result = self.run_client(*arguments)
            self.assertEqual(result.status, WRONG_ARGUMENTS)
            self.assertIn("user:***@", result.errors)
            self.assert_secret(result.errors)

    def test_is_not_shown_in_any_form_of_a_url(self):
        address = self.server.url("/missing").removeprefix("http://")
        for text in (
            "user:%s@" + address,
            "http:/user:%s@" + address,
            "HTTP://:%s@" + address,
            "http://user:x@%s@" + address,
            "http://user:a b%s@" + address,
            "http://user:a/%s@" + address,
            "http://user:a#%s@" + address,
            self.server.url("/missing?next=http://user:%s@localhost/"),
        ):
            result = self.run_client("-v", "--handler", "curl", text % SECRET)
            self.assertIn(result.status, (STATUS_IS_ERROR, TRANSFER_FAILED), text)
            self.assertIn(":***@", result.errors)
            self.assert_secret(result.errors)

    def test_is_not_seen_where_there_is_none(self):
        for text in (
            self.server.url("/a@b"),
            self.server.url("/a:b@c"),
            self.server.url("/?a:b@c"),
            "http://user@[::1]:1/a@b",
            "http://[::1]:1/a:b@c",
        ):
            result = self.run_client(text)
            self.assertIn("vortan-transfer: %s: " % text, result.errors)


if __name__ == "__main__":
    main()
