"""Prints what llvm-cov's export says of sources, and compares what is missing with the exceptions of a document:

    coverage.py EXPORT.json ROOT FOLDER...                     one row a folder
    coverage.py EXPORT.json ROOT --exceptions=PAGE FILE|FOLDER...   one row a source, and all that is missing

With --exceptions, fails if something is missing that the page does not name, or if it names what is not missing. An
exception is a row of four cells, the first a source in back quotes: source, code, what is missing, why.

A template counts as one piece of code, whatever its instantiations execute together; a macro as one piece at each place
where it is used."""

import collections
import json
import pathlib
import re
import sys

CODE, EXPANSION, BRANCH, CONDITION = 0, 1, 4, 6
Missing = collections.namedtuple('Missing', 'file line code what')


def line_counts(segments):
    """How often each line was executed, of those that have code: line -> count, as llvm-cov counts."""
    counts, current, at = {}, None, 0
    if not segments:
        return counts
    for line in range(segments[0][0], segments[-1][0] + 1):
        here = []
        while at < len(segments) and segments[at][0] == line:
            here.append(segments[at])
            at += 1
        # line, column, count, has a count, begins a region, is a gap between two
        begins = [count for _, _, count, counted, entry, gap in here if counted and entry and not gap]
        skipped = here and here[0][4] and not here[0][3]
        if not skipped and (begins or (current and current[3])):
            counts[line] = max(begins + ([current[2]] if current and current[3] else []))
        if here:
            current = here[-1]
    return counts


def origins(function):
    """Where each file of a function was included or expanded: index -> ((file, line, column), ..., (file, ))."""
    origin = {}
    expanded = {region[6]: region for region in function['regions'] if region[7] == EXPANSION}
    for index in range(len(function['filenames'])):
        chain, file = [], index
        while file in expanded and len(chain) < 100:
            line, column, file = expanded[file][0], expanded[file][1], expanded[file][5]
            chain.insert(0, (function['filenames'][file], line, column))
        origin[index] = (*chain, (function['filenames'][index],))
    return origin


class Coverage:
    """lines: (file, line) -> count; regions: place -> count; branches: place -> [true, false]; decisions: place ->
    conditions, each with its place and whether it alone was seen to decide."""

    def __init__(self, export):
        data = json.loads(pathlib.Path(export).read_text())['data'][0]
        self.lines, self.regions, self.branches, self.decisions = {}, {}, {}, {}
        for file in data['files']:
            for line, count in line_counts(file['segments']).items():
                self.lines[file['filename'], line] = count
        for function in data['functions']:
            self.add(function)

    def add(self, function):
        origin = origins(function)
        for *where, count, file, _, kind in function['regions']:
            if kind == CODE:
                place = (origin[file], *where)
                self.regions[place] = self.regions.get(place, 0) + count
        conditions_of_all = []
        for *where, taken, not_taken, file, _, kind in function['branches']:
            if kind in (BRANCH, CONDITION):
                place = (origin[file], *where)
                sums = self.branches.setdefault(place, [0, 0])
                sums[0] += taken
                sums[1] += not_taken
            if kind == CONDITION:
                conditions_of_all.append(place)
        for *where, _, _, decided in function['mcdc_records']:
            # The record does not say in which file it is: in the one that has its conditions. Constant conditions are
            # not among the branches, and never decide.
            begin, end = tuple(where[:2]), tuple(where[2:])
            inside = collections.defaultdict(set)
            for place in conditions_of_all:
                if begin <= place[1:3] and place[3:5] <= end:
                    inside[place[0]].add(place)
            chain, conditions = max(inside.items(), key=lambda item: len(item[1]), default=(None, ()))
            if len(conditions) == len(decided):
                found = list(zip(sorted(conditions), decided))
            else:
                found = [((chain, *where), number < sum(decided)) for number in range(len(conditions))]
            if found:
                known = self.decisions.setdefault((chain, *where), found)
                self.decisions[(chain, *where)] = [
                    (place, before or now) for (place, before), (_, now) in zip(known, found)]


def where_of(place):
    """The file and line in which a reader finds the place: of a macro, where it is used."""
    first = place[0][0]
    return (first[0], first[1]) if len(first) > 1 else (first[0], place[1])


class Sources:
    def __init__(self, root):
        self.root, self.texts = root, {}

    def lines(self, file):
        if file not in self.texts:
            self.texts[file] = pathlib.Path(file).read_text().splitlines()
        return self.texts[file]

    def code(self, file, line):
        return ' '.join(self.lines(file)[line - 1].split())

    def text(self, place):
        """The expression at a place."""
        file, (line, column, end_line, end_column) = place[0][-1][0], place[1:5]
        lines = self.lines(file)[line - 1:end_line]
        lines[-1] = lines[-1][:end_column - 1]
        lines[0] = lines[0][column - 1:]
        text = ' '.join(' '.join(lines).split())
        return 'the loop' if text == ':' else f'`{text}`'

    def missing(self, file, line, what):
        return Missing(str(pathlib.Path(file).relative_to(self.root)), line, self.code(file, line), what)


