#!/usr/bin/env python3
"""Counts the C++ lines of the tree (non-blank, non-comment lines of .h/.cc/.cpp) per top-level
directory and prints the share that tests/ and fuzz/ hold.

    python3 scripts/test-share.py [ROOT]
"""
import os
import sys

SOURCES = ('.h', '.cc', '.cpp')
TEST_DIRS = ('tests', 'fuzz')


def code_lines(path):
    count = 0
    in_block = False
    with open(path, errors='replace') as f:
        for line in f:
            text = line.strip()
            if in_block:
                if '*/' not in text:
                    continue
                in_block = False
                text = text.split('*/', 1)[1].strip()
            if not text or text.startswith('//'):
                continue
            if text.startswith('/*'):
                in_block = '*/' not in text
                continue
            count += 1
    return count


def main():
    root = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else
                           os.path.join(os.path.dirname(__file__), '..'))
    totals = {}
    for directory, subdirs, files in os.walk(root):
        rel = os.path.relpath(directory, root)
        top = rel.split(os.sep)[0]
        if top.startswith(('build', '.', 'out')) and rel != '.':
            subdirs[:] = []
            continue
        for name in files:
            if name.endswith(SOURCES):
                key = top if rel != '.' else '.'
                totals[key] = totals.get(key, 0) + code_lines(os.path.join(directory, name))
    tests = sum(v for k, v in totals.items() if k in TEST_DIRS)
    everything = sum(totals.values())
    for key in sorted(totals):
        print(f'{totals[key]:7d}  {key}/')
    print(f'{everything:7d}  all C++ lines')
    print(f'tests/ + fuzz/: {tests} lines, {100.0 * tests / everything:.1f} %')


if __name__ == '__main__':
    main()
