A loop, and what is outside it, on the processors that differ:

  $ make_dumps dumps <<'END'
  > mapping 0x7f0000001000
  > kernel scale
  > 1:
  >     ldr q0, [x0]
  >     fmul v0.2d, v0.2d, v7.2d
  >     str q0, [x0], #16
  >     subs x1, x1, #1
  >     b.ne 1b
  >     ret
  > kernel straight
  >     fadd d0, d0, d1
  >     fmul d0, d0, d2
  >     ret
  > kernel caller
  >     stp x29, x30, [sp, #-16]!
  > 1:
  >     bl scale
  >     subs x19, x19, #1
  >     b.ne 1b
  >     ldp x29, x30, [sp], #16
  >     ret
  > kernel nested
  > 1:
  >     mov x2, x3
  > 2:
  >     subs x2, x2, #1
  >     b.ne 2b
  >     subs x1, x1, #1
  >     b.ne 1b
  >     ret
  > kernel branches
  > 1:
  >     cbz x2, 2f
  >     add x2, x2, #1
  > 2:
  >     subs x1, x1, #1
  >     b.ne 1b
  >     ret
  > kernel scalable
  >     add z0.d, z0.d, z1.d
  >     ret
  > END
  $ vorna-kernels cost dumps scale
  kernel  block          processor    insns  uops  cycles  once  bound  limited by
  scale   loop +0x0      cortex-a55   5      6     11      -     3      dependencies
      8 above the bound: ldr +0x0 > fmul +0x4 > str +0x8 > subs +0xc > 1 more
  scale   loop +0x0      neoverse-n1  5      10    9       -     1.5    dependencies
      7.5 above the bound: str +0x8 > ldr +0x0 > fmul +0x4 > str +0x8
  scale   loop +0x0      neoverse-v2  5      8     10      -     0.5    dependencies
      9.5 above the bound: str +0x8 > ldr +0x0 > fmul +0x4 > str +0x8
  scale   outside loops  cortex-a55   1      1     1       2     1      CortexA55UnitB
      ret +0x14
  scale   outside loops  neoverse-n1  1      1     1       4     1      N1UnitB
      ret +0x14
  scale   outside loops  neoverse-v2  1      1     0.5     4     0.5    V2UnitB
      ret +0x14
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
  $ vorna-kernels cost dumps straight nested --cpu=cortex-a55
  kernel    block               processor   insns  uops  cycles  once  bound  limited by
  straight  all                 cortex-a55  3      3     8       9     1.5    dependencies
      6.5 above the bound: fmul +0x4 > fadd +0x0 > fmul +0x4 > ret +0x8
  nested    loop +0x4, depth 2  cortex-a55  2      2     3       -     1      dependencies
      2 above the bound: subs +0x4 > b.ne +0x8
  nested    loop +0x0           cortex-a55  3      3     4       -     1.5    dependencies
      2.5 above the bound: subs +0xc > b.ne +0x10
  nested    outside loops       cortex-a55  1      1     1       2     1      CortexA55UnitB
      ret +0x14
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted

A model that is another processor's is named with each figure, and a model that is nobody's is refused:

  $ vorna-kernels cost dumps straight --cpu=cortex-a72,apple-m1
  kernel    block  processor                         insns  uops  cycles  once  bound  limited by
  straight  all    cortex-a72 (model of cortex-a57)  3      3     10      13    1      dependencies
      9 above the bound: fmul +0x4 > fadd +0x0 > fmul +0x4
  straight  all    apple-a14 (model of apple-a7)     3      3     10      13    1      dependencies
      9 above the bound: fmul +0x4 > fadd +0x0 > fmul +0x4
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
  $ vorna-kernels cost dumps --cpu=cortex-a999
  vorna-kernels: LLVM knows no processor cortex-a999
  [2]
  $ vorna-kernels cost dumps --cpu=carmel
  vorna-kernels: LLVM has no scheduling model for carmel
  [2]

What is not modelled:

  $ vorna-kernels cost dumps caller branches scalable --cpu=cortex-a55,neoverse-v2
  kernel    block          processor    insns  uops  cycles  once  bound  limited by
  caller    loop +0x4      -            3      -     -       -     -      not modelled
      calls scale at +0x4
  caller    outside loops  cortex-a55   3      6     6       7     3      dependencies
      3 above the bound: ldp +0x10 > ret +0x14
  caller    outside loops  neoverse-v2  3      7     5       9     0.5    dependencies
      4.5 above the bound: ldp +0x10 > stp +0x0 > ldp +0x10 > ret +0x14
  branches  loop +0x0      -            4      -     -       -     -      not modelled
      branches at +0x0
  branches  outside loops  cortex-a55   1      1     1       2     1      CortexA55UnitB
      ret +0x10
  branches  outside loops  neoverse-v2  1      1     0.5     4     0.5    V2UnitB
      ret +0x10
  scalable  all            cortex-a55   2      -     -       -     -      not modelled
      not on this processor: add z0.d, z0.d, z1.d at +0x0
  scalable  all            neoverse-v2  2      2     2       5     0.5    dependencies
      1.5 above the bound: add +0x0
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted

Why:

  $ vorna-kernels cost dumps --explain scale --cpu=cortex-a55,neoverse-n1 | sed 2,3d
  scale  0x7f0000001000  24 bytes, 6 instructions; called by caller
  
  cortex-a55: loop +0x0: 5 instructions in 1 line of 32 bytes (at least 1), 11 cycles, bound 3 by issue width
    limited by dependencies, 8 above the bound: ldr +0x0 > fmul +0x4 > str +0x8 > subs +0xc > 1 more
    uops   lat   thr ports
   *    1     3     1 Ld               +00  ldr q0, [x0]
   *    1     4     1 FPALU*2          +04  fmul v0.2d, v0.2d, v7.2d  ; waits for q0 of +0x0
   *    2     1     1 St               +08  str q0, [x0], #16  ; waits for q0 of +0x4
   *    1     3   0.5 ALU              +0c  subs x1, x1, #1
   *    1     1     1 B                +10  b.ne .L0  ; waits for nzcv of +0xc
  
  neoverse-n1: loop +0x0: 5 instructions in 1 line of 32 bytes (at least 1), 9 cycles, bound 1.5 by N1UnitL
    limited by dependencies, 7.5 above the bound: str +0x8 > ldr +0x0 > fmul +0x4 > str +0x8
    uops   lat   thr ports
   *    2     5   0.5 L I              +00  ldr q0, [x0]  ; waits for x0 of +0x8 of the iteration before
   *    1     3   0.5 V                +04  fmul v0.2d, v0.2d, v7.2d  ; waits for q0 of +0x0
   *    5     2     1 L*2 I V*2        +08  str q0, [x0], #16  ; waits for q0 of +0x4
        1     1  0.33 I                +0c  subs x1, x1, #1
        1     1     1 B                +10  b.ne .L0
  
  cortex-a55: outside loops: 1 instruction in 1 line of 32 bytes (at least 1), 1 cycle, 2 once, bound 1 by CortexA55UnitB
    limited by CortexA55UnitB: ret +0x14
    uops   lat   thr ports
   *    1     1     1 B                +14  ret  ; waits for B after +0x14 of the iteration before
  
  neoverse-n1: outside loops: 1 instruction in 1 line of 32 bytes (at least 1), 1 cycle, 4 once, bound 1 by N1UnitB
    limited by N1UnitB: ret +0x14
    uops   lat   thr ports
   *    1     1     1 B                +14  ret  ; waits for B after +0x14 of the iteration before
  
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted

Beside a listing:

  $ vorna-kernels show dumps scale --cpu=cortex-a55,neoverse-n1 | sed 2,3d
  scale  0x7f0000001000  24 bytes, 6 instructions; called by caller
    block          processor    cycles  bound  limited by
    loop +0x0      cortex-a55   11      3      dependencies
    loop +0x0      neoverse-n1  9       1.5    dependencies
    outside loops  cortex-a55   1       1      CortexA55UnitB
    outside loops  neoverse-n1  1       1      N1UnitB
    estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
    beside the instructions: latency on cortex-a55 | neoverse-n1, * on the critical chain
  .L0:
   +00  3dc00000  ldr   q0, [x0]                     |  3* |  5*
   +04  6e67dc00  fmul  v0.2d, v0.2d, v7.2d          |  4* |  3*
   +08  3c810400  str   q0, [x0], #16                |  1* |  2*
   +0c  f1000421  subs  x1, x1, #1                   |  3* |  1
   +10  54ffff81  b.ne  .L0                          |  1* |  1
   +14  d65f03c0  ret                                |  1* |  1*
  $ vorna-kernels show dumps straight --cpu=cortex-a55 --format=json | sed -n '/"rows"/,$p'
        "rows": [
          {
            "offset": 0,
            "word": "0x1e612800",
            "text": "fadd d0, d0, d1",
            "comment": "",
            "label": "",
            "latency": {
              "cortex-a55": 4
            }
          },
          {
            "offset": 4,
            "word": "0x1e620800",
            "text": "fmul d0, d0, d2",
            "comment": "",
            "label": "",
            "latency": {
              "cortex-a55": 4
            }
          },
          {
            "offset": 8,
            "word": "0xd65f03c0",
            "text": "ret",
            "comment": "",
            "label": "",
            "latency": {
              "cortex-a55": 1
            }
          }
        ],
        "blocks": [
          {
            "block": "all",
            "offset": 0,
            "bytes": 12,
            "loop": 0,
            "cpu": "cortex-a55",
            "model": "cortex-a55",
            "instructions": 3,
            "iterations": 100,
            "uops": 300,
            "total_cycles": 801,
            "cycles": 8.0,
            "once": 9,
            "throughput": 1.5,
            "limited_by": "dependencies",
            "chain": [
              4,
              0,
              4,
              8
            ],
            "not_modelled": ""
          }
        ]
      }
    ]
  }

