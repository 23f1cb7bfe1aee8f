"""The files of the source tree, for the checks beside this module."""

import argparse
import os
import sys

sys.dont_write_bytecode = True

HERE = os.path.dirname(os.path.abspath(__file__))
BINARY_ENDINGS = (".icc", ".icm", ".png", ".jpg", ".bin")


def parse_root(description):
    """The --root option that every check takes; answers its parser, for checks with further options."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--root", default=os.path.dirname(HERE), help="the tree to check (default: this one)")
    return parser


def walk(root):
    """Paths relative to `root`, sorted, without what the build and git keep there."""
    found = []
    for folder, folders, names in os.walk(root):
        if folder == root:
            folders[:] = [f for f in folders if f not in ("build", ".git")]
        folders[:] = sorted(f for f in folders if f != "__pycache__")
        found += [os.path.relpath(os.path.join(folder, name), root) for name in names if name != ".git"]
    return sorted(found)


def text_lines(root):
    """(path, line number, line) of every line of every text file."""
    for path in walk(root):
        if path.endswith(BINARY_ENDINGS):
            continue
        try:
            with open(os.path.join(root, path), encoding="utf-8") as file:
                lines = file.read().splitlines()
        except UnicodeDecodeError:
            continue  # a binary file under another name
        for number, line in enumerate(lines, 1):
            yield path, number, line


def report(what, findings):
    """Prints the findings and ends the process: 1 when there are any."""
    for finding in findings:
        print(finding)
    print(f"{what}: {len(findings)} found" if findings else f"{what}: none")
    sys.exit(1 if findings else 0)
