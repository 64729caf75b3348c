"""The picture that --trace-plot draws."""

import os
import re
import xml.etree.ElementTree

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    STATUS_IS_ERROR,
    WRONG_ARGUMENTS,
    main,
)

SVG = "{http://www.w3.org/2000/svg}"


class TracePlot(ClientTest):
    def plot(self):
        root = xml.etree.ElementTree.fromstring(self.read("plot"))
        self.assertEqual(root.tag, SVG + "svg")
        return root

    def titles(self):
        return [title.text for title in self.plot().iter(SVG + "title")]

    def styles(self, group):
        return {shape.get("class") for shape in group.iter() if shape.get("class")}

    def test_has_a_bar_for_each_source(self):
        urls = [self.serve("/%d" % index) for index in range(5)] + [self.server.url("/missing")]
        result = self.run_client("-q", "-O", *urls, "--trace-plot", "plot")
        self.assertEqual(result.status, STATUS_IS_ERROR)
        groups = list(self.plot().iter(SVG + "g"))
        self.assertEqual(len(groups), len(urls))
        for group, url in zip(groups, urls):
            title = group.find(SVG + "title").text
            self.assertTrue(title.startswith(url + ": "), title)
        succeeded = {"name", "queued", "response", "body", "chunk", "header", "succeeded", "became"}
        self.assertEqual(self.styles(groups[0]), succeeded)
        self.assertEqual(
            self.styles(groups[5]), succeeded - {"body", "chunk", "succeeded"} | {"failed"}
        )

    def test_shows_a_delay(self):
        self.assert_succeeded(
            self.run_client(
                self.serve("/a"), "--fixed-delay", "20", "-o", "out", "--trace-plot", "plot"
            )
        )
        self.assertIn("delay", self.styles(next(self.plot().iter(SVG + "g"))))

    def test_needs_nothing_beside_it(self):
        self.assert_succeeded(
            self.run_client(self.serve("/a"), "-o", "out", "--trace-plot", "plot")
        )
        for element in self.plot().iter():
            self.assertNotIn(element.tag, (SVG + "image", SVG + "script", SVG + "use"))
        self.assertEqual(
            re.findall(
                rb"https?://[^\s<\"]+", self.read("plot").replace(self.server.url("").encode(), b"")
            ),
            [b"http://www.w3.org/2000/svg"],
        )

    def test_is_valid_whatever_bytes_a_name_has(self):
        name = bytes(range(1, 256)).replace(b"/", b"")[:200] + b"\xef\xbf\xbe"
        self.write("a", BODY)
        os.rename(self.path("a"), os.path.join(self.folder.encode(), name))
        self.assert_succeeded(self.run_client(b"./" + name, "-o", "out", "--trace-plot", "plot"))
        (title,) = self.titles()
        self.assertTrue(title.startswith(r"./\x01\x02"), title)
        self.assertIn("""!"#$%&'()""", title)

    def test_can_be_had_beside_the_trace(self):
        self.assert_succeeded(
            self.run_client(
                self.serve("/a"), "-o", "out", "--trace", "trace", "--trace-plot", "plot"
            )
        )
        self.assertEqual(len(self.titles()), 1)
        self.assert_files("out", "trace", "plot")

    def test_that_cannot_be_written_is_an_error_and_the_body_still_arrives(self):
        full = self.device("full")
        result = self.run_client(self.serve("/a"), "-o", "out", "--trace-plot", full)
        self.assertEqual(
            (result.status, result.errors),
            (
                CANNOT_WRITE,
                "vortan-transfer: cannot write '%s': " "No space left on device\n" % full,
            ),
        )
        self.assertEqual(self.read("out"), BODY)

    def test_shares_its_place_with_nothing(self):
        self.assert_failed(
            self.run_client(
                self.serve("/a"), "-o", "out", "--trace", "plot", "--trace-plot", "plot"
            ),
            WRONG_ARGUMENTS,
            "--trace-plot: 'plot' has --trace already, name another file " "(--help tells more)",
        )


if __name__ == "__main__":
    main()
