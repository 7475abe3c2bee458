#!/usr/bin/env bash
# The guide's host, by pkg-config, with the static library.
. "$(dirname "$0")/common.sh"

mkdir "$work/pkg_config"
cd "$work/pkg_config"
cp "$source/examples/first_kernel/main.cpp" .
eval "$(block docs/embedding.md '## pkg-config' sh)"
expect_first_kernel "$PWD/planner" "$elf"
[ "$(pkg-config --modversion vorna_wfta)" = 0.1.0 ] || fail "version: $(pkg-config --modversion vorna_wfta)"
