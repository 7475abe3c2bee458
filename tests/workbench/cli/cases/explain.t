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
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      +00  90000000  adrp  x0, .rodata
      +04  91000000  add   x0, x0, #0
    > +08  b9400000  ldr   w0, [x0]                     ; not a BL
      +0c  d65f03c0  ret
      relocation 2 of 2: .rodata.answer + 0, type 283, offset 8
      log    log:1
      cause  the offset points at ldr w0, [x0]; +0x4 has an ADD and no relocation
      do     {".rodata.answer", 4, 277, 0}
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
    "cause": "the offset points at ldr w0, [x0]; +0x4 has an ADD and no relocation",
    "help": "{\".rodata.answer\", 4, 277, 0}",
    "message": "R_AARCH64_CALL26: the field of 0xb9400000 is not zero",
    "line": 1,
    "notes": [],
    "fits": [],
    "more": []
  }
  $ vorna-kernels explain log --dumps dumps --color=always
  \x1b[1manswer+0x8\x1b[0m: \x1b[1;31merror\x1b[0m: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled] (esc)
      +00  90000000  adrp  x0, .rodata
      +04  91000000  add   x0, x0, #0
  \x1b[1m  > +08  b9400000  ldr   w0, [x0]                     ; not a BL\x1b[0m (esc)
      +0c  d65f03c0  ret
      relocation 2 of 2: .rodata.answer + 0, type 283, offset 8
      log    log:1
      cause  the offset points at ldr w0, [x0]; +0x4 has an ADD and no relocation
      do     {".rodata.answer", 4, 277, 0}
  1 report

Without the dumps, and from standard input:

  $ vorna-kernels explain log
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    log:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction
  $ vorna-kernels explain < log
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    standard input:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction
  $ vorna-kernels explain - < log | head -n 2
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    standard input:1

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
  k+0x4: error: R_AARCH64_ADR_PREL_PG_HI21: the field of 0x91000129 is not zero [field-filled]
      +00  90000009  adrp  x9, 0x5502d5e000             ; R_AARCH64_ADD_ABS_LO12_NC .rodata
    > +04  91000129  add   x9, x9, #0                   ; not an ADRP
      +08  d65f03c0  ret
      relocation 2 of 2: .rodata.k + 0, type 275, offset 4
      log    exchanged:1
      cause  the offsets of the relocations 1 and 2 are exchanged
      do     {".rodata.k", 0, 275, 0}, {".rodata.k", 4, 277, 0}
  1 report

Two aborts in a log:

  $ cat log exchanged > both
  $ vorna-kernels explain both
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    both:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  k+0x4: error: R_AARCH64_ADR_PREL_PG_HI21: the field of 0x91000129 is not zero [field-filled]
      log    both:5
      cause  the offset points at add x9, x9, #0
      do     give the relocation the offset of the ADRP that it is for
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
  null:2: error: a relocation's target is at address null [null-target]
      cause  the target's set had neither code nor constants, or its mapping was refused, or the host registered null
      do     leave empty kernels without relocations, and no null in the registry
  1 report
  note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction

No abort, and the signs of a crash:

  $ echo 'main: all is well' > fine
  $ vorna-kernels explain fine
  no report of an abort in fine
      cause  the finaliser did not end it; a kernel that crashes leaves no report
      do     vorna-kernels check DUMPS
             vorna-kernels link DUMPS -o kernels.elf
             gdb HOST CORE -ex 'add-symbol-file kernels.elf' -ex bt -ex 'x/i $pc'
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
    "more": []
  }
  [1]
  $ for line in 'qemu: uncaught target signal 11 (Segmentation fault) - core dumped' \
  >   'qemu: uncaught target signal 4 (Illegal instruction) - core dumped' \
  >   'Program received signal SIGBUS, Bus error.' 'Trace/breakpoint trap'; do
  >   printf 'main: all is well\n%s\nSegmentation fault\n' "$line" > crash
  >   vorna-kernels explain crash --dumps dumps | sed 4q
  > done
  no report of an abort in crash
      found  crash:2: qemu: uncaught target signal 11 (Segmentation fault) - core dumped
      cause  an instruction raised the signal, perhaps a kernel's
      do     vorna-kernels check dumps
  no report of an abort in crash
      found  crash:2: qemu: uncaught target signal 4 (Illegal instruction) - core dumped
      cause  an instruction raised the signal, perhaps a kernel's
      do     vorna-kernels check dumps
  no report of an abort in crash
      found  crash:2: Program received signal SIGBUS, Bus error.
      cause  an instruction raised the signal, perhaps a kernel's
      do     vorna-kernels check dumps
  no report of an abort in crash
      found  crash:2: Trace/breakpoint trap
      cause  an instruction raised the signal, perhaps a kernel's
      do     vorna-kernels check dumps

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
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    log:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  1 report
  [2]
  $ mkdir none
  $ vorna-kernels explain log --dumps none
  vorna-kernels: none: no dumps found
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    log:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  1 report
  [2]
  $ cp dumps_of_exchanged/k dumps
  $ vorna-kernels explain log --dumps dumps
  vorna-kernels: dumps/k and dumps/answer: k and answer are placed in the same memory: dumps of two runs
  answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]
      log    log:1
      cause  the offset points at ldr w0, [x0]
      do     give the relocation the offset of the BL that it is for
  1 report
  [2]
