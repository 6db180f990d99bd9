#!/usr/bin/env python3
"""Runs the steps of docs/getting-started.md in a bare root (a minimal Debian), and compares the output with the output
that the page shows as "transcript".

With --renew, writes the new transcript into the page instead. Uses the packages that tests/package makes.
"""

import pathlib
import re
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path += [str(HERE.parent / "package"), str(HERE.parents[1] / "docs")]

import blocks  # noqa: E402
import packagetest  # noqa: E402
from bareroot import BareRoot, leave_out_if_refused  # noqa: E402
from packagetest import BUILD, DEBS, SOURCE  # noqa: E402

PAGE = SOURCE / "docs/getting-started.md"
STEP = re.compile(r"<!-- (?:step|file (?P<file>\S+)) -->\n```\w+\n(?P<text>.*?)^```$", re.S | re.M)
TRANSCRIPT = re.compile(r"(<!-- transcript -->\n```console\n)(.*?)(^```$)", re.S | re.M)
MARK = "@@ "


def script():
    """Returns a shell script that does the page's steps in order, and prints a marked line before each command."""
    lines = []
    for step in STEP.finditer(PAGE.read_text()):
        if step["file"]:
            lines.append(f"cat > {step['file']} <<'END OF FILE'\n{step['text']}END OF FILE")
        else:
            for command in step["text"].splitlines():
                lines.append(f"echo '{MARK}{command}'\n{command}")
    return "\n".join(lines) + "\n"


def transcript(output):
    """Returns the commands and their output, without most of the output of apt and of "cmake -B"."""
    result = ""
    for part in output.split(MARK)[1:]:
        command, said = part.split("\n", 1)
        if command.startswith(("apt-get", "cmake -B")):
            said = "...\n" + "".join(said.splitlines(True)[-2:])
        result += f"$ {command}\n{said}"
    return "".join(line.rstrip() + "\n" for line in result.splitlines())


def comparable(text):
    """Returns the text without apt's lines, because these lines change with every update of Debian."""
    return blocks.comparable(re.sub(r"(?m)^(\$ apt-get.*\n)[^$]*", r"\1", text))


class GettingStarted(unittest.TestCase):
    maxDiff = None

    def test_page_leads_to_a_board_in_a_bare_root(self):
        now = follow()
        self.assertIn('BoardA is on "ttyACM0"', now)
        self.assertEqual(comparable(TRANSCRIPT.search(PAGE.read_text())[2]), comparable(now),
                         'the transcript is out of date; run this test with --renew')

    def test_program_has_about_twenty_lines(self):
        program = next(step["text"] for step in STEP.finditer(PAGE.read_text()) if step["file"] == "main.cpp")
        self.assertLessEqual(len(program.splitlines()), 22)


def follow():
    result = BareRoot(BUILD / "bareroot").run(script(), [(DEBS, "/packages")], stdout=subprocess.PIPE,
                                              stderr=subprocess.STDOUT)
    if result.returncode:
        raise AssertionError(f"a step of the page failed:\n{result.stdout[-3000:]}")
    return transcript(result.stdout)


if __name__ == "__main__":
    if "--renew" in sys.argv:
        now = follow()
        PAGE.write_text(TRANSCRIPT.sub(lambda old: old[1] + now + old[3], PAGE.read_text()))
    else:
        leave_out_if_refused()
        packagetest.main()
