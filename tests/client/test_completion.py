"""What the shells complete on the program's command line."""

import os
import re
import shlex
import shutil
import subprocess
import unittest

from client_support import (
    ClientTest,
    environment,
    main,
    options_of_help,
)

COMPLETION = os.path.abspath(
    os.path.join(os.path.dirname(__file__), "../../tools/vortan-transfer/completion")
)


class Shell:
    """An interactive shell on a terminal, in which the program only tells its arguments."""

    PROMPT = b"<ready>"
    # Read by the shell when it starts. The prompt is not in it as it will be shown.
    SETTINGS = "PS1='<rea'dy'>'\nvortan-transfer() { printf '%s\\n' \"$@\" > told; }\n"

    def __init__(self, folder, command, insert_all, **environment_changes):
        self._insert_all = insert_all
        self._folder = folder
        os.mkfifo(os.path.join(folder, "told"))
        self._master, slave = os.openpty()
        self.process = subprocess.Popen(
            command,
            cwd=folder,
            stdin=slave,
            stdout=slave,
            stderr=slave,
            start_new_session=True,
            env=environment(**environment_changes),
        )
        os.close(slave)

    def completed(self, line):
        """The arguments after all that can be completed at the end of the line was inserted."""
        self._wait_for_prompt()
        os.write(self._master, b"vortan-transfer " + line.encode() + self._insert_all + b"\n")
        with open(os.path.join(self._folder, "told"), encoding="utf-8") as told:
            return told.read().splitlines()

    def _wait_for_prompt(self):
        shown = b""
        while self.PROMPT not in shown:
            shown += os.read(self._master, 65536)

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self._master)


class Completion:
    """What every shell is to complete. A shell's own class starts it."""

    def setUp(self):
        super().setUp()
        self.help = self.run_client("--help").output.decode()
        os.mkdir(self.path("shell"))
        for name in ("some file", "something"):
            self.write("shell/" + name, b"")
        self.shell = self.start_shell(self.path("shell"))
        self.addCleanup(self.shell.close)

    def options_of_help(self):
        return ((names, value) for names, value, _ in options_of_help(self.help))

    def assert_completed(self, line, *expected):
        self.assertEqual(sorted(self.shell.completed(line)), sorted(expected), line)

    def assert_value_completed(self, names, *expected):
        for name in names:
            self.assert_completed(name + " ", name, *expected)

    def test_offers_each_option_of_the_help_text_and_no_other(self):
        names = [name for names, _ in self.options_of_help() for name in names]
        self.assertGreater(len(names), 30)
        self.assert_completed("--", *(name for name in names if name.startswith("--")))
        self.assertLessEqual(
            {name for name in names if len(name) == 2}, set(self.shell.completed("-"))
        )

    def test_offers_the_values_of_the_help_text(self):
        texts = {
            "METHOD": "GET, HEAD, POST or PUT;",
            "NAME": ": session, curl, file, vendor",
            "VERSION": "1.0, 1.1 (the default) or 2",
        }
        seen = set()
        for names, value in self.options_of_help():
            if value in texts:
                seen.add(value)
                self.assertIn(texts[value], " ".join(self.help.split()))
                words = re.sub(r"\(.*\)| or|[:;,]", " ", texts[value]).split()
                self.assert_value_completed(names, *words)
        self.assertEqual(seen, set(texts))

    def test_completes_a_value_that_was_begun(self):
        self.assert_completed("--method P", "--method", "POST", "PUT")
        self.assert_completed("--handler ve", "--handler", "vendor")

    def test_completes_a_value_after_an_equals_sign(self):
        self.assert_completed("--handler=ve", "--handler=vendor")

    def test_offers_files_where_the_help_text_says_file(self):
        options = [names for names, value in self.options_of_help() if value == "FILE"]
        self.assertIn(["-o", "--output"], options)
        for names in options:
            for name in names:
                self.assert_completed(name + " som", name, "some file", "something")

    def test_offers_folders_where_the_help_text_says_folder(self):
        os.mkdir(self.path("shell/some folder"))
        options = [names for names, value in self.options_of_help() if value == "FOLDER"]
        self.assertIn(["--output-dir"], options)
        for names in options:
            for name in names:
                arguments = self.shell.completed(name + " som")
                self.assertEqual(
                    [argument.rstrip("/") for argument in arguments], [name, "some folder"]
                )

    def test_offers_how_many_sources_can_be_transferred_at_a_time(self):
        self.assert_completed("--parallel-max ", "--parallel-max", "1", "2", "3", "4")

    def test_offers_nothing_where_a_value_is_free(self):
        for names, value in self.options_of_help():
            if value not in ("", "METHOD", "NAME", "VERSION", "FILE", "FOLDER"):
                for name in set(names) - {"--parallel-max"}:
                    self.assert_completed(name + " som", name, "som")

    def test_offers_files_as_sources(self):
        self.assert_completed("som", "some file", "something")
        self.assert_completed("-O something so", "-O", "something", "some file", "something")

    def test_offers_the_files_to_be_sent(self):
        self.assert_completed("-d @somet", "-d", "@something")
        self.assert_completed("--data @some", "--data", "@some file", "@something")
        self.assert_completed("--data=@somet", "--data=@something")
        self.assert_completed("-d some", "-d", "some")

    def test_goes_on_inside_a_folder_whose_file_is_to_be_sent(self):
        os.mkdir(self.path("shell/a folder"))
        self.write("shell/a folder/inside", b"")
        self.assert_completed("-d @a\tins", "-d", "@a folder/inside")
        self.assert_completed("--data=@a\tins", "--data=@a folder/inside")


class Bash(Completion, ClientTest):
    SETTINGS = ""

    def start_shell(self, folder):
        load = ". %s\n" % shlex.quote(COMPLETION + "/vortan-transfer.bash")
        self.write("bashrc", (Shell.SETTINGS + self.SETTINGS + load).encode())
        return Shell(
            folder, ["bash", "--noprofile", "--rcfile", self.path("bashrc"), "-i"], b"\x1b*"
        )


class BashThatCompletesNoHosts(Bash):
    """As with the package bash-completion: an @ does not begin a word then."""

    SETTINGS = "shopt -u hostcomplete\n"


@unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
class Zsh(Completion, ClientTest):
    SETTINGS = r"""
        unsetopt prompt_cr prompt_sp
        fpath=(%s $fpath)
        autoload -U compinit && compinit -u -D
        zle -C insert-all complete-word _generic
        zstyle ':completion:insert-all::::' completer _all_matches _complete
        zstyle ':completion:insert-all:*' insert yes
        bindkey '^T' insert-all
    """

    def start_shell(self, folder):
        settings = Shell.SETTINGS + self.SETTINGS % shlex.quote(COMPLETION)
        self.write(".zshrc", settings.encode())
        return Shell(folder, ["zsh", "-d", "-i"], b"\x14", ZDOTDIR=self.folder)


if __name__ == "__main__":
    main()
