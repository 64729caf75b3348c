"""What --trace writes of the course of each transfer."""

import json
import os

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    Gate,
    INTERRUPTED,
    WRONG_ARGUMENTS,
    main,
)


class Trace(ClientTest):
    def events(self, data=None):
        """The events of each source, in their order."""
        lines = (self.read("trace") if data is None else data).decode("ascii").splitlines()
        every = [json.loads(line) for line in lines]
        times = [event["time"] for event in every]
        self.assertEqual(times, sorted(times))
        sources = {}
        for event in every:
            sources.setdefault(event["index"], []).append(event)
        return sources

    def names(self, data=None):
        """The names of one source's events, several chunks in a row as one."""
        names = []
        for event in self.events(data)[0]:
            if names[-1:] != ["chunk"] or event["event"] != "chunk":
                names.append(event["event"])
        return names

    def test_tells_the_course_of_a_transfer(self):
        url = self.serve("/a")
        self.assert_succeeded(self.run_client(url, "-o", "out", "--trace", "trace"))
        self.assertEqual(
            self.names(), ["queued", "started", "first-header", "first-body", "chunk", "complete"]
        )
        events = self.events()[0]
        self.assertEqual(events[0]["source"], url)
        chunks = [event["bytes"] for event in events if event["event"] == "chunk"]
        self.assertGreaterEqual(len(chunks), 1)
        self.assertEqual(sum(chunks), len(BODY))
        self.assertEqual((events[-1]["bytes"], events[-1]["result"]), (len(BODY), "succeeded"))
        self.assertEqual(self.read("out"), BODY)

    def test_knows_no_header_of_a_file(self):
        self.write("a", BODY)
        self.assert_succeeded(self.run_client("a", "-o", "out", "--trace", "trace"))
        self.assertEqual(self.names(), ["queued", "started", "first-body", "chunk", "complete"])

    def test_knows_no_chunk_of_an_empty_body(self):
        url = self.serve("/a", b"")
        self.assert_succeeded(self.run_client("--plain", url, "-o", "out", "--trace", "trace"))
        self.assertEqual(self.names(), ["queued", "started", "first-header", "complete"])

    def test_tells_of_the_first_header_and_of_no_other(self):
        self.serve("/a")
        url = self.serve("/first", b"gone", status=302, headers=[("Location", "/a")])
        self.assert_succeeded(self.run_client(url, "-o", "out", "--trace", "trace"))
        self.assertEqual(self.names().count("first-header"), 1)

    def test_has_one_chunk_of_a_plain_transfer(self):
        self.assert_succeeded(
            self.run_client("--plain", self.serve("/a"), "-o", "/dev/null", "--trace", "trace")
        )
        events = self.events()[0]
        self.assertEqual(
            [event["event"] for event in events],
            ["queued", "started", "first-header", "first-body", "chunk", "complete"],
        )
        self.assertEqual(events[4]["bytes"], len(BODY))

    def test_tells_when_a_delay_is_over_in_microseconds(self):
        for delay in (("--fixed-delay", "20"), ("--random-delay", "0:0")):
            self.assert_succeeded(
                self.run_client(self.serve("/a"), *delay, "-o", "out", "--trace", "trace")
            )
            self.assertEqual(
                self.names(),
                ["queued", "started", "slept", "first-header", "first-body", "chunk", "complete"],
            )
            if delay[1] == "20":
                _, started, slept, *_ = self.events()[0]
                self.assertGreaterEqual(slept["time"] - started["time"], 20000)

    def test_tells_that_a_delay_was_cut_short(self):
        delay = ("--fixed-delay", "9223372036854775807")
        client = self.start(self.serve("/a"), *delay, "-o", "out", "--trace", "/dev/stderr")
        client.wait_for_line_with("started")
        client.interrupt()
        result = client.finish()
        self.assertEqual(result.status, INTERRUPTED)
        lines = [line for line in result.errors.splitlines() if line.startswith("{")]
        self.assertEqual(self.names("\n".join(lines).encode()), ["queued", "started", "complete"])
        self.assertIn("interrupted", lines[-1])
        self.assert_files()

    def test_tells_of_sources_that_wait_for_their_turn(self):
        urls = [self.serve("/%d" % index) for index in range(6)]
        self.assert_succeeded(self.run_client("-q", "-O", *urls, "--trace", "trace"))
        sources = self.events()
        self.assertEqual(sorted(sources), list(range(6)))
        for index, events in sources.items():
            self.assertEqual(events[0]["source"], urls[index])
            self.assertEqual([events[1]["event"], events[-1]["event"]], ["started", "complete"])
        first_end = min(events[-1]["time"] for events in sources.values())
        self.assertGreaterEqual(sources[4][1]["time"], first_end)

    def test_is_written_of_transfers_that_fail(self):
        os.mkdir(self.path("folder"))
        result = self.run_client(
            "-q", "-O", self.server.url("/missing"), self.serve("/folder"), "--trace", "trace"
        )
        self.assertEqual(result.status, CANNOT_WRITE)
        sources = self.events()
        self.assertEqual(sources[0][-1]["result"], "failed")
        self.assertEqual([event["event"] for event in sources[1]], ["queued", "complete"])
        self.assertEqual(sources[1][-1]["result"], "not written")

    def test_is_written_after_an_interruption(self):
        gate = Gate(BODY, 1000)
        self.addCleanup(gate.open)
        for index in range(5):
            self.server.answers["/%d" % index] = gate
        client = self.start(
            "-q", "-O", *(self.server.url("/%d" % index) for index in range(5)), "--trace", "trace"
        )
        for _ in range(4):
            gate.wait_until_reached()
        client.interrupt()
        self.assertEqual(client.finish().status, INTERRUPTED)
        sources = self.events()
        self.assertEqual({events[-1]["result"] for events in sources.values()}, {"interrupted"})
        self.assertEqual([event["event"] for event in sources[4]], ["queued", "complete"])
        self.assert_files("trace")

    def test_may_go_to_standard_output(self):
        self.write("a", BODY)
        result = self.run_client("a", "-o", "out", "--trace", "-")
        self.assert_succeeded(result)
        self.assertEqual(self.names(result.output)[-1], "complete")

    def test_keeps_the_bytes_of_a_name_from_breaking_a_line(self):
        name = b'\n\x1b\xff"'
        self.write("a", BODY)
        os.rename(self.path("a"), os.path.join(self.folder.encode(), name))
        self.assert_succeeded(self.run_client(b"./" + name, "-o", "out", "--trace", "trace"))
        self.assertEqual(self.events()[0][0]["source"], './\n\x1b\ufffd"')

    def test_that_cannot_be_written_is_an_error_and_the_body_still_arrives(self):
        full = self.device("full")
        result = self.run_client(self.serve("/a"), "-o", "out", "--trace", full)
        self.assertEqual(
            (result.status, result.errors),
            (
                CANNOT_WRITE,
                "vortan-transfer: cannot write '%s': " "No space left on device\n" % full,
            ),
        )
        self.assertEqual(self.read("out"), BODY)

    def test_without_a_place_keeps_transfers_from_starting(self):
        result = self.run_client(self.serve("/a"), "-o", "out", "--trace", "nowhere/trace")
        self.assertEqual(
            (result.status, result.errors),
            (
                CANNOT_WRITE,
                "vortan-transfer: cannot write 'nowhere/trace': " "No such file or directory\n",
            ),
        )
        self.assertTrue(self.server.requests.empty())
        self.assert_files()

    def test_shares_its_place_with_nothing(self):
        url = self.serve("/a")
        for arguments, refusal in (
            (("--trace", "-"), "standard output has the body"),
            (("-o", "out", "--json", "--trace", "-"), "standard output has --json"),
            (("-O", "--trace", "./a"), "'./a' has the body"),
        ):
            self.assert_failed(
                self.run_client(url, *arguments),
                WRONG_ARGUMENTS,
                "--trace: %s already, name another file (--help tells more)" % refusal,
            )
        self.assertTrue(self.server.requests.empty())


if __name__ == "__main__":
    main()
