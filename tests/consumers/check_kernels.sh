#!/usr/bin/env bash
# The guide's host that checks its kernels, in every way that embedding.md has; it prints what the guide says.
. "$(dirname "$0")/common.sh"

mkdir "$work/check_kernels"
cd "$work/check_kernels"
guide=docs/workbench/check_kernels.md
heading='# check_kernels: check a set before it is finalised'
block $guide "$heading" cpp >main.cpp
block $guide "$heading" text >expected

# expect_findings PROGRAM
expect_findings() {
    # shellcheck disable=SC2086 # the emulator's arguments are words
    ${emulator:-} "$1" >printed
    diff expected printed || fail "$1 prints something else than the guide"
}

# expect_built NAME COMMANDS OPTION...: the host, with these lines of CMake to find the target.
expect_built() {
    mkdir "$1"
    {
        printf 'cmake_minimum_required(VERSION 3.22)\nproject(planner LANGUAGES CXX)\n%s\n' "$2"
        block $guide "$heading" cmake
    } >"$1/CMakeLists.txt"
    cp main.cpp "$1"
    cmake -S "$1" -B "$1/build" "${@:3}"
    cmake --build "$1/build"
    expect_findings "$PWD/$1/build/planner"
}
expect_built installed 'find_package(vorna_wfta 0.1 CONFIG REQUIRED COMPONENTS wfta_check)' \
    -D CMAKE_PREFIX_PATH="$HOME/vorna"
expect_built in_tree "add_subdirectory($work/vorna_wfta vorna_wfta)" -D CMAKE_UNITY_BUILD=ON

export PKG_CONFIG_PATH="$HOME/vorna/lib/pkgconfig"
eval "$(block $guide "$heading" sh)"
expect_findings "$PWD/planner"
