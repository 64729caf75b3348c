#!/usr/bin/env python3
"""adapt.py FILE: prints a document or a header as Doxygen needs it.

In a document, Doxygen takes a link to a heading, as in page.md#a-heading, for the name of a file: headings
get labels here, and such links lead to the labels. What a link leads to beside the documents and the
examples is not among the built pages: only its text stays.

Of a class with private records, Doxygen leads to a list of them that it does not make: headers lose what is
private.
"""

import pathlib
import re
import sys

PROJECT = pathlib.Path(__file__).resolve().parents[2]

CODE = re.compile(r"(^```.*?^```$)", re.M | re.S)
PRIVATE = re.compile(r"^private:\n.*?(?=^};\n)", re.M | re.S)
HEADING = re.compile(r"^(##+ )(.*)$", re.M)
LINK = re.compile(r"(?<!!)\[([^]]*)\]\(([^)\s]+)\)")


def label(page, heading):
    """The anchor that other viewers make of a heading, made unique by the name of its page."""
    anchor = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
    return "%s-%s" % (page.stem, anchor)


def adapt_prose(page, text):
    def heading(match):
        return "%s%s {#%s}" % (match[1], match[2], label(page, match[2]))

    def link(match):
        path, _, anchor = match[2].partition("#")
        if "://" in path:
            return match[0]
        target = (page.parent / path).resolve() if path else page
        if target == PROJECT / "README.md":
            return match[1]
        if anchor:
            return "[%s](#%s)" % (match[1], label(target, anchor))
        if target.parent == PROJECT / "examples":
            return "[%s](examples/%s)" % (match[1], target.name)
        if target.suffix == ".1":
            return "[%s](%s.html)" % (match[1], target.stem)
        if target.suffix == ".md" or target.parent == PROJECT / "docs" / "abi":
            return match[0]
        return match[1]

    return LINK.sub(link, HEADING.sub(heading, text))


def adapt_page(page, text):
    # Every second piece is a block of code.
    return "".join(
        piece if index % 2 else adapt_prose(page, piece)
        for index, piece in enumerate(CODE.split(text))
    )


def adapt_header(text):
    """The lines keep their numbers."""
    return PRIVATE.sub(lambda match: "\n" * match[0].count("\n"), text)


def main():
    file = pathlib.Path(sys.argv[1]).resolve()
    text = file.read_text(encoding="utf-8")
    print(adapt_page(file, text) if file.suffix == ".md" else adapt_header(text), end="")


if __name__ == "__main__":
    main()
