#!/usr/bin/env python3
"""Fails if a link in a document leads to no file or to no heading: tests/project/links.py ROOT"""

import pathlib
import re
import sys

FENCED = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)
LINK = re.compile(r"\]\(\s*([^)\s]+)\s*\)")


def anchor(heading):
    """The fragment that GitHub gives a heading."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    documents = [path for path in sorted(root.rglob("*.md")) if path.relative_to(root).parts[0] != "build"]
    texts = {path: FENCED.sub("", path.read_text(encoding="utf-8")) for path in documents}
    errors = []
    for path, text in texts.items():
        for link in LINK.findall(text):
            if re.match(r"[a-z]+:", link):
                continue
            file, _, fragment = link.partition("#")
            target = (path.parent / file).resolve() if file else path
            if not target.exists():
                errors.append(f"{path.relative_to(root)}: {link}: no such file")
            elif fragment and fragment not in map(anchor, HEADING.findall(texts.get(target, ""))):
                errors.append(f"{path.relative_to(root)}: {link}: no such heading")
    if len(texts) < 20:
        errors.append(f"{root}: only {len(texts)} documents")
    if errors:
        print(*errors, sep="\n", file=sys.stderr)
        sys.exit(1)


main()
