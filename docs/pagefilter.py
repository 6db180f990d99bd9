#!/usr/bin/env python3
"""Doxygen's filter for the pages. The pages are written for a code host, a web site that shows the source tree. This
filter changes what Doxygen does differently:

- a picture replaces a drawing in text with this comment above it:  <!-- picture port-states.dot: Its caption -->
- headings get names for links, "page.md#heading", as on a code host
- links to headers and examples lead to their pages in the reference; a link to another file becomes plain text
"""
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PICTURE = re.compile(r'<!-- picture (\S+): (.*?) -->\n+```\w*\n.*?^```$', re.S | re.M)
FENCE = re.compile(r'^ *```.*?^ *```$', re.S | re.M)
TITLE = re.compile(r'^(# .+)$', re.M)
HEADING = re.compile(r'^(##+ +)(.+)$', re.M)
LINK = re.compile(r'(?<!!)\[([^][]+)\]\(([^()\s]+)\)')


def slug(heading):
    """Returns the name that a code host gives to a heading, for links."""
    return re.sub(r'[^\w\- ]', '', heading.strip().lower()).replace(' ', '-')


def anchor(page, heading):
    return re.sub(r'\W', '-', os.path.relpath(page, ROOT)[:-len('.md')]) + '--' + heading


class Page:
    def __init__(self, name):
        self.name = os.path.abspath(name)
        with open(name, encoding='utf-8') as page:
            self.text = page.read()

    def filtered(self):
        text = self.text
        if os.path.relpath(self.name, ROOT) == 'README.md':  # otherwise it has the same title as the project
            text = TITLE.sub(r'\1: README', text, count=1)
        text = PICTURE.sub(self.picture, text)
        parts, end = [], 0
        for fence in FENCE.finditer(text):
            parts += [self.prose(text[end:fence.start()]), fence.group()]
            end = fence.end()
        return ''.join(parts) + self.prose(text[end:])

    def prose(self, text):
        return LINK.sub(self.link, HEADING.sub(self.heading, text))

    @staticmethod
    def picture(match):
        name, caption = match.groups()
        drawn = f'\\dotfile {name} "{caption}"'
        # The page must keep its number of lines, because Doxygen's warnings name lines.
        return drawn + '\n' * (match.group().count('\n') - drawn.count('\n'))

    def heading(self, match):
        return f'{match.group()} {{#{anchor(self.name, slug(match.group(2)))}}}'

    def link(self, match):
        text, target = match.groups()
        if '://' in target:
            return match.group()
        path, _, heading = target.partition('#')
        path = os.path.normpath(os.path.join(os.path.dirname(self.name), path)) if path else self.name
        if heading:
            return f'[{text}](#{anchor(path, heading)})'
        path = os.path.relpath(path, ROOT)
        if path.endswith('.md'):
            return match.group()
        plain = text.replace('`', '')
        if path.endswith('.h'):
            return f'\\ref {path} "{plain}"'
        if path.startswith('examples/') and path.endswith('.cpp'):
            return f'\\ref {path[len("examples/"):]} "{plain}"'
        return text


if __name__ == '__main__':
    sys.stdout.write(Page(sys.argv[1]).filtered())
