"""A file appears under its name only when it is whole; what cannot be written is told."""

import contextlib
import os
import resource
import stat
import subprocess
import tempfile

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    Gate,
    TIMEOUT,
    WRONG_ARGUMENTS,
    main,
)

NOBODY = 65534


class Targets(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a")

    def mode_of(self, name):
        return stat.S_IMODE(os.stat(self.path(name)).st_mode)

    def test_a_file_appears_only_when_it_is_whole(self):
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        self.write("out", b"before")
        client = self.start(self.url, "-o", "out")
        gate.wait_until_reached()
        self.assertEqual(self.read("out"), b"before")
        gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.read("out"), BODY)
        self.assert_files("out")

    def test_a_made_file_has_the_permissions_that_the_umask_leaves(self):
        for umask in (0o022, 0o077, 0):
            self.assert_succeeded(
                self.run_client(self.url, "-o", "out", preexec_fn=lambda: os.umask(umask))
            )
            self.assertEqual(self.mode_of("out"), 0o666 & ~umask)
            os.remove(self.path("out"))

    def test_a_replaced_file_keeps_its_permissions_and_owner(self):
        self.write("out", b"before")
        if os.geteuid() == 0:
            os.chown(self.path("out"), NOBODY, NOBODY)
        before = os.stat(self.path("out"))
        for mode in (0o640, 0o666, 0o755):
            os.chmod(self.path("out"), mode)
            self.assert_succeeded(
                self.run_client(self.url, "-o", "out", preexec_fn=lambda: os.umask(0o077))
            )
            after = os.stat(self.path("out"))
            self.assertEqual(self.mode_of("out"), mode)
            self.assertEqual((after.st_uid, after.st_gid), (before.st_uid, before.st_gid))

    def test_another_group_gets_nothing(self):
        if os.geteuid() != 0:
            self.skipTest("only root can give a file to a group that the user is not in")
        os.chown(self.folder, NOBODY, NOBODY)
        for mode, expected in ((0o660, 0o600), (0o664, 0o604), (0o604, 0o604)):
            self.write("out", b"before")
            os.chown(self.path("out"), NOBODY, 1)
            os.chmod(self.path("out"), mode)
            try:
                result = self.run_client(
                    self.url, "-o", "out", user=NOBODY, group=NOBODY, extra_groups=[]
                )
            except PermissionError:
                self.skipTest("another user cannot start the program from where it is")
            self.assert_succeeded(result)
            self.assertEqual(os.stat(self.path("out")).st_gid, NOBODY)
            self.assertEqual(self.mode_of("out"), expected)

    def part_in_the_middle(self, umask):
        """The status of the partial file while it is written."""
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        client = self.start(self.url, "-o", "out", preexec_fn=lambda: os.umask(umask))
        gate.wait_until_reached()
        status = os.lstat(self.path("out.part"))
        gate.open()
        self.assert_succeeded(client.finish())
        return status

    def test_a_part_is_as_readable_as_the_file_that_it_becomes(self):
        for umask in (0o022, 0o077):
            part = self.part_in_the_middle(umask)
            self.assertEqual(stat.S_IMODE(part.st_mode), 0o666 & ~umask)
            self.assertEqual(self.mode_of("out"), 0o666 & ~umask)
            os.remove(self.path("out"))

    def test_a_part_is_the_users_alone_until_it_replaces_a_file(self):
        self.write("out", b"before")
        if os.geteuid() == 0:
            os.chown(self.path("out"), NOBODY, NOBODY)
        for mode in (0o644, 0o660, 0o755):
            os.chmod(self.path("out"), mode)
            part = self.part_in_the_middle(0)
            self.assertEqual((stat.S_IMODE(part.st_mode), part.st_uid), (0o600, os.geteuid()))
            self.assertEqual(self.mode_of("out"), mode)

    def test_a_replaced_file_has_the_permissions_that_the_old_one_had_last(self):
        self.write("out", b"before")
        os.chmod(self.path("out"), 0o644)
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        client = self.start(self.url, "-o", "out")
        gate.wait_until_reached()
        os.chmod(self.path("out"), 0o600)
        gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.mode_of("out"), 0o600)

    def test_a_file_that_was_removed_meanwhile_keeps_its_permissions(self):
        self.write("out", b"before")
        os.chmod(self.path("out"), 0o640)
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        client = self.start(self.url, "-o", "out")
        gate.wait_until_reached()
        os.remove(self.path("out"))
        gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.mode_of("out"), 0o640)

    def test_a_replaced_file_may_be_dated_beyond_32_bits_of_seconds(self):
        self.write("out", b"before")
        os.chmod(self.path("out"), 0o640)
        os.utime(self.path("out"), (1 << 32, 1 << 32))
        self.assert_succeeded(self.run_client(self.url, "-o", "out"))
        self.assertEqual(self.mode_of("out"), 0o640)

    def test_a_link_stays_and_its_target_is_replaced(self):
        os.mkdir(self.path("folder"))
        os.symlink("folder/second", self.path("first"))
        os.symlink("real", self.path("folder/second"))
        for _ in ("made", "replaced"):
            self.assert_succeeded(self.run_client(self.url, "-o", "first"))
            self.assertTrue(os.path.islink(self.path("first")))
            self.assertTrue(os.path.islink(self.path("folder/second")))
            self.assertEqual(self.read("folder/real"), BODY)
        self.assert_files("first", "folder")

    def test_a_circle_of_links_is_refused(self):
        os.symlink("b", self.path("a"))
        os.symlink("a", self.path("b"))
        self.assert_failed(
            self.run_client(self.url, "-o", "a"),
            CANNOT_WRITE,
            self.url + ": cannot write 'a': Too many levels of symbolic links",
        )

    def test_a_long_name_is_possible(self):
        # With ".part.meta" it has the 255 bytes that a name may have.
        for name in ("n" * 245, "\u00e4" * 122):
            self.assert_succeeded(self.run_client(self.url, "-o", name))
            self.assert_files(name)
            os.remove(self.path(name))

    def test_a_device_is_written_to_and_stays(self):
        null = self.device("null")
        self.assert_succeeded(self.run_client(self.url, "-o", null))
        self.assertTrue(stat.S_ISCHR(os.stat(null).st_mode))

    def test_a_named_pipe_is_written_to_and_stays(self):
        os.mkfifo(self.path("pipe"))
        client = self.start(self.url, "-o", "pipe")
        with open(self.path("pipe"), "rb") as pipe:
            self.assertEqual(pipe.read(), BODY)
        self.assert_succeeded(client.finish())
        self.assert_files("pipe")

    def test_a_dash_means_standard_output(self):
        with open(self.path("log"), "wb") as log:
            log.write(b"before ")
            log.flush()
            self.assert_succeeded(self.run_client(self.url, "-o", "-", stdout=log))
            log.seek(0, os.SEEK_END)
            log.write(b" after")
        self.assertEqual(self.read("log"), b"before " + BODY + b" after")
        self.assert_files("log")

    def test_standard_output_gets_the_bytes_as_they_arrive(self):
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        client = self.start(self.url)
        self.assertEqual(client.process.stdout.read(1000), BODY[:1000])
        gate.open()
        result = client.finish()
        self.assert_succeeded(result)
        self.assertEqual(result.output, BODY[1000:])

    def test_standard_output_may_be_slow_and_not_block(self):
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        client = self.start(self.url, stdout=writer)
        os.close(writer)
        with open(reader, "rb") as pipe:
            self.assertEqual(pipe.read(), BODY)
        self.assert_succeeded(client.finish())

    def test_names_are_taken_from_the_sources(self):
        self.serve("/folder/b%20c", b"b c")
        self.write("d", b"d")
        os.mkdir(self.path("inside"))
        result = self.run_client(
            "-q",
            "-O",
            self.url + "?q=/x",
            self.server.url("/folder/b%20c"),
            self.path("d"),
            cwd=self.path("inside"),
        )
        self.assert_succeeded(result)
        self.assertEqual(self.read("inside/a"), BODY)
        self.assertEqual(self.read("inside/b c"), b"b c")
        self.assertEqual(self.read("inside/d"), b"d")

    def test_a_name_that_leaves_the_folder_is_refused_before_anything_starts(self):
        os.mkdir(self.path("inside"))
        url = self.server.url("/..%2Fescaped")
        self.assert_failed(
            self.run_client("-O", self.url, url, cwd=self.path("inside")),
            WRONG_ARGUMENTS,
            "'%s': has no name that a file can take, say where to write with -o "
            "(--help tells more)" % url,
        )
        self.assertTrue(self.server.requests.empty())
        self.assert_files("inside")

    def test_two_sources_of_one_name_are_refused_before_anything_starts(self):
        other = self.server.url("/b/a")
        self.assert_failed(
            self.run_client("-O", self.url, other),
            WRONG_ARGUMENTS,
            "'%s': another source is to be written to 'a' already (--help tells more)" % other,
        )
        self.assertTrue(self.server.requests.empty())
        self.assert_files()


