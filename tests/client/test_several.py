"""Several sources run side by side, as many as the library takes."""

import os
import threading

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    TIMEOUT,
    TRANSFER_FAILED,
    main,
)

MAX_PARALLEL = 4


class Several(ClientTest):
    def test_four_run_at_a_time_and_the_others_wait_their_turn(self):
        count = 24
        first_four = threading.Barrier(MAX_PARALLEL)
        lock = threading.Lock()
        running = 0
        most = 0

        def answer(request):
            nonlocal running, most
            with lock:
                running += 1
                most = max(most, running)
                first = self.server.requests.qsize() <= MAX_PARALLEL
            if first:
                first_four.wait(TIMEOUT)
            request.send_header(200, [("Content-Length", len(BODY))])
            request.send(BODY[:-1])
            with lock:
                running -= 1
            request.send(BODY[-1:])

        urls = []
        for index in range(count):
            path = "/source%d" % index
            self.server.answers[path] = answer
            urls.append(self.server.url(path))
        self.assert_succeeded(self.run_client("-q", "-O", *urls))
        self.assertEqual(most, MAX_PARALLEL)
        self.assertEqual(self.server.requests.qsize(), count)
        self.assert_files(*("source%d" % index for index in range(count)))
        for index in range(count):
            self.assertEqual(self.read("source%d" % index), BODY)

    def test_no_source_is_lost_when_hundreds_end_at_once(self):
        os.mkdir(self.path("copies"))
        names = []
        for index in range(500):
            names.append("source%d" % index)
            self.write(names[-1], names[-1].encode())
        result = self.run_client(
            "-q", "-O", *(self.path(name) for name in names), cwd=self.path("copies")
        )
        self.assert_succeeded(result)
        for name in names:
            self.assertEqual(self.read("copies/" + name), name.encode())

    def test_a_failure_does_not_stop_the_others(self):
        self.serve("/a")
        missing = self.server.url("/missing")
        os.mkdir(self.path("inside"))
        self.write("inside/missing", b"before")
        result = self.run_client(
            "-q",
            "-O",
            self.path("nowhere"),
            missing,
            self.server.url("/a"),
            cwd=self.path("inside"),
        )
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertEqual(
            sorted(result.errors.splitlines()),
            sorted(
                [
                    "vortan-transfer: %s: No such file or directory" % self.path("nowhere"),
                    "vortan-transfer: %s: HTTP status 404" % missing,
                ]
            ),
        )
        self.assertEqual(self.read("inside/a"), BODY)
        self.assertEqual(self.read("inside/missing"), b"before")
        self.assertEqual(sorted(os.listdir(self.path("inside"))), ["a", "missing"])

    def test_an_unwritable_target_outranks_a_failed_transfer(self):
        self.serve("/a")
        self.serve("/folder")
        os.mkdir(self.path("folder"))
        missing, folder = self.server.url("/missing"), self.server.url("/folder")
        for urls in ((missing, folder), (folder, missing)):
            result = self.run_client("-q", "-O", *urls, self.server.url("/a"))
            self.assertEqual(result.status, CANNOT_WRITE)
            self.assertEqual(
                sorted(result.errors.splitlines()),
                sorted(
                    [
                        "vortan-transfer: %s: HTTP status 404" % missing,
                        "vortan-transfer: %s: cannot write 'folder': Is a directory" % folder,
                    ]
                ),
            )
            self.assertEqual(self.read("a"), BODY)
            self.assert_files("a", "folder")

    def test_many_unwritable_targets_do_not_hold_up_the_others(self):
        urls = []
        for index in range(10):
            os.mkdir(self.path("folder%d" % index))
            urls.append(self.serve("/folder%d" % index))
        urls.append(self.serve("/a"))
        result = self.run_client("-q", "-O", *urls)
        self.assertEqual(result.status, CANNOT_WRITE)
        self.assertEqual(len(result.errors.splitlines()), 10)
        self.assertEqual(self.read("a"), BODY)

    def test_delayed_sources_are_transferred(self):
        for delay in (("--fixed-delay", "1"), ("--random-delay", "0:0")):
            urls = [self.serve("/source%d" % index) for index in range(6)]
            self.assert_succeeded(self.run_client("-q", "-O", *delay, *urls))
            for index in range(6):
                self.assertEqual(self.read("source%d" % index), BODY)
                os.remove(self.path("source%d" % index))


if __name__ == "__main__":
    main()