Other formats:

  $ vorna-kernels cost dumps straight --cpu=neoverse-n1 --format=markdown
  | kernel | block | processor | insns | uops | cycles | once | bound | limited by | by how much, and the chain |
  |---|---|---|---:|---:|---:|---:|---:|---|---|
  | <code>straight</code> | all | neoverse-n1 | 3 | 3 | 5 | 8 | 1 | dependencies | 4 above the bound: fmul +0x4 > fadd +0x0 > fmul +0x4 |
  
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
  $ vorna-kernels cost dumps scale scalable --cpu=cortex-a55 --format=json
  {
    "version": 2,
    "llvm": "19.1.7",
    "kernels": [
      {
        "kernel": "scale",
        "blocks": [
          {
            "block": "loop +0x0",
            "offset": 0,
            "bytes": 20,
            "loop": 1,
            "cpu": "cortex-a55",
            "model": "cortex-a55",
            "instructions": 5,
            "iterations": 100,
            "uops": 600,
            "total_cycles": 1102,
            "cycles": 11.0,
            "once": 13,
            "throughput": 3.0,
            "limited_by": "dependencies",
            "chain": [
              0,
              4,
              8,
              12,
              16
            ],
            "not_modelled": ""
          },
          {
            "block": "outside loops",
            "offset": 20,
            "bytes": 4,
            "loop": 0,
            "cpu": "cortex-a55",
            "model": "cortex-a55",
            "instructions": 1,
            "iterations": 100,
            "uops": 100,
            "total_cycles": 101,
            "cycles": 1.0,
            "once": 2,
            "throughput": 1.0,
            "limited_by": "CortexA55UnitB",
            "chain": [
              20
            ],
            "not_modelled": ""
          }
        ]
      },
      {
        "kernel": "scalable",
        "blocks": [
          {
            "block": "all",
            "offset": 0,
            "bytes": 8,
            "loop": 0,
            "cpu": "cortex-a55",
            "model": "cortex-a55",
            "instructions": 2,
            "not_modelled": "not on this processor: add z0.d, z0.d, z1.d at +0x0"
          }
        ]
      }
    ]
  }

