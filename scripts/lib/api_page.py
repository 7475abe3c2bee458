#!/usr/bin/env python3
"""Makes docs/api.md of the comments in the public headers: scripts/lib/api_page.py [--check]

With --check nothing is written, and it is an error if the page is not what the headers say. So is a public name
without a comment, and a function whose comment does not say what it throws or who may call it.

Reads headers as this project writes them: "///" lines above what they describe or "///<" after it, and a named
namespace that holds structures, enumerations, aliases and functions.
"""

import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "api.md"

# In a function's comment, the sentence that begins so and those after it.
LABELS = {
    "Errors": r"(?:Throws|Does not throw|Errors end the process)\b",
    "Threads": r"(?:Thread-safe|Safe to call from several threads|Calls that share)\b",
}


class Statement:
    """A declaration, with the comments above and after it. The lines of a structure's body are among its code."""

    def __init__(self, number):
        self.number = number  # of its first line
        self.remarks = []  # lines of "//" before it
        self.comment = []
        self.code = []

    def is_complete(self, one_a_line):
        code = re.sub(r"//.*", "", "\n".join(self.code)).rstrip()
        if re.fullmatch(r"namespace [\w:]+ \{|\}", code):
            return True
        open_brackets = sum(code.count(c) for c in "({") - sum(code.count(c) for c in ")}")
        return open_brackets == 0 and (one_a_line or code.endswith((";", "}")))

    def kind(self):
        return re.match(r"struct|enum|using|", self.code[0])[0] or "function"

    def signature(self):
        """The code, without a function's body."""
        code = "\n".join(self.code)
        if code.endswith("}"):
            depth = 0
            for at in range(code.index("("), len(code)):
                depth += {"(": 1, ")": -1}.get(code[at], 0)
                if depth == 0:
                    return code[:at + 1] + ";"
        return code

    def name(self):
        code = self.code[0].strip()
        patterns = {
            "struct": r"struct (\w+)",
            "enum": r"enum class (\w+)",
            "using": r"using (\w+)",
            "function": r"(\w+)\(",
        }
        return re.search(patterns[self.kind()], code)[1]

    def member_name(self):
        code = re.sub(r"\s*=.*", "", self.signature().replace("\n", " ")).strip().rstrip(";,")
        return re.match(r"(\w+)\(", code)[1] if re.match(r"\w+\(", code) else re.search(r"(\w+)$", code)[1]


def statements(lines, first_number, one_a_line=False):
    """The declarations in these lines."""
    found = []
    current = Statement(first_number)
    for number, line in enumerate(lines, first_number):
        text = line.strip()
        if current.code:
            current.code.append(line)
        elif text.startswith("///<"):  # goes on from the line before
            found[-1].comment.append(text[4:].strip())
            continue
        elif text.startswith("///"):
            current.comment.append(text[3:].strip())
            continue
        elif text.startswith("//"):
            current.remarks.append(line)
            continue
        elif text == "" or text.startswith("#"):
            current = current if text and current.comment else Statement(number + 1)
            continue
        else:
            current.number = number
            current.code.append(line)
        if current.is_complete(one_a_line):
            if len(current.code) == 1:
                current.code[0], _, note = current.code[0].partition("///<")
                current.code[0] = current.code[0].rstrip()
                current.comment += [note.strip()] if note else []
            found.append(current)
            current = Statement(number + 1)
    return found


class Header:
    def __init__(self, path):
        self.path = path
        lines = (ROOT / path).read_text(encoding="utf-8").splitlines()
        self.summary = " ".join(line[2:].strip() for line in lines[:lines.index("#pragma once")])
        inside = statements(lines, 1)
        self.namespace = next(s.code[0].split()[1] for s in inside if s.code[0].startswith("namespace"))
        self.names = [s for s in inside if not re.match(r"namespace|\}", s.code[0])]

    def fail(self, statement, what):
        sys.exit(f"{self.path}:{statement.number}: {what}")

    def members_of(self, statement):
        if statement.kind() not in ("struct", "enum"):
            return []
        members = statements(statement.code[1:-1], statement.number + 1, statement.kind() == "enum")
        described = [member for member in members if member.comment]
        # What an enumeration without a single one has, its own comment describes.
        if len(described) != len(members) and (described or statement.kind() == "struct"):
            missing = next(member for member in members if not member.comment)
            self.fail(missing, f"{missing.member_name()} has no comment")
        return members


def public_headers():
    """Those that are installed."""
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    found = re.findall(r"\((?:APPEND )?public_headers ([^)]*)\)", text)
    return [Header(path) for path in " ".join(found).split()]


