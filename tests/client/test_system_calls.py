"""How a trace comes about in the system's eyes, and what becomes of it when a call fails. Files that
bodies go to are the kit's.

The program has a watch on its calls: WatchedCalls.cpp."""

import errno
import itertools
import os

from client_support import (
    CANNOT_WRITE,
    ClientTest,
    environment,
    main,
)


def trace_to(name):
    return ("-o", "/dev/null", "--trace", name)


class SystemCalls(ClientTest):
    OLD, NEW = b"before", b'"event":"complete"'

    def setUp(self):
        super().setUp()
        self.write("source", b"contents")
        os.mkdir(self.path("folder"))

    def run_watched(self, *arguments, faults=(), **options):
        """Each fault is a call, and the number of the error that it fails with once."""
        words = " ".join("%s=%d" % fault if isinstance(fault, tuple) else fault for fault in faults)
        changes = {"WATCHED_FAULTS": words, "WATCHED_CALLS": self.path("calls")}
        return self.run_client("source", *arguments, env=environment(**changes), **options)

    def calls(self):
        """Several of a kind in a row as one."""
        calls = self.read("calls").decode().splitlines()
        os.remove(self.path("calls"))
        return [call for call, _ in itertools.groupby(calls)]

    def write_old(self):
        self.write("folder/out", self.OLD)

    def assert_written(self, *faults):
        self.write_old()
        self.assert_succeeded(self.run_watched(*trace_to("folder/out"), faults=faults))
        self.assertIn(self.NEW, self.read("folder/out"))
        self.assertEqual(os.listdir(self.path("folder")), ["out"])

    def assert_fails(self, fault, contents):
        self.write_old()
        self.assert_failed(
            self.run_watched(*trace_to("folder/out"), faults=[fault]),
            CANNOT_WRITE,
            "cannot write 'folder/out': " + os.strerror(fault[1]),
        )
        self.assertIn(contents, self.read("folder/out"))
        self.assertEqual(os.listdir(self.path("folder")), ["out"])


class Order(SystemCalls):
    BEGIN = ["flock part", "write part"]
    END = ["fsync part", "close part", "rename", "fsync folder", "close folder"]

    def test_bytes_and_name_reach_the_disk_before_success_is_told(self):
        self.assert_succeeded(self.run_watched(*trace_to("folder/out")))
        self.assertEqual(self.calls(), [*self.BEGIN, *self.END])

    def test_a_file_is_given_away_only_when_it_is_whole(self):
        self.assert_written()
        self.assertEqual(self.calls(), [*self.BEGIN, "fchown part", "fchmod part", *self.END])

    def test_a_file_in_the_current_folder_is_no_exception(self):
        self.assert_succeeded(self.run_watched(*trace_to("out")))
        self.assertEqual(self.calls(), [*self.BEGIN, *self.END])

    def test_the_picture_of_a_trace_reaches_the_disk_too(self):
        self.assert_succeeded(self.run_watched("-o", "/dev/null", "--trace-plot", "folder/out"))
        self.assertEqual(self.calls(), [*self.BEGIN, *self.END])


class Faults(SystemCalls):
    def test_a_failure_before_the_end_leaves_the_old_file(self):
        for fault in (
            ("write:part", errno.ENOSPC),
            ("fsync:part", errno.EIO),
            ("fsync:part", errno.EROFS),
            ("close:part", errno.EDQUOT),
            ("open:folder", errno.EMFILE),
            ("rename", errno.EACCES),
        ):
            self.assert_fails(fault, self.OLD)

    def test_a_name_that_does_not_reach_the_disk_is_told(self):
        self.assert_fails(("fsync:folder", errno.EIO), self.NEW)

    def test_a_file_system_that_cannot_sync_is_written_to(self):
        for error in (errno.EINVAL, errno.ENOTSUP):
            self.assert_written(("fsync:part", error), ("fsync:folder", error))

    def test_a_folder_that_cannot_be_opened_is_written_to(self):
        self.assert_written(("open:folder", errno.EACCES))
        self.assertNotIn("fsync folder", self.calls())

    def test_a_file_that_cannot_be_given_away_is_kept(self):
        self.assert_written(("fchown:part", errno.EPERM), ("fchmod:part", errno.EPERM))

    def test_an_interrupted_call_is_made_again(self):
        for faults in (
            [("write:part", errno.EINTR)],
            [("write:part", errno.EAGAIN), ("poll:part", errno.EINTR)],
            [("fsync:part", errno.EINTR)],
            [("fsync:folder", errno.EINTR)],
        ):
            self.assert_written(*faults)

    def test_an_interrupted_close_has_closed(self):
        self.assert_written(("close:part", errno.EINTR))

    def test_an_interrupted_reading_of_data_goes_on(self):
        url = self.serve("/a", b"")
        changes = {"WATCHED_FAULTS": "read=%d" % errno.EINTR}
        self.assert_succeeded(self.run_client(url, "-d", "@source", env=environment(**changes)))
        self.assertEqual(self.server.requests.get().body, b"contents")

    def test_a_stream_whose_bytes_are_lost_in_the_end_is_told(self):
        with open(self.path("stream.part"), "wb") as stream:
            result = self.run_watched(faults=[("close:part", errno.ENOSPC)], stdout=stream)
        self.assert_failed(
            result, CANNOT_WRITE, "source: cannot write standard output: No space left on device"
        )

    def test_a_part_that_others_take_for_a_stale_one_is_made_again(self):
        self.assert_written("others-removed")
        self.assertEqual(self.calls().count("rename"), 1)
        self.write_old()
        locked_by_others = ("flock:part", errno.EWOULDBLOCK)
        self.assert_succeeded(self.run_watched(*trace_to("folder/out"), faults=[locked_by_others]))
        self.assertIn(self.NEW, self.read("folder/out"))
        # They hold its lock and are about to remove it.
        self.assertEqual(len(os.listdir(self.path("folder"))), 2)

    def test_a_file_system_without_locks_is_written_to(self):
        for error in (errno.ENOLCK, errno.ENOTSUP):
            self.assert_succeeded(
                self.run_watched(*trace_to("folder/out"), faults=[("flock:part", error)])
            )
            self.assertEqual(os.listdir(self.path("folder")), ["out"])
            self.assertIn("rename without a lock", self.calls())

    def test_a_file_that_others_make_is_left_to_them(self):
        self.write_old()
        self.assert_succeeded(self.run_watched(*trace_to("folder/out"), faults=["others-made"]))
        self.assertIn(self.NEW, self.read("folder/out"))
        (others,) = (name for name in os.listdir(self.path("folder")) if name != "out")
        self.assertEqual(self.read("folder/" + others), b"theirs")


if __name__ == "__main__":
    main()
