#!/usr/bin/env python3
"""Fails if no test expects a text that a user can see: tests/project/mistakes.py ROOT [--update | --texts]

The finding ids, the lines of the finaliser's reports, and all other texts of the library and the workbench: each string
literal of two words, and each that is thrown. A test expects a text if it has the text's words, in their order and in
one line, in a string of C++ or in what a cram case says that a command prints. A finding id needs a corrupter: an entry
{finding_id::ID, "what is done wrong" in tests/check/corrupters.cpp, or a finding that cli/cases/corrupters.t expects.

docs/mistakes.md has the table of the ids and of the reports' lines, which --update writes. --texts prints the table of
all other texts.
"""

import bisect
import pathlib
import re
import sys

FINALISER = "fft/SRC/wfta/kernel_printer.cpp"
CHECK_CORRUPTERS = "tests/check/corrupters.cpp"
DUMP_CORRUPTERS = "tests/workbench/cli/cases/corrupters.t"
DOCUMENT = "docs/mistakes.md"

# Their literals are patterns of what others print, which are read.
READERS = ["workbench/input/abort_log.cpp", "workbench/input/crash_log.cpp"]

# Lines without words, and the tests that are about them.
WORDLESS = {
    "%s \t %p 0x%lx %p 0x%lx": ("tests/wfta/abort_messages.cpp", "TheListingShowsEveryRegisteredKernelInNameOrder"),
    "%lx %lx %s": ("tests/wfta/perf_map.cpp", "LineIsAddressSizeAndNameInBareLowerCaseHexadecimal"),
}

# Texts that no test provokes, and why.
KEY = "not printed: keeps findings apart that would else be one"
MEMORY = "needs names of more than 4 GiB, or as many sections"
SHRINKS = "needs a file that shrinks between two system calls"
LIBELF = "libelf reports the same damage earlier; guards against another version of it"
LLVM = "needs another LLVM"
EXCEPTIONS = {
    "nbytes >= 0": "readsome returns no negative number",
    "void check_kernel_hash(const string&, const uint8_t*, size_t)": "of the assertion nbytes >= 0",
    "alignment of call": KEY,
    "… perhaps part": KEY,
    "the names do not fit into one ELF string table": MEMORY,
    "more functions than one ELF image can index": MEMORY,
    "the names do not fit into one string table": MEMORY,
    "the image shrank while it was read": SHRINKS,
    "file shrank while it was read": SHRINKS,
    "bad section header": LIBELF,
    "bad relocation": LIBELF,
    "LLVM does not know the processor that this program runs on": LLVM,
    "LLVM has no disassembler for AArch64": LLVM,
    "built without LLVM's machine-code analyser (libLLVMMCA)": LLVM,
    "LLVM's pipeline model failed: …": LLVM,
    "waits for the memory access of …": "in LLVM's models no access is known to wait for another",
}

VALUE = "\0"  # in a text: what is known only when the program runs
TOKEN = re.compile(
    r"""(?P<gap>//[^\n]*|/\*.*?\*/|^[ \t]*\#[ \t]*include[^\n]*|(?:\s|\\\n)+)"""
    r"""|(?:\b(?:u8|L)?R)"(?P<delimiter>\w*)\((?P<raw>.*?)\)(?P=delimiter)"|"(?P<string>(?:\\.|[^"\\\n])*)\""""
    r"""|'(?:\\.|[^'\\])+'|(?P<word>\w+)|::|->|[+\-<>=!]=|<<|>>|&&|\|\||.""",
    re.DOTALL | re.MULTILINE | re.VERBOSE,
)
MACRO = re.compile(r'^#define (\w+)((?:\s|\\\n)*(?:"(?:\\.|[^"\\\n])*"(?:[ \t]|\\\n)*)+)$', re.MULTILINE)
SEPARATORS = {",", ";", "?", ":", "=", "==", "!=", "+=", "<<", "<", ">", "&&", "||", "return", "throw"}
CLOSING = {"(": ")", "[": "]", "{": "}"}
ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "0": "\0"}


