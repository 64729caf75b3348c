"""check_statements.py PAGE COMMAND...: each statement of the page has a test, and each test a
statement. A statement is a heading of the third level; its test is named like it, in one word. The
command runs the program of tests."""

import re
import subprocess
import sys

SUITE = "Security"


def test_name(heading):
    words = re.sub(r"[^\w\s-]", "", heading).replace("-", " ").split()
    return "".join(word.capitalize() for word in words)


def statements(page):
    with open(page, encoding="utf-8") as file:
        text = re.sub(r"^```.*?^```$", "", file.read(), flags=re.M | re.S)
    return {test_name(heading): heading for heading in re.findall(r"^### (.*)$", text, re.M)}


def tests(command):
    listed = subprocess.run(
        [*command, "--gtest_list_tests"], check=True, capture_output=True, text=True
    ).stdout
    suite = re.search(r"^%s\.\n((?:  .*\n)*)" % SUITE, listed, re.M)
    return set(suite[1].split()) if suite else set()


def main():
    page, *command = sys.argv[1:]
    stated, tested = statements(page), tests(command)
    for name in sorted(stated.keys() - tested):
        print('"%s" has no test %s.%s' % (stated[name], SUITE, name))
    for name in sorted(tested - stated.keys()):
        print("%s.%s has no heading in %s" % (SUITE, name, page))
    if not stated:
        print("%s has no headings of the third level" % page)
    sys.exit(0 if stated and stated.keys() == tested else 1)


if __name__ == "__main__":
    main()
