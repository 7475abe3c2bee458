#!/usr/bin/env python3
"""Fails if a source includes what its room may not, or if includes form a circle: tests/project/rooms.py ROOT

A room of workbench/ includes only itself and rooms above it in the list below, and each foreign library has its few
places. check/ is for hosts and needs nothing but fft/, jit/ and the standard library.
"""

import pathlib
import re
import sys

# Each includes itself and what is above it. Those without a name of workbench/ are the project's other directories.
ROOMS = ["jit", "fft", "check", "text", "os", "kernels", "input", "disasm", "analysis", "image", "render", "cli"]
OUTSIDE_WORKBENCH = ROOMS[:3]

# The sources of workbench/ that may include a header whose name matches: rooms, or files without their suffix. The
# first match decides. Headers of the standard library have no dot and no slash, and are free for all; so is elf.h,
# whose constants are part of the interface. A library that is not listed here is new, and this is where to say who may
# use it.
LIBRARIES = [
    (r"elf\.h", ROOMS),
    (r"CLI/.*", ["cli/options"]),
    (r"fmt/.*", ROOMS[3:]),
    (r"gelf\.h|libelf\.h", ["input", "image"]),
    (r"llvm/.*|llvm-c/.*", ["disasm"]),
    (r"nlohmann/.*", ["render/json"]),
    (r"xxhash\.h", ["analysis", "image"]),
    (r"unistd\.h|fcntl\.h|spawn\.h|poll\.h|sys/.*", ["os", "image"]),  # libelf writes to a descriptor
]

# The finaliser calls the system, and the object writer and check/ read no more than ELF's constants.
OTHER_DIRECTORIES = {
    "jit": r"elf\.h",
    "fft": r"elf\.h|unistd\.h|sys/mman\.h",
    "check": r"elf\.h",
}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


def room_of(path):
    """The room of a path below the root, or None where it has none."""
    first, *rest = path.split("/")
    if first == "workbench":
        first = rest[0] if len(rest) > 1 else None
        return first if first not in OUTSIDE_WORKBENCH and first in ROOMS else None
    return first if first in OUTSIDE_WORKBENCH else None


def offence(source, header, quoted):
    """What is wrong with this include, or None."""
    room = room_of(source)
    if quoted:
        other = room_of(header)
        if other is None:
            return "is in none of the rooms"
        if ROOMS.index(other) > ROOMS.index(room):
            return f"is in {other}/, a room below {room}/"
        return None
    if re.fullmatch(r"[a-z0-9_]+", header):
        return None
    if room in OTHER_DIRECTORIES:
        if re.fullmatch(OTHER_DIRECTORIES[room], header):
            return None
        return f"is not of the standard library, and {room}/ includes no other"
    for pattern, places in LIBRARIES:
        if re.fullmatch(pattern, header):
            if room in places or str(pathlib.PurePath(source).with_suffix("")).removeprefix("workbench/") in places:
                return None
            return f"is for {', '.join(places)} only"
    return f"is of a library that is not in LIBRARIES of {pathlib.Path(__file__).name}"


def find_circle(includes):
    """The first circle of includes, as a list of files that begins and ends with the same, or None."""
    finished = set()

    def visit(file, way):
        if file in way:
            return way[way.index(file) :] + [file]
        if file in finished:
            return None
        for header in includes.get(file, []):
            if circle := visit(header, way + [file]):
                return circle
        finished.add(file)
        return None

    for file in includes:
        if circle := visit(file, []):
            return circle
    return None


def main():
    root = pathlib.Path(sys.argv[1])
    errors = []
    includes = {}
    for directory in [*OUTSIDE_WORKBENCH, "workbench"]:
        for path in sorted([*(root / directory).rglob("*.cpp"), *(root / directory).rglob("*.hpp")]):
            source = str(path.relative_to(root))
            if room_of(source) is None:
                errors.append(f"{source}: is in none of the rooms")
                continue
            text = path.read_text()
            includes[source] = []
            for match in INCLUDE.finditer(text):
                quoted, angled = match.groups()
                header = quoted or angled
                if quoted:
                    includes[source].append(header)
                if not (wrong := offence(source, header, bool(quoted))):
                    continue
                line = text.count("\n", 0, match.start(match.lastindex)) + 1
                errors.append(f"{source}:{line}: includes {header}, which {wrong}")
    if circle := find_circle(includes):
        errors.append(f"includes form a circle: {' -> '.join(circle)}")
    if not includes:
        errors.append(f"{root}: has no sources")
    if errors:
        print(*errors, f"the rooms, from above to below: {', '.join(ROOMS)}", sep="\n", file=sys.stderr)
        sys.exit(1)


main()
