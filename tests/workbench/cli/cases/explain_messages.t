What `explain` says of the reports and crashes that other cases do not have. First, of each assertion without dumps:

  $ make_log() {
  >     case $1 in
  >     *second) function='emit_single(vorna::wfta::kernel_registry_map&, const string&, uint8_t*, size_t, const uint8_t*, size_t, const std::vector<tessjit::reloc_info>&)' ;;
  >     *) function='resolve_relocation(const string&, uint8_t*, const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&)' ;;
  >     esac
  >     echo "planner: fft/SRC/wfta/kernel_printer.cpp:162: void $function: Assertion \`$1' failed." > log
  > }
  $ for expression in 'reloc.name.substr(8) == fn_name' 'it != kernel_registry.end()' target_addr \
  >     'false && "unhandled reloc type"' \
  >     'kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second'
  > do
  >     make_log "$expression"
  >     vorna-kernels explain log | sed '/^1 report/,$d'
  > done
  error: a relocation: constants of another kernel [foreign-data]
    --> log:1
  note: a kernel can address only its own constants
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  error: a relocation: target not found [unknown-target]
    --> log:1
  note: the kernel comes later in the set, its name is misspelt, or it is in another registry
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  error: a relocation: the target's address is null [null-target]
    --> log:1
  note: the target's set had neither code nor constants, its mapping failed, or the host registered null
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  error: a relocation: type not supported [unhandled-type]
    --> log:1
  note: the generator emits a type other than 274, 275, 277 and 283
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  error: a second kernel of this name [duplicate-name]
    --> log:1
  note: the generator gives two kernels one name, or a set is finalised twice with one registry
  help: rename one of the two kernels

Only the end of a report is left:

  $ cat > log <<'END'
  >   k 	 0x5502d5e000 0xc 0x5502d5e020 0x4
  > planner: fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ vorna-kernels explain log
  error: a relocation was refused
    --> log:2
  note: not known: the message in front of the registry's dump is not in the log
  help: give the whole of the log
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

A filled field, and nothing but the log:

  $ cat > log <<'END'
  > resolving R_AARCH64_CALL26 reloc but dst address 0x5502d5e004 was already filled, got 0x94000100
  >   k 	 0x5502d5e000 0xc 0x5502d5e020 0x4
  > planner: fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ vorna-kernels explain log
  error: relocation R_AARCH64_CALL26: field not zero in 0x94000100 [field-filled]
    --> k+0x4 (log:1)
  note: two relocations for one instruction, or the generator has encoded a value in the field
  help: keep one relocation for the instruction, and its field zero; to see which, run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

The BL leads to a kernel already:

  $ cat > log <<'END'
  > resolving R_AARCH64_CALL26 reloc but dst address 0x5502d5e024 was already filled, got 0x97fffff7
  >   callee 	 0x5502d5e000 0x4 0x5502d5e040 0x0
  >   k 	 0x5502d5e020 0xc 0x5502d5e040 0x4
  > planner: fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ vorna-kernels explain log
  error: relocation R_AARCH64_CALL26: field not zero in 0x97fffff7 [field-filled]
    --> k+0x4 (log:1)
  note: two relocations for one instruction: it leads to 'callee' already
  help: remove one of the two relocations
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

