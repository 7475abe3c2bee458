#!/usr/bin/env bash
# What a program or its loader sees of the shared library.
. "$(dirname "$0")/common.sh"

nm=$("$CXX" -print-prog-name=nm)
readelf=$("$CXX" -print-prog-name=readelf)

# expect DESCRIPTION EXPECTED ACTUAL
expect() {
    [ "$2" = "$3" ] || fail "$library: $1: expected '$2', found '$3'"
}

for variant in shared shared-without-writer; do
    library=$HOME/$variant/lib/libvorna_wfta.so
    expect exports "$(cat "$(dirname "$0")/exports")" \
        "$("$nm" -D --defined-only --demangle "$library" | sed 's/^[^ ]* . //; s/(.*//')"
    dynamic=$("$readelf" --dynamic --wide "$library")
    expect soname libvorna_wfta.so.0.1 "$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' <<<"$dynamic")"
    expect "text relocations" "" "$(grep TEXTREL <<<"$dynamic" || true)"
    segments=$("$readelf" --program-headers --wide "$library")
    expect "writable and executable segments" "" "$(grep -E ' RWE | WE ' <<<"$segments" || true)"
    expect "stack" RW "$(awk '$1 == "GNU_STACK" { print $7 }' <<<"$segments")"
    needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic")
    expect "libraries besides the C and C++ ones" "" \
        "$(grep -vE '^(libstdc\+\+|libgcc_s|libc|libm|ld-linux-.*)\.so' <<<"$needed" || true)"
done

# The functions of namespace tessjit that the library leaves to the host.
undefined() {
    "$nm" -D --undefined-only --demangle "$library" | sed -n 's/^ *U \(tessjit::[^(]*\)(.*/\1/p'
}
library=$HOME/shared/lib/libvorna_wfta.so
expect "left to the host" "" "$(undefined)"
library=$HOME/shared-without-writer/lib/libvorna_wfta.so
expect "left to the host" tessjit::emit_elf "$(undefined)"
