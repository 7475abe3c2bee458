#!/usr/bin/env bash
# The guide's host, by find_package, with the static library.
. "$(dirname "$0")/common.sh"

cd "$work/vorna_wfta"
build=$(block docs/embedding.md '## find_package' sh)
eval "${build%$'\n'*}" # without the last line, which runs it
[ "${build##*$'\n'}" = build/first_kernel/first_kernel ] || fail "the guide runs ${build##*$'\n'}"
expect_first_kernel "$PWD/build/first_kernel/first_kernel" "$elf"

# expect_no_package ARGUMENTS PREFIX MESSAGE: find_package(vorna_wfta ARGUMENTS) refuses the copy in the prefix.
expect_no_package() {
    mkdir -p "$work/refused"
    printf 'cmake_minimum_required(VERSION 3.22)\nproject(refused LANGUAGES CXX)\nfind_package(vorna_wfta %s)\n' "$1" \
        >"$work/refused/CMakeLists.txt"
    ! output=$(cmake -S "$work/refused" -B "$work/refused/build" -D CMAKE_PREFIX_PATH="$HOME/$2" 2>&1) ||
        fail "find_package(vorna_wfta $1) finds $2"
    grep -q "$3" <<<"$output" || fail "find_package(vorna_wfta $1) in $2: $output"
    rm -rf "$work/refused"
}
expect_no_package '0.2 CONFIG REQUIRED' vorna 'version: 0.1.0'
expect_no_package '0.0 CONFIG REQUIRED' vorna 'version: 0.1.0'
expect_no_package '0.1 CONFIG REQUIRED COMPONENTS wfta tessjit' static-without-writer 'components here: wfta'
