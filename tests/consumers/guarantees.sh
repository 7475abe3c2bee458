#!/usr/bin/env bash
# A host that relies on what the guide says of padding and of exceptions.
. "$(dirname "$0")/common.sh"

host=$work/guarantees
mkdir "$host"
cat >"$host/host.cpp" <<EOF
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstdint>
#include <cstdio>
#include <stdexcept>

int main()
{
    std::vector<vorna::wfta::kernel_data> kernels(3);
    for (std::size_t i = 0; i < kernels.size(); ++i)
        kernels[i] = {nullptr, std::to_string(i), {0xc0, 0x03, 0x5f, 0xd6}, std::vector<std::uint8_t>(5 * i + 1), {}};
    constexpr std::size_t a = 16;
$(block docs/contract.md '## Padding of data' cpp)

    vorna::wfta::kernel_registry_map registry;
    try {
        vorna::wfta::finalise_kernels(registry, kernels);
    } catch (const std::runtime_error&) {
        std::puts("caught");
        return 0;
    }
    for (const auto& [name, kernel] : registry)
        std::printf("%s %zu %zu\n", name.c_str(), reinterpret_cast<std::uintptr_t>(kernel.data_ptr) % a, kernel.data_len);
}
EOF

# expect_output EXPECTED [VARIABLE=VALUE]
expect_output() {
    # shellcheck disable=SC2086 # the emulator's arguments are words
    output=$(env "${@:2}" ${emulator:-} "$host/host") || true
    [ "$output" = "$1" ] || fail "$kind, ${*:2}: printed $output"
}
for kind in vorna shared; do # the first is the static library
    export PKG_CONFIG_PATH=$HOME/$kind/lib/pkgconfig
    # shellcheck disable=SC2046 # the flags are words
    g++ -std=c++17 "$host/host.cpp" $(pkg-config --cflags --libs vorna_wfta) -Wl,-rpath,"$HOME/$kind/lib" \
        -o "$host/host"
    expect_output $'0 0 16\n1 0 16\n2 0 16'
    # shellcheck disable=SC1003 # one backslash
    for malformed in '(' '[' '[b-a]' '\' 'a{2' '[[:none:]]'; do
        expect_output caught "VORNA_WFTA_DUMP_KERNEL=$malformed"
    done
done
