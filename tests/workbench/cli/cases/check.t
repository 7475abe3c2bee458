Nothing is wrong:

  $ make_dumps good <<'END'
  > kernel callee
  >     ret
  > kernel caller
  >     stp x29, x30, [sp, #-16]!
  >     bl callee
  >     ldp x29, x30, [sp], #16
  >     ret
  > END
  $ vorna-kernels check good
  2 kernels, 1 relocation: no findings

Errors. Those that end the process are of the kernel that was placed last:

  $ make_dumps bad <<'END'
  > kernel half_an_address
  >     adrp x0, .rodata
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel all_at_once
  >     adr x0, .rodata.all_at_one
  >     ldr x1, half_an_address
  >     bl half_an_adress
  >     b half_an_address
  >     bl half_an_address + 2
  >     ret
  > END
  $ vorna-kernels check bad
  half_an_address+0x0: error: relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.half_an_address': no ADD completes the address [pair]
      90000000  adrp x0, .rodata        relocation 1 of 1: .rodata.half_an_address + 0
      help: add R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load or a store
  all_at_once+0x0: error: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.all_at_one': constants of another kernel [foreign-data]
      10000000  adr x0, .rodata.all_at_one  relocation 1 of 5: .rodata.all_at_one + 0
      note: the name may be misspelt
      help: use {".rodata.all_at_once", 0, 274, 0}
  all_at_once+0x4: error: relocation R_AARCH64_LD_PREL_LO19 (type 273) against 'half_an_address': type not supported [unhandled-type]
      58000001  ldr x1, 0x10024         relocation 2 of 5: half_an_address + 0
      help: form the address with ADRP (275) and ADD (277) and load from it
  all_at_once+0x8: error: relocation R_AARCH64_CALL26 against 'half_an_adress': target not found [unknown-target]
      94000000  bl half_an_adress       relocation 3 of 5: half_an_adress + 0
      note: the name may be misspelt: there is 'half_an_address'
      help: use {"half_an_address", 8, 283, 0}, or place 'half_an_adress' before 'all_at_once'
  all_at_once+0xc: error: relocation R_AARCH64_JUMP26 (type 282) against 'half_an_address': type not supported [unhandled-type]
      14000000  b 0x1002c               relocation 4 of 5: half_an_address + 0
      help: call with BL (283), or form the address with ADRP and ADD and use BR
  all_at_once+0x10: error: relocation R_AARCH64_CALL26 against 'half_an_address'+0x2 misaligned: -46 is not a multiple of 4 [range]
      94000000  bl half_an_address+0x2  relocation 5 of 5: half_an_address + 2
      note: the addend 2 leads between two instructions of 'half_an_address'
      help: call the kernel's first instruction: addend 0
  all_at_once+0x10: warning: relocation R_AARCH64_CALL26 against 'half_an_address'+0x2: a call to where no kernel begins [call-target]
      94000000  bl half_an_address+0x2  relocation 5 of 5: half_an_address + 2
      help: call it with addend 0
  all_at_once+0x4: note: has relocations that are not for this instruction: what comes after it is not checked [unfollowed]
      58000001  ldr x1, 0x10024
  all_at_once+0x10: note: no way leads to 2 instructions from here, and nothing reads them [unreachable-code]
      94000000  bl half_an_address+0x2
      help: delete it, or correct the branch that should lead here
  2 kernels, 6 relocations: 6 errors, 1 warning, 2 notes
  [1]
  $ vorna-kernels check --format=github bad
  ::error title=half_an_address+0x0::relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.half_an_address': no ADD completes the address [pair]%0Aadd R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load or a store
  ::error title=all_at_once+0x0::relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.all_at_one': constants of another kernel [foreign-data]%0Athe name may be misspelt%0Ause {".rodata.all_at_once", 0, 274, 0}
  ::error title=all_at_once+0x4::relocation R_AARCH64_LD_PREL_LO19 (type 273) against 'half_an_address': type not supported [unhandled-type]%0Aform the address with ADRP (275) and ADD (277) and load from it
  ::error title=all_at_once+0x8::relocation R_AARCH64_CALL26 against 'half_an_adress': target not found [unknown-target]%0Athe name may be misspelt: there is 'half_an_address'%0Ause {"half_an_address", 8, 283, 0}, or place 'half_an_adress' before 'all_at_once'
  ::error title=all_at_once+0xc::relocation R_AARCH64_JUMP26 (type 282) against 'half_an_address': type not supported [unhandled-type]%0Acall with BL (283), or form the address with ADRP and ADD and use BR
  ::error title=all_at_once+0x10::relocation R_AARCH64_CALL26 against 'half_an_address'+0x2 misaligned: -46 is not a multiple of 4 [range]%0Athe addend 2 leads between two instructions of 'half_an_address'%0Acall the kernel's first instruction: addend 0
  ::warning title=all_at_once+0x10::relocation R_AARCH64_CALL26 against 'half_an_address'+0x2: a call to where no kernel begins [call-target]%0Acall it with addend 0
  ::notice title=all_at_once+0x4::has relocations that are not for this instruction: what comes after it is not checked [unfollowed]
  ::notice title=all_at_once+0x10::no way leads to 2 instructions from here, and nothing reads them [unreachable-code]%0Adelete it, or correct the branch that should lead here
  2 kernels, 6 relocations: 6 errors, 1 warning, 2 notes
  [1]
  $ vorna-kernels check --format=json bad
  {
    "version": 2,
    "kernels": 2,
    "relocations": 6,
    "findings": [
      {
        "id": "pair",
        "severity": "error",
        "aborts": false,
        "kernel": "half_an_address",
        "relocation": 0,
        "offset": 0,
        "message": "relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.half_an_address': no ADD completes the address",
        "note": "",
        "help": "add R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load or a store"
      },
      {
        "id": "foreign-data",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 0,
        "offset": 0,
        "message": "relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.all_at_one': constants of another kernel",
        "note": "the name may be misspelt",
        "help": "use {\".rodata.all_at_once\", 0, 274, 0}"
      },
      {
        "id": "unhandled-type",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 1,
        "offset": 4,
        "message": "relocation R_AARCH64_LD_PREL_LO19 (type 273) against 'half_an_address': type not supported",
        "note": "",
        "help": "form the address with ADRP (275) and ADD (277) and load from it"
      },
      {
        "id": "unknown-target",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 2,
        "offset": 8,
        "message": "relocation R_AARCH64_CALL26 against 'half_an_adress': target not found",
        "note": "the name may be misspelt: there is 'half_an_address'",
        "help": "use {\"half_an_address\", 8, 283, 0}, or place 'half_an_adress' before 'all_at_once'"
      },
      {
        "id": "unhandled-type",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 3,
        "offset": 12,
        "message": "relocation R_AARCH64_JUMP26 (type 282) against 'half_an_address': type not supported",
        "note": "",
        "help": "call with BL (283), or form the address with ADRP and ADD and use BR"
      },
      {
        "id": "range",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 4,
        "offset": 16,
        "message": "relocation R_AARCH64_CALL26 against 'half_an_address'+0x2 misaligned: -46 is not a multiple of 4",
        "note": "the addend 2 leads between two instructions of 'half_an_address'",
        "help": "call the kernel's first instruction: addend 0"
      },
      {
        "id": "call-target",
        "severity": "warning",
        "aborts": false,
        "kernel": "all_at_once",
        "relocation": 4,
        "offset": 16,
        "message": "relocation R_AARCH64_CALL26 against 'half_an_address'+0x2: a call to where no kernel begins",
        "note": "",
        "help": "call it with addend 0"
      },
      {
        "id": "unfollowed",
        "severity": "note",
        "aborts": false,
        "kernel": "all_at_once",
        "relocation": null,
        "offset": 4,
        "message": "has relocations that are not for this instruction: what comes after it is not checked",
        "note": "",
        "help": ""
      },
      {
        "id": "unreachable-code",
        "severity": "note",
        "aborts": false,
        "kernel": "all_at_once",
        "relocation": null,
        "offset": 16,
        "message": "no way leads to 2 instructions from here, and nothing reads them",
        "note": "",
        "help": "delete it, or correct the branch that should lead here"
      }
    ]
  }
  [1]

Each finding about one instruction, and a note does not hide an error:

  $ make_dumps several <<'END'
  > kernel callee
  >     ret
  > kernel aligned
  >     adr x3, .rodata + 4
  >     ldr x0, [x3]
  >     ldar x1, [x3]
  >     ret
  >     .section .rodata
  >     .double 1, 2
  > kernel caller
  >     bl callee
  >     .reloc ., R_AARCH64_CALL26, callee
  >     ldr w0, [x0]
  >     nop
  > END
  $ vorna-kernels check several
  aligned+0x4: note: 8-byte load from an address that is 4-aligned [data-alignment]
      f9400060  ldr x0, [x3]
      help: data blocks are packed: make the length of every block of the set a multiple of 8
  aligned+0x8: error: 8-byte load from an address that is 4-aligned, which faults on processors without FEAT_LSE2 [data-alignment]
      c8dffc61  ldar x1, [x3]
      help: data blocks are packed: make the length of every block of the set a multiple of 8
  caller+0x4: error: relocation R_AARCH64_CALL26 against 'callee': field not zero in 0xb9400000 [field-filled]
      b9400000  ldr w0, [x0]            relocation 2 of 2: callee + 0
      help: give the relocation the offset of the BL that it is for
  caller+0x4: error: relocation R_AARCH64_CALL26 against 'callee' is for a BL, but the instruction is 0xb9400000 [opcode]
      b9400000  ldr w0, [x0]            relocation 2 of 2: callee + 0
  caller+0x8: error: nop is the last instruction, and control continues past the end of the code [falls-through]
      d503201f  nop
      help: end the code with RET, a branch or a trap
  caller+0x4: note: has relocations that are not for this instruction: what comes after it is not checked [unfollowed]
      b9400000  ldr w0, [x0]
  3 kernels, 3 relocations: 4 errors, 2 notes
  [1]

A warning alone is fine, unless it is asked for:

  $ make_dumps warned <<'END'
  > kernel odd
  >     ret
  >     .byte 0
  > END
  $ vorna-kernels check warned
  odd+0x4: warning: the code has 5 bytes, not a multiple of 4 [text-length]
      help: end the code with a whole instruction
  1 kernel, 0 relocations: 1 warning
  $ vorna-kernels check --strict warned >output
  [1]

Dumps that one process cannot have written:

  $ make_dumps mixed <<'END'
  > kernel caller
  >     bl callee
  >     ret
  > kernel callee
  >     ret
  > END
  $ vorna-kernels check mixed
  vorna-kernels: dumps of more than one run or registry: caller+0x0 would have ended the process [callee-order], but callee was placed after it; use a directory for each
  [2]
  $ vorna-kernels check --format=json mixed
  vorna-kernels: dumps of more than one run or registry: caller+0x0 would have ended the process [callee-order], but callee was placed after it; use a directory for each
  [2]
  $ vorna-kernels check --format=github mixed
  vorna-kernels: dumps of more than one run or registry: caller+0x0 would have ended the process [callee-order], but callee was placed after it; use a directory for each
  [2]
  $ vorna-kernels link mixed -o image
  vorna-kernels: dumps of more than one run or registry: caller+0x0 would have ended the process [callee-order], but callee was placed after it; use a directory for each
  [2]
  $ test -e image
  [1]

Whether a processor has the instructions:

  $ make_dumps newer <<'END'
  > kernel sums
  >     sdot v0.4s, v1.16b, v2.16b
  >     ldadd x0, x1, [x2]
  >     sdot v3.4s, v1.16b, v2.16b
  >     ret
  > END
  $ vorna-kernels check newer
  1 kernel, 0 relocations: no findings
  $ vorna-kernels check --cpu=cortex-a76 newer
  1 kernel, 0 relocations: no findings
  $ vorna-kernels check --cpu=cortex-a53 newer
  sums+0x0: error: sdot v0.4s, v1.16b, v2.16b needs dotprod, which cortex-a53 does not have; also at +0x8 [missing-feature]
      4e829420  sdot v0.4s, v1.16b, v2.16b
      note: executing it raises SIGILL there
      help: generate the kernel without dotprod for this processor
  sums+0x4: error: ldadd x0, x1, [x2] needs lse, which cortex-a53 does not have [missing-feature]
      f8200041  ldadd x0, x1, [x2]
      note: executing it raises SIGILL there
      help: generate the kernel without lse for this processor
  1 kernel, 0 relocations: 2 errors
  [1]
  $ vorna-kernels check --cpu=cortex-a5 newer
  vorna-kernels: --cpu: no processor cortex-a5; did you mean cortex-a35?
  [2]
  $ vorna-kernels check --cpu=x newer
  vorna-kernels: --cpu: no processor x; --cpu=help lists them
  [2]
  $ vorna-kernels check --cpu=help | sed -n '/^cortex-a53$/,/^cortex-a55$/p'
  cortex-a53
  cortex-a55

A load directly before a multiply-add:

  $ make_dumps product <<'END'
  > kernel product
  >     ldr x4, [x1]
  >     madd x0, x1, x2, x3
  >     ret
  > END
  $ vorna-kernels check product
  product+0x4: warning: madd x0, x1, x2, x3 directly after ldr x4, [x1], whose result Cortex-A53 may get wrong [erratum-835769]
      9b020c20  madd x0, x1, x2, x3
      help: put an instruction that is not a load, a store or a prefetch between them, such as NOP
  1 kernel, 0 relocations: 1 warning
