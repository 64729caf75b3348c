"""Sources from a file, and where their files go."""

import hashlib
import os

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    WRONG_ARGUMENTS,
    WRONG_CONTENT,
    main,
)

COUNT = 8 if EMULATED else 30


class ManySources(ClientTest):
    def setUp(self):
        super().setUp()
        self.names = ["file%d" % index for index in range(COUNT)]
        self.bodies = {name: name.encode() + BODY[:20000] for name in self.names}
        self.urls = [self.serve("/" + name, self.bodies[name]) for name in self.names]
        os.mkdir(self.path("files"))

    def assert_downloaded(self, result):
        self.assert_succeeded(result)
        self.assertEqual(sorted(os.listdir(self.path("files"))), sorted(self.names))
        for name, body in self.bodies.items():
            self.assertEqual(self.read("files/" + name), body)
        self.assertEqual(self.server.requests.qsize(), COUNT)

    def lines(self):
        text = "# all of them\n\n" + "".join(url + "\n" for url in self.urls[:-1])
        return (text + self.urls[-1]).encode()  # the last line may have no end

    def test_of_an_input_file_are_downloaded(self):
        self.write("list", self.lines())
        arguments = ("-q", "--input-file", "list", "--output-dir", "files", "-O")
        self.assert_downloaded(self.run_client(*arguments))

    def test_of_standard_input_are_downloaded(self):
        arguments = ("-q", "--input-file", "-", "--output-dir", "files", "-O")
        self.assert_downloaded(self.run_client(*arguments, data=self.lines()))

    def test_of_both_are_downloaded_one_at_a_time(self):
        self.write("list", "".join(url + "\n" for url in self.urls[1:]).encode())
        arguments = ("-q", "--input-file", "list", "--output-dir", "files", "-O")
        result = self.run_client(*arguments, "--parallel-max", "1", self.urls[0])
        self.assert_downloaded(result)
        asked = [self.server.requests.get().path for _ in range(COUNT)]
        self.assertEqual(asked, ["/" + name for name in self.names])

    def test_have_an_output_each(self):
        outputs = [text for name in self.names for text in ("-o", name)]
        result = self.run_client("-q", *outputs, "--output-dir", "files", *self.urls)
        self.assert_downloaded(result)

    def test_need_as_many_outputs(self):
        result = self.run_client("-o", "one", "-o", "two", *self.urls)
        self.assertEqual(result.status, WRONG_ARGUMENTS)
        self.assertTrue(self.server.requests.empty())
        self.assert_files("files")

    def test_have_the_hashes_of_a_list(self):
        told = {name: hashlib.sha256(body).hexdigest() for name, body in self.bodies.items()}
        self.write("sums", "".join("%s  %s\n" % (told[name], name) for name in told).encode())
        arguments = ("-q", "--sha256-file", "sums", "--output-dir", "files", "-O")
        self.assert_downloaded(self.run_client(*arguments, *self.urls))

    def test_one_with_another_hash_fails_alone(self):
        told = {name: hashlib.sha256(body).hexdigest() for name, body in self.bodies.items()}
        told[self.names[3]] = "0" * 64
        self.write("sums", "".join("%s  %s\n" % (told[name], name) for name in told).encode())
        arguments = ("-q", "--sha256-file", "sums", "--output-dir", "files", "-O")
        result = self.run_client(*arguments, *self.urls)
        self.assertEqual(result.status, WRONG_CONTENT, result.errors)
        self.assertIn(self.urls[3], result.errors)
        written = sorted(name for name in self.names if name != self.names[3])
        self.assertEqual(sorted(os.listdir(self.path("files"))), written)


if __name__ == "__main__":
    main()