class Prose:
    """Makes Markdown of comments: names become code, and links to where the page or the documents describe them."""

    def __init__(self, headers):
        self.known = {name.name() for header in headers for name in header.names}

    def paragraphs(self, comment, own_name=""):
        text = "\n".join(comment)
        return [self.line(" ".join(part.split()), own_name) for part in text.split("\n\n") if part.strip()]

    def line(self, text, own_name=""):
        parts = re.split(r"(`[^`]*`)", text)
        return "".join(self.code(part[1:-1], own_name) if part.startswith("`") else self.words(part, own_name)
                       for part in parts)

    def words(self, text, own_name):
        text = re.sub(r"([*<])", r"\\\1", text)
        snake_case = r"\b(?:\w+::)*\w*[a-z0-9]_[a-z0-9]\w*(?:::\w+)*(?:\([\w, ]*\))?"
        code = rf"{snake_case}|\bstd::\w+|\b\w+\(\)|\bR_AARCH64_\w+|docs/[\w/]+\.md"
        return re.sub(code, lambda match: self.code(match[0], own_name), text)

    def code(self, text, own_name):
        if text.startswith("docs/"):
            return f"[{text[5:]}]({text[5:]})"
        for part in re.findall(r"\w+", text.partition("(")[0]):
            if part in self.known and part != own_name:
                return f"[`{text}`](#{part})"
        return f"`{text}`"


def split_labels(paragraph):
    """The parts of a function's paragraph, each with its label; what comes first may have none."""
    start = "|".join(LABELS.values())
    parts = []
    for text in re.split(rf"(?:(?<=\. )|^)(?={start})", paragraph):
        label = next((label for label, begin in LABELS.items() if re.match(begin, text)), "")
        parts += [(label, text.strip())] if text else []
    return parts


def declaration(header, statement):
    members = header.members_of(statement)
    lines = [statement.code[0]] if members else statement.signature().split("\n")
    for member in members:
        lines += member.remarks + member.signature().split("\n")
    lines += ["};"] if members else []
    return ["```cpp", *lines, "```"]


def entry(header, statement, prose):
    name = statement.name()
    if not statement.comment:
        header.fail(statement, f"{name} has no comment")
    page = [f"### `{name}`", "", *declaration(header, statement), ""]
    labels = set()
    for paragraph in prose.paragraphs(statement.comment, name):
        for label, text in split_labels(paragraph) if statement.kind() == "function" else [("", paragraph)]:
            labels.add(label)
            page += [textwrap.fill(f"**{label}.** {text}" if label else text, 100, break_long_words=False,
                                   break_on_hyphens=False), ""]
    for label in LABELS if statement.kind() == "function" else []:
        if label not in labels:
            header.fail(statement, f"the comment of {name} says nothing about {label.lower()}")
    members = [member for member in header.members_of(statement) if member.comment]
    if members:
        page += ["| Member | |", "|---|---|"]
        for member in members:
            meaning = "<br>".join(prose.paragraphs(member.comment, name))
            meaning = meaning[0].upper() + meaning[1:] + ("" if meaning.endswith(".") else ".")
            page.append(f"| `{member.member_name()}` | {meaning} |")
        page.append("")
    return page


def anchor(heading):
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def make_page():
    headers = public_headers()
    prose = Prose(headers)
    page = [
        "# API reference",
        "",
        "`scripts/docs` makes this page of the comments in the public headers. [The contract](contract.md)",
        "says what a host guarantees and what ends the process, [embedding](embedding.md) how each library",
        "is linked.",
        "",
        "| Header | Names |",
        "|---|---|",
    ]
    for header in headers:
        names = ", ".join(f"[`{name.name()}`](#{name.name()})" for name in header.names)
        page.append(f"| [`{header.path}`](#{anchor(header.path)}) | {names} |")
    for header in headers:
        page += ["", f"## `{header.path}`", ""]
        where = f"Namespace `{header.namespace}`, in [the header](../{header.path})."
        page += [textwrap.fill(f"{prose.line(header.summary)} {where}", 100, break_long_words=False,
                               break_on_hyphens=False), ""]
        for name in header.names:
            page += entry(header, name, prose)
        page.pop()
    return "\n".join(page) + "\n"


def main():
    if sys.argv[1:] not in ([], ["--check"]):
        print(__doc__.split("\n")[0], file=sys.stderr)
        sys.exit(2)
    page = make_page()
    if not sys.argv[1:]:
        PAGE.write_text(page, encoding="utf-8")
    elif not PAGE.exists() or PAGE.read_text(encoding="utf-8") != page:
        sys.exit("docs/api.md is not what the public headers say; scripts/docs makes it again")


main()
