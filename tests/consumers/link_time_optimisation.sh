#!/usr/bin/env bash
# The library's exceptions reach a host that is optimised at link time, with the library in its tree and with an
# installed archive.
. "$(dirname "$0")/common.sh"

host=$work/link_time_optimisation
mkdir "$host" "$host/vorna_wfta"
cp -r "$source"/{CMakeLists.txt,check,cmake,fft,jit} "$host/vorna_wfta"
cat >"$host/host.cpp" <<'EOF'
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <regex>

static bool out_of_memory = false;

void* operator new(std::size_t size)
{
    void* const block = out_of_memory ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

static const char* finalise()
{
    std::vector<vorna::wfta::kernel_data> kernels(1);
    kernels[0].name = "k";
    kernels[0].text = {0xc0, 0x03, 0x5f, 0xd6};
    vorna::wfta::kernel_registry_map registry;
    out_of_memory = std::getenv("OUT_OF_MEMORY") != nullptr;
    try {
        vorna::wfta::finalise_kernels(registry, kernels);
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const std::regex_error&) {
        return "regex_error";
    }
    return "placed";
}

int main()
{
    std::puts(finalise());
}
EOF
cat >"$host/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.22)
project(planner LANGUAGES CXX)
set(CMAKE_AR ${CMAKE_CXX_COMPILER_AR}) # which knows what the compiler writes
add_compile_options(${optimisation})
add_link_options(${optimisation} ${linker})
add_subdirectory(vorna_wfta)
add_executable(host host.cpp)
target_link_libraries(host PRIVATE vorna::wfta)
EOF

# expect_output PROGRAM EXPECTED [VARIABLE=VALUE]
expect_output() {
    # shellcheck disable=SC2086 # the emulator's arguments are words
    output=$(env "${@:3}" ${emulator:-} "$1") || true
    [ "$output" = "$2" ] || fail "$compiler $optimisation: $1, ${*:3}: printed $output"
}
expect_exceptions() {
    expect_output "$1" placed
    expect_output "$1" bad_alloc OUT_OF_MEMORY=1
    expect_output "$1" regex_error VORNA_WFTA_DUMP_KERNEL=[
}

# check COMPILER LEVEL OPTION LINKER CMAKE_ARGUMENT...
check() {
    local compiler=$1 level optimisation="$2;$3" shared libraries
    for shared in OFF ON; do
        cmake -S "$host" -B "$host/build" -D BUILD_SHARED_LIBS=$shared -D optimisation="$optimisation" \
            -D linker="$4" "${@:5}"
        cmake --build "$host/build" --target host
        expect_exceptions "$host/build/host"
        rm -r "$host/build"
    done
    libraries=$(PKG_CONFIG_PATH=$HOME/vorna/lib/pkgconfig pkg-config --cflags --libs vorna_wfta)
    for level in -O2 -O3; do
        # shellcheck disable=SC2086 # compiler and libraries are words
        $compiler -std=c++17 $level "$3" $4 "$host/host.cpp" $libraries -o "$host/installed"
        expect_exceptions "$host/installed"
    done
}

check "$CXX" -O2 -flto=auto ""

machine=$("$CXX" -dumpmachine)
clang=(-D CMAKE_CXX_COMPILER=clang++)
if [ -n "${CMAKE_TOOLCHAIN_FILE:-}" ]; then
    unset CMAKE_TOOLCHAIN_FILE # which names the compiler
    clang+=(-D CMAKE_SYSTEM_NAME=Linux -D CMAKE_SYSTEM_PROCESSOR="${machine%%-*}" -D CMAKE_CXX_COMPILER_TARGET="$machine")
fi
check "clang++ --target=$machine" -O2 -flto=full -fuse-ld=lld "${clang[@]}"
check "clang++ --target=$machine" -O3 -flto=thin -fuse-ld=lld "${clang[@]}"