def unescaped(string):
    return re.sub(r"\\(x[0-9a-f]+|.)", lambda m: ESCAPES.get(m[1], m[1] if len(m[1]) == 1 else "\x1b"), string)


class Literals:
    """The texts of a C++ source. Literals side by side or joined by + are one text, with VALUE for what is between.

    texts has (text, line, whether it is an error's, the test that it is in or None). What is streamed is left out: in a
    test it explains a failure.
    """

    def __init__(self, source):
        self.texts = []
        self.macros = {match[1]: Literals(match[2]).joined() for match in MACRO.finditer(source)}
        self.tokens = [match for match in TOKEN.finditer(source) if match["gap"] is None]
        self.newlines = [match.start() for match in re.finditer("\n", source)]
        self.at = 0
        self.calls = []
        self.thrown = False
        self.test = None
        while self.at < len(self.tokens):
            self.add(*self.read_group(None))

    def joined(self):
        return "".join(text for text, _, _, _ in self.texts)

    def add(self, segment, begin, streamed=False):
        if not any(segment) or streamed:
            return
        text = "".join(VALUE if part is None else part for part in segment)
        is_error = self.thrown or "fail" in self.calls or "print_error" in self.calls
        if "static_assert" not in self.calls:
            line = bisect.bisect(self.newlines, begin) + 1
            self.texts.append((re.sub(VALUE + "+", VALUE, text), line, is_error, self.test))

    def string_of(self, token):
        """The value of a literal, or of a macro that is one; None for other tokens."""
        if token["raw"] is not None:
            return token["raw"]
        return self.macros.get(token[0]) if token["string"] is None else unescaped(token["string"])

    def read_group(self, closing):
        """Reads to the closing bracket. Returns the last text in it as (parts, where it begins)."""
        segment, begin, word, test, streamed = [], 0, None, None, False
        while self.at < len(self.tokens):
            token = self.tokens[self.at]
            self.at += 1
            value = token[0]
            string = self.string_of(token)
            if string is not None:
                begin = begin if any(segment) else token.start()
                segment.append(string)
                word = None
            elif value == closing:
                return segment, begin
            elif value == "{":
                self.add(segment, begin, streamed)
                segment, streamed = [], False
                outer, self.test = self.test, self.test or test
                self.add(*self.read_group("}"))
                self.test, test, word, self.thrown = outer, None, None, False
            elif value in CLOSING:
                first, count = self.at, len(self.texts)
                self.calls.append(word)
                inner = self.read_group(CLOSING[value])
                if value == "(" and word in ("string", None) and count == len(self.texts):
                    self.calls.pop()
                    begin = begin if any(segment) else inner[1]
                    segment += inner[0]
                else:
                    self.add(*inner)
                    self.calls.pop()
                    segment.append(None)
                if word in ("TEST", "TEST_F", "TEST_P"):
                    test = ".".join(name[0] for name in self.tokens[first : self.at - 1] if name["word"])
                word = None
            elif value in SEPARATORS:
                self.add(segment, begin, streamed)
                segment, word, streamed = [], None, value == "<<"
                self.thrown = value == "throw" or (self.thrown and value != ";")
            elif value == "+":
                word = None
            elif token["word"]:
                word = value
                if value not in ("std", "string"):
                    segment.append(None)
            elif value not in ("::", ".", "->"):
                word = None
                segment.append(None)
        return segment, begin


def with_values(text):
    """The text with VALUE for the placeholders of fmt."""
    text = re.sub(r"\{[^{}\n\"\\ ]{0,16}(\{\}[^{}\n\"]{0,4})?\}", VALUE, text.replace("{{", "\1").replace("}}", "\2"))
    return text.replace("\1", "{").replace("\2", "}")


def with_printf_values(text):
    return re.sub(r"(0x)?%[a-z]+", VALUE, text)


def words_of(text):
    return re.findall(r"[A-Za-z]{2,}", text.replace(VALUE, " "))


