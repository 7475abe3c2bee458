#!/usr/bin/env bash
# What a link takes from the static library, and what it cannot take from the host instead.
. "$(dirname "$0")/common.sh"

# Inline functions of the standard library are in it, and nobody else gets to see them.
nm=$("$CXX" -print-prog-name=nm)
readelf=$("$CXX" -print-prog-name=readelf)
library=$HOME/vorna/lib/libvorna_wfta.a
symbols=$("$nm" --defined-only --extern-only --demangle "$library" | sed -n 's/^[^ ]* . \([^(]*\)(.*/\1/p' | sort | xargs)
[ "$symbols" = "vorna::wfta::finalise_kernels vorna::wfta::want_dump_kernel" ] || fail "global symbols: $symbols"
groups=$("$readelf" --section-groups --wide "$library" | grep COMDAT) || true
[ -z "$groups" ] || fail "groups that a linker merges with others: $groups"

# A host with regular expressions that are compiled without exception handling: where <regex> would throw, they abort.
host=$work/static_library
mkdir "$host"
cat >"$host/names.cpp" <<'EOF'
#include <regex>

bool is_wanted(const std::string& name, const char* pattern)
{
    return std::regex_search(name, std::regex(pattern));
}
EOF
cat >"$host/host.cpp" <<'EOF'
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstdio>
#include <stdexcept>

bool is_wanted(const std::string& name, const char* pattern);

int main()
{
    std::vector<vorna::wfta::kernel_data> kernels(1);
    kernels[0].name = "k";
    kernels[0].text = {0xc0, 0x03, 0x5f, 0xd6};
    vorna::wfta::kernel_registry_map registry;
    try {
        if (is_wanted(kernels[0].name, "[k]"))
            vorna::wfta::finalise_kernels(registry, kernels);
    } catch (const std::runtime_error&) {
        std::puts("caught");
    }
}
EOF

machine=$("$CXX" -dumpmachine)
libraries=("$library" "$HOME/vorna/lib/libtessjit.a")
for compiler in "$CXX" "clang++ --target=$machine"; do
    for level in -O0 -O2; do
        # shellcheck disable=SC2086 # the compiler's arguments are words
        $compiler -std=c++17 $level -fno-exceptions -c "$host/names.cpp" -o "$host/names.o"
        # shellcheck disable=SC2086
        $compiler -std=c++17 $level -I "$HOME/vorna/include/vorna_wfta" -c "$host/host.cpp" -o "$host/host.o"
        for order in "names.o host.o ${libraries[*]}" "host.o ${libraries[*]} names.o"; do
            # shellcheck disable=SC2086
            (cd "$host" && $compiler $order -o host)
            # shellcheck disable=SC1003 # one backslash
            for malformed in '(' '[' '[b-a]' '\' 'a{2' '[[:none:]]'; do
                # shellcheck disable=SC2086
                output=$(VORNA_WFTA_DUMP_KERNEL=$malformed ${emulator:-} "$host/host") || true
                [ "$output" = caught ] || fail "$compiler $level $order: pattern $malformed: printed $output"
            done
        done
    done
done