class Unwritable(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a")

    def assert_cannot_write(self, result, target, cause):
        self.assert_failed(
            result, CANNOT_WRITE, "%s: cannot write %s: %s" % (self.url, target, cause)
        )

    def test_a_missing_folder_is_told_before_anything_is_requested(self):
        self.assert_cannot_write(
            self.run_client(self.url, "-o", "missing/out"),
            "'missing/out'",
            "No such file or directory",
        )
        self.assertTrue(self.server.requests.empty())

    def test_a_folder_that_takes_no_files_is_told(self):
        self.assert_cannot_write(
            self.run_client(self.url, "-o", "/proc/out"), "'/proc/out'", "No such file or directory"
        )

    def test_a_folder_is_no_target(self):
        os.mkdir(self.path("folder"))
        for name in ("folder", "folder/"):
            self.assert_cannot_write(
                self.run_client(self.url, "-o", name), "'%s'" % name, "Is a directory"
            )
        self.assertEqual(os.listdir(self.path("folder")), [])

    def test_a_full_device_stops_the_transfer(self):
        full = self.device("full")
        for mode in ("--segmented", "--plain"):
            self.assert_cannot_write(
                self.run_client(self.url, mode, "-o", full),
                "'%s'" % full,
                "No space left on device",
            )

    def test_a_full_standard_output_stops_the_transfer(self):
        with open("/dev/full", "wb") as full:
            for mode in ("--segmented", "--plain"):
                self.assert_cannot_write(
                    self.run_client(self.url, mode, stdout=full),
                    "standard output",
                    "No space left on device",
                )

    def test_a_header_that_cannot_be_written_is_told_once(self):
        with open("/dev/full", "wb") as full:
            for mode in ("--segmented", "--plain"):
                self.assert_cannot_write(
                    self.run_client(self.url, "-i", mode, stdout=full),
                    "standard output",
                    "No space left on device",
                )

    def test_a_closed_standard_output_is_told(self):
        self.assert_cannot_write(
            self.run_client(self.url, stdout=None, preexec_fn=lambda: os.close(1)),
            "standard output",
            "Bad file descriptor",
        )

    def test_a_reader_that_has_gone_is_told(self):
        reader, writer = os.pipe()
        os.close(reader)
        path = self.write("file", BODY)
        for source in (self.url, path):
            self.assert_failed(
                self.run_client(source, stdout=writer),
                CANNOT_WRITE,
                source + ": cannot write standard output: Broken pipe",
            )
        os.close(writer)

    def test_a_reader_that_goes_in_the_middle_is_told(self):
        gate = Gate(BODY, 1000)
        self.server.answers["/a"] = gate
        client = self.start(self.url)
        client.process.stdout.read(1000)
        client.process.stdout.close()
        gate.open()
        errors = client.process.stderr.read().decode()
        self.assertEqual(client.process.wait(TIMEOUT), CANNOT_WRITE)
        self.assertEqual(
            errors, "vortan-transfer: %s: cannot write standard output: " "Broken pipe\n" % self.url
        )

    def test_a_file_size_limit_leaves_an_existing_file_untouched(self):
        self.write("out", b"before")

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

        for mode in ("--segmented", "--plain"):
            result = self.run_client(self.url, mode, "-o", "out", preexec_fn=limit)
            self.assert_cannot_write(result, "'out'", "File too large")
            self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_a_full_disk_leaves_an_existing_file_untouched(self):
        with self.small_disk() as disk:
            target = os.path.join(disk, "out")
            with open(target, "wb") as file:
                file.write(b"before")
            self.assert_cannot_write(
                self.run_client(self.url, "-o", target), "'%s'" % target, "No space left on device"
            )
            self.assertEqual(os.listdir(disk), ["out"])
            with open(target, "rb") as file:
                self.assertEqual(file.read(), b"before")

    def test_a_read_only_disk_leaves_an_existing_file_untouched(self):
        with self.small_disk() as disk:
            target = os.path.join(disk, "out")
            with open(target, "wb") as file:
                file.write(b"before")
            subprocess.run(["mount", "-o", "remount,ro", disk], check=True)
            for name in ("out", "made"):
                path = os.path.join(disk, name)
                self.assert_cannot_write(
                    self.run_client(self.url, "-o", path), "'%s'" % path, "Read-only file system"
                )
            self.assertEqual(os.listdir(disk), ["out"])

    @contextlib.contextmanager
    def small_disk(self):
        disk = tempfile.mkdtemp()
        try:
            mounted = (
                subprocess.run(
                    ["mount", "-t", "tmpfs", "-o", "size=256k", "none", disk],
                    stderr=subprocess.DEVNULL,
                    check=False,
                ).returncode
                == 0
            )
            if not mounted:
                self.skipTest("no file system can be mounted here")
            try:
                yield disk
            finally:
                subprocess.run(["umount", disk], check=True)
        finally:
            os.rmdir(disk)

    def test_a_file_without_write_permission_is_not_replaced(self):
        options = {}
        if os.geteuid() == 0:
            options["user"] = NOBODY
            os.chown(self.folder, NOBODY, NOBODY)
        self.write("out", b"before")
        os.chmod(self.path("out"), 0o444)
        try:
            result = self.run_client(self.url, "-o", "out", **options)
        except PermissionError:
            self.skipTest("another user cannot start the program from where it is")
        self.assert_cannot_write(result, "'out'", "Permission denied")
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_a_write_failure_does_not_wait_for_the_rest_of_the_body(self):
        rest_was_taken = []

        def answer(request):
            request.send_header()
            try:
                for _ in range(10000):
                    request.send(bytes(1 << 16))
                rest_was_taken.append(True)
            except ConnectionError:
                rest_was_taken.append(False)

        self.server.answers["/a"] = answer
        with open("/dev/full", "wb") as full:
            self.assertEqual(self.run_client(self.url, stdout=full).status, CANNOT_WRITE)
        self.server.close()
        self.assertNotIn(True, rest_was_taken)

    def test_help_that_cannot_be_written_is_told(self):
        with open("/dev/full", "wb") as full:
            for option in ("--help", "--version"):
                self.assert_failed(
                    self.run_client(option, stdout=full),
                    CANNOT_WRITE,
                    "cannot write standard output: No space left on device",
                )

    def test_control_characters_in_the_name_of_a_target_are_escaped(self):
        self.assert_cannot_write(
            self.run_client(self.url, "-o", "missing\n/\033c"),
            "'missing\\n/\\x1bc'",
            "No such file or directory",
        )


if __name__ == "__main__":
    main()
