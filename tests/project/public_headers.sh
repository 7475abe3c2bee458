#!/usr/bin/env bash
# The public headers compile alone, twice over, in every C++ standard that hosts use, with and without exceptions and
# run-time type information, without a warning, and include nothing but each other and the standard library.
# usage: public_headers.sh PROJECT COMPILER
set -euo pipefail
cd "$1"
headers=(fft/SRC/wfta/kernel_printer.hpp jit/reloc_info.hpp jit/elf.hpp check/check_kernels.hpp check/finding.hpp
    workbench/analysis/analyse_kernels.hpp)

for header in "${headers[@]}"; do
    for standard in c++17 c++20 c++2b; do
        for features in "" "-fno-exceptions -fno-rtti"; do
            # shellcheck disable=SC2086 # the features are words
            printf '#include "%s"\n#include "%s"\nint main() {}\n' "$header" "$header" |
                "$2" -x c++ -std=$standard $features -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror \
                    -fsyntax-only -I . - || { echo "$header: -std=$standard $features" >&2; exit 1; }
        done
    done
done

# A C++ header's name is a word; one of the C library or the system has a suffix or a directory.
others=$(grep '#include' "${headers[@]}" | grep -vE '#include (<[a-z_]+>|"(check/finding|jit/reloc_info|fft/SRC/wfta/kernel_printer).hpp")$') || [ $? -eq 1 ]
[ -z "$others" ] || { printf 'not of the standard library:\n%s\n' "$others" >&2; exit 1; }
