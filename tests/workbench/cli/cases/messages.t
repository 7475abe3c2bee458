Messages that no other case has. First, of `check`: a pattern that does not compile, a kernel that was not dumped, and
dumps of two runs.

  $ make_dumps dumps <<'END'
  > kernel callee
  >     ret
  > kernel caller
  >     stp x29, x30, [sp, #-16]!
  >     bl callee
  >     ldp x29, x30, [sp], #16
  >     ret
  > mapping 0x20000
  > kernel later
  >     ret
  > END
  $ vorna-kernels check dumps --internal='('
  vorna-kernels: --internal: '(' is not a regular expression
  [2]
  $ rm dumps/callee
  $ vorna-kernels check dumps
  caller+0x4: note: relocation R_AARCH64_CALL26 against 'callee': target not found in the dumps [unknown-target]
      94000000  bl callee               relocation 1 of 1: callee + 0
      help: dump all kernels to have this checked
  2 kernels, 1 relocation: 1 note

  $ make_dumps two_aborts <<'END'
  > kernel first
  >     b first
  >     .reloc .-4, R_AARCH64_JUMP26, first
  > mapping 0x20000
  > kernel second
  >     b second
  >     .reloc .-4, R_AARCH64_JUMP26, second
  > END
  $ vorna-kernels check two_aborts
  vorna-kernels: dumps of more than one run or registry: first+0x0 [unhandled-type] and second+0x0 [unhandled-type] would each have ended the process; use a directory for each
  [2]

A store that must be aligned, and a load through the page of an ADRP:

  $ make_dumps accesses <<'END'
  > kernel before
  >     ret
  >     .section .rodata
  >     .word 1
  > kernel stores
  >     adr x9, .rodata
  >     stlr x0, [x9]
  >     ret
  >     .section .rodata
  >     .quad 1
  > kernel through_the_page
  >     adrp x9, .rodata
  >     ldr x0, [x9, #8]
  >     add x9, x9, :lo12:.rodata
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > END
  $ vorna-kernels check accesses
  stores+0x4: warning: 8-byte store to the kernel's constants at .rodata [writes-constants]
      c89ffd20  stlr x0, [x9]
      help: write to memory that the caller passes: constants are shared by all executions
  stores+0x4: error: 8-byte store to an address that is 4-aligned, which faults on processors without FEAT_LSE2 [data-alignment]
      c89ffd20  stlr x0, [x9]
      help: data blocks are packed: make the length of every block of the set a multiple of 8
  through_the_page+0x4: error: 8-byte load through the page of '.rodata.through_the_page', which no ADD completes [outside-constants]
      f9400520  ldr x0, [x9, #8]
      help: add R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load or a store
  3 kernels, 3 relocations: 2 errors, 1 warning
  [1]

`link` of kernels of one name:

  $ make_dumps same <<'END'
  > kernel callee
  >     ret
  > mapping 0x20000
  > kernel callee
  >     nop
  >     ret
  > END
  $ vorna-kernels link same -o image | grep error
  callee: error: a second kernel of this name: the first is same/callee, which other kernels call [duplicate-name]

`check` of two kernels of one name in one mapping:

  $ make_dumps twice <<'END'
  > kernel callee
  >     ret
  > kernel callee
  >     ret
  > END
  $ vorna-kernels check twice
  vorna-kernels: dumps of more than one run or registry: two kernels callee lie in one mapping; use a directory for each
  [2]

A profile in which nothing is found:

  $ echo '    7     1.000000: PERF_RECORD_MMAP2 7/7: [0x20000(0x1000) @ 0x20000 00:00 0 0]: rwxp //anon' > text
  $ rm dumps/caller
  $ vorna-kernels report dumps -o page.html --perf-script=text
  vorna-kernels: text: no samples found
  [2]

Code, relocations and constants that have all changed since the baseline:

  $ unset CI
  $ vorna-kernels baseline bless FILE dumps --all > /dev/null
  $ make_dumps dumps <<'END'
  > mapping 0x20000
  > kernel later
  >     adr x0, .rodata
  >     ret
  >     .section .rodata
  >     .word 1
  > END
  $ vorna-kernels baseline check FILE dumps | grep later
  FILE:2: later: code, relocations and constants changed, 1 -> 2 instructions
  to accept: vorna-kernels baseline bless FILE dumps later

`bless` of a name that is misspelt:

  $ vorna-kernels baseline bless FILE dumps lather
  vorna-kernels: no kernel lather in the baseline or the dumps; did you mean later?
  [2]

What `explain` advises if qemu reported the signal:

  $ echo 'qemu: uncaught target signal 11 (Segmentation fault) - core dumped' > log
  $ vorna-kernels explain log | grep -A2 'in an empty'
  help: from the address of the instruction explain finds the kernel; in an empty directory:
        VORNA_WFTA_DUMP_KERNEL= qemu-aarch64 -g ../gdb.socket HOST & sleep 1
        gdb-multiarch -q -batch -ex 'target remote ../gdb.socket' -ex continue -ex bt -ex 'info registers' HOST >../crash.log

The classes of changed kernels in a report:

  $ make_dumps before <<'END'
  > kernel removed
  >     ret
  > kernel changed
  >     mov x0, #1
  >     ret
  > END
  $ make_dumps after <<'END'
  > kernel changed
  >     mov x0, #2
  >     ret
  > END
  $ vorna-kernels report after --against=before -o page.html > /dev/null
  $ grep -oE '"(other|only|the same|no) [a-z ]*"' page.html | sort -u
  "no difference"
  "only after the change"
  "only before the change"
  "other bytes of constants"
  "other instructions"
  "other relocations"
  "the same constants at other offsets"
  "the same instructions in another order"
  "the same instructions with other registers"

A finding in a kernel without a name:

  $ printf 'kernel \nmov x19, x0\nret\n' | make_dumps unnamed
  $ vorna-kernels report unnamed -o page.html > /dev/null
  $ grep -o '"place":"[^"]*"' page.html
  "place":"(no name)"
  "place":"(no name)"
  "place":"(no name)+0x0"

Two kernels that differ too much for a shortest diff:

  $ numbers() {
  >     echo 'kernel large'
  >     awk -v x="$1" 'BEGIN {
  >         for (i = 0; i < 12000; ++i) { x = (x * 1103 + 12345) % 1000003; print "mov x0, #" x % 97 }
  >         print "ret" }'
  > }
  $ numbers 7 | make_dumps large_before
  $ numbers 99 | make_dumps large_after
  $ vorna-kernels diff large_before large_after | grep 'shortest'
  @@ the two differ too much for a shortest diff: equal lines may be shown as replaced @@
