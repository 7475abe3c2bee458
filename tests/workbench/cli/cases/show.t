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
   +00  4fc19000  fmul  v0.2d, v0.2d, v1.d[0]
   +04  d65f03c0  ret
  
  wfta_5  0x10020  32 bytes, 8 instructions; data 0x10040, 24 bytes; calls scale
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
  wfta_5  0x10020  32 bytes, 8 instructions; data 0x10040, 24 bytes; calls scale
   +00  90000003  adrp  x3, 0x10000                  ; R_AARCH64_ADR_PREL_PG_HI21 .rodata
   +04  91000063  add   x3, x3, #0                   ; R_AARCH64_ADD_ABS_LO12_NC .rodata
  .L8:
   +08  fd400461  ldr   d1, [x3, #8]                 ; .rodata+0x8  -0.25
   +0c  d1000484  sub   x4, x4, #1
   +10  b5ffffc4  cbnz  x4, .L8
   +14  10000005  adr   x5, 0x10034                  ; R_AARCH64_ADR_PREL_LO21 .rodata+0x10
   +18  94000000  bl    0x10038                      ; R_AARCH64_CALL26 scale
   +1c  d65f03c0  ret

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
   +00  4fc19000  fmul  v0.2d, v0.2d, v1.d[0]
   +04  d65f03c0  ret

A kernel that is not there:

  $ vorna-kernels show dumps wfta5
  vorna-kernels: no kernel wfta5 in the dumps; did you mean wfta_5?
  [2]
