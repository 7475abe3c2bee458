An address in a kernel's code, with "0x" and zeros in front or without:

  $ make_dumps dumps <<'END'
  > mapping 0x7f0000001000
  > kernel twice
  >     adrp x1, .rodata
  >     add x1, x1, :lo12:.rodata
  > 1:
  >     ldr d1, [x1, #8]
  >     fmul d0, d0, d1
  >     subs x0, x0, #1
  >     b.ne 1b
  >     ret
  >     .section .rodata
  >     .double 1.5, 2
  >     .byte 7, 8
  > kernel caller
  >     stp x29, x30, [sp, #-16]!
  >     bl twice
  >     ldp x29, x30, [sp], #16
  >     ret
  > END
  $ vorna-kernels where dumps 0x7f000000100c
  0x7f000000100c  twice+0xc
    reads x0, d0, .rodata; writes x0, x1, v0, v1, nzcv; stack 0 bytes;
    max live 3 general (+04), 2 vector (+0c); needs fp-armv8
      +04  91010021  add   x1, x1, :lo12:.rodata
      .L8:
      +08  fd400421  ldr   d1, [x1, #8]                 ; .rodata+0x8  2.0
    > +0c  1e610800  fmul  d0, d0, d1
      +10  f1000400  subs  x0, x0, #1
      +14  54ffffa1  b.ne  .L8
  $ vorna-kernels where dumps 7f0000001000 0x00007f0000001024 | grep -v '^  [a-z]'
  0x7f0000001000  twice+0x0
    > +00  90000001  adrp  x1, .rodata
      +04  91010021  add   x1, x1, :lo12:.rodata
      .L8:
      +08  fd400421  ldr   d1, [x1, #8]                 ; .rodata+0x8  2.0
  0x7f0000001024  caller+0x4
      +00  a9bf7bfd  stp   x29, x30, [sp, #-16]!
    > +04  97fffff7  bl    twice
      +08  a8c17bfd  ldp   x29, x30, [sp], #16
      +0c  d65f03c0  ret

An address within an instruction, constants, padding, and none of these:

  $ vorna-kernels where dumps 7f0000001006 | sed 1q
  0x7f0000001006  twice+0x6
  $ vorna-kernels where dumps 7f0000001034 7f000000103f 7f0000001040
  0x7f0000001034  padding, 4 bytes after the end of caller
  0x7f000000103f  padding, 15 bytes after the end of caller
  0x7f0000001040  .rodata.twice+0x0
      +00  3ff8000000000000  1.5
  $ vorna-kernels where dumps 7f000000104c 7f0000001051
  0x7f000000104c  .rodata.twice+0xc
      +08  4000000000000000  2
  0x7f0000001051  .rodata.twice+0x11
      +10  0807
  $ vorna-kernels where dumps 7f000000101c 7f0000001fff
  0x7f000000101c  padding, at the end of twice
  0x7f0000001fff  padding, 4013 bytes after the end of .rodata.twice
  $ vorna-kernels where dumps 400a3c 7f0000001000 | grep -v '^  '
  0x400a3c  in no kernel
  0x7f0000001000  twice+0x0

From standard input, one a line:

  $ printf '  0x7f0000001008\t\n\n400a3c\r\n' | vorna-kernels where dumps | grep -v '^  [a-z]'; echo ${PIPESTATUS[1]}
  0x7f0000001008  twice+0x8
      +00  90000001  adrp  x1, .rodata
      +04  91010021  add   x1, x1, :lo12:.rodata
      .L8:
    > +08  fd400421  ldr   d1, [x1, #8]                 ; .rodata+0x8  2.0
      +0c  1e610800  fmul  d0, d0, d1
      +10  f1000400  subs  x0, x0, #1
  0x400a3c  in no kernel
  1
  $ vorna-kernels where dumps < /dev/null

Not an address:

  $ vorna-kernels where dumps main+4 400a3c
  vorna-kernels: 'main+4' is not a hexadecimal address
  0x400a3c  in no kernel
  [2]
  $ printf '7f0000001000\n\n0x\n' | vorna-kernels where dumps | sed 1q; echo "${PIPESTATUS[1]}"
  vorna-kernels: standard input:3: '0x' is not a hexadecimal address
  0x7f0000001000  twice+0x0
  2
  $ vorna-kernels where dumps 10000000000000000
  vorna-kernels: '10000000000000000' is not a hexadecimal address
  [2]
  $ vorna-kernels where dumps -1
  vorna-kernels: '-1' is not a hexadecimal address
  [2]
  $ vorna-kernels where dumps ''
  vorna-kernels: '' is not a hexadecimal address
  [2]
  $ vorna-kernels where none 0
  vorna-kernels: none: No such file or directory
  [2]
  $ vorna-kernels where
  vorna-kernels: DUMPS is required
  [2]

As JSON, and in colour:

  $ vorna-kernels where dumps --format=json 7f0000001024 7f0000001048 7f000000103c 0
  {
    "version": 2,
    "addresses": [
      {
        "address": "0x7f0000001024",
        "part": "code",
        "kernel": "caller",
        "offset": 4,
        "after": null,
        "value": null,
        "rows": [
          {
            "offset": 0,
            "word": "0xa9bf7bfd",
            "text": "stp x29, x30, [sp, #-16]!",
            "comment": "",
            "label": "",
            "marked": false
          },
          {
            "offset": 4,
            "word": "0x97fffff7",
            "text": "bl twice",
            "comment": "",
            "label": "",
            "marked": true
          },
          {
            "offset": 8,
            "word": "0xa8c17bfd",
            "text": "ldp x29, x30, [sp], #16",
            "comment": "",
            "label": "",
            "marked": false
          },
          {
            "offset": 12,
            "word": "0xd65f03c0",
            "text": "ret",
            "comment": "",
            "label": "",
            "marked": false
          }
        ],
        "interface": {
          "reads": [
            "x0",
            "v0"
          ],
          "writes": [],
          "saves": [
            "x29",
            "x30"
          ],
          "calls": [
            "twice"
          ],
          "stack": 16,
          "needs": [],
          "live": {
            "general": {
              "most": 3,
              "offset": 0
            },
            "vector": {
              "most": 1,
              "offset": 0
            },
            "predicate": {
              "most": 0,
              "offset": 0
            }
          },
          "followed": true
        }
      },
      {
        "address": "0x7f0000001048",
        "part": "constants",
        "kernel": "twice",
        "offset": 8,
        "after": null,
        "value": "0x4000000000000000",
        "rows": [],
        "interface": null
      },
      {
        "address": "0x7f000000103c",
        "part": "padding",
        "kernel": "caller",
        "offset": 28,
        "after": "code",
        "value": null,
        "rows": [],
        "interface": null
      },
      {
        "address": "0x0",
        "part": null,
        "kernel": null,
        "offset": null,
        "after": null,
        "value": null,
        "rows": [],
        "interface": null
      }
    ]
  }
  [1]
  $ vorna-kernels where dumps --color=always 7f0000001020
  \x1b[1m0x7f0000001020\x1b[0m  caller+0x0 (esc)
  \x1b[2m  reads x0, v0; saves x29, x30 at cfa-16; stack 16 bytes; spills 1 store, 1 load; calls twice;\x1b[0m (esc)
  \x1b[2m  max live 3 general (+00), 1 vector (+00)\x1b[0m (esc)
  \x1b[1m  > +00  a9bf7bfd  stp   x29, x30, [sp, #-16]!\x1b[0m (esc)
      +04  97fffff7  bl    twice
      +08  a8c17bfd  ldp   x29, x30, [sp], #16