Two relocations of one instruction, of which the message could be about either:

  $ cat > log <<'END'
  > resolving R_AARCH64_CALL26 reloc but dst address 0x5502d5e024 was already filled, got 0x97fffff7
  >   callee 	 0x5502d5e000 0x4 0x5502d5e040 0x0
  >   k 	 0x5502d5e020 0xc 0x5502d5e040 0x4
  > planner: fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ make_dumps twice <<'END'
  > mapping 0x5502d5e000
  > kernel callee
  >     ret
  > kernel k
  >     nop
  >     .reloc ., R_AARCH64_CALL26, callee
  >     bl callee
  >     ret
  > END
  $ vorna-kernels explain log --dumps twice
  error: relocation R_AARCH64_CALL26 against 'callee': field not zero in 0x97fffff7 [field-filled]
    --> k+0x4, relocation 2 of 2 (log:1)
      +00  d503201f  nop
    > +04  94000000  bl    0x5502d5e024                 ; R_AARCH64_CALL26 callee; R_AARCH64_CALL26 callee, field not zero
      +08  d65f03c0  ret
  note: relocation 1 at k+0x4 matches
  note: relocation 2 at k+0x4 matches
  note: relocations are applied in order: of those that match, number 2 was refused
  note: relocation 1 has filled it: two relocations for one instruction
  help: remove one of the relocations 1 and 2
  1 report

A second kernel of one name, which is not dumped:

  $ make_log 'kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second'
  $ vorna-kernels explain log --dumps twice
  error: a second kernel of this name [duplicate-name]
    --> log:1
  note: the last kernel that was dumped is k: the refused one comes after it, in its set or as the first of the next
  note: the generator gives two kernels one name, or a set is finalised twice with one registry
  help: rename one of the two kernels
  1 report

A call to a mapping at the other end of the address space, from one that the dumps are of:

  $ cat > log <<'END'
  > resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G, got 0x7f0000000000 - 0x5502d5e000 = 0x7eaafd2a2000
  >   far 	 0x7f0000000000 0x4 0x7f0000000020 0x0
  >   k 	 0x5502d5e000 0xc 0x5502d5e020 0x0
  > planner: fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ make_dumps far <<'END'
  > mapping 0x7f0000000000
  > kernel far
  >     ret
  > mapping 0x5502d5e000
  > kernel k
  >     adrp x9, far
  >     add x9, x9, :lo12:far
  >     br x9
  > END
  $ vorna-kernels explain log --dumps far
  error: relocation R_AARCH64_ADR_PREL_PG_HI21 against 'far' out of range: 139272856936448 is not in [-4294967296, 4294967295] [range]
    --> k+0x0, relocation 1 of 2 (log:1)
    > +00  90000009  adrp  x9, far                      ; out of range
      +04  91000129  add   x9, x9, :lo12:far
      +08  d61f0120  br    x9
  note: 'far' is in the mapping of another call, in another part of the address space
  help: finalise both in one set, or sets that refer to each other close in time
  1 report

An assertion that no relocation of the dumps explains:

  $ make_log target_addr
  $ vorna-kernels explain log --dumps twice
  error: a relocation: the target's address is null [null-target]
    --> k (log:1)
  note: the last dump written
  note: the target's set had neither code nor constants, its mapping failed, or the host registered null
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  1 report

More reports than are explained:

  $ for i in $(seq 1001); do cat log; done > many
  $ vorna-kernels explain many | tail -n 2
  100 reports explained, 901 more skipped
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

Crashes. Each is at an instruction of these kernels:

  $ make_dumps crashed <<'END'
  > mapping 0x5502d5e000
  > kernel first
  >     ldadd x0, x1, [x2]
  >     ldxr x3, [x2]
  >     str x0, [sp]
  >     add x0, x0, x1
  >     ret
  > kernel bytes
  >     ret
  >     .byte 1, 2
  > END
  $ crash() {
  >     signal=$1 pc=$2
  >     shift 2
  >     { echo "Program received signal $signal, x."; echo "$pc in ?? ()"; printf '%s\n' "$@"; } > log
  >     vorna-kernels explain log --dumps crashed | sed -E '/^(  -->|    |1 crash)/d'
  > }

An instruction that the processor lacks, and one that each has:

  $ crash SIGILL 0x0000005502d5e000
  error: SIGILL at first+0x0: ldadd x0, x1, [x2]
    > +00  f8200041  ldadd x0, x1, [x2]
  note: the processor lacks what this instruction needs: lse
  help: generate it only where getauxval(AT_HWCAP) or AT_HWCAP2 shows the feature
  $ crash SIGILL 0x0000005502d5e00c
  error: SIGILL at first+0xc: add x0, x0, x1
    > +0c  8b010000  add   x0, x0, x1
  note: every AArch64 processor has this instruction: the code in memory is not the dump's, or a user's program may not execute it
  help: compare the word in memory with the dump's: x/xw $pc in gdb

