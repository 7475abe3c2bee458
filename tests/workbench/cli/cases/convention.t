The wording of each finding about the calling convention. The kernels are named by what is wrong in them.

  $ check() {
  >     rm -rf dumps
  >     make_dumps dumps
  >     vorna-kernels check "$@" dumps
  > }

Registers that the caller keeps:

  $ check <<'END'
  > kernel restores_from_the_wrong_slot
  >     sub sp, sp, #32
  >     str x19, [sp]
  >     str x0, [sp, #8]
  >     mov x19, x1
  >     ldr x19, [sp, #8]
  >     add sp, sp, #32
  >     ret
  > kernel restores_on_one_way
  >     mov x9, x19
  >     mov x19, x0
  >     cbz x0, 1f
  >     mov x19, x9
  > 1:  ret
  > kernel restores_on_the_other_way
  >     mov x9, x19
  >     mov x19, x0
  >     cbz x0, 1f
  >     b 2f
  > 1:  mov x19, x9
  > 2:  ret
  > kernel leaves_by_a_branch
  >     fmov d8, x0
  >     adrp x9, restores_on_one_way
  >     add x9, x9, :lo12:restores_on_one_way
  >     br x9
  > kernel with_predicates
  >     fadd z0.d, p0/m, z0.d, z1.d
  >     ptrue p4.d
  >     ret
  > kernel with_scalable_registers
  >     ptrue p1.d
  >     fadd z0.d, p1/m, z0.d, z1.d
  >     mov z16.d, x0
  >     ret
  > END
  restores_from_the_wrong_slot+0xc: error: changes x19, which is not restored at the return at +0x18 [abi-callee-saved]
      aa0103f3  mov x19, x1
      note: the load at +0x10 does not restore it: x19 was not saved there, or was overwritten
      help: save x19 before and restore it from there, or use one of x9 to x15
  restores_on_one_way+0x4: error: changes x19, which is not restored at the return at +0x10, by the branch at +0x8, taken [abi-callee-saved]
      aa0003f3  mov x19, x0
      help: save x19 before and restore it from there, or use one of x9 to x15
  restores_on_the_other_way+0x4: error: changes x19, which is not restored at the return at +0x14, by the branch at +0x8, not taken [abi-callee-saved]
      aa0003f3  mov x19, x0
      help: save x19 before and restore it from there, or use one of x9 to x15
  leaves_by_a_branch+0x0: error: changes d8, which is not restored at the branch to another kernel at +0xc [abi-callee-saved]
      9e670008  fmov d8, x0
      help: save d8 before and restore it from there, or use one of v16 to v31
  with_predicates+0x4: error: changes p4, which is not restored at the return at +0x8 [abi-callee-saved]
      25d8e3e4  ptrue p4.d
      help: save p4 before and restore it from there, or use one of p0 to p3
  with_scalable_registers+0x8: warning: changes z16, which is not restored at the return at +0xc [abi-callee-saved]
      05e03810  mov z16.d, x0
      help: save z16 before and restore it from there, or use one of z24 to z31
  6 kernels, 2 relocations: 5 errors, 1 warning
  [1]

SP:

  $ check <<'END'
  > kernel releases_too_much
  >     add sp, sp, #16
  >     ret
  > kernel sets_another
  >     mov sp, x0
  >     ret
  > kernel releases_on_one_way
  >     sub sp, sp, #16
  >     cbz x0, 1f
  >     add sp, sp, #16
  > 1:  ret
  > kernel branches_with_a_frame
  >     sub sp, sp, #16
  >     adrp x9, releases_too_much
  >     add x9, x9, :lo12:releases_too_much
  >     br x9
  > kernel accesses_memory_through_8
  >     sub sp, sp, #8
  >     str x0, [sp]
  >     add sp, sp, #8
  >     ret
  > kernel calls_at_8
  >     stp x29, x30, [sp, #-16]!
  >     sub sp, sp, #8
  >     bl releases_too_much
  >     add sp, sp, #8
  >     ldp x29, x30, [sp], #16
  >     ret
  > END
  releases_too_much+0x4: error: SP is 16 bytes above its value at entry at this return; changed at +0x0 [abi-stack-pointer]
      d65f03c0  ret
      help: release on every way what is allocated
  sets_another+0x4: error: SP is not what it was at entry at this return; changed at +0x0 [abi-stack-pointer]
      d65f03c0  ret
      help: release on every way what is allocated
  releases_on_one_way+0xc: error: SP is not what it was at entry at this return, by the branch at +0x4, taken; changed at +0x0 [abi-stack-pointer]
      d65f03c0  ret
      help: release on every way what is allocated
  branches_with_a_frame+0xc: error: SP is 16 bytes below its value at entry at this branch to another kernel; changed at +0x0 [abi-stack-pointer]
      d61f0120  br x9
      help: release on every way what is allocated
  accesses_memory_through_8+0x4: error: accesses memory through SP, which is not a multiple of 16 here [abi-stack-pointer]
      f90003e0  str x0, [sp]
      help: change SP by multiples of 16 only
  calls_at_8+0x8: warning: calls, and SP is not a multiple of 16 here [abi-stack-pointer]
      94000000  bl releases_too_much
      help: change SP by multiples of 16 only
  6 kernels, 3 relocations: 5 errors, 1 warning
  [1]

The return address:

  $ check <<'END'
  > kernel callee
  >     ret
  > kernel moves_another
  >     mov x30, x1
  >     ret
  > kernel returns_by_another
  >     ret x0
  > kernel branches_to_a_kernel
  >     bl callee
  >     adrp x9, callee
  >     add x9, x9, :lo12:callee
  >     br x9
  > kernel restores_from_the_wrong_slot
  >     stp x29, x30, [sp, #-16]!
  >     bl callee
  >     ldp x30, x29, [sp], #16
  >     ret
  > END
  moves_another+0x4: error: returns to x30, which is not the address of the caller: the instruction at +0x0 changed it [abi-return-address]
      d65f03c0  ret
      help: save x30 before the first call and restore it before the return
  returns_by_another+0x0: error: returns to x0, which is not the address of the caller [abi-return-address]
      d65f0000  ret x0
      help: save x30 before the first call and restore it before the return
  branches_to_a_kernel+0xc: error: branches to another kernel, but x30 is not the address of the caller: the call at +0x0 changed it [abi-return-address]
      d61f0120  br x9
      help: save x30 before the first call and restore it before the return
  restores_from_the_wrong_slot+0x8: error: changes x29, which is not restored at the return at +0xc [abi-callee-saved]
      a8c177fe  ldp x30, x29, [sp], #16
      help: save x29 before and restore it from there, or use one of x9 to x15
  restores_from_the_wrong_slot+0xc: error: returns to x30, which is not the address of the caller: the call at +0x4 changed it [abi-return-address]
      d65f03c0  ret
      note: the load at +0x8 does not restore it: x30 was not saved there, or was overwritten
      help: save x30 before the first call and restore it before the return
  5 kernels, 4 relocations: 5 errors
  [1]

Below SP:

  $ check <<'END'
  > kernel loads_after_the_release
  >     sub sp, sp, #16
  >     str x0, [sp]
  >     add sp, sp, #16
  >     ldr x0, [sp, #-16]
  >     ret
  > END
  loads_after_the_release+0xc: warning: loads what is or was below SP, where a signal may have overwritten it [abi-below-stack]
      f85f03e0  ldur x0, [sp, #-16]
      help: raise SP after the load
  1 kernel, 0 relocations: 1 warning

What is read before it is set:

  $ check <<'END'
  > kernel callee
  >     ret
  > kernel loads_its_own_frame
  >     sub sp, sp, #16
  >     ldr x0, [sp]
  >     add sp, sp, #16
  >     ret
  > kernel loads_more_than_it_stored
  >     sub sp, sp, #16
  >     str w0, [sp]
  >     ldr x0, [sp]
  >     add sp, sp, #16
  >     ret
  > kernel loads_what_one_way_stored
  >     sub sp, sp, #16
  >     cbz x0, 1f
  >     str x0, [sp]
  > 1:  ldr x0, [sp]
  >     add sp, sp, #16
  >     ret
  > kernel saves_elsewhere
  >     str x19, [x0]
  >     ret
  > kernel passes_a_saved_value
  >     stp x29, x30, [sp, #-16]!
  >     mov x0, x19
  >     bl callee
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel reads_a_saved_register
  >     add x0, x0, x19
  >     ret
  > kernel reads_a_sum_with_a_saved_register
  >     sub x9, x19, #8
  >     str x9, [x0]
  >     ret
  > kernel reads_after_a_call
  >     stp x29, x30, [sp, #-16]!
  >     mov x9, #1
  >     bl callee
  >     add x0, x0, x9
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel reads_flags_after_a_call
  >     stp x29, x30, [sp, #-16]!
  >     cmp x0, #1
  >     bl callee
  >     cset x0, eq
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel reads_a_vector_in_part
  >     fmov d16, x0
  >     fadd v0.2d, v0.2d, v16.2d
  >     mov v17.d[0], x0
  >     str q17, [x0]
  >     ret
  > kernel reads_a_vector_after_a_call
  >     stp x29, x30, [sp, #-16]!
  >     bl callee
  >     fadd v0.2d, v0.2d, v8.2d
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel reads_a_vector_that_a_call_changed
  >     stp x29, x30, [sp, #-32]!
  >     str q8, [sp, #16]
  >     movi v8.2d, #0
  >     bl callee
  >     str q8, [x0]
  >     ldr d8, [sp, #16]
  >     ldp x29, x30, [sp], #32
  >     ret
  > kernel sets_on_one_way
  >     cbz x0, 1f
  >     mov x9, #1
  > 1:  str x9, [x0]
  >     ret
  > kernel sets_flags_on_one_way
  >     cbz x0, 1f
  >     cmp x1, #0
  > 1:  cset x0, eq
  >     ret
  > END
  loads_its_own_frame+0x4: error: loads 8 bytes from 16 bytes below SP at entry, which nothing has stored [reads-unset]
      f94003e0  ldr x0, [sp]
      help: store there first, or correct the offset
  loads_more_than_it_stored+0x8: warning: loads 8 bytes from 16 bytes below SP at entry, which nothing has stored completely [reads-unset]
      f94003e0  ldr x0, [sp]
      help: store there first, or correct the offset
  loads_what_one_way_stored+0xc: warning: loads 8 bytes from 16 bytes below SP at entry, which is not stored on every way [reads-unset]
      f94003e0  ldr x0, [sp]
      help: store there first, or correct the offset
  saves_elsewhere+0x0: warning: stores x19, which holds a value of the caller's, outside the own stack frame [reads-unset]
      f9000013  str x19, [x0]
      help: save it in the own stack frame: whether it is restored from elsewhere is not followed
  passes_a_saved_value+0x8: warning: calls with a value of the caller's, that of x19, in an argument register [reads-unset]
      94000000  bl callee
      help: set the argument before the call
  reads_a_saved_register+0x0: error: reads x19, which nothing has set [reads-unset]
      8b130000  add x0, x0, x19
      help: set it before: here it has a value of the caller's
  reads_a_sum_with_a_saved_register+0x4: error: reads x9, which comes from x19, which nothing has set [reads-unset]
      f9000009  str x9, [x0]
      help: set it before: here it has a value of the caller's
  reads_after_a_call+0xc: warning: reads x9, which the call at +0x8 may have changed [reads-unset]
      8b090000  add x0, x0, x9
      help: keep the value in a register that calls preserve, or in the stack frame
  reads_flags_after_a_call+0xc: warning: reads the condition flags, which the call at +0x8 may have changed [reads-flags-unset]
      9a9f17e0  cset x0, eq
      help: set them before, with SUBS or another instruction that sets flags
  reads_a_vector_in_part+0xc: warning: reads v17, part of which nothing has set [reads-unset]
      3d800011  str q17, [x0]
      help: set it before
  reads_a_vector_after_a_call+0x8: error: reads v8, which nothing has set [reads-unset]
      4e68d400  fadd v0.2d, v0.2d, v8.2d
      help: set it before: here it has a value of the caller's
  reads_a_vector_that_a_call_changed+0x10: warning: reads v8, part of which the call at +0xc changed [reads-unset]
      3d800008  str q8, [x0]
      help: keep the value in a register that calls preserve, or in the stack frame
  sets_on_one_way+0x8: warning: reads x9, which is not set on every way, by the branch at +0x0, taken [reads-unset]
      f9000009  str x9, [x0]
      help: set it before
  sets_flags_on_one_way+0x8: warning: reads the condition flags, which are not set on every way, by the branch at +0x0, taken [reads-flags-unset]
      9a9f17e0  cset x0, eq
      help: set them before, with SUBS or another instruction that sets flags
  15 kernels, 5 relocations: 4 errors, 10 warnings
  [1]

Internal kernels, of which a call reads x9, and one that cannot be followed:

  $ check --internal='in_.*' <<'END'
  > kernel in_x9
  >     add x0, x0, x9
  >     ret
  > kernel in_flags
  >     cset x0, eq
  >     ret
  > kernel in_unknown
  >     br x16
  > kernel passes_nothing
  >     stp x29, x30, [sp, #-16]!
  >     bl in_x9
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel passes_no_flags
  >     stp x29, x30, [sp, #-16]!
  >     bl in_flags
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel calls_the_unknown
  >     stp x29, x30, [sp, #-16]!
  >     bl in_unknown
  >     ldp x29, x30, [sp], #16
  >     ret
  > END
  in_unknown+0x0: note: branches to an address in a register: what comes after it is not checked [unfollowed]
      d61f0200  br x16
  passes_nothing+0x4: error: calls a kernel that reads x9, which nothing has set [reads-unset]
      94000000  bl in_x9
      help: set it before
  passes_no_flags+0x4: error: calls a kernel that reads the condition flags, which nothing has set [reads-flags-unset]
      94000000  bl in_flags
      help: set them before, with SUBS or another instruction that sets flags
  calls_the_unknown+0x4: note: calls an internal kernel that was not followed: what comes after it is not checked [unfollowed]
      94000000  bl in_unknown
  6 kernels, 3 relocations: 2 errors, 2 notes
  [1]

What cannot be followed:

  $ check <<'END'
  > kernel callee
  >     ret
  > kernel not_an_instruction
  >     .inst 0xff000001
  >     ret
  > kernel not_an_effect
  >     hvc #0
  >     ret
  > kernel out_of_the_code
  >     b .+4096
  > kernel not_followed
  >     eret
  > kernel stores_anywhere
  >     sub sp, sp, #32
  >     str x19, [sp]
  >     mov x19, x0
  >     mov x9, sp
  >     str x1, [x9, x0]
  >     ldr x19, [sp], #32
  >     ret
  > kernel passes_its_frame
  >     stp x29, x30, [sp, #-32]!
  >     str x19, [sp, #16]
  >     mov x19, x0
  >     mov x0, sp
  >     bl callee
  >     ldr x19, [sp, #16]
  >     ldp x29, x30, [sp], #32
  >     ret
  > kernel unknown_sp
  >     sub sp, sp, x0
  >     ret
  > kernel many_branches
  >     .rept 65537
  >     cbz x0, .+4
  >     .endr
  >     ret
  > kernel more_than_4_mebibytes
  >     .fill 0x100000, 4, 0xd503201f
  >     ret
  > kernel calls_itself_partly
  >     str x30, [sp, #-16]!
  >     bl 1f
  >     ldr x30, [sp], #16
  >     ret
  > 1:  br x16
  > kernel restores_from_elsewhere
  >     str x19, [x0]
  >     mov x19, x1
  >     ldr x19, [x0]
  >     ret
  > END
  not_an_instruction+0x0: note: is not an instruction that is known here: what comes after it is not checked [unfollowed]
      ff000001  .word 0xff000001
  not_an_effect+0x0: note: has effects that are not known here: what comes after it is not checked [unfollowed]
      d4000002  hvc #0
  out_of_the_code+0x0: note: branches out of the code without a relocation: what comes after it is not checked [unfollowed]
      14000400  b 0x11060
  not_followed+0x0: note: is a branch that is not followed: what comes after it is not checked [unfollowed]
      d69f03e0  eret
  stores_anywhere+0x10: note: may store anywhere in the own stack frame: that saved registers stay what they are is not checked [unfollowed]
      f8206921  str x1, [x9, x0]
  passes_its_frame+0x10: note: may write to the own stack frame, whose address was passed on: that saved registers stay what they are is not checked [unfollowed]
      94000000  bl callee
  unknown_sp+0x4: note: leaves with a value of SP that is not known here: what comes after it is not checked [unfollowed]
      d65f03c0  ret
  many_branches+0x0: note: has too many branches or stack slots: what comes after it is not checked [unfollowed]
      b4000020  cbz x0, 0x10104
  more_than_4_mebibytes: note: the code is too large to be followed [unfollowed]
  calls_itself_partly+0x4: note: calls a part of the kernel's own code that cannot be followed: what comes after it is not checked [unfollowed]
      94000003  bl 0x450150
  calls_itself_partly+0x10: note: branches to an address in a register: what comes after it is not checked [unfollowed]
      d61f0200  br x16
  restores_from_elsewhere+0x0: warning: stores x19, which holds a value of the caller's, outside the own stack frame [reads-unset]
      f9000013  str x19, [x0]
      help: save it in the own stack frame: whether it is restored from elsewhere is not followed
  restores_from_elsewhere+0xc: note: returns, and may have restored a register from where it is not followed: that saved registers stay what they are is not checked [unfollowed]
      d65f03c0  ret
  12 kernels, 1 relocation: 1 warning, 12 notes
