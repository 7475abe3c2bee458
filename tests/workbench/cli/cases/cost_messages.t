What `cost` does not model:

  $ make_dumps modelled <<'END'
  > kernel callee
  >     ret
  > kernel calls_a_register
  > 1:  blr x1
  >     subs x0, x0, #1
  >     b.ne 1b
  >     ret
  > kernel branches_to_a_register
  >     adr x9, 1f
  >     br x9
  > 1:  subs x0, x0, #1
  >     b.ne 1b
  >     ret
  > kernel many_instructions
  >     .fill 16385, 4, 0xd503201f
  >     ret
  > kernel not_an_instruction
  >     .inst 0xff000001
  >     ret
  > END
  $ vorna-kernels cost modelled --cpu=cortex-a55 | grep -A1 'not modelled'
  calls_a_register        loop +0x0      -           3      -     -       -     -      not modelled
      calls another function at +0x0
  --
  branches_to_a_register  all            -           2      -     -       -     -      not modelled
      an indirect branch may enter anywhere
  many_instructions       all            -           16386  -     -       -     -      not modelled
      more than 16,384 instructions
  not_an_instruction      all            cortex-a55  2      -     -       -     -      not modelled
      not an instruction at +0x0
  $ vorna-kernels cost modelled calls_a_register --explain --cpu=cortex-a55 | grep 'not modelled'
  loop +0x0: 3 instructions, not modelled: calls another function at +0x0
  $ vorna-kernels cost modelled not_an_instruction --explain --cpu=cortex-a55 | grep ': all'
  cortex-a55: all: not an instruction at +0x0
  $ vorna-kernels show modelled calls_a_register --cpu=cortex-a55 | grep 'not modelled'
    loop +0x0      -           -       -      not modelled: calls another function at +0x0
  $ make_dumps nested <<'END'
  > kernel nested
  >     .rept 65
  >     nop
  >     .endr
  >     .set depth, 0
  >     .rept 65
  >     cbnz x0, .-4-12*depth
  >     nop
  >     .set depth, depth + 1
  >     .endr
  >     ret
  > END
  $ vorna-kernels cost nested --cpu=cortex-a55 | grep 'nested more' | sort -u
      loops nested more than 64 deep
  $ make_dumps large <<'END'
  > kernel large
  >     .fill 0x100000, 4, 0xd503201f
  >     ret
  > END
  $ vorna-kernels cost large 2>&1 | grep MiB
  vorna-kernels: large: more than 4 MiB of code

  $ make_dumps atomics <<'END'
  > kernel adds
  >     ldadd x0, x1, [x2]
  >     ret
  > END
  $ vorna-kernels cost atomics --cpu=apple-a11 | grep 'not in'
      not in the model: ldadd x0, x1, [x2] at +0x0

An instruction that completes in order:

  $ make_dumps waits <<'END'
  > kernel in_order
  >     fdiv d0, d0, d1
  >     add x0, x0, #1
  >     ret
  > END
  $ vorna-kernels cost waits --explain --cpu=cortex-a55 | grep complete
   *    1     1     1 B                +08  ret  ; must complete after +0x0
