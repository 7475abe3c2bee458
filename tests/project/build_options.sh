#!/usr/bin/env bash
# Every combination of the build's options makes its targets, or is refused by one line: build_options.sh ROOT
# Nothing is compiled here.
set -euo pipefail
root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export CMAKE_GENERATOR=Ninja

fail() {
    echo "$0: $*" >&2
    exit 1
}

mkdir "$work/above"
cat >"$work/above/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.22)
project(above LANGUAGES CXX)
add_subdirectory($root vorna_wfta)
EOF

# configure SOURCE ARGUMENT...: into an empty directory.
configure() {
    rm -rf "$work/build"
    cmake -S "$1" -B "$work/build" "${@:2}" >"$work/output" 2>"$work/error"
}

for above in "$root" "$work/above"; do
    for shared in OFF ON; do
        for writer in OFF ON; do
            for parts in OFF ON; do
                options=(-D "BUILD_SHARED_LIBS=$shared" -D "VORNA_WFTA_BUNDLED_WRITER=$writer"
                    -D "VORNA_WFTA_TESTS=$parts" -D "VORNA_WFTA_EXAMPLES=$parts")
                configure "$above" "${options[@]}" || fail "$above ${options[*]}: $(cat "$work/error")"
                [ ! -s "$work/error" ] || fail "$above ${options[*]}: $(cat "$work/error")"
                targets=$(ninja -C "$work/build" -t targets all)
                library=a
                [ $shared = OFF ] || library=so
                grep -q "libvorna_wfta\.$library:" <<<"$targets" || fail "$above ${options[*]}: no library"
                tests=no example=no # which have no other writer
                ! grep -q 'wfta/placement.cpp\.o:' <<<"$targets" || tests=yes
                ! grep -q 'wfta_host.dir/main.cpp\.o:' <<<"$targets" || example=yes
                wanted=no
                [ $writer$parts != ONON ] || wanted=yes
                [ $tests$example = $wanted$wanted ] || fail "$above ${options[*]}: tests: $tests, example: $example"
            done
        done
    done
done

# expect_refusal LINE ARGUMENT...
expect_refusal() {
    ! configure "$root" "${@:2}" || fail "${*:2}: not refused"
    [ "$(sed -n 2p "$work/error")" = "  $1" ] || fail "${*:2}: $(cat "$work/error")"
}

# pkg_config_without NAME: a directory of all descriptions but this.
pkg_config_without() {
    local directory
    mkdir "$work/without-$1"
    for directory in $(pkg-config --variable pc_path pkg-config | tr : ' '); do
        [ ! -d "$directory" ] || find "$directory" -name '*.pc' ! -name "$1.pc" -exec ln -sf -t "$work/without-$1" {} +
    done
    echo "$work/without-$1"
}

multiarch=$(c++ -dumpmachine)
expect_refusal "The tests need googletest: install it, or VORNA_WFTA_TESTS=OFF" -D CMAKE_IGNORE_PATH=/usr/src/googletest
expect_refusal "The tests need libelf-dev: install it, or VORNA_WFTA_TESTS=OFF" \
    -D VORNA_WFTA_WORKBENCH=OFF -D "CMAKE_IGNORE_PATH=/usr/lib/$multiarch;/lib/$multiarch"
expect_refusal "The example host needs pkg-config: install it, or VORNA_WFTA_EXAMPLES=OFF" \
    -D CMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON
expect_refusal "The example host needs libcli11-dev: install it, or VORNA_WFTA_EXAMPLES=OFF" \
    -D CMAKE_DISABLE_FIND_PACKAGE_CLI11=ON
PKG_CONFIG_LIBDIR=$(pkg_config_without vixl) \
    expect_refusal "The example host needs libvixl-dev: install it, or VORNA_WFTA_EXAMPLES=OFF"
PKG_CONFIG_LIBDIR=$(pkg_config_without fftw3) \
    expect_refusal "The example host needs libfftw3-dev: install it, or VORNA_WFTA_EXAMPLES=OFF"

# A compiler without C++20 builds all but the workbench, and a line says so.
cat >"$work/c++17" <<'EOF2'
#!/bin/sh
case " $* " in *" -std=c++2"* | *" -std=gnu++2"*) exit 1 ;; esac
exec c++ "$@"
EOF2
chmod +x "$work/c++17"
configure "$root" -D CMAKE_CXX_COMPILER="$work/c++17" -D VORNA_WFTA_TESTS=OFF -D VORNA_WFTA_EXAMPLES=OFF ||
    fail "without C++20: $(cat "$work/error")"
grep -q '^-- The workbench is left out, since this compiler and its library lack C++20: .*[0-9] (VORNA_WFTA_WORKBENCH)$' \
    "$work/output" || fail "without C++20: $(cat "$work/output")"
! ninja -C "$work/build" -t targets all | grep -q '^vorna-kernels' || fail "without C++20: has a workbench"

# LLVM without its machine-code analyser: the workbench is built without cost, and a line says so.
configure "$root" -D VORNA_WFTA_TESTS=OFF -D VORNA_WFTA_EXAMPLES=OFF || fail "the workbench: $(cat "$work/error")"
llvm_config=$(sed -n 's/^LLVM_CONFIG:FILEPATH=//p' "$work/build/CMakeCache.txt")
cat >"$work/llvm-config" <<EOF2
#!/bin/sh
case " \$* " in *" mca "*) exit 1 ;; esac
exec $llvm_config "\$@"
EOF2
chmod +x "$work/llvm-config"
configure "$root" -D LLVM_CONFIG="$work/llvm-config" -D VORNA_WFTA_EXAMPLES=OFF ||
    fail "without libLLVMMCA: $(cat "$work/error")"
grep -q '^-- The workbench is built without cost, since LLVM [0-9.]* has no usable libLLVMMCA$' "$work/output" ||
    fail "without libLLVMMCA: $(cat "$work/output")"
targets=$(ninja -C "$work/build" -t targets all)
grep -q '^vorna-kernels:' <<<"$targets" || fail "without libLLVMMCA: no workbench"
grep -q 'vorna_workbench.dir/disasm/no_pipeline_model\.cpp\.o:' <<<"$targets" || fail "without libLLVMMCA: no substitute"
! grep -q '/pipeline_[a-z]*\.cpp\.o:' <<<"$targets" || fail "without libLLVMMCA: has what includes its headers"
cases=$(sed -n 's/^add_test(.*\[cli\.\([a-z_]*\)\].*/\1/p' "$work/build/tests/workbench/CTestTestfile.cmake")
grep -qx show <<<"$cases" || fail "without libLLVMMCA: no cases of the commands"
! grep -qE '^cost|_cycles$' <<<"$cases" || fail "without libLLVMMCA: has cases of cost"
