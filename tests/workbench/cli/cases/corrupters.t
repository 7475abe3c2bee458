What `check` finds in decoded instructions. In each set one kernel is right, and has no finding; the one that is wrong
differs from it in one thing.

  $ check() {
  >     rm -rf dumps
  >     make_dumps dumps
  >     vorna-kernels check "$@" dumps
  > }

The RET is left out:

  $ check <<'END'
  > kernel right
  >     mov x0, #1
  >     ret
  > kernel wrong
  >     mov x0, #1
  > END
  wrong+0x0: error: mov x0, #1 is the last instruction, and control continues past the end of the code [falls-through]
      d2800020  mov x0, #1
      help: end the code with RET, a branch or a trap
  2 kernels, 0 relocations: 1 error
  [1]

A load is moved past the end of the constants:

  $ check <<'END'
  > kernel right
  >     adr x9, .rodata
  >     ldr x0, [x9, #8]
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > kernel wrong
  >     adr x9, .rodata
  >     ldr x0, [x9, #16]
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > END
  wrong+0x4: error: 8-byte load from .rodata+0x10, outside the kernel's constants, which have 16 bytes [outside-constants]
      f9400920  ldr x0, [x9, #16]
      help: correct the offset or the addend, or add the constants
  2 kernels, 2 relocations: 1 error
  [1]

A load is turned into a store to the constants:

  $ check <<'END'
  > kernel right
  >     adr x9, .rodata
  >     ldr x0, [x9, #8]
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > kernel wrong
  >     adr x9, .rodata
  >     str x0, [x9, #8]
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > END
  wrong+0x4: warning: 8-byte store to the kernel's constants at .rodata+0x8 [writes-constants]
      f9000520  str x0, [x9, #8]
      help: write to memory that the caller passes: constants are shared by all executions
  2 kernels, 2 relocations: 1 warning

Constants of four bytes are put before others of eight:

  $ check <<'END'
  > kernel right
  >     ret
  >     .section .rodata
  >     .quad 1
  > kernel right_too
  >     adr x9, .rodata
  >     ldr x0, [x9]
  >     ret
  >     .section .rodata
  >     .quad 2
  > END
  2 kernels, 1 relocation: no findings
  $ check <<'END'
  > kernel right
  >     ret
  >     .section .rodata
  >     .word 1
  > kernel wrong
  >     adr x9, .rodata
  >     ldr x0, [x9]
  >     ret
  >     .section .rodata
  >     .quad 2
  > END
  wrong+0x4: note: 8-byte load from an address that is 4-aligned [data-alignment]
      f9400120  ldr x0, [x9]
      help: data blocks are packed: make the length of every block of the set a multiple of 8
  2 kernels, 1 relocation: 1 note

An ADRP is moved to the last but one word of a page, before a load and a prefetch from its page:

  $ check <<'END'
  > mapping 0x20fe0
  > kernel right
  >     nop
  >     nop
  >     nop
  >     nop
  >     nop
  >     adrp x9, .rodata
  >     ldr x1, [x0]
  >     prfm pldl1keep, [x9]
  >     add x9, x9, :lo12:.rodata
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > mapping 0x30fe0
  > kernel wrong
  >     nop
  >     nop
  >     nop
  >     nop
  >     nop
  >     nop
  >     adrp x9, .rodata
  >     ldr x1, [x0]
  >     prfm pldl1keep, [x9]
  >     add x9, x9, :lo12:.rodata
  >     ret
  >     .section .rodata
  >     .quad 1, 2
  > END
  wrong+0x18: warning: ADRP at page offset 0xff8 before loads or stores that Cortex-A53 may get wrong [erratum-843419]
      90000009  adrp x9, .rodata
      help: move the ADRP, or put an instruction that is not a load or store after it
  2 kernels, 4 relocations: 1 warning

The NOP between a load and a multiply-add is left out:

  $ check <<'END'
  > kernel right
  >     ldr x9, [x0]
  >     nop
  >     madd x0, x1, x2, x3
  >     ret
  > kernel wrong
  >     ldr x9, [x0]
  >     madd x0, x1, x2, x3
  >     ret
  > END
  wrong+0x4: warning: madd x0, x1, x2, x3 directly after ldr x9, [x0], whose result Cortex-A53 may get wrong [erratum-835769]
      9b020c20  madd x0, x1, x2, x3
      help: put an instruction that is not a load, a store or a prefetch between them, such as NOP
  2 kernels, 0 relocations: 1 warning

A loop over LDXR and STXR is replaced by an instruction that the processor lacks:

  $ check --cpu=cortex-a53 <<'END'
  > kernel right
  > 1:  ldxr x2, [x1]
  >     add x2, x2, x0
  >     stxr w3, x2, [x1]
  >     cbnz w3, 1b
  >     ret
  > kernel wrong
  >     ldadd x0, x2, [x1]
  >     ret
  > END
  wrong+0x0: error: ldadd x0, x2, [x1] needs lse, which cortex-a53 does not have [missing-feature]
      f8200022  ldadd x0, x2, [x1]
      note: executing it raises SIGILL there
      help: generate the kernel without lse for this processor
  2 kernels, 0 relocations: 1 error
  [1]

X19 is not restored:

  $ check <<'END'
  > kernel right
  >     str x19, [sp, #-16]!
  >     mov x19, x0
  >     ldr x19, [sp], #16
  >     ret
  > kernel wrong
  >     str x19, [sp, #-16]!
  >     mov x19, x0
  >     add sp, sp, #16
  >     ret
  > END
  wrong+0x4: error: changes x19, which is not restored at the return at +0xc [abi-callee-saved]
      aa0003f3  mov x19, x0
      help: save x19 before and restore it from there, or use one of x9 to x15
  2 kernels, 0 relocations: 1 error
  [1]

Half of the stack frame is released:

  $ check <<'END'
  > kernel right
  >     sub sp, sp, #32
  >     add sp, sp, #32
  >     ret
  > kernel wrong
  >     sub sp, sp, #32
  >     add sp, sp, #16
  >     ret
  > END
  wrong+0x8: error: SP is 16 bytes below its value at entry at this return; changed at +0x0 [abi-stack-pointer]
      d65f03c0  ret
      help: release on every way what is allocated
  2 kernels, 0 relocations: 1 error
  [1]

X30 is not saved around a call:

  $ check <<'END'
  > kernel right
  >     stp x29, x30, [sp, #-16]!
  >     bl right
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel wrong
  >     bl right
  >     ret
  > END
  wrong+0x4: error: returns to x30, which is not the address of the caller: the call at +0x0 changed it [abi-return-address]
      d65f03c0  ret
      help: save x30 before the first call and restore it before the return
  2 kernels, 2 relocations: 1 error
  [1]

X18 is used in place of X17:

  $ check <<'END'
  > kernel right
  >     mov x17, x0
  >     ret
  > kernel wrong
  >     mov x18, x0
  >     ret
  > END
  wrong+0x0: warning: writes x18, which belongs to the platform [abi-platform-register]
      aa0003f2  mov x18, x0
      help: use one of x9 to x15
  2 kernels, 0 relocations: 1 warning

SP is not lowered before a store:

  $ check <<'END'
  > kernel right
  >     str x0, [sp, #-16]!
  >     add sp, sp, #16
  >     ret
  > kernel wrong
  >     str x0, [sp, #-16]
  >     ret
  > END
  wrong+0x0: warning: stores below SP, where a signal may overwrite it [abi-below-stack]
      f81f03e0  stur x0, [sp, #-16]
      help: lower SP first
  2 kernels, 0 relocations: 1 warning

A register is not set before it is read:

  $ check <<'END'
  > kernel right
  >     mov x9, #1
  >     add x0, x0, x9
  >     ret
  > kernel wrong
  >     add x0, x0, x9
  >     ret
  > END
  wrong+0x0: error: reads x9, which nothing has set [reads-unset]
      8b090000  add x0, x0, x9
      help: set it before
  2 kernels, 0 relocations: 1 error
  [1]

A comparison before a conditional branch is left out:

  $ check <<'END'
  > kernel right
  >     cmp x0, #0
  >     b.eq 1f
  >     mov x0, #1
  > 1:  ret
  > kernel wrong
  >     b.eq 1f
  >     mov x0, #1
  > 1:  ret
  > END
  wrong+0x0: error: reads the condition flags, which nothing has set [reads-flags-unset]
      54000040  b.eq 0x10028
      help: set them before, with SUBS or another instruction that sets flags
  2 kernels, 0 relocations: 1 error
  [1]

A branch leads past instructions that nothing else leads to:

  $ check <<'END'
  > kernel right
  >     cbz x0, 1f
  >     mov x0, #1
  > 1:  ret
  > kernel wrong
  >     b 1f
  >     mov x0, #1
  > 1:  ret
  > END
  wrong+0x4: note: no way leads to the instruction from here, and nothing reads it [unreachable-code]
      d2800020  mov x0, #1
      help: delete it, or correct the branch that should lead here
  2 kernels, 0 relocations: 1 note

A direct branch is replaced by one to an address in a register:

  $ check <<'END'
  > kernel right
  >     b 1f
  > 1:  ret
  > kernel wrong
  >     adr x9, 1f
  >     br x9
  > 1:  ret
  > END
  wrong+0x4: note: branches to an address in a register: what comes after it is not checked [unfollowed]
      d61f0120  br x9
  2 kernels, 0 relocations: 1 note
