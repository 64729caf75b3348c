"""What a script is told of each source."""

import json
import os

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    Gate,
    INTERRUPTED,
    SUCCEEDED,
    STATUS_IS_ERROR,
    Terminal,
    WRONG_ARGUMENTS,
    main,
)


def objects_of(result):
    lines = result.output.decode("ascii").splitlines(keepends=True)
    assert all(line.endswith("\n") for line in lines)
    return [json.loads(line) for line in lines]


class Json(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a")

    def test_tells_of_a_transfer_that_succeeded(self):
        result = self.run_client("--json", self.url, "-o", "out")
        self.assert_succeeded(result)
        (told,) = objects_of(result)
        self.assertGreater(told.pop("seconds"), 0)
        self.assertEqual(
            told,
            {
                "index": 0,
                "source": self.url,
                "handler": "session",
                "file": "out",
                "result": "succeeded",
                "error": None,
                "category": "success",
                "http_status": 200,
                "bytes": len(BODY),
                "sent": 0,
                "attempts": 1,
            },
        )
        self.assertEqual(self.read("out"), BODY)

    def test_tells_of_a_transfer_that_failed(self):
        url = self.server.url("/missing")
        result = self.run_client("--json", url, "-o", "out")
        self.assert_failed(result, STATUS_IS_ERROR, "%s: HTTP status 404" % url)
        (told,) = objects_of(result)
        self.assertEqual(
            (told["result"], told["error"], told["http_status"], told["bytes"]),
            ("failed", "HTTP status 404", 404, 0),
        )

    def test_tells_of_a_source_that_is_not_modified(self):
        url = self.serve("/kept", b"", status=304)
        (told,) = objects_of(self.run_client("--json", url, "-o", "out"))
        self.assertEqual(
            (told["result"], told["error"], told["http_status"], told["bytes"]),
            ("not modified", None, 304, 0),
        )

    def test_tells_of_a_file_that_has_no_status(self):
        self.write("a", b"")
        (told,) = objects_of(self.run_client("--json", "a", "-o", "out"))
        self.assertEqual((told["handler"], told["http_status"], told["bytes"]), ("file", None, 0))

    def test_tells_of_a_body_that_is_not_written(self):
        result = self.run_client("--json", self.url, "-o", self.device("full"))
        self.assertEqual(result.status, CANNOT_WRITE)
        (told,) = objects_of(result)
        self.assertEqual(told["result"], "not written")
        self.assertIn("No space left on device", told["error"])

    def test_has_a_line_for_each_source_whatever_becomes_of_it(self):
        os.mkdir(self.path("folder"))
        urls = [self.serve("/%d" % index) for index in range(6)]
        urls += [self.server.url("/missing"), self.serve("/folder")]
        result = self.run_client("-q", "--json", "-O", *urls)
        told = {one["index"]: one for one in objects_of(result)}
        self.assertEqual([told[index]["source"] for index in range(len(urls))], urls)
        self.assertEqual(
            [told[index]["result"] for index in range(len(urls))],
            6 * ["succeeded"] + ["failed", "not written"],
        )

    def test_has_a_line_for_each_source_after_an_interruption(self):
        gate = Gate(BODY, 1000)
        self.addCleanup(gate.open)
        for index in range(5):
            self.server.answers["/%d" % index] = gate
        client = self.start(
            "-q", "--json", "-O", *(self.server.url("/%d" % index) for index in range(5))
        )
        for _ in range(4):
            gate.wait_until_reached()
        client.interrupt()
        result = client.finish()
        self.assertEqual(result.status, INTERRUPTED)
        told = sorted(objects_of(result), key=lambda one: one["index"])
        self.assertEqual([one["index"] for one in told], list(range(5)))
        self.assertEqual({one["result"] for one in told}, {"interrupted"})
        self.assertEqual(
            [one["error"] for one in told],
            4 * ["interrupted"] + ["interrupted before it was started"],
        )

    def test_has_the_line_of_a_source_as_soon_as_that_has_ended(self):
        gate = Gate(BODY, 1000)
        self.server.answers["/slow"] = gate
        self.addCleanup(gate.open)
        client = self.start("-q", "--json", "-O", self.server.url("/slow"), self.url)
        self.assertEqual(json.loads(client.process.stdout.readline())["source"], self.url)
        gate.open()
        self.assertEqual([one["index"] for one in objects_of(client.finish())], [0])

    def test_is_valid_whatever_bytes_a_name_has(self):
        name = bytes(range(1, 256)).replace(b"/", b"")
        self.write("a", BODY)
        os.rename(self.path("a"), self.path("").encode() + name)
        result = self.run_client("--json", b"./" + name, "-o", "out")
        self.assert_succeeded(result)
        (told,) = objects_of(result)
        readable = bytes(range(1, 128)).replace(b"/", b"").decode()
        self.assertTrue(told["source"].startswith("./" + readable + "\ufffd"))

    def test_is_refused_beside_the_body(self):
        for output in ((), ("-o", "-"), ("-o", "/dev/stdout")):
            result = self.run_client("--json", self.url, *output)
            self.assert_failed(
                result,
                WRONG_ARGUMENTS,
                "--json: standard output has the body already, write that to a "
                "file with -o or -O (--help tells more)",
            )
            self.assertEqual(result.output, b"")
        self.assertTrue(self.server.requests.empty())

    def test_that_cannot_be_written_is_an_error_and_the_bodies_still_arrive(self):
        with open("/dev/full", "wb") as full:
            result = self.run_client("-q", "--json", "-O", self.url, self.serve("/b"), stdout=full)
        self.assertEqual(
            (result.status, result.errors),
            (
                CANNOT_WRITE,
                "vortan-transfer: cannot write standard output: " "No space left on device\n",
            ),
        )
        self.assertEqual((self.read("a"), self.read("b")), (BODY, BODY))

    def test_takes_the_place_of_the_progress_on_a_terminal(self):
        gate = Gate(BODY, 1000)
        self.server.answers["/slow"] = gate
        self.addCleanup(gate.open)
        terminal = Terminal()
        client = self.start(
            "--json",
            self.server.url("/slow"),
            "-o",
            "out",
            stdout=terminal.slave,
            stderr=terminal.slave,
        )
        terminal.wait_for(rb"1000 B of 1\.2 MiB")
        gate.open()
        self.assertEqual(client.finish().status, SUCCEEDED)
        self.assertRegex(terminal.close_and_read(), r'\r +\r\{"index":0,[^\r\n]*\}\r\n$')


if __name__ == "__main__":
    main()