An address that is not aligned:

  $ crash SIGBUS 0x0000005502d5e004 'x2             0x10001                0'
  error: SIGBUS at first+0x4: ldxr x3, [x2]
    > +04  c85f7c43  ldxr  x3, [x2]
  note: an exclusive access must be aligned, and 0x10001 is not a multiple of 8
  help: align the data, or use a plain load or store
  $ crash SIGBUS 0x0000005502d5e008 'sp             0x5502841008                0'
  error: SIGBUS at first+0x8: str x0, [sp]
    > +08  f90003e0  str   x0, [sp]
  note: SP is 0x5502841008, not a multiple of 16, which every access through it requires
  help: keep SP a multiple of 16 from entry to return

A null pointer in an atomic access:

  $ crash SIGSEGV 0x0000005502d5e000 'x2             0x8                8'
  error: SIGSEGV at first+0x0: ldadd x0, x1, [x2]
    > +00  f8200041  ldadd x0, x1, [x2]
  note: 8-byte atomic access through x2
  note: the address is 0x8: a null pointer in x2

What is left of the code is not an instruction:

  $ crash SIGILL 0x0000005502d5e024
  error: SIGILL at bytes+0x4: these are not four bytes, but the code ends here
    > +04  01        .byte 0x01
  note: bytes+0x4: the code has 6 bytes, not a multiple of 4 [text-length]
  help: end the code with a whole instruction

After the code, where a kernel lies that has no dump, and in a kernel with several findings:

  $ crash SIGILL 0x0000005502d5e0f0
  error: SIGILL in padding, 202 bytes after the end of bytes
    > +05  02        .byte 0x02
  note: control ran past the end of bytes, or a branch led there
  note: bytes+0x4: the code has 6 bytes, not a multiple of 4 [text-length]
  help: end the code with a whole instruction
  $ make_dumps crashed <<'END'
  > mapping 0x5502d5f000
  > kernel before
  >     ret
  > kernel not_dumped
  >     ret
  > kernel spoiler
  >     mov x19, x0
  >     mov x20, x0
  >     mov x21, x0
  >     mov x22, x0
  >     mov x23, x0
  >     ret
  > END
  $ rm crashed/not_dumped
  $ crash SIGILL 0x0000005502d5f020
  error: SIGILL in no kernel that was dumped, 28 bytes after the end of before
  note: a kernel without a dump, if these are not all dumps of the process
  help: dump every kernel: VORNA_WFTA_DUMP_KERNEL=, with nothing after the =
  note: spoiler+0x0: changes x19, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x19 before and restore it from there, or use one of x9 to x15
  note: spoiler+0x4: changes x20, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x20 before and restore it from there, or use one of x9 to x15
  note: spoiler+0x8: changes x21, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x21 before and restore it from there, or use one of x9 to x15
  note: 2 findings more in these kernels, see vorna-kernels check
  $ crash SIGSEGV 0x0000005502d5f040
  error: SIGSEGV at spoiler+0x0: mov x19, x0
    > +00  aa0003f3  mov   x19, x0
  note: the instruction accesses no memory, so it could not be fetched: the kernel's mapping was unmapped, or may not be executed
  note: spoiler+0x0: changes x19, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x19 before and restore it from there, or use one of x9 to x15
  note: spoiler+0x4: changes x20, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x20 before and restore it from there, or use one of x9 to x15
  note: spoiler+0x8: changes x21, which is not restored at the return at +0x14 [abi-callee-saved]
  help: save x21 before and restore it from there, or use one of x9 to x15
  note: 2 findings more in these kernels, see vorna-kernels check
