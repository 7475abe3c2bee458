# The Debian package: accepted by lintian and apt, and complete.
. "$(dirname "$0")/common.sh"

cd "$work/vorna_wfta"
eval "$(block docs/embedding.md '## Debian package' sh)"
package=$PWD/build/debian/libvorna-wfta-dev_0.1.0_$(dpkg --print-architecture).deb
mkdir "$work/lintian"
TMPDIR=$work/lintian lintian --fail-on error "$package" # which leaves a file there
apt-get install --simulate "$package"

mkdir "$work/debian"
dpkg-deb --extract "$package" "$work/debian"
cmake -S "$source/examples/first_kernel" -B "$work/debian/first_kernel" -D CMAKE_PREFIX_PATH="$work/debian/usr"
cmake --build "$work/debian/first_kernel"
expect_first_kernel "$work/debian/first_kernel/first_kernel" "$elf"

export PKG_CONFIG_PATH="$work/debian/usr/lib/$("$CXX" -dumpmachine)/pkgconfig"
cd "$work/debian"
g++ "$source/examples/first_kernel/main.cpp" $(pkg-config --cflags --libs vorna_wfta) -o planner
expect_first_kernel "$PWD/planner" "$elf"
