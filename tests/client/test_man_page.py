"""The man page and --help tell the same of each option and of each exit status."""

import os
import re

from client_support import (
    ClientTest,
    main,
    options_of_help,
)

MAN_PAGE = os.path.join(os.path.dirname(__file__), "../../tools/vortan-transfer/vortan-transfer.1")


def read_line(line):
    """A line of the page's source, without macros, fonts and escapes."""
    line = re.sub(r"\\f[A-Z]", "", line).replace(r"\-", "-").replace(r"\(aq", "'")
    macro = re.match(r"\.([A-Z]+) ", line)
    if not macro:
        return line
    # Fonts that alternate join their words, but for spaces that are escaped or quoted.
    words = re.findall(r'"[^"]*"|\S+', line[macro.end() :].replace("\\ ", "\0"))
    joint = "" if len(macro[1]) == 2 else " "
    return joint.join(word.strip('"') for word in words).replace("\0", " ")


def paragraphs_of_page():
    """Of each tagged paragraph its tag and its text."""
    with open(MAN_PAGE, encoding="ascii") as page:
        source = page.read()
    for block in re.split(r"^\.TP\n", source, flags=re.MULTILINE)[1:]:
        paragraph = re.split(r"^\.S[HS] ", block, flags=re.MULTILINE)[0]
        tag, *text = (read_line(line) for line in paragraph.splitlines())
        yield tag, " ".join(text).removesuffix(".")


def lower_first(text):
    return text[:1].lower() + text[1:]


class ManPage(ClientTest):
    def setUp(self):
        super().setUp()
        self.help = self.run_client("--help").output.decode()
        self.page = dict(paragraphs_of_page())

    def test_tells_the_same_of_each_option(self):
        of_help = {
            (", ".join(names) + " " + value).strip(): told
            for names, value, told in options_of_help(self.help)
        }
        of_page = {tag: text for tag, text in self.page.items() if tag.startswith("-")}
        self.assertGreater(len(of_help), 20)
        self.assertEqual(of_page, of_help)

    def test_tells_the_same_of_each_exit_status(self):
        told = re.findall(r"^  (\d+)  +(.*(?:\n {7}\S.*)*)", self.help, re.MULTILINE)
        of_help = {status: " ".join(text.split()) for status, text in told}
        of_page = {tag: lower_first(text) for tag, text in self.page.items() if tag.isdigit()}
        self.assertEqual(len(of_help), 12)
        self.assertEqual(of_page, of_help)

    def test_knows_each_variable_that_help_knows(self):
        of_help = set(re.findall(r"VORTAN_[A-Z_]+", self.help))
        of_page = {tag for tag in self.page if tag.startswith("VORTAN_")}
        self.assertEqual(of_page, of_help)


if __name__ == "__main__":
    main()
