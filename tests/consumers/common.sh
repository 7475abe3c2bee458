#!/usr/bin/env bash
# Sourced by the tests of this directory, whose environment is: source, the project's directory; work, a directory for
# all of them; CXX; workbench and analysis, whether they are built; and, for a cross build, CMAKE_TOOLCHAIN_FILE and emulator.
set -euo pipefail
: "${source:?}" "${work:?}" "${CXX:?}" "${workbench:?}" "${analysis:?}"
shopt -s inherit_errexit
export CMAKE_GENERATOR=Ninja CMAKE_BUILD_PARALLEL_LEVEL=2
export HOME=$work/moved # the guides install into $HOME/vorna; install.sh moves that here

# block FILE HEADING LANGUAGE: the first code block of the language below that heading of a guide.
block() {
    awk -v heading="$2" -v fence="\`\`\`$3" '
        printing && $0 == "```" { found = 1; exit }
        printing { print }
        $0 == heading { below = 1 }
        below && $0 == fence { printing = 1 }
        END { exit !found }' "$source/$1" || fail "$1 has no block of $3 below '$2'"
}

fail() {
    echo "$0: $*" >&2
    exit 1
}

# The guides' compiler is the one that is tested.
CXX=$(type -P "$CXX")
g++() {
    "$CXX" "$@"
}

# expect_first_kernel PROGRAM MAGIC: it prints what it should, and its dump begins with MAGIC.
expect_first_kernel() {
    local directory expected
    directory=$(mktemp -d "$work/run.XXXXXX")
    expected='answer: 16 bytes of code'
    case $("$CXX" -dumpmachine) in aarch64*) expected+=$'\nanswer() = 42' ;; esac

    # shellcheck disable=SC2086 # the emulator's arguments are words
    (cd "$directory" && VORNA_WFTA_DUMP_KERNEL=answer ${emulator:-} "$1" >output)
    [ "$(cat "$directory/output")" = "$expected" ] || fail "$1 printed: $(cat "$directory/output")"
    [ "$(head -c ${#2} "$directory/answer")" = "$2" ] || fail "$1 dumped another writer's image"
}

# shellcheck disable=SC2034
elf=$'\177ELF' # how the bundled writer's image begins
