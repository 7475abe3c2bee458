#!/usr/bin/env bash
# The Debian packages: accepted by lintian and apt, and complete.
. "$(dirname "$0")/common.sh"

cd "$work/vorna_wfta"
eval "$(block docs/embedding.md '## Debian package' sh)"
mkdir "$work/lintian" "$work/debian"
packages=(libvorna-wfta-dev)
[ "$workbench" = OFF ] || packages+=(vorna-kernels)
for name in "${packages[@]}"; do
    package=$PWD/build/debian/${name}_0.1.0_$(dpkg --print-architecture).deb
    TMPDIR=$work/lintian lintian --fail-on error "$package" # which leaves a file there
    apt-get install --simulate "$package"
    dpkg-deb --extract "$package" "$work/debian"
done
cmake -S "$source/examples/first_kernel" -B "$work/debian/first_kernel" -D CMAKE_PREFIX_PATH="$work/debian/usr"
cmake --build "$work/debian/first_kernel"
expect_first_kernel "$work/debian/first_kernel/first_kernel" "$elf"

PKG_CONFIG_PATH="$work/debian/usr/lib/$("$CXX" -dumpmachine)/pkgconfig"
export PKG_CONFIG_PATH
cd "$work/debian"
# shellcheck disable=SC2046 # the flags are words
g++ "$source/examples/first_kernel/main.cpp" $(pkg-config --cflags --libs vorna_wfta) -o planner
expect_first_kernel "$PWD/planner" "$elf"

# analyse_kernels comes with the library where LLVM was there.
if [ "$analysis" = ON ]; then
    guide=docs/workbench/analyse_kernels.md
    block $guide '# analyse_kernels: check a set and its instructions' cpp >analysed.cpp
    # shellcheck disable=SC2046 # the flags are words
    g++ analysed.cpp $(pkg-config --cflags --libs vorna_wfta_analysis) -o analysed
    ./analysed | diff - <(block $guide '# analyse_kernels: check a set and its instructions' text) ||
        fail "analysed prints something else than the guide"
fi

# What comes with the program is of the program: the manual page names each command, and completion offers it.
if [ "$workbench" = ON ]; then
    PATH=$work/debian/usr/bin:$PATH
    commands=$(vorna-kernels --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
    [ -n "$commands" ] || fail "no commands in the help"
    manual=$(zcat "$work/debian/usr/share/man/man1/vorna-kernels.1.gz")
    for command in $commands; do
        grep -qx "\.SS $command" <<<"$manual" || fail "the manual page lacks $command"
    done
    if [ -e /usr/share/bash-completion/bash_completion ]; then
        offered=$(bash -c '. /usr/share/bash-completion/bash_completion; . "$1"
            complete_words() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
                COMPREPLY=(); _vorna_kernels vorna-kernels "${@: -1}" "${@: -2:1}"; echo "${COMPREPLY[@]}"; }
            complete_words vorna-kernels ""
            complete_words vorna-kernels show --form
            complete_words vorna-kernels show --format js
            complete_words vorna-kernels check --cpu neoverse-n1
            complete_words vorna-kernels baseline ""
            complete_words vorna-kernels baseline bless --li' - "$work/debian/usr/share/bash-completion/completions/vorna-kernels")
        [ "$offered" = "${commands//$'\n'/ }"$'\n--format\njson\nneoverse-n1\ncheck bless\n--listing' ] || fail "completion offers: $offered"
    fi
fi
