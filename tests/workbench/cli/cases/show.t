Instructions, with the names of what relocations reach and the constants beside the loads:

  $ make_dumps dumps <<'END'
  > kernel scale
  >     fmul v0.2d, v0.2d, v1.d[0]
  >     ret
  > kernel wfta_5
  >     adrp x3, .rodata
  >     add x3, x3, :lo12:.rodata
  >     ldr d1, [x3, #8]
  >     sub x4, x4, #1
  >     cbnz x4, . - 8
  >     adr x5, half
  >     bl scale
  >     ret
  >     .section .rodata
  >     .double 1.5, -0.25
  >     half: .double 0.5
  > END
  $ vorna-kernels show dumps
  scale  0x10000  8 bytes, 2 instructions; called by wfta_5
    reads v0, v1; writes v0; stack 0 bytes; max live 1 general (+00), 2 vector (+00); needs neon
   +00  4fc19000  fmul  v0.2d, v0.2d, v1.d[0]
   +04  d65f03c0  ret
  
  wfta_5  0x10020  32 bytes, 8 instructions; data 0x10040, 24 bytes
    reads x4, v0, .rodata; writes x3-x5, x30, v1; stack 0 bytes; calls scale;
    may return otherwise than by x30; max live 2 general (+04), 2 vector (+0c); needs fp-armv8
   +00  90000003  adrp  x3, .rodata
   +04  91010063  add   x3, x3, :lo12:.rodata
  .L8:
   +08  fd400461  ldr   d1, [x3, #8]                 ; .rodata+0x8  -0.25
   +0c  d1000484  sub   x4, x4, #1
   +10  b5ffffc4  cbnz  x4, .L8
   +14  100000e5  adr   x5, .rodata+0x10
   +18  97fffff2  bl    scale
   +1c  d65f03c0  ret

As generated, before relocations are applied:

  $ vorna-kernels show --unlinked dumps wfta_5
  wfta_5  0x10020  32 bytes, 8 instructions; data 0x10040, 24 bytes
    reads x4, v0, .rodata; writes x3-x5, x30, v1; stack 0 bytes; calls scale;
    may return otherwise than by x30; max live 2 general (+04), 2 vector (+0c); needs fp-armv8
   +00  90000003  adrp  x3, 0x10000                  ; R_AARCH64_ADR_PREL_PG_HI21 .rodata
   +04  91000063  add   x3, x3, #0                   ; R_AARCH64_ADD_ABS_LO12_NC .rodata
  .L8:
   +08  fd400461  ldr   d1, [x3, #8]                 ; .rodata+0x8  -0.25
   +0c  d1000484  sub   x4, x4, #1
   +10  b5ffffc4  cbnz  x4, .L8
   +14  10000005  adr   x5, 0x10034                  ; R_AARCH64_ADR_PREL_LO21 .rodata+0x10
   +18  94000000  bl    0x10038                      ; R_AARCH64_CALL26 scale
   +1c  d65f03c0  ret

What a kernel saves, where it keeps it, and the registers that are live before each instruction:

  $ make_dumps frame <<'END'
  > kernel dot
  >     stp x29, x30, [sp, #-64]!
  >     mov x29, sp
  >     stp x19, x20, [sp, #16]
  >     stp d8, d9, [sp, #32]
  >     str x2, [sp, #48]
  >     mov x19, x0
  >     mov x20, x1
  >     blr x3
  >     ldr x2, [sp, #48]
  >     movi v8.2d, #0
  > loop:
  >     ldr q0, [x19], #16
  >     ldr q1, [x20], #16
  >     fmla v8.2d, v0.2d, v1.2d
  >     subs x2, x2, #2
  >     b.hi loop
  >     faddp d0, v8.2d
  >     ldp d8, d9, [sp, #32]
  >     ldp x19, x20, [sp, #16]
  >     ldp x29, x30, [sp], #64
  >     ret
  > kernel vectors
  >     ptrue p0.d
  >     ld1d { z0.d }, p0/z, [x0]
  >     fadd z0.d, p0/m, z0.d, z1.d
  >     st1d { z0.d }, p0, [x0]
  >     ret
  > END
  $ vorna-kernels show --live frame
  dot  0x10000  80 bytes, 20 instructions
    reads x0-x3; writes x2, v0, v1, v8.d[1], v9.d[1], nzcv;
    saves x29, x30 at cfa-64, x19, x20 at cfa-48, d8, d9 at cfa-32; stack 64 bytes;
    spills 4 stores, 4 loads; calls x3; max live 8 general (+00), 3 vector (+30); needs neon
   +00  a9bc7bfd  stp   x29, x30, [sp, #-64]!        | x0-x3, x19, x20, x29, x30, v8, v9
   +04  910003fd  mov   x29, sp                      | x0-x3, x19, x20, v8, v9
   +08  a90153f3  stp   x19, x20, [sp, #16]          | x0-x3, x19, x20, v8, v9
   +0c  6d0227e8  stp   d8, d9, [sp, #32]            | x0-x3, v8, v9
   +10  f9001be2  str   x2, [sp, #48]                | x0-x3
   +14  aa0003f3  mov   x19, x0                      | x0, x1, x3
   +18  aa0103f4  mov   x20, x1                      | x1, x3, x19
   +1c  d63f0060  blr   x3                           | x3, x19, x20
   +20  f9401be2  ldr   x2, [sp, #48]                | x0, x19, x20
   +24  6f00e408  movi  v8.2d, #0000000000000000     | x0, x2, x19, x20
  .L28:
   +28  3cc10660  ldr   q0, [x19], #16               | x0, x2, x19, x20, v8
   +2c  3cc10681  ldr   q1, [x20], #16               | x0, x2, x19, x20, v0, v8
   +30  4e61cc08  fmla  v8.2d, v0.2d, v1.2d          | x0, x2, x19, x20, v0, v1, v8
   +34  f1000842  subs  x2, x2, #2                   | x0, x2, x19, x20, v8
   +38  54ffff88  b.hi  .L28                         | x0, x2, x19, x20, v8, nzcv
   +3c  7e70d900  faddp d0, v8.2d                    | x0, v8
   +40  6d4227e8  ldp   d8, d9, [sp, #32]            | x0, v0
   +44  a94153f3  ldp   x19, x20, [sp, #16]          | x0, v0
   +48  a8c47bfd  ldp   x29, x30, [sp], #64          | x0, v0
   +4c  d65f03c0  ret                                | x0, x30, v0
  
  vectors  0x10060  20 bytes, 5 instructions
    reads x0, z1; writes z0, p0; stack 0 bytes;
    max live 2 general (+00), 2 vector (+08), 1 predicate (+04); needs sve
   +00  25d8e3e0  ptrue p0.d                         | x0, x30, v1
   +04  a5e0a000  ld1d  { z0.d }, p0/z, [x0]         | x0, x30, v1, p0
   +08  65c08020  fadd  z0.d, p0/m, z0.d, z1.d       | x0, x30, v0, v1, p0
   +0c  e5e0e000  st1d  { z0.d }, p0, [x0]           | x0, x30, v0, p0
   +10  d65f03c0  ret                                | x30, v0
  $ vorna-kernels show --live --format=json frame vectors | grep -A 9 '"word": "0xe5e0e000"'
            "word": "0xe5e0e000",
            "text": "st1d { z0.d }, p0, [x0]",
            "comment": "",
            "label": "",
            "live": [
              "x0",
              "x30",
              "v0",
              "p0"
            ]

As JSON:

  $ vorna-kernels show --format=json dumps scale
  {
    "version": 2,
    "kernels": [
      {
        "kernel": "scale",
        "address": "0x10000",
        "bytes": 8,
        "data_address": "0x10040",
        "data_bytes": 0,
        "calls": [],
        "called_by": [
          "wfta_5"
        ],
        "interface": {
          "reads": [
            "v0",
            "v1"
          ],
          "writes": [
            "v0"
          ],
          "saves": [],
          "calls": [],
          "stack": 0,
          "needs": [
            "neon"
          ],
          "live": {
            "general": {
              "most": 1,
              "offset": 0
            },
            "vector": {
              "most": 2,
              "offset": 0
            },
            "predicate": {
              "most": 0,
              "offset": 0
            }
          },
          "followed": true
        },
        "rows": [
          {
            "offset": 0,
            "word": "0x4fc19000",
            "text": "fmul v0.2d, v0.2d, v1.d[0]",
            "comment": "",
            "label": ""
          },
          {
            "offset": 4,
            "word": "0xd65f03c0",
            "text": "ret",
            "comment": "",
            "label": ""
          }
        ]
      }
    ]
  }

One dump instead of a directory:

  $ vorna-kernels show dumps/scale
  scale  0x10000  8 bytes, 2 instructions
    reads v0, v1; writes v0; stack 0 bytes; max live 1 general (+00), 2 vector (+00); needs neon
   +00  4fc19000  fmul  v0.2d, v0.2d, v1.d[0]
   +04  d65f03c0  ret

A kernel that is not there:

  $ vorna-kernels show dumps wfta5
  vorna-kernels: no kernel wfta5 in the dumps; did you mean wfta_5?
  [2]

A kernel that is too large does not keep the others from being listed:

  $ make_dumps large <<'END'
  > kernel large
  >     .fill 0x100001, 4, 0xd503201f
  > kernel small
  >     ret
  > END
  $ vorna-kernels show large
  vorna-kernels: large: 4194308 bytes of code, more than is listed
  small  0x410020  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  [2]
