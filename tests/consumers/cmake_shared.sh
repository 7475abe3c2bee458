#!/usr/bin/env bash
# The guide's host, by find_package, with the shared library.
. "$(dirname "$0")/common.sh"

cmake -S "$source/examples/first_kernel" -B "$work/cmake_shared" -D CMAKE_PREFIX_PATH="$HOME/shared"
cmake --build "$work/cmake_shared"
expect_first_kernel "$work/cmake_shared/first_kernel" "$elf"
