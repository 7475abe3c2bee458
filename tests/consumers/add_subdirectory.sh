#!/usr/bin/env bash
# The library as a directory of the host's tree, by add_subdirectory and FetchContent.
. "$(dirname "$0")/common.sh"

for way in add_subdirectory FetchContent; do
    host=$work/$way
    mkdir "$host"
    mkdir "$host/vorna_wfta"
    cp -r "$source"/{CMakeLists.txt,check,cmake,fft,jit} "$host/vorna_wfta"
    cp "$source/examples/first_kernel/main.cpp" "$host"
    block docs/embedding.md "## $way" cmake >"$host/CMakeLists.txt"
    echo 'enable_testing()' >>"$host/CMakeLists.txt"
    cmake -S "$host" -B "$host/build"
    cmake --build "$host/build"
    expect_first_kernel "$host/build/planner" "$elf"

    targets=$(cmake --build "$host/build" --target help)
    ! grep -E 'gtest|wfta_host' <<<"$targets" || fail "$way builds tests or examples"
    tests=$(ctest --test-dir "$host/build" -N)
    grep -qx 'Total Tests: 0' <<<"$tests" || fail "$way brings tests: $tests"
    cmake --install "$host/build" --prefix "$host/installed"
    [ ! -e "$host/installed" ] || fail "$way installs the library with the host"
done
