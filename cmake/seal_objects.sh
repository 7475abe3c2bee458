#!/bin/sh
# sh seal_objects.sh OBJCOPY OBJECT...: leaves nothing global in the library's objects but its own functions, and nothing
# in them that a linker would merge with the like of other objects. Twice is as good as once.
set -e
objcopy=$1
shift
for object; do
    # Of AddressSanitizer's, what keeps a program from registering its variables twice.
    "$objcopy" --preserve-dates --remove-section=.group --wildcard \
        --keep-global-symbol='_ZN5vorna4wfta16finalise_kernels*' \
        --keep-global-symbol='_ZN5vorna4wfta16want_dump_kernel*' \
        --keep-global-symbol='___asan_globals_registered' \
        "$object" "$object.sealed"
    mv "$object.sealed" "$object" # another file, since a compiler cache may have linked to the first
done
