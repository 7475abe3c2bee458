#!/bin/sh
# sh seal_analysis.sh LINKER OBJCOPY NM OUTPUT INPUT...: one object of everything that analyse_kernels uses of the inputs,
# LLVM included, and nothing else. Only analyse_kernels is global in it, so a host may link another LLVM.
set -e
linker=$1 objcopy=$2 nm=$3 output=$4
shift 4
function=$("$nm" --defined-only "$@" 2>/dev/null | sed -n 's/.* T \(_ZN5vorna4wfta15analyse_kernels.*\)/\1/p')
"$linker" -r --gc-sections --undefined="$function" -o "$output.all" "$@"
"$objcopy" --strip-unneeded --remove-section=.group --keep-global-symbol="$function" "$output.all" "$output"
rm "$output.all"
missing=$("$nm" --undefined-only --demangle "$output" | grep -E ' (vorna|llvm|fmt)::' || [ $? -eq 1 ])
[ -z "$missing" ] || {
    printf '%s\n' "analyse_kernels uses these, whose sources are not of vorna_analysis_objects:" "$missing" >&2
    rm "$output"
    exit 1
}
