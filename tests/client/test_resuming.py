"""A download goes on where it broke off, and never mixes two versions."""

import hashlib
import os
import random

from client_support import (
    ClientTest,
    EMULATED,
    NETWORK_FAILED,
    SANITIZED,
    SUCCEEDED,
    WRONG_CONTENT,
    main,
    make_bytes,
)
from content_support import MIB, Alternating, Content, random_cuts, versions

IS_SLOW = EMULATED or SANITIZED
LENGTH = MIB + 12345 if IS_SLOW else 8 * MIB
LONGEST_PIECE = LENGTH // 20

PATIENT = ("--retry", "60", "--retry-delay", "0.01")


class Resuming(ClientTest):
    def setUp(self):
        super().setUp()
        # A failure's message names the seed; VORTAN_SEED repeats it.
        self.seed = int(os.environ.get("VORTAN_SEED", random.SystemRandom().randrange(1 << 32)))
        self.random = random.Random(self.seed)
        self.told = "VORTAN_SEED=%d" % self.seed

    def offer(self, content):
        self.server.answers["/file"] = content
        return self.server.url("/file")

    def assert_whole(self, result, body, name="file"):
        self.assertEqual((result.status, result.errors), (SUCCEEDED, ""), self.told)
        self.assertTrue(self.read(name) == body, "the content differs, " + self.told)
        self.assert_files(name)

    def assert_continued_exactly(self, content, before=0):
        """Each request asks for the first byte that has not arrived."""
        arrived = before
        for first, end in zip(content.firsts, content.ends):
            self.assertEqual(first or 0, arrived, "%s: %s" % (self.told, content.firsts))
            arrived = end

    def test_over_connections_that_break_at_random_bytes(self):
        body = make_bytes(LENGTH)
        content = Content(body, cut=random_cuts(self.seed, LONGEST_PIECE))
        result = self.run_client(
            *("-q", "-O", *PATIENT, "--sha256", hashlib.sha256(body).hexdigest()),
            self.offer(content),
        )
        self.assert_whole(result, body)
        self.assert_continued_exactly(content)
        self.assertGreater(len(content.firsts), 10, self.told)

    def test_repeats_no_byte_on_standard_output(self):
        body = make_bytes(LENGTH)
        content = Content(body, cut=random_cuts(self.seed, LONGEST_PIECE))
        result = self.run_client("-q", *PATIENT, self.offer(content))
        self.assertEqual((result.status, result.errors), (SUCCEEDED, ""), self.told)
        self.assertTrue(result.output == body, "the content differs, " + self.told)
        self.assert_continued_exactly(content)

    def test_with_a_part_of_an_earlier_run(self):
        body = make_bytes(LENGTH)
        half = LENGTH // 2
        content = Content(body, cut=lambda number, length: half if number == 0 else None)
        url = self.offer(content)
        result = self.run_client("-q", "-O", "--retry", "0", url)
        self.assertEqual(result.status, NETWORK_FAILED, result.errors)
        self.assertIn("--continue goes on with 'file.part'\n", result.errors)
        self.assertIn("file.part", os.listdir(self.folder))
        self.assertTrue(body.startswith(self.read("file.part")))
        self.assert_whole(self.run_client("-q", "-O", "--continue", url), body)
        self.assert_continued_exactly(content)

    def test_is_left_out_unless_asked_for(self):
        body = make_bytes(LENGTH)
        content = Content(body, cut=lambda number, length: LENGTH // 2 if number == 0 else None)
        url = self.offer(content)
        self.assertEqual(self.run_client("-q", "-O", "--retry", "0", url).status, NETWORK_FAILED)
        self.assert_whole(self.run_client("-q", "-O", url), body)
        self.assertEqual(content.firsts, [None, None])

    def test_leaves_the_old_file_until_the_new_one_is_whole(self):
        self.write("file", b"before")
        body = make_bytes(LENGTH)
        content = Content(body, cut=lambda number, length: LENGTH // 2 if number == 0 else None)
        url = self.offer(content)
        self.assertEqual(self.run_client("-q", "-O", "--retry", "0", url).status, NETWORK_FAILED)
        self.assertEqual(self.read("file"), b"before")
        self.assert_whole(self.run_client("-q", "-O", "-c", url), body)

    def test_begins_again_with_another_version(self):
        first, second = versions(2, LENGTH)
        broken = Content(first, "a", cut=lambda number, length: LENGTH // 2)
        whole = Content(second, "b")
        url = self.offer(Alternating([broken, whole], lambda number: min(number, 1)))
        self.assert_whole(self.run_client("-q", "-O", *PATIENT, url), second)
        self.assertEqual(broken.firsts, [None])

    def test_begins_again_with_another_version_in_a_later_run(self):
        first, second = versions(2, LENGTH)
        broken = Content(first, "a", cut=lambda number, length: LENGTH // 2)
        url = self.offer(broken)
        self.assertEqual(self.run_client("-q", "-O", "--retry", "0", url).status, NETWORK_FAILED)
        self.offer(Content(second, "b"))
        self.assert_whole(self.run_client("-q", "-O", "-c", url), second)

    def test_begins_again_when_a_part_of_another_version_arrives(self):
        class Careless(Content):
            """Sends a part even if If-Range names another version."""

            def takes(self, validator):
                return True

        first, second = versions(2, LENGTH)
        broken = Content(first, "a", cut=lambda number, length: LENGTH // 2)
        url = self.offer(Alternating([broken, Careless(second, "b")], lambda n: min(n, 1)))
        self.assert_whole(self.run_client("-q", "-O", *PATIENT, url), second)

    def test_never_mixes_versions_that_change_at_random(self):
        bodies = versions(3, LENGTH // 4)
        cut = random_cuts(self.seed, LENGTH // 3)
        contents = [Content(body, "v%d" % at, cut) for at, body in enumerate(bodies)]
        url = self.offer(Alternating(contents, lambda number: self.random.randrange(3)))
        result = self.run_client("-q", "-O", *PATIENT, url)
        self.assertEqual((result.status, result.errors), (SUCCEEDED, ""), self.told)
        self.assertIn(self.read("file"), bodies, self.told)
        self.assert_files("file")

    def test_leaves_the_old_file_when_the_hash_is_wrong(self):
        self.write("file", b"before")
        before = os.stat(self.path("file"))
        content = Content(make_bytes(LENGTH), cut=random_cuts(self.seed, LONGEST_PIECE))
        result = self.run_client("-q", "-O", *PATIENT, "--sha256", "0" * 64, self.offer(content))
        self.assertEqual(result.status, WRONG_CONTENT, self.told + result.errors)
        self.assertEqual(self.read("file"), b"before")
        self.assertEqual(os.stat(self.path("file")).st_ino, before.st_ino)
        self.assert_files("file")


if __name__ == "__main__":
    main()