Processors:

  $ vorna-kernels cost --cpu=help | grep -e a55 -e a57 -e a72 -e generic -e carmel
  carmel           no model
  cortex-a55       in order, a model of its own
  cortex-a57       out of order, a model of its own
  cortex-a72       out of order, the model of cortex-a57
  cortex-a720      out of order, the model of neoverse-n2
  cortex-a720ae    out of order, the model of neoverse-n2
  cortex-a725      out of order, the model of neoverse-n2
  cortex-a73       out of order, the model of cortex-a57
  cortex-a75       out of order, the model of cortex-a57
  cortex-a76       out of order, the model of cortex-a57
  cortex-a76ae     out of order, the model of cortex-a57
  cortex-a77       out of order, the model of cortex-a57
  cortex-a78       out of order, the model of cortex-a57
  cortex-a78ae     out of order, the model of cortex-a57
  cortex-a78c      out of order, the model of cortex-a57
  cortex-r82       in order, the model of cortex-a55
  cortex-r82ae     in order, the model of cortex-a55
  cortex-x1        out of order, the model of cortex-a57
  cortex-x1c       out of order, the model of cortex-a57
  generic          in order, the model of cortex-a510

Mistakes:

  $ vorna-kernels cost
  vorna-kernels: DUMPS is required
  [2]
  $ vorna-kernels cost dumps scael
  vorna-kernels: no kernel scael in the dumps; did you mean scale?
  estimated by LLVM 19.1.7's scheduling models: code in the first-level cache, branches predicted
  [2]
  $ vorna-kernels cost none
  vorna-kernels: none: No such file or directory
  [2]