def is_shown(text, is_error):
    """Whether a literal is a text for users: it has two words, or is an error."""
    phrase = re.search(r"[A-Za-z]{2,}\S* (.*[^A-Za-z])?[A-Za-z]{2}", text.replace(VALUE, " "))
    return bool(phrase) or is_error and bool(words_of(text))


def expected_by(text, tests):
    """The first test that expects the text, as (file, name), or None."""
    lines = [line.strip(VALUE + " ") for line in text.split("\n") if words_of(line)]
    patterns = [re.compile("[^\n]*?".join(re.escape(piece) for piece in line.split(VALUE))) for line in lines]
    return next((test for test, has in tests if all(any(map(p.search, has)) for p in patterns)), None)


def read_tests(root):
    """[((file, name), [text, …])] of all tests, and at the end of what the tests of a file share, with the name ""."""
    tests = []
    for path in sorted([*root.glob("tests/**/*.cpp"), *root.glob("tests/**/*.hpp")]):
        units = {}
        for text, _, _, test in Literals(path.read_text()).texts:
            units.setdefault(test or "", []).append(with_values(text))
        tests += [((str(path.relative_to(root)), name), has) for name, has in units.items()]
    for path in sorted(root.glob("tests/workbench/cli/cases/*.t")):
        name, printed = "", {}
        for line in path.read_text().splitlines():
            if not line.startswith("  "):
                name = line.rstrip(":") if line else name
            elif line[2:4] not in ("$ ", "> "):
                printed.setdefault(name, []).append(re.sub(r" \((esc|re|glob)\)$", "", line[2:]))
        tests += [((str(path.relative_to(root)), name), ["\n".join(lines)]) for name, lines in printed.items()]
    return sorted(tests, key=lambda test: test[0][1] == "")


def read_ids(root):
    """The finding ids, as they are printed."""
    enumeration = re.search(r"enum class finding_id \{(.*?)\};", (root / "check/finding.hpp").read_text(), re.DOTALL)
    return [name.replace("_", "-") for name in re.findall(r"^    (\w+),", enumeration[1], re.MULTILINE)]


def read_corrupters(root):
    """{id: (what is done wrong, file)}"""
    corrupters = {}
    for name, wrong in re.findall(r'\{finding_id::(\w+),\s*"([^"]*)"', (root / CHECK_CORRUPTERS).read_text()):
        corrupters.setdefault(name.replace("_", "-"), (wrong, CHECK_CORRUPTERS))
    heading = ""
    for line in (root / DUMP_CORRUPTERS).read_text().splitlines():
        if line and not line.startswith(" "):
            heading = line.rstrip(":")
        if found := re.fullmatch(r"  \S.*: (?:error|warning|note): .* \[([a-z0-9-]+)\]", line):
            corrupters.setdefault(found[1], (heading, DUMP_CORRUPTERS))
    return corrupters


def read_report_lines(root):
    """The asserted expressions and the lines of the finaliser's reports and diagnostics: [(line, what to look for)]"""
    source = (root / FINALISER).read_text()
    lines = []
    assertion = r'ASSERT_IN\(function,(?!\s*\.)\s*(.*?)\);|ASSERT_AS\(function, "(.*?)",'
    for match in re.finditer(assertion, source, re.DOTALL):
        expression = re.sub(r"\s+", " ", match[1] or match[2])
        lines.append((expression, f"Assertion `{expression}' failed."))
    for text, _, _, _ in Literals(source).texts:
        if text.endswith("\n"):
            lines.append((text.strip(), with_printf_values(text.strip())))
    return lines


def read_texts(root):
    """All other texts that users can see: [(file, line, text)]"""
    texts = []
    for directory in ["jit", "fft", "check", "workbench"]:
        for path in sorted([*(root / directory).rglob("*.cpp"), *(root / directory).rglob("*.hpp")]):
            source = str(path.relative_to(root))
            if source in READERS:
                continue
            for text, line, is_error, _ in Literals(path.read_text()).texts:
                text = with_values(text)
                if is_shown(text, is_error) and not (source == FINALISER and text.endswith("\n")):
                    texts.append((source, line, text))
    return texts


