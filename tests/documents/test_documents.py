"""The documents show what is compiled, and lead where they say.

A piece of code is preceded by a comment that names the file and the region which it shows, as in
<!-- examples/download.cpp [request] -->. A region begins and ends with a line that has //! [request], or
#! [request], on it. test_documents.py --write puts the regions into the documents.
"""

import pathlib
import re
import sys
import textwrap
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [PROJECT / "README.md", PROJECT / "CHANGELOG.md", *sorted(PROJECT.glob("docs/**/*.md"))]

MARK = re.compile(r"^ *(?://|#)! \[(\w+)\]$")
CODE = re.compile(r"(?:^<!-- (\S+) \[(\w+)\] -->\n)?^```(cpp|cmake)\n(.*?)^```$", re.M | re.S)
LINK = re.compile(r"\[[^]]*\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ (.*)$", re.M)


def region(file, name):
    """The lines between the two marks, other marks left out, without their common indentation."""
    lines = (PROJECT / file).read_text().splitlines(keepends=True)
    ends = [
        number
        for number, line in enumerate(lines)
        if MARK.match(line) and MARK.match(line)[1] == name
    ]
    if len(ends) != 2:
        raise AssertionError("%s has %d marks [%s], not two" % (file, len(ends), name))
    shown = [line for line in lines[ends[0] + 1 : ends[1]] if not MARK.match(line)]
    return textwrap.dedent("".join(shown))


def write():
    def shown(code):
        file, name, language, _ = code.groups()
        if not file:
            return code[0]
        return "<!-- %s [%s] -->\n```%s\n%s```" % (file, name, language, region(file, name))

    for document in DOCUMENTS:
        document.write_text(CODE.sub(shown, document.read_text()))


def anchors(document):
    """As they are made from headings."""
    text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)
    titles = (re.sub(r"[^\w\- ]", "", title.lower()) for title in HEADING.findall(text))
    return {title.replace(" ", "-") for title in titles}


class Documents(unittest.TestCase):
    def test_code_is_what_is_compiled(self):
        for document in DOCUMENTS:
            for code in CODE.finditer(document.read_text()):
                file, name, _, text = code.groups()
                with self.subTest(document=document.name, file=file, region=name):
                    self.assertIsNotNone(file, "no file is named for\n" + text)
                    self.assertEqual(text, region(file, name))

    def test_links_lead_somewhere(self):
        for document in DOCUMENTS:
            for link in LINK.findall(document.read_text()):
                if "://" in link or link.startswith("mailto:"):
                    continue
                path, _, anchor = link.partition("#")
                target = document.parent / path if path else document
                with self.subTest(document=document.name, link=link):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target))

    def test_each_example_and_each_page_is_led_to(self):
        text = "".join(document.read_text() for document in DOCUMENTS)
        readme = (PROJECT / "README.md").read_text()
        for example in PROJECT.glob("examples/*.cpp"):
            self.assertIn("(../../examples/%s)" % example.name, text)
        for page in PROJECT.glob("docs/**/*.md"):
            # The reference has a page of its own to begin with.
            if page.parent.name != "reference":
                self.assertIn("(%s)" % page.relative_to(PROJECT), readme)


if __name__ == "__main__":
    if "--write" in sys.argv:
        write()
    else:
        unittest.main(verbosity=2)
