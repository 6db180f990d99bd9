#!/usr/bin/env python3
"""Uses our Debian packages with their dependencies in a bare root (a minimal Debian): first only the packages of the
programs. Then runs the steps of docs/getting-started.md, and compares the output with the output that the page shows as
"transcript". Then builds another project.

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
from packagetest import BUILD, CONSUMER, DEBS, SOURCE  # noqa: E402

PAGE = SOURCE / "docs/getting-started.md"
STEP = re.compile(r"<!-- (?:step|file (?P<file>\S+)) -->\n```\w+\n(?P<text>.*?)^```$", re.S | re.M)
TRANSCRIPT = re.compile(r"(<!-- transcript -->\n```console\n)(.*?)(^```$)", re.S | re.M)
MARK = "@@ "

# The programs must work with only their own packages and the dependencies of these. So this comes before the page.
PROGRAMS = """
apt-get install -q -y --no-install-recommends /packages/libjwdevice0.1_*.deb /packages/libjwdevice-watch0.1_*.deb \\
    /packages/jwdevice-tools_*.deb
jwsim --board BoardA --board BoardB -- jwprobe --type BoardA --type BoardB
"""
PROJECT = f"""
echo '{MARK}'
cmake -S /consumer -B /root/consumer -DBY=find_package
cmake --build /root/consumer
jwsim --board BoardA -- /root/consumer/consumer
"""


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

    @classmethod
    def setUpClass(cls):
        cls.programs, cls.page, cls.project = follow()

    def test_programs_find_boards_without_other_packages(self):
        self.assertRegex(self.programs, r"BoardA +ttyACM0 ")
        self.assertRegex(self.programs, r"BoardB +ttyACM1 ")

    def test_page_leads_to_a_board(self):
        self.assertIn('BoardA is on "ttyACM0"', self.page)
        self.assertEqual(comparable(TRANSCRIPT.search(PAGE.read_text())[2]), comparable(self.page),
                         'the transcript is out of date; run this test with --renew')

    def test_page_has_a_program_of_about_twenty_lines(self):
        program = next(step["text"] for step in STEP.finditer(PAGE.read_text()) if step["file"] == "main.cpp")
        self.assertLessEqual(len(program.splitlines()), 22)

    def test_project_with_a_log_is_built_and_finds_a_board(self):
        self.assertIn("found 1 on ttyACM0", self.project)


def follow():
    """Returns the output of the programs, the transcript of the page, and the output of the project."""
    result = BareRoot(BUILD / "bareroot").run(PROGRAMS + script() + PROJECT,
                                              [(DEBS, "/packages"), (CONSUMER, "/consumer")],
                                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode:
        raise AssertionError(f"a step failed:\n{result.stdout[-3000:]}")
    programs, page = result.stdout.split(MARK, 1)
    page, project = page.rsplit(MARK, 1)
    return programs, transcript(MARK + page), project


if __name__ == "__main__":
    if "--renew" in sys.argv:
        _, now, _ = follow()
        PAGE.write_text(TRANSCRIPT.sub(lambda old: old[1] + now + old[3], PAGE.read_text()))
    else:
        leave_out_if_refused()
        packagetest.main()