def readable(text):
    return text.replace(VALUE, "…").replace("\n", "\\n").replace("\t", "\\t").replace("\x1b", "\\x1b")


def cell(text):
    return readable(text).replace("|", "\\|")


class Mistakes:
    def __init__(self, root):
        self.root = root
        self.tests = read_tests(root)
        self.errors = []
        self.excused = set()

    def test_of(self, where, text, look_for, directory="tests"):
        """The test that expects a text, or None, which is an error unless the text is an exception."""
        test = expected_by(look_for, [entry for entry in self.tests if entry[0][0].startswith(directory)])
        if readable(text) in EXCEPTIONS:
            self.excused.add(readable(text))
            if test:
                self.errors.append(f"{where}: {test[0]} expects {readable(text)!r}, which is one of EXCEPTIONS")
        elif not test:
            self.errors.append(f"{where}: no test expects {readable(text)!r}")
        return test

    def wordless(self, line):
        file, name = WORDLESS[line]
        known = next((test for test, _ in self.tests if test[0] == file and test[1].endswith("." + name)), None)
        if not known:
            self.errors.append(f"{FINALISER}: {file} has no test {name} for {readable(line)!r}")
        return known

    def id_table(self):
        rows = ["| Finding | What is done wrong | Test |", "|---|---|---|"]
        corrupters = read_corrupters(self.root)
        ids = read_ids(self.root)
        for name in ids:
            if name not in corrupters:
                self.errors.append(f"check/finding.hpp: no corrupter of {name}")
                continue
            wrong, file = corrupters[name]
            rows.append(f"| `{name}` | {cell(wrong[0].upper() + wrong[1:])} | `{file}` |")
        return len(ids), rows

    def line_table(self):
        rows = ["| Line | Test | In |", "|---|---|---|"]
        lines = read_report_lines(self.root)
        for line, look_for in lines:
            test = self.wordless(line) if line in WORDLESS else self.test_of(FINALISER, line, look_for, "tests/wfta/")
            if test:
                rows.append(f"| `{cell(line)}` | `{test[1]}` | `{test[0]}` |")
            elif readable(line) in EXCEPTIONS:
                rows.append(f"| `{cell(line)}` | none: {EXCEPTIONS[readable(line)]} | |")
        return len(lines), rows

    def text_table(self):
        rows = ["| Text | Of | Test |", "|---|---|---|"]
        texts = read_texts(self.root)
        for source, line, text in texts:
            test = self.test_of(f"{source}:{line}", text, text)
            why = ": ".join(test).rstrip(": ") if test else EXCEPTIONS.get(readable(text), "")
            rows.append(f"| {cell(text)} | `{source}` | {cell(why)} |")
        return len(texts), rows


def main():
    root = pathlib.Path(sys.argv[1])
    mode = sys.argv[2] if len(sys.argv) > 2 else ""
    mistakes = Mistakes(root)
    ids, id_rows = mistakes.id_table()
    lines, line_rows = mistakes.line_table()
    texts, text_rows = mistakes.text_table()
    for text in EXCEPTIONS.keys() - mistakes.excused:
        mistakes.errors.append(f"{text!r} is one of EXCEPTIONS, and in no source")

    document = root / DOCUMENT
    written = document.read_text()
    tables = iter([id_rows, line_rows])
    made = re.sub(r"(?m)^\|.*\n(?:\|.*\n)+", lambda _: "\n".join(next(tables)) + "\n", written)
    if mode == "--update":
        document.write_text(made)
    elif made != written:
        mistakes.errors.append(f"{DOCUMENT}: not what the tests say; {sys.argv[0]} {sys.argv[1]} --update writes it")
    if mode == "--texts":
        print(*text_rows, sep="\n")
    else:
        print(f"{ids} finding ids, {lines} lines of reports, {texts} other texts, {len(mistakes.excused)} exceptions")
    if mistakes.errors:
        print(*mistakes.errors, sep="\n", file=sys.stderr)
        sys.exit(1)


main()
