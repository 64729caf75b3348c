"""What happens to folders and targets while a download is under way."""

import os

from client_support import BODY, CANNOT_WRITE, ClientTest, Gate, main


class Obstacles(ClientTest):
    def setUp(self):
        super().setUp()
        self.gate = Gate(BODY, 1000)
        self.server.answers["/a"] = self.gate
        self.addCleanup(self.gate.open)
        self.url = self.server.url("/a")

    def start_and_reach_the_middle(self, *arguments):
        client = self.start(self.url, *arguments)
        self.gate.wait_until_reached()
        return client

    def test_a_folder_that_vanishes_is_told(self):
        os.mkdir(self.path("folder"))
        client = self.start_and_reach_the_middle("-o", "folder/out", "--trace", "/dev/stderr")
        client.wait_for_line_with("first-body")
        os.rename(self.path("folder"), self.path("elsewhere"))
        self.gate.open()
        result = client.finish()
        self.assertEqual(result.status, CANNOT_WRITE)
        self.assertIn("cannot write 'folder/out': No such file or directory", result.errors)

    def test_a_target_that_becomes_a_folder_is_told(self):
        self.write("out", b"before")
        client = self.start_and_reach_the_middle("-o", "out")
        os.rename(self.path("out"), self.path("old"))
        os.mkdir(self.path("out"))
        self.gate.open()
        self.assert_failed(
            client.finish(), CANNOT_WRITE, self.url + ": cannot write 'out': Is a directory"
        )
        self.assertEqual(self.read("old"), b"before")
        self.assertEqual(os.listdir(self.path("out")), [])

    def test_a_file_that_another_program_downloads_is_left_to_it(self):
        client = self.start_and_reach_the_middle("-o", "out")
        self.assert_failed(
            self.run_client(self.url, "-o", "out"),
            CANNOT_WRITE,
            self.url + ": cannot write 'out': the file is being written by another transfer: "
            "process %d" % client.process.pid,
        )
        self.gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.read("out"), BODY)


if __name__ == "__main__":
    main()
