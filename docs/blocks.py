#!/usr/bin/env python3
"""Keeps the code and outputs that the pages quote equal to their sources.

    docs/blocks.py check|renew BIN [PAGE]...

A comment above a block between ``` lines says where the block comes from:

    <!-- from examples/01-find-boards/main.cpp -->    the whole file
    <!-- from FILE: "text" to "other text" -->        from the first line that begins with "text" to the next line that
                                                      begins with "other text"; "text$" is a whole line
    <!-- run -->                                      each line "$ COMMAND" is run, and its output follows

`check` prints a diff and returns 1 if a block differs; `renew` writes the block again. BIN names the folders of the
programs that the commands use, separated by ":". Times, process ids, the distance of columns and the numbers of ports
are not compared, because they differ from run to run.
"""
import difflib
import glob
import os
import re
import subprocess
import sys
import tempfile
import textwrap

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BLOCK = re.compile(r'(?P<head><!-- (?:from (?P<file>[^\s:]+)(?:: "(?P<first>.+?)" to "(?P<last>.+?)")?|(?P<run>run))'
                   r' -->\n+```\w+\n)(?P<text>.*?)(?P<end>^```$)', re.S | re.M)


class Fault(Exception):
    pass


def begins(line, text):
    line = line.strip()
    return line == text[:-1] if text.endswith('$') else line.startswith(text)


def quoted(file, first, last):
    with open(os.path.join(ROOT, file), encoding='utf-8') as source:
        lines = source.read().splitlines()
    if first:
        begin = next((i for i, line in enumerate(lines) if begins(line, first)), None)
        if begin is None:
            raise Fault(f'{file} has no line that begins with "{first}"')
        end = next((i for i, line in enumerate(lines[begin:], begin) if begins(line, last)), None)
        if end is None:
            raise Fault(f'{file} has no line that begins with "{last}" after "{first}"')
        lines = textwrap.dedent('\n'.join(lines[begin:end + 1])).splitlines()
    return ''.join(line + '\n' for line in lines)


def run(text, path):
    """Returns the commands of a block, each with its real output."""
    result = ''
    with tempfile.TemporaryDirectory() as folder:
        for line in text.splitlines():
            if not line.startswith('$ '):
                continue
            try:
                done = subprocess.run(['sh', '-c', line[2:]], cwd=folder, timeout=60, text=True,
                                      stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                      env={**os.environ, 'PATH': path + ':' + os.environ['PATH']})
            except subprocess.TimeoutExpired:
                raise Fault(f'"{line[2:]}" did not end within a minute') from None
            if done.returncode == 127:
                raise Fault(f'"{line[2:]}": {done.stdout.strip()}')
            result += line + '\n' + done.stdout
    return result


def comparable(output):
    """Returns the output without the parts that differ from run to run."""
    output = re.sub(r'\d+(\.\d+)? ms\b', 'N ms', output)
    output = re.sub(r'\b\d\d:\d\d:\d\d\.\d{3}\b', 'TIME', output)
    output = re.sub(r'\b(pid|kill) \d+', r'\1 N', output)
    ports = sorted(set(re.findall(r'\bttyACM\d+', output)), key=lambda name: int(name[len('ttyACM'):]))
    output = re.sub(r'\bttyACM\d+', lambda name: f'ttyACM{ports.index(name.group())}', output)
    return re.sub(r'[ \t]+', ' ', output)


def visit(page, path, renew):
    """Compares one page with its sources; with `renew`, also writes the page again. Returns the differences, and the
    faults in the comments above the blocks."""
    differences, faults = [], []

    def visitBlock(block):
        try:
            if block['run']:
                now = run(block['text'], path)
                same = comparable(now) == comparable(block['text'])
            else:
                now = quoted(block['file'], block['first'], block['last'])
                same = now == block['text']
        except (Fault, OSError) as fault:
            faults.append(f'{os.path.relpath(page, ROOT)}: {fault}\n')
            return block.group()
        if not same:
            differences.extend(line if line.endswith('\n') else line + '\n' for line in difflib.unified_diff(
                block['text'].splitlines(True), now.splitlines(True),
                os.path.relpath(page, ROOT), block['file'] or 'output of the commands'))
        return block.group() if same else block['head'] + now + block['end']

    with open(page, encoding='utf-8') as file:
        text = file.read()
    new = BLOCK.sub(visitBlock, text)
    if renew and new != text:
        with open(page, 'w', encoding='utf-8') as file:
            file.write(new)
    return ''.join(differences), ''.join(faults)


def pages():
    return sorted(glob.glob(os.path.join(ROOT, '*.md')) + glob.glob(os.path.join(ROOT, 'docs', '*.md')))


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in ('check', 'renew'):
        sys.exit('Usage: docs/blocks.py check|renew BIN [PAGE]...')
    action = sys.argv[1]
    path = ':'.join(os.path.abspath(folder) for folder in sys.argv[2].split(':'))
    renew = action == 'renew'
    results = [visit(os.path.abspath(page), path, renew) for page in sys.argv[3:] or pages()]
    differences, faults = (''.join(texts) for texts in zip(*results))
    sys.stdout.write(differences + faults)
    if faults:
        sys.exit('Correct these comments of the pages, or the commands below them.')
    if differences and not renew:
        sys.exit('These blocks of the pages are out of date: "scripts/docs --renew" renews them.')


if __name__ == '__main__':
    main()
