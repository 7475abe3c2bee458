#!/usr/bin/env bash
# Installs the library in every variant, the first as the guide says, and moves the lot to another directory.
. "$(dirname "$0")/common.sh"

rm -rf "$work"
mkdir -p "$work/first" "$work/vorna_wfta"
cp -r "$source"/{CMakeLists.txt,CMakePresets.json,check,cmake,examples,fft,jit,workbench} "$work/vorna_wfta"
cd "$work/vorna_wfta"

HOME=$work/first
eval "$(block docs/embedding.md '## Installing' sh)"

# install_variant NAME OPTION...
install_variant() {
    cmake -B build/install "${@:2}"
    cmake --build build/install
    cmake --install build/install --prefix "$HOME/$1"
}
install_variant static-without-writer -D VORNA_WFTA_BUNDLED_WRITER=OFF
install_variant shared-without-writer -D BUILD_SHARED_LIBS=ON
install_variant shared -D VORNA_WFTA_BUNDLED_WRITER=ON

HOME=$work/moved
mv "$work/first" "$HOME"
! grep -rIl "$work" "$HOME" || fail "installed files name the directory that they were built in"

installed=$(cd "$HOME/vorna/include/vorna_wfta" && find . -type f | sort | xargs)
[ "$installed" = "./check/check_kernels.hpp ./check/finding.hpp ./fft/SRC/wfta/kernel_printer.hpp ./jit/elf.hpp ./jit/reloc_info.hpp" ] || fail "headers: $installed"