def dead_lines(coverage):
    """Runs of lines that were never executed: (file, first, last)."""
    runs = []
    for file, line in sorted(place for place, count in coverage.lines.items() if count == 0):
        if runs and runs[-1][0] == file and runs[-1][2] == line - 1:
            runs[-1][2] = line
        else:
            runs.append([file, line, line])
    return runs


def all_missing(coverage, sources, wanted):
    found = []
    for file, first, last in dead_lines(coverage):
        if wanted(file):
            named = next((n for n in range(first, last + 1) if re.search(r'\w', sources.code(file, n))), first)
            count = last - first + 1
            found.append(sources.missing(file, named, f'{count} line{"s" if count > 1 else ""} never executed'))
    for place, counts in coverage.branches.items():
        file, line = where_of(place)
        if wanted(file):
            for count, value in zip(counts, ('true', 'false')):
                if count == 0:
                    found.append(sources.missing(file, line, f'{sources.text(place)} never {value}'))
    for place, conditions in coverage.decisions.items():
        file, line = where_of(place)
        if wanted(file):
            for condition, decided in conditions:
                if not decided:
                    found.append(sources.missing(file, line, f'{sources.text(condition)} never decides alone'))
    return sorted(set(found))


def read_exceptions(page):
    """The rows of the page's tables whose first cell is a source: (source, code, what) -> how often named."""
    named = []
    for line in pathlib.Path(page).read_text().splitlines():
        cells = [cell.strip().replace('\\|', '|') for cell in re.split(r'(?<!\\)\|', line)[1:-1]]
        if len(cells) == 4 and re.fullmatch(r'`(fft|jit|check)/\S+`', cells[0]):
            code = re.sub(r'^(`+) ?(.*?) ?\1$', r'\2', cells[1])
            named.append((cells[0].strip('`'), code, cells[2]))
    return named


def row(name, coverage, belongs):
    def figure(values):
        values = list(values)
        full = sum(1 for value in values if value)
        return f'{full} of {len(values)}', 100.0 * full / len(values) if values else None

    figures = [
        figure(count for (file, _), count in coverage.lines.items() if belongs(file)),
        figure(count for place, count in coverage.regions.items() if belongs(where_of(place)[0])),
        figure(count for place, counts in coverage.branches.items() if belongs(where_of(place)[0])
               for count in counts),
        figure(decided for place, conditions in coverage.decisions.items() if belongs(where_of(place)[0])
               for _, decided in conditions)]
    cells = [f'{text} {"" if share is None else format(share, ".1f") + " %":>7}' for text, share in figures]
    print(f'{name:36}' + ''.join(f'{cell:>24}' for cell in cells))


def main(arguments):
    export, root, *names = arguments
    page = None
    if names[0].startswith('--exceptions='):
        page = names.pop(0).partition('=')[2]
    coverage, sources = Coverage(export), Sources(root)
    files = sorted({file for file, _ in coverage.lines})

    def lies_in(name):
        folder = f'{root}/{name}'
        return lambda file: file == folder or file.startswith(folder.rstrip('/') + '/')

    print(f'{"":36}' + ''.join(f'{title:>24}' for title in ('lines', 'regions', 'branches', 'conditions')))
    for name in names:
        inside = lies_in(name)
        if page:
            for file in filter(inside, files):
                row(str(pathlib.Path(file).relative_to(root)), coverage, file.__eq__)
            if not any(map(inside, files)):
                sys.exit(f'coverage.py: nothing of {name} was measured')
        row(f'{name} in all' if page else name, coverage, inside)
    if not page:
        return 0

    missing = all_missing(coverage, sources, lambda file: any(lies_in(name)(file) for name in names))
    exceptions = read_exceptions(page)
    unnamed = [m for m in missing if (m.file, m.code, m.what) not in exceptions]
    unneeded = [e for e in exceptions if e not in [(m.file, m.code, m.what) for m in missing]]
    print(f'\n{len(missing)} missing, {len(missing) - len(unnamed)} of them named in {page}')
    for m in unnamed:
        print(f'{m.file}:{m.line}: {m.what}: {m.code}', file=sys.stderr)
    for file, code, what in unneeded:
        print(f'{page}: names what is covered or not there: {file}: {what}: {code}', file=sys.stderr)
    return 1 if unnamed or unneeded else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
