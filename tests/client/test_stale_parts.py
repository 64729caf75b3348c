"""What killed programs leave of a trace is removed, and nothing else. Parts of bodies are the kit's."""

import os

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    Gate,
    SANITIZED,
    STATUS_IS_ERROR,
    TIMEOUT,
    main,
)


def trace_to(name):
    return ("-o", "/dev/null", "--trace", name)


class StaleParts(ClientTest):
    def setUp(self):
        super().setUp()
        self.gate = Gate(BODY, 1000)
        self.server.answers["/slow"] = self.gate
        self.addCleanup(self.gate.open)
        self.slow = self.server.url("/slow")
        self.url = self.serve("/a", b"contents")

    def start_and_reach_the_middle(self, *arguments):
        client = self.start(self.slow, *arguments)
        self.gate.wait_until_reached()
        return client

    def kill_in_the_middle(self, *arguments):
        client = self.start_and_reach_the_middle(*arguments)
        client.process.kill()
        client.process.wait(TIMEOUT)

    def assert_trace(self):
        self.assertIn(b'"complete"', self.read("out"))

    def parts(self, folder="."):
        return [name for name in os.listdir(self.path(folder)) if name.endswith(".part")]

    def test_are_removed_by_the_next_run_for_the_same_file(self):
        for _ in range(2):
            self.kill_in_the_middle(*trace_to("out"))
            self.assertRegex(*self.parts(), r"^\.out\.\d+\.part$")
        self.assert_succeeded(self.run_client(self.url, *trace_to("out")))
        self.assert_trace()
        self.assert_files("out")

    def test_are_removed_beside_the_file_that_a_link_leads_to(self):
        os.mkdir(self.path("real"))
        os.symlink("real/out", self.path("link"))
        self.kill_in_the_middle(*trace_to("link"))
        self.assertEqual(len(self.parts("real")), 1)
        self.assert_succeeded(self.run_client(self.url, *trace_to("real/out")))
        self.assertEqual(os.listdir(self.path("real")), ["out"])

    def test_of_a_file_with_a_long_name_are_removed(self):
        name = "n" * 255
        self.kill_in_the_middle(*trace_to(name))
        self.assert_succeeded(self.run_client(self.url, *trace_to(name)))
        self.assert_files(name)

    def test_of_a_file_with_special_characters_in_its_name_are_removed(self):
        name = "a.[0-9]+*.part"
        self.kill_in_the_middle(*trace_to("./" + name))
        self.assert_succeeded(self.run_client(self.url, *trace_to("./" + name)))
        self.assert_files(name)

    def test_are_removed_by_a_run_that_fails(self):
        self.kill_in_the_middle(*trace_to("out"))
        self.assertEqual(
            self.run_client(self.server.url("/missing"), *trace_to("out")).status, STATUS_IS_ERROR
        )
        self.assert_files("out")

    def test_of_other_files_stay(self):
        self.kill_in_the_middle(*trace_to("other"))
        (other,) = self.parts()
        self.assert_succeeded(self.run_client(self.url, *trace_to("out")))
        self.assert_files(other, "out")

    def test_are_not_what_has_a_similar_name(self):
        names = [
            "out.12.part",
            ".out.part",
            ".out..part",
            ".out.12x.part",
            ".out.x12.part",
            ".out.-12.part",
            ".out.+12.part",
            ".out. 12.part",
            ".out.012.part",
            ".out.4294967296.part",
            ".out.1.2.part",
            ".out.12.part.bak",
            ".out.12",
            ".out2.12.part",
            ".xout.12.part",
            "..out.12.part",
            ".OUT.12.part",
        ]
        for name in names:
            self.write(name, b"kept")
        self.write("file", b"kept")
        os.mkdir(self.path(".out.1.part"))
        os.symlink("file", self.path(".out.2.part"))
        os.mkfifo(self.path(".out.3.part"))
        self.addCleanup(os.close, os.open(self.path(".out.3.part"), os.O_RDONLY | os.O_NONBLOCK))
        self.write(".out.0.part", b"stale")
        self.write(".out.4294967295.part", b"stale")
        self.assert_succeeded(self.run_client(self.url, *trace_to("out")))
        self.assert_files(*names, ".out.1.part", ".out.2.part", ".out.3.part", "file", "out")

    def test_are_not_what_a_running_program_writes(self):
        client = self.start_and_reach_the_middle(*trace_to("out"))
        (part,) = self.parts()
        self.assert_succeeded(self.run_client(self.url, *trace_to("out")))
        self.assertEqual(self.parts(), [part])
        self.gate.open()
        self.assert_succeeded(client.finish())
        self.assert_trace()
        self.assert_files("out")

    def test_are_not_taken_from_programs_that_start_and_end_together(self):
        self.write("source", b"contents")
        for _ in range(2 if EMULATED or SANITIZED else 10):
            clients = [self.start("source", *trace_to("out")) for _ in range(8)]
            for client in clients:
                self.assert_succeeded(client.finish())
            self.assert_trace()
            self.assert_files("out", "source")


if __name__ == "__main__":
    main()
