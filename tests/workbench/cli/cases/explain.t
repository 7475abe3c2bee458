What a process printed before it aborted, and what it had dumped until then:

  $ cat > log <<'END'
  > resolving R_AARCH64_CALL26 reloc but dst address 0x5502d5e008 was already filled, got 0xb9400000
  >   answer 	 0x5502d5e000 0x10 0x5502d5e020 0x4
  > planner: ../../fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > qemu: uncaught target signal 6 (Aborted) - core dumped
  > END
  $ make_dumps dumps <<'END'
  > mapping 0x5502d5e000
  > kernel answer
  >     adrp x0, .rodata
  >     add x0, x0, #0
  >     .reloc ., R_AARCH64_CALL26, .rodata
  >     ldr w0, [x0]
  >     ret
  >     .section .rodata
  >     .word 42
  > END
  $ vorna-kernels explain log --dumps dumps
  error: relocation R_AARCH64_CALL26 against '.rodata.answer': field not zero in 0xb9400000 [field-filled]
    --> answer+0x8, relocation 2 of 2 (log:1)
      +00  90000000  adrp  x0, .rodata
      +04  91000000  add   x0, x0, #0
    > +08  b9400000  ldr   w0, [x0]                     ; not a BL
      +0c  d65f03c0  ret
  note: the ADD at +0x4 has no relocation
  help: use {".rodata.answer", 4, 277, 0}
  1 report
  $ vorna-kernels explain log --dumps dumps --format=json
  {
    "version": 2,
    "report": "field-filled",
    "kernel": "answer",
    "offset": 8,
    "relocation": 1,
    "type": 283,
    "target": ".rodata.answer",
    "addend": 0,
    "distance": 24,
    "range": [
      -134217728,
      134217727
    ],
    "cause": "the ADD at +0x4 has no relocation",
    "help": "use {\".rodata.answer\", 4, 277, 0}",
    "message": "relocation R_AARCH64_CALL26 against '.rodata.answer': field not zero in 0xb9400000",
    "line": 1,
    "notes": [],
    "fits": [],
    "more": [],
    "crash": null,
    "more_crashes": []
  }
  $ vorna-kernels explain log --dumps dumps --color=always
  \x1b[1;31merror\x1b[0m: \x1b[1mrelocation R_AARCH64_CALL26 against '.rodata.answer': field not zero in 0xb9400000\x1b[0m [field-filled] (esc)
    --> answer+0x8, relocation 2 of 2 (log:1)
      +00  90000000  adrp  x0, .rodata
      +04  91000000  add   x0, x0, #0
  \x1b[1m  > +08  b9400000  ldr   w0, [x0]                     ; not a BL\x1b[0m (esc)
      +0c  d65f03c0  ret
  note: the ADD at +0x4 has no relocation
  help: use {".rodata.answer", 4, 277, 0}
  1 report

Without the dumps, and from standard input:

  $ vorna-kernels explain log
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (log:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction
  $ vorna-kernels explain < log
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (standard input:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction
  $ vorna-kernels explain - < log | head -n 2
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (standard input:1)

Instructions are shown as they were generated: the first relocation has been applied when the second fails.

  $ cat > exchanged <<'END'
  > resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but dst address 0x5502d5e004 was already filled, got 0x91000129
  >   k 	 0x5502d5e000 0xc 0x5502d5e020 0x4
  > planner: ../../fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const kernel_registry_map&): Assertion `false' failed.
  > END
  $ make_dumps dumps_of_exchanged <<'END'
  > mapping 0x5502d5e000
  > kernel k
  >     .reloc ., R_AARCH64_ADD_ABS_LO12_NC, .rodata
  >     adrp x9, 0
  >     .reloc ., R_AARCH64_ADR_PREL_PG_HI21, .rodata
  >     add x9, x9, #0
  >     ret
  >     .section .rodata
  >     .word 42
  > END
  $ vorna-kernels explain exchanged --dumps dumps_of_exchanged
  error: relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.k': field not zero in 0x91000129 [field-filled]
    --> k+0x4, relocation 2 of 2 (exchanged:1)
      +00  90000009  adrp  x9, 0x5502d5e000             ; R_AARCH64_ADD_ABS_LO12_NC .rodata
    > +04  91000129  add   x9, x9, #0                   ; not an ADRP
      +08  d65f03c0  ret
  note: the offsets of relocations 1 and 2 are exchanged
  help: use {".rodata.k", 0, 275, 0}, {".rodata.k", 4, 277, 0}
  1 report

Two aborts in a log:

  $ cat log exchanged > both
  $ vorna-kernels explain both
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (both:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  error: relocation R_AARCH64_ADR_PREL_PG_HI21: field not zero in 0x91000129 [field-filled]
    --> k+0x4 (both:5)
  note: the instruction there is add x9, x9, #0
  help: give the relocation the offset of the ADRP that it is for
  2 reports
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction
  $ vorna-kernels explain both --format=json | grep -E '"(report|kernel|line|more)"'
    "report": "field-filled",
    "kernel": "answer",
    "line": 1,
    "more": [
        "report": "field-filled",
        "kernel": "k",
        "line": 5,

An abort that does not say which kernel:

  $ cat > null <<'END'
  > x
  > planner: fft/SRC/wfta/kernel_printer.cpp:162: void resolve_relocation(const string&, uint8_t*, const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&): Assertion `target_addr' failed.
  > END
  $ vorna-kernels explain null
  error: a relocation: the target's address is null [null-target]
    --> null:2
  note: the target's set had neither code nor constants, its mapping failed, or the host registered null
  help: run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

No abort, and the signs of a crash:

  $ echo 'main: all is well' > fine
  $ vorna-kernels explain fine
  no report of an abort in fine
  note: the finaliser did not abort the process; a kernel that crashes leaves no report
  help: vorna-kernels check DUMPS
  help: from the address of the instruction explain finds the kernel; in an empty directory:
        VORNA_WFTA_DUMP_KERNEL= gdb -q -batch -ex run -ex bt -ex 'info registers' --args HOST >../crash.log
        vorna-kernels explain ../crash.log --dumps .
  help: if there is a core of the process that wrote DUMPS:
        vorna-kernels link DUMPS -o kernels.elf
        gdb -q -batch -ex 'add-symbol-file kernels.elf' -ex bt -ex 'info registers' HOST CORE >crash.log
        vorna-kernels explain crash.log --dumps DUMPS
  [1]
  $ vorna-kernels explain fine --format=json
  {
    "version": 2,
    "report": null,
    "kernel": null,
    "offset": null,
    "relocation": null,
    "type": null,
    "target": null,
    "addend": null,
    "distance": null,
    "range": null,
    "cause": null,
    "help": null,
    "message": null,
    "line": null,
    "notes": [],
    "fits": [],
    "more": [],
    "crash": null,
    "more_crashes": []
  }
  [1]
  $ for line in 'qemu: uncaught target signal 11 (Segmentation fault) - core dumped' \
  >   'qemu: uncaught target signal 4 (Illegal instruction) - core dumped' \
  >   'Program received signal SIGBUS, Bus error.' 'Trace/breakpoint trap'; do
  >   printf 'main: all is well\n%s\nSegmentation fault\n' "$line" > crash
  >   vorna-kernels explain crash --dumps dumps | sed 4q
  > done
  no report of an abort in crash
  note: an instruction raised a signal, perhaps a kernel's
    --> crash:2: qemu: uncaught target signal 11 (Segmentation fault) - core dumped
  help: vorna-kernels check dumps
  no report of an abort in crash
  note: an instruction raised a signal, perhaps a kernel's
    --> crash:2: qemu: uncaught target signal 4 (Illegal instruction) - core dumped
  help: vorna-kernels check dumps
  no report of an abort in crash
  note: an instruction raised a signal, perhaps a kernel's
    --> crash:2: Program received signal SIGBUS, Bus error.
  help: vorna-kernels check dumps
  no report of an abort in crash
  note: an instruction raised a signal, perhaps a kernel's
    --> crash:2: Trace/breakpoint trap
  help: vorna-kernels check dumps

A log or dumps that cannot be read:

  $ vorna-kernels explain missing
  vorna-kernels: missing: No such file or directory
  [2]
  $ vorna-kernels explain .
  vorna-kernels: .: Is a directory
  [2]
  $ head -c 100 dumps/answer > truncated
  $ vorna-kernels explain log --dumps truncated
  vorna-kernels: truncated: no kernel found
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (log:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  1 report
  [2]
  $ mkdir none
  $ vorna-kernels explain log --dumps none
  vorna-kernels: none: no dumps found
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (log:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  1 report
  [2]
  $ cp dumps_of_exchanged/k dumps
  $ vorna-kernels explain log --dumps dumps
  vorna-kernels: dumps/k and dumps/answer: k and answer are placed in the same memory: dumps of two runs
  error: relocation R_AARCH64_CALL26: field not zero in 0xb9400000 [field-filled]
    --> answer+0x8 (log:1)
  note: the instruction there is ldr w0, [x0]
  help: give the relocation the offset of the BL that it is for
  1 report
  [2]

A crash: what gdb prints, a sanitizer, the system's log, and a core.

  $ make_dumps crashed <<'END'
  > mapping 0x5502d5e000
  > kernel answer
  >     nop
  >     ldr x1, [x0, #8]
  >     ret
  > kernel caller
  >     stp x29, x30, [sp, #-16]!
  >     bl answer
  >     ldp x29, x30, [sp], #16
  >     nop
  > kernel spoiler
  >     mov x19, #1
  >     ret
  > END
  $ cat > gdb <<'END'
  > Program received signal SIGSEGV, Segmentation fault.
  > 0x0000005502d5e004 in ?? ()
  > #0  0x0000005502d5e004 in ?? ()
  > #1  0x0000005502d5e028 in ?? ()
  > #2  0x0000000000400a3c in main () at host.cpp:16
  > x0             0x0                 0
  > END
  $ vorna-kernels explain gdb --dumps crashed
  error: SIGSEGV at answer+0x4: ldr x1, [x0, #8]
    --> answer+0x4 (gdb:2)
      +00  d503201f  nop
    > +04  f9400401  ldr   x1, [x0, #8]
      +08  d65f03c0  ret
  note: called from caller+0x4 (gdb:4)
  note: 8-byte load through x0
  note: the address is 0x8: a null pointer in x0
  note: caller+0xc: nop is the last instruction, and control continues past the end of the code [falls-through]
  help: end the code with RET, a branch or a trap
  1 crash
  $ vorna-kernels explain gdb
  no report of an abort in gdb
  note: an instruction raised a signal, perhaps a kernel's
    --> gdb:1: Program received signal SIGSEGV, Segmentation fault.
  help: vorna-kernels check DUMPS
  help: the dumps of that process, as --dumps DUMPS, say which kernel 0x5502d5e004 is in
  [1]
  $ vorna-kernels explain gdb --dumps crashed --format=json | sed '/"crash"/,$!d'
    "crash": {
      "line": 1,
      "text": "Program received signal SIGSEGV, Segmentation fault.",
      "signal": "SIGSEGV",
      "pc": {
        "address": "0x5502d5e004",
        "part": "code",
        "kernel": "answer",
        "offset": 4
      },
      "message": "SIGSEGV at answer+0x4: ldr x1, [x0, #8]",
      "cause": "the address is 0x8: a null pointer in x0",
      "notes": [
        "8-byte load through x0"
      ],
      "help": [],
      "callers": [
        {
          "address": "0x5502d5e024",
          "part": "code",
          "kernel": "caller",
          "offset": 4
        }
      ],
      "findings": [
        {
          "id": "falls-through",
          "kernel": "caller",
          "offset": 12,
          "message": "nop is the last instruction, and control continues past the end of the code",
          "help": "end the code with RET, a branch or a trap"
        }
      ]
    },
    "more_crashes": []
  }
  $ cat > sanitizer <<'END'
  > AddressSanitizer:DEADLYSIGNAL
  > ==12==ERROR: AddressSanitizer: ILL on unknown address 0x005502d5e030 (pc 0x005502d5e030 bp 0x0055028411a0 sp 0x0055028411a0 T0)
  >     #0 0x5502d5e030  (<unknown module>)
  > END
  $ vorna-kernels explain sanitizer --dumps crashed
  error: SIGILL in padding, at the end of caller
    --> padding, at the end of caller (sanitizer:2)
      +04  97fffff7  bl    answer
      +08  a8c17bfd  ldp   x29, x30, [sp], #16
    > +0c  d503201f  nop
  note: control ran past the end of caller, or a branch led there
  note: caller+0xc: nop is the last instruction, and control continues past the end of the code [falls-through]
  help: end the code with RET, a branch or a trap
  1 crash
  $ cat > dmesg <<'END'
  > [   12.345678] host[123]: unhandled exception: DABT (lower EL), ESR 0x0000000092000004, level 0 translation fault in host[400000+1000]
  > [   12.345680] pc : 0000000000400a40
  > [   12.345681] lr : 0000000000400a3c
  > END
  $ vorna-kernels explain dmesg --dumps crashed
  error: SIGSEGV at 0x400a40, in no kernel
    --> in no kernel (dmesg:2)
  note: the host's own code; a kernel that has returned may have left it a wrong register or stack pointer
  help: the dumps must be of this very process, since kernels are placed elsewhere in every run
  note: spoiler+0x0: changes x19, which is not restored at the return at +0x4 [abi-callee-saved]
  help: save x19 before and restore it from there, or use one of x9 to x15
  1 crash
  $ printf 'TID 7:\n#0  0x0000000000400a40 poll\n' | vorna-kernels explain --dumps crashed | sed 2q
  no report of an abort in standard input
  note: the finaliser did not abort the process; a kernel that crashes leaves no report

Two crashes, and colour:

  $ cat gdb sanitizer > both
  $ vorna-kernels explain both --dumps crashed --color=always | grep -v '^    '
  \x1b[1;31merror\x1b[0m: \x1b[1mSIGSEGV at answer+0x4: ldr x1, [x0, #8]\x1b[0m (esc)
    --> answer+0x4 (both:2)
  \x1b[1m  > +04  f9400401  ldr   x1, [x0, #8]\x1b[0m (esc)
  note: called from caller+0x4 (both:4)
  note: 8-byte load through x0
  note: the address is 0x8: a null pointer in x0
  note: caller+0xc: nop is the last instruction, and control continues past the end of the code [falls-through]
  help: end the code with RET, a branch or a trap
  \x1b[1;31merror\x1b[0m: \x1b[1mSIGILL in padding, at the end of caller\x1b[0m (esc)
    --> padding, at the end of caller (both:8)
  \x1b[1m  > +0c  d503201f  nop\x1b[0m (esc)
  note: control ran past the end of caller, or a branch led there
  note: caller+0xc: nop is the last instruction, and control continues past the end of the code [falls-through]
  help: end the code with RET, a branch or a trap
  2 crashes
  $ vorna-kernels explain both --dumps crashed --format=json | grep -E '"(line|text|address|more_crashes)"'
    "line": null,
      "line": 1,
      "text": "Program received signal SIGSEGV, Segmentation fault.",
        "address": "0x5502d5e004",
          "address": "0x5502d5e024",
    "more_crashes": [
        "line": 8,
        "text": "==12==ERROR: AddressSanitizer: ILL on unknown address 0x005502d5e030 (pc 0x005502d5e030 bp 0x0055028411a0 sp 0x0055028411a0 T0)",
          "address": "0x5502d5e030",

A mapping that the system refused:

  $ cat > refused <<'END'
  > ==12==ERROR: AddressSanitizer: SEGV on unknown address 0x000000000000 (pc 0x7ff364d8b87a bp 0x7fff3551c050 sp 0x7fff3551c048 T0)
  > ==12==The signal is caused by a WRITE memory access.
  >     #0 0x7ff364d8b87a in __memcpy_generic
  >     #1 0x400a3c in vorna::wfta::finalise_kernels(std::map<std::string, vorna::wfta::kernel_registry_entry>&)
  > END
  $ vorna-kernels explain refused
  error: SIGSEGV in finalise_kernels, at its first copy: the system refused the mapping
    --> refused:1
  note: the process may not have memory that is writable and executable at once, or there is none left
  help: look for execmem in SELinux's log, MemoryDenyWriteExecute= in the service's unit, PR_SET_MDWE in the host, and ulimit -v
  1 crash
