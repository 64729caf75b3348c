"""docs/log.md has each warning and each error that the sources log, and no line that they do not.

A row of its tables is one line of the log: its level, and its text with <what differs> in angle brackets.
The sources are named above the table. Information lines may be left out. A second table of the kit's has the
sentences that its lines consist of.
"""

import pathlib
import re
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
GUIDE = PROJECT / "docs/log.md"
FOLDERS = ["TransferAgent/Src", "TransferKit/Src", "include_internal", "platform"]
# They define the macros by which all others log.
MACROS = {"Utils.h", "Log.h"}

CALL = re.compile(r"\b(?:(KIT)_LOG\(\s*(\w+),|LOG_(INFO|WARN|ERROR)(_AS)?\()")
# Past the macros, where it is more than a debug line.
OTHER_CALL = re.compile(r"\b(?:VORTAN_LOG\w*\(|__dlog_print\((?![^;]*LogPriorityDebug))")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
# Two backquotes, where Doxygen would take an apostrophe for the end.
ROW = re.compile(r"^\| (info|warning|error) \| `+([^`]+)`+ \|", re.M)
SOURCE = re.compile(r"\]\(\.\./(\S+\.(?:h|cpp))\)")
SENTENCE = re.compile(r"^\| `([^`]+)` \|", re.M)
LEVELS = {"debug": "debug", "info": "info", "warn": "warning", "error": "error"}
VALUE = "<>"


def without_comments(text):
    """Strings may hold what looks like a comment."""
    pattern = re.compile(r'("(?:[^"\\\n]|\\.)*")|//[^\n]*|/\*.*?\*/', re.S)
    return pattern.sub(lambda found: found[1] or " ", text)


def arguments(text, begin):
    """What stands between the position and the parenthesis that closes the call, split at its commas."""
    depth, parts, at = 0, [""], begin
    while depth >= 0:
        literal = LITERAL.match(text, at)
        piece = literal[0] if literal else text[at]
        depth += {"(": 1, ")": -1}.get(piece, 0)
        if piece == "," and depth == 0:
            parts.append("")
        elif depth >= 0:
            parts[-1] += piece
        at += len(piece)
    return parts


def shown(pieces, text):
    """The line's text, with a mark for each value."""
    parts = []
    for piece in re.split(r"<<", pieces):
        constant = re.search(
            r"constexpr char %s\[\] =\s*((?:\"[^\"]*\"\s*)+);" % re.escape(piece.strip()), text
        )
        literals = constant[1] if constant else piece
        is_literal = not LITERAL.sub("", literals).strip()
        parts.append("".join(LITERAL.findall(literals)) if is_literal else VALUE)
    return re.sub(r"(%s)+" % VALUE, VALUE, "".join(parts)).strip()


def logged(text):
    """The level and the text of each line that a source logs."""
    text = without_comments(text)
    for call in CALL.finditer(text):
        if text[text.rfind("\n", 0, call.start()) + 1 : call.start()].startswith("#define"):
            continue
        of_kit, level_of_kit, level, has_function = call.groups()
        pieces = arguments(text, call.end())
        if has_function:
            pieces = pieces[1:]
        level = level_of_kit if of_kit else level
        yield LEVELS[level.lower()], shown(",".join(pieces), text)


def sources():
    for folder in FOLDERS:
        for path in sorted((PROJECT / folder).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                yield path


def sections():
    """The sources that each section of the guide names, and its rows."""
    for section in GUIDE.read_text().split("\n## ")[1:]:
        yield SOURCE.findall(section), [
            (level, re.sub("<[^>]*>", VALUE, text)) for level, text in ROW.findall(section)
        ]


class LogGuide(unittest.TestCase):
    def test_each_warning_and_error_is_explained(self):
        explained = {name: rows for names, rows in sections() for name in names}
        for path in sources():
            name = str(path.relative_to(PROJECT))
            for level, text in logged(path.read_text()):
                if level in ("warning", "error"):
                    with self.subTest(source=name, level=level, line=text):
                        self.assertIn((level, text), explained.get(name, []))

    def test_each_line_that_is_explained_is_logged(self):
        for names, rows in sections():
            lines = {line for name in names for line in logged((PROJECT / name).read_text())}
            for row in rows:
                with self.subTest(sources=names, row=row):
                    self.assertIn(row, lines)
            self.assertEqual(len(rows), len(set(rows)), "a line has two rows")

    def test_each_line_goes_through_a_macro_that_is_known_here(self):
        for path in sources():
            if path.name not in MACROS and "dlog" not in path.parts:
                with self.subTest(source=path.name):
                    self.assertIsNone(OTHER_CALL.search(path.read_text()))

    def test_the_sentences_are_those_of_the_kit(self):
        kit = PROJECT / "TransferKit/Src"
        texts = LITERAL.findall(without_comments((kit / "Failure.cpp").read_text()))
        texts += LITERAL.findall(without_comments((kit / "Transfer.cpp").read_text()))
        said = {
            text.strip() for text in texts if re.match(r"(?:The|There|A|No|libcurl) [\w']+ .", text)
        }
        guide = SENTENCE.findall(GUIDE.read_text())
        said.remove("The transfer succeeded")
        self.assertEqual({re.sub(" <.*", "", sentence) for sentence in guide}, said)


if __name__ == "__main__":
    unittest.main(verbosity=2)
