Kernels that changed, with the change of their cycles, the largest first:

  $ make_dumps before <<'END'
  > kernel calls
  >     stp x29, x30, [sp, #-16]!
  >     bl scale
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel constants
  >     adr x1, .rodata
  >     ldr d1, [x1]
  >     fmul d0, d0, d1
  >     ret
  >     .section .rodata
  >     .double 2
  > kernel gather
  > 1:
  >     ldr w6, [x3], #4
  >     ldr q0, [x0, w6, uxtw #4]
  >     str q0, [x4], #16
  >     sub x5, x5, #1
  >     cbnz x5, 1b
  >     ret
  > kernel same
  >     ret
  > kernel scale
  >     fmul d0, d0, d1
  >     ret
  > END
  $ make_dumps after <<'END'
  > kernel calls
  >     stp x29, x30, [sp, #-16]!
  >     nop
  >     bl scale
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel constants
  >     adr x1, .rodata
  >     ldr d1, [x1]
  >     fmul d0, d0, d1
  >     ret
  >     .section .rodata
  >     .double 3
  > kernel gather
  > 1:
  >     ldr w6, [x3], #4
  >     sub x5, x5, #1
  >     ldr q0, [x0, w6, uxtw #4]
  >     str q0, [x4], #16
  >     cbnz x5, 1b
  >     ret
  > kernel same
  >     ret
  > kernel scale
  >     fdiv d0, d0, d1
  >     ret
  > END
  $ vorna-kernels diff before after --limit=0 --cpu=cortex-a55,cortex-a72
  kernel     class      instructions  code bytes     constant bytes  cycles on cortex-a55  cycles on cortex-a72 (model of cortex-a57)
  scale      code       2             8              0               +18                   +27
  gather     order      6             24             0               -3                    0
  calls      code       4 -> 5 (+1)   16 -> 20 (+4)  0               -                     -
  constants  constants  4             16             8               0                     0
  1 same; cycles estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
  
  4 more changed kernels; show all with --limit=4
  [1]
  $ vorna-kernels diff before after gather --limit=0 --cpu=cortex-a55 --format=json
  {
    "version": 2,
    "kernels": [
      {
        "kernel": "gather",
        "class": "order",
        "old": {
          "code": 24,
          "data": 0,
          "instructions": 6
        },
        "new": {
          "code": 24,
          "data": 0,
          "instructions": 6
        },
        "cycles": {
          "cortex-a55": -3.0
        }
      }
    ],
    "llvm": "19.1.7"
  }
  [1]
  $ vorna-kernels diff before after --cpu=carmel
  vorna-kernels: LLVM has no scheduling model for carmel
  [2]
