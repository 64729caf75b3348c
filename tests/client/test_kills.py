"""What a killed program has written is taken up by the next one, or replaced."""

import os
import random
import threading

from client_support import (
    ClientTest,
    EMULATED,
    SANITIZED,
    TIMEOUT,
    gave_up,
    give_next_wait_its_whole_time,
    main,
    make_bytes,
)
from content_support import MIB, Content

IS_SLOW = EMULATED or SANITIZED
LENGTH = MIB + 12345 if IS_SLOW else 12 * MIB + 12345
KILLS = int(os.environ.get("VORTAN_CLIENT_KILLS", "4" if IS_SLOW else "20"))


class Kills(ClientTest):
    def setUp(self):
        super().setUp()
        # A failure's message names the seed; VORTAN_SEED repeats it.
        seed = int(os.environ.get("VORTAN_SEED", random.SystemRandom().randrange(1 << 32)))
        self.random = random.Random(seed)
        self.told = "VORTAN_SEED=%d" % seed
        self.body = make_bytes(LENGTH)
        self.content = Content(self.body, watch=self.watch)
        self.server.answers["/file"] = self.content
        self.url = self.server.url("/file")
        self.kill_at = None
        self.reached = threading.Event()
        self.killed = threading.Event()

    def watch(self, sent, left):
        """Lets a program that is to be killed have everything but the last piece."""
        if self.kill_at is None:
            return
        is_last = left <= Content.PIECE
        if sent >= self.kill_at or is_last:
            self.reached.set()
        if is_last:
            self.killed.wait(TIMEOUT)

    def kill_one(self, at, *arguments):
        give_next_wait_its_whole_time()
        self.kill_at = at
        self.reached.clear()
        self.killed.clear()
        client = self.start("-q", "-O", *arguments, self.url)
        self.assertTrue(self.reached.wait(TIMEOUT), gave_up("the bytes before the kill"))
        client.process.kill()
        client.process.wait(TIMEOUT)
        self.killed.set()

    def assert_whole(self, result):
        self.assertEqual((result.status, result.errors), (0, ""), self.told)
        self.assertTrue(self.read("file") == self.body, "the content differs, " + self.told)
        self.assert_files("file")

    def test_at_random_moments_cost_no_byte_in_the_end(self):
        for _ in range(KILLS):
            self.kill_one(self.random.randrange(LENGTH), "--continue")
            self.assertNotIn("file", os.listdir(self.folder), self.told)
        self.kill_at = None
        self.assert_whole(self.run_client("-q", "-O", "--continue", self.url))
        sent = 0
        for first, end in zip(self.content.firsts, self.content.ends):
            self.assertLessEqual(first or 0, sent, self.told)
            sent = max(sent, end)
        if not IS_SLOW:  # whose body is too short to be recorded before its end
            self.assertTrue(any(self.content.firsts), "nothing was continued, " + self.told)

    def test_are_forgotten_by_a_run_without_continue(self):
        self.kill_one(LENGTH)  # so late that much of it is recorded
        self.assertIn("file.part", os.listdir(self.folder))
        self.kill_at = None
        self.assert_whole(self.run_client("-q", "-O", self.url))
        self.assertEqual(self.content.firsts, [None, None])


if __name__ == "__main__":
    main()
