#!/usr/bin/env bash
# The guide's host that analyses its kernels: in the library's tree, by find_package and by pkg-config, static and
# shared. It needs none of the libraries that the workbench is made of, and sees nothing of them.
. "$(dirname "$0")/common.sh"

guide=docs/workbench/analyse_kernels.md
heading='# analyse_kernels: check a set and its instructions'
mkdir "$work/analyse_kernels"
cd "$work/analyse_kernels"
block $guide "$heading" cpp >main.cpp
block $guide "$heading" text >expected

# expect_findings PROGRAM
expect_findings() {
    # shellcheck disable=SC2086 # the emulator's arguments are words
    ${emulator:-} "$1" >printed
    diff expected printed || fail "$1 prints something else than the guide"
    needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\.so.*/\1/p' | grep -vxE 'lib(stdc\+\+|m|gcc_s|c)|ld-linux.*') ||
        return 0
    fail "$1 needs $needed"
}

# write_host DIRECTORY COMMANDS: the host, with these lines of CMake to find the target.
write_host() {
    mkdir "$1"
    {
        printf 'cmake_minimum_required(VERSION 3.22)\nproject(planner LANGUAGES CXX)\n%s\n' "$2"
        block $guide "$heading" cmake
    } >"$1/CMakeLists.txt"
    cp main.cpp "$1"
}

# Without the workbench. What is installed is moved before it is used.
for shared in OFF ON; do
    cmake -S "$work/vorna_wfta" -B build -D VORNA_WFTA_TESTS=OFF -D VORNA_WFTA_EXAMPLES=OFF -D VORNA_WFTA_WORKBENCH=OFF \
        -D VORNA_WFTA_ANALYSIS=ON -D BUILD_SHARED_LIBS=$shared
    cmake --build build
    cmake --install build --prefix "$PWD/first"
    mv first "$shared"
    write_host "host-$shared" 'find_package(vorna_wfta 0.1 CONFIG REQUIRED COMPONENTS wfta_analysis)'
    cmake -S "host-$shared" -B "host-$shared/build" -D CMAKE_PREFIX_PATH="$PWD/$shared"
    cmake --build "host-$shared/build"
    expect_findings "$PWD/host-$shared/build/planner"
    (
        PKG_CONFIG_PATH=$(echo "$PWD/$shared"/lib*/pkgconfig)
        export PKG_CONFIG_PATH
        eval "$(block $guide "$heading" sh)"
    )
    expect_findings "$PWD/planner"
done
archive=$(echo OFF/lib*/libvorna_wfta_analysis.a)
visible=$(nm --defined-only --extern-only --demangle "$archive" | sed -n 's/^[0-9a-f]* . //p' | grep -v '^std::' | sed 's/(.*//')
[ "$visible" = vorna::wfta::analyse_kernels ] || fail "$archive shows $visible"

write_host in_tree "set(VORNA_WFTA_ANALYSIS ON)
add_subdirectory($work/vorna_wfta vorna_wfta)"
cmake -S in_tree -B in_tree/build
cmake --build in_tree/build
expect_findings "$PWD/in_tree/build/planner"
