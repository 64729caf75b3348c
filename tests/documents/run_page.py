"""run_page.py PAGE EXAMPLES LIBRARIES SERVER WORK: what a page shows of a terminal is what happens.

The commands of each block ```console run in one shell, in a copy of the folder EXAMPLES, with the library
that is installed in LIBRARIES. Port 8000 of the page stands for that of the server, which serves the same
folder.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

BLOCK = re.compile(r"^```console\n(.*?)^```$", re.M | re.S)
# A command goes on after a line that ends in a backslash.
COMMAND = re.compile(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", re.M)
END = "(end of a command)\n"


def on_a_terminal(output):
    """What is left of lines that were written over."""
    return re.sub(r"^.*\r", "", output, flags=re.M)


def run(commands, folder, environment):
    """What each of the commands prints, until one fails."""
    script = "".join("%s\necho '%s'\n" % (command, END.rstrip()) for command in commands)
    process = subprocess.run(
        ["bash", "-e"],
        input=script.encode(),
        cwd=folder,
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    )
    return process.stdout.decode().split(END)


def prepare(examples, libraries, work):
    shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(examples, work / "examples")
    (work / "examples" / "greeting").write_text("Hello, device!\n")
    (work / "opt" / "vortan").mkdir(parents=True)
    (work / "opt" / "vortan" / "lib").symlink_to(libraries)
    kept = {name: value for name, value in os.environ.items() if "proxy" not in name.lower()}
    return {**kept, "HOME": str(work), "PKG_CONFIG_PATH": str(libraries / "pkgconfig")}


def check(page, folder, environment, port):
    shown = [command for block in BLOCK.findall(page) for command in COMMAND.findall(block)]
    if not any(command.startswith("g++ ") for command, _ in shown):
        sys.exit("the page does not say how its program is compiled")
    printed = run(
        [command.replace(":8000/", ":%s/" % port) for command, _ in shown], folder, environment
    )
    for (command, expected), output in zip(shown, printed):
        output = on_a_terminal(output).replace(":%s/" % port, ":8000/")
        if output != expected:
            sys.exit("$ %s\nshown:\n%sprinted:\n%s" % (command, expected, output))


def main():
    page, examples, libraries, server, work = map(pathlib.Path, sys.argv[1:])
    environment = prepare(examples, libraries, work)
    with subprocess.Popen(
        [sys.executable, server, work / "examples"], stdout=subprocess.PIPE, text=True
    ) as process:
        try:
            port = process.stdout.readline().split()[-1]
            check(page.read_text(encoding="utf-8"), work / "examples", environment, port)
        finally:
            process.kill()


if __name__ == "__main__":
    main()
