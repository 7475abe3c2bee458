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
  2 kernels, 1 relocation: nothing found

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
  half_an_address+0x0: error: ADRP gives the page of .rodata.half_an_address, which no ADD completes [pair]
      90000000  adrp x0, .rodata        relocation 1 of 1: .rodata.half_an_address + 0
      add R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation completes a load or a store
  all_at_once+0x0: error: .rodata.all_at_one is not this kernel's data, and it reaches no other [foreign-data]
      10000000  adr x0, .rodata.all_at_one  relocation 1 of 5: .rodata.all_at_one + 0
      name .rodata.all_at_once, or have the other kernel's code pass the address
  all_at_once+0x4: error: relocation type 273 is none of 274, 275, 277 and 283 [unhandled-type]
      58000001  ldr x1, 0x10024         relocation 2 of 5: half_an_address + 0
      use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26
  all_at_once+0x8: error: there is no kernel half_an_adress [unknown-target]
      94000000  bl half_an_adress       relocation 3 of 5: half_an_adress + 0
      place it before all_at_once, or correct the name
  all_at_once+0xc: error: relocation type 282 is none of 274, 275, 277 and 283 [unhandled-type]
      14000000  b 0x1002c               relocation 4 of 5: half_an_address + 0
      use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26
  all_at_once+0x10: error: R_AARCH64_CALL26 reaches half_an_address+0x2 at a distance that is not a multiple of 4 [range]
      94000000  bl half_an_address+0x2  relocation 5 of 5: half_an_address + 2
      correct the addend
  all_at_once+0x10: warning: BL to half_an_address+0x2, where no kernel begins [call-target]
      94000000  bl half_an_address+0x2  relocation 5 of 5: half_an_address + 2
      call it with addend 0
  2 kernels, 6 relocations: 6 errors, 1 warning
  [1]
  $ vorna-kernels check --format=github bad
  ::error title=half_an_address+0x0::ADRP gives the page of .rodata.half_an_address, which no ADD completes [pair]%0Aadd R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation completes a load or a store
  ::error title=all_at_once+0x0::.rodata.all_at_one is not this kernel's data, and it reaches no other [foreign-data]%0Aname .rodata.all_at_once, or have the other kernel's code pass the address
  ::error title=all_at_once+0x4::relocation type 273 is none of 274, 275, 277 and 283 [unhandled-type]%0Ause one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26
  ::error title=all_at_once+0x8::there is no kernel half_an_adress [unknown-target]%0Aplace it before all_at_once, or correct the name
  ::error title=all_at_once+0xc::relocation type 282 is none of 274, 275, 277 and 283 [unhandled-type]%0Ause one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26
  ::error title=all_at_once+0x10::R_AARCH64_CALL26 reaches half_an_address+0x2 at a distance that is not a multiple of 4 [range]%0Acorrect the addend
  ::warning title=all_at_once+0x10::BL to half_an_address+0x2, where no kernel begins [call-target]%0Acall it with addend 0
  2 kernels, 6 relocations: 6 errors, 1 warning
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
        "message": "ADRP gives the page of .rodata.half_an_address, which no ADD completes",
        "help": "add R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation completes a load or a store"
      },
      {
        "id": "foreign-data",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 0,
        "offset": 0,
        "message": ".rodata.all_at_one is not this kernel's data, and it reaches no other",
        "help": "name .rodata.all_at_once, or have the other kernel's code pass the address"
      },
      {
        "id": "unhandled-type",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 1,
        "offset": 4,
        "message": "relocation type 273 is none of 274, 275, 277 and 283",
        "help": "use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26"
      },
      {
        "id": "unknown-target",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 2,
        "offset": 8,
        "message": "there is no kernel half_an_adress",
        "help": "place it before all_at_once, or correct the name"
      },
      {
        "id": "unhandled-type",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 3,
        "offset": 12,
        "message": "relocation type 282 is none of 274, 275, 277 and 283",
        "help": "use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26"
      },
      {
        "id": "range",
        "severity": "error",
        "aborts": true,
        "kernel": "all_at_once",
        "relocation": 4,
        "offset": 16,
        "message": "R_AARCH64_CALL26 reaches half_an_address+0x2 at a distance that is not a multiple of 4",
        "help": "correct the addend"
      },
      {
        "id": "call-target",
        "severity": "warning",
        "aborts": false,
        "kernel": "all_at_once",
        "relocation": 4,
        "offset": 16,
        "message": "BL to half_an_address+0x2, where no kernel begins",
        "help": "call it with addend 0"
      }
    ]
  }
  [1]

A warning alone is fine, unless it is asked for:

  $ make_dumps warned <<'END'
  > kernel odd
  >     ret
  >     .byte 0
  > END
  $ vorna-kernels check warned
  odd+0x4: warning: the text has 5 bytes, not a multiple of 4 [text-length]
      end the text with a whole instruction
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
