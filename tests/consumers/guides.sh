#!/usr/bin/env bash
# What README.md and the guide print is what the example has and what the other tests run.
. "$(dirname "$0")/common.sh"

expect_same() {
    diff <(block "$1" "$2" "$3") - || fail "$1, '$2': the block differs from $4"
}
expect_same README.md '## Embedding' cpp examples/first_kernel/main.cpp <"$source/examples/first_kernel/main.cpp"
expect_same docs/embedding.md '## find_package' cmake examples/first_kernel/CMakeLists.txt \
    <"$source/examples/first_kernel/CMakeLists.txt"
