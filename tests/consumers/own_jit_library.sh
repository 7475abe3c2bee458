#!/usr/bin/env bash
# A host whose JIT library defines tessjit::emit_elf.
. "$(dirname "$0")/common.sh"

host=$work/own_jit_library
mkdir "$host"
cp "$source/examples/first_kernel/main.cpp" "$host"
cat >"$host/host_jit.cpp" <<'EOF'
#include "jit/elf.hpp"

std::vector<std::uint8_t> tessjit::emit_elf(const elf_data&)
{
    return {'o', 'w', 'n'};
}
EOF
# The JIT library as objects of the program, as an archive, and as a shared library.
cat >"$host/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.22)
project(planner LANGUAGES CXX)
find_package(vorna_wfta 0.1 CONFIG REQUIRED COMPONENTS wfta)
add_executable(planner main.cpp)
add_library(host_jit \${HOST_JIT} host_jit.cpp)
target_include_directories(host_jit PRIVATE \$<TARGET_PROPERTY:vorna::wfta,INTERFACE_INCLUDE_DIRECTORIES>)
$(block docs/embedding.md '## A host with its own JIT library' cmake)
EOF

# expect_writer LIBRARY KIND MAGIC
expect_writer() {
    cmake -S "$host" -B "$host/build" -U vorna_wfta_DIR -D CMAKE_PREFIX_PATH="$HOME/$1" -D HOST_JIT="$2"
    cmake --build "$host/build"
    expect_first_kernel "$host/build/planner" "$3"
}
expect_writer static-without-writer OBJECT own
expect_writer static-without-writer STATIC own
expect_writer shared-without-writer OBJECT own
expect_writer shared-without-writer STATIC own
expect_writer shared-without-writer SHARED own
expect_writer vorna OBJECT own
expect_writer vorna STATIC own
expect_writer shared OBJECT "$elf"
