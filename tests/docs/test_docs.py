#!/usr/bin/env python3
"""Tests that the documentation builds without a warning, its links work, and its code and outputs are correct."""

import html.parser
import pathlib
import re
import sys
import unittest
import urllib.parse
import xml.etree.ElementTree

HERE = pathlib.Path(__file__).resolve().parent
sys.path += [str(HERE.parent / "package"), str(HERE.parents[1] / "docs")]

import blocks  # noqa: E402
import packagetest  # noqa: E402
import pagefilter  # noqa: E402
from packagetest import BUILD, SOURCE, TREES, run  # noqa: E402

DOCS = SOURCE / "docs"
FENCE = re.compile(r"^ *```.*?^ *```$", re.S | re.M)


class Html(html.parser.HTMLParser):
    """Collects the links of one page, and the names in this page to which links can point."""

    def __init__(self, name):
        super().__init__()
        self.links, self.names = [], set()
        self.feed(name.read_text())

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.names.update(value for key, value in attributes.items() if key == "id" or (tag, key) == ("a", "name"))
        self.links += [value for key, value in attributes.items() if key in ("href", "src", "data") and value]


class Pages(unittest.TestCase):
    """Tests the Markdown pages in the form in which a code host shows them."""

    maxDiff = None
    pages = [pathlib.Path(page) for page in blocks.pages()] + [SOURCE / "examples/README.md"]

    def headings(self, page):
        return {pagefilter.slug(text) for _, text in pagefilter.HEADING.findall(FENCE.sub("", page.read_text()))}

    def test_every_link_leads_somewhere(self):
        dead = []
        for page in self.pages:
            for target in re.findall(r"\]\(([^()\s]+)\)", FENCE.sub("", page.read_text())):
                path, _, heading = target.partition("#")
                path = page.parent / path if path else page
                if "://" not in target and not (path.exists() and (not heading or heading in self.headings(path))):
                    dead.append(f"{page}: {target}")
        self.assertEqual(dead, [])

    def test_every_page_is_in_the_index(self):
        index = (DOCS / "README.md").read_text()
        self.assertEqual([page.name for page in DOCS.glob("[a-z]*.md") if f"]({page.name})" not in index], [])

    def test_every_code_block_says_where_it_is_from(self):
        # The pages for developers of the library quote no code. test_gettingstarted.py checks getting-started.md.
        others = {"architecture.md", "reliability.md", "testing.md", "performance.md", "getting-started.md"}
        for page in DOCS.glob("*.md"):
            if page.name not in others:
                text = page.read_text()
                unknown = len(re.findall(r"^ *```(?:cpp|cmake|console)", text, re.M)) - len(blocks.BLOCK.findall(text))
                self.assertEqual(unknown, 0, f"{page} has code of unknown origin")

    def test_code_and_outputs_are_as_they_really_are(self):
        path = f"{BUILD}/simulator/jwsim:{BUILD}/tools/jwprobe"
        faults = "".join(text for page in blocks.pages() for text in blocks.visit(page, path, renew=False))
        self.assertEqual(faults, "", f'\n{faults}run "scripts/docs --renew" to renew these blocks')

    def test_library_calls_nothing_that_the_page_on_reliability_rules_out(self):
        command = re.search(r"```\n( *nm .*?)```", (DOCS / "reliability.md").read_text(), re.S)[1]
        libraries = sorted(pathlib.Path(BUILD, "device").glob("libJwDevice*.so"))
        self.assertEqual(len(libraries), 1)
        command = command.replace("build/release/device/libJwDevice.so", str(libraries[0]))
        self.assertEqual(run("sh", "-c", command, ok=False), "")

    def test_every_test_that_a_page_names_exists(self):
        sources = {path.stem: path.read_text() for path in (SOURCE / "tests").rglob("*.cpp")}
        missing = []
        for page in DOCS.glob("*.md"):
            for program, functions in re.findall(r"`(tst_\w+)`((?:,? `(?!tst_)[a-z]\w+`)*)", page.read_text()):
                missing += [program] if program not in sources else [
                    f"{program} {name}" for name in re.findall(r"\w+", functions) if f"::{name}(" not in sources[program]]
        self.assertEqual(missing, [])

    def test_every_sentence_has_its_checksum(self):
        wrong, count = [], 0
        for page in self.pages:
            for line in page.read_text().splitlines():
                for body, checksum in re.findall(r'\$([A-Z]{5,}[^*\s"`]*)\*([0-9A-Za-z]{2})', line):
                    count += 1
                    value = 0
                    for byte in body.encode():
                        value ^= byte
                    if checksum != f"{value:02x}" and "CRC calculation failed" not in line:
                        wrong.append(f"{page}: ${body}*{checksum}, should be {value:02x}")
        self.assertEqual(wrong, [])
        self.assertGreater(count, 10)


class Reference(unittest.TestCase):
    """Tests the HTML that Doxygen makes with the preset "docs"."""

    @classmethod
    def setUpClass(cls):
        folder = BUILD / "tests/docs/build"
        run("cmake", "--preset", "docs", "-B", folder, cwd=SOURCE)
        # Build everything again each time, because Doxygen reports warnings only when Doxygen runs.
        run("cmake", "--build", folder, "--target", "docs", "--clean-first")
        cls.tags = folder / "docs/jwdevice.tag"
        cls.html = folder / "docs/html"

    def test_every_link_leads_somewhere(self):
        pages = {page.name: Html(page) for page in self.html.glob("*.html")}
        dead = set()
        for name, page in pages.items():
            for link in page.links:
                target = urllib.parse.urlparse(urllib.parse.unquote(link))
                path = target.path or name
                if target.scheme:
                    continue
                if not (self.html / path).exists() or path in pages and target.fragment \
                        and target.fragment not in pages[path].names:
                    dead.add(f"{name}: {link}")
        self.assertEqual(dead, set())
        self.assertIn("md_docs_getting_started.html", pages)

    def test_every_installed_header_is_documented(self):
        documented = {f'{pathlib.Path(file.findtext("path")).name}/{file.findtext("name")}'
                      for file in xml.etree.ElementTree.parse(self.tags).findall('compound[@kind="file"]')}
        root = TREES["shared"] / "include/jwdevice"
        installed = {str(header.relative_to(root)) for header in root.rglob("*.h")
                     if not header.name.endswith("_export.h")}
        self.assertGreater(len(installed), 10)
        self.assertEqual(installed - documented, set())

    def test_every_picture_is_shown(self):
        for source in (DOCS / "pictures").glob("*.dot"):
            self.assertTrue((self.html / f"dot_{source.stem}.svg").exists(), f"no page shows {source}")
        text = "".join(page.read_text() for page in Pages.pages)
        unused = [name.name for name in (DOCS / "pictures").glob("*.png") if f"](pictures/{name.name})" not in text]
        self.assertEqual(unused, [])
        for shown in re.findall(r"!\[[^]]*\]\(pictures/([^()]+)\)", text):
            self.assertTrue((self.html / shown).exists(), f"{shown} is not in the documentation")


if __name__ == "__main__":
    packagetest.main()
