A kernel for each class: the table with the largest change first, then the changes with the smallest first.

  $ make_dumps before <<'END'
  > kernel as_before
  >     ret
  > kernel other_constant
  >     adr x3, .rodata
  >     ldr d0, [x3, #8]
  >     ret
  >     .section .rodata
  >     .double -1.5, 1.5
  > kernel other_layout
  >     adr x3, .rodata
  >     ldr d0, [x3, #8]
  >     ret
  >     .section .rodata
  >     .double 1, 2
  > kernel other_callee
  >     bl as_before
  >     ret
  > kernel other_register
  >     ldr d16, [x0]
  >     str d16, [x1]
  >     ret
  > kernel other_order
  >     fadd d0, d0, d1
  >     fadd d2, d2, d3
  >     ret
  > kernel less_code
  >     fadd d0, d0, d1
  >     fadd d0, d0, d2
  >     ret
  > kernel other_code
  >     cbz x0, 1f
  >     nop
  >     mov x9, #1
  > 1:  ret
  > kernel only before
  >     ret
  > END
  $ make_dumps after <<'END'
  > mapping 0x500000
  > kernel as_before
  >     ret
  > kernel other_constant
  >     adr x3, .rodata
  >     ldr d0, [x3, #8]
  >     ret
  >     .section .rodata
  >     .double -1.5, 2.5
  > kernel other_layout
  >     adr x3, .rodata
  >     ldr d0, [x3]
  >     ret
  >     .section .rodata
  >     .double 2, 1
  > kernel other_callee
  >     bl other_constant
  >     ret
  > kernel other_register
  >     ldr d17, [x0]
  >     str d17, [x1]
  >     ret
  > kernel other_order
  >     fadd d2, d2, d3
  >     fadd d0, d0, d1
  >     ret
  > kernel less_code
  >     ret
  > kernel other_code
  >     cbz x0, 1f
  >     nop
  > 1:  ret
  > kernel only after
  >     ret
  >     .section .rodata
  >     .double 1
  > END
  $ vorna-kernels diff before after
  kernel          class        instructions  code bytes     constant bytes
  only after      added        0 -> 1 (+1)   0 -> 4 (+4)    0 -> 8 (+8)
  less_code       code         3 -> 1 (-2)   12 -> 4 (-8)   0
  only before     removed      1 -> 0 (-1)   4 -> 0 (-4)    0
  other_code      code         4 -> 3 (-1)   16 -> 12 (-4)  0
  other_order     order        3             12             0
  other_register  registers    3             12             0
  other_callee    relocations  2             8              0
  other_layout    layout       3             12             16
  other_constant  constants    3             12             16
  1 same
  
  --- less_code (before)
  +++ less_code (after)
  @@ +00 +00 @@
  - +00  1e612800  fadd  d0, d0, d1
  - +04  1e622800  fadd  d0, d0, d2
    +00  d65f03c0  ret
  
  --- other_callee (before)
  +++ other_callee (after)
  @@ +00 +00 @@
  - +00  94000000  bl    as_before
  + +00  94000000  bl    other_constant
    +04  d65f03c0  ret
  
  --- other_code (before)
  +++ other_code (after)
  @@ +00 +00 @@
    +00  b4000040  cbz   x0, .L8
    +04  d503201f  nop
  - +08  d2800029  mov   x9, #1
    +08  d65f03c0  ret
  
  --- other_order (before)
  +++ other_order (after)
  @@ +00 +00 @@
  - +00  1e612800  fadd  d0, d0, d1
    +00  1e632842  fadd  d2, d2, d3
  + +04  1e612800  fadd  d0, d0, d1
    +08  d65f03c0  ret
  
  --- other_register (before)
  +++ other_register (after)
  @@ +00 +00 @@
  - +00  fd400010  ldr   d16, [x0]
  - +04  fd000030  str   d16, [x1]
  + +00  fd400011  ldr   d17, [x0]
  + +04  fd000031  str   d17, [x1]
    +08  d65f03c0  ret
  
  --- other_constant (before)
  +++ other_constant (after)
  @@ +00 +00 @@
    +00  10000003  adr   x3, .rodata
  - +04  fd400460  ldr   d0, [x3, #8]                 ; .rodata+0x8  1.5
  + +04  fd400460  ldr   d0, [x3, #8]                 ; .rodata+0x8  2.5
    +08  d65f03c0  ret
  @@ .rodata+00 .rodata+00 @@
    .rodata+00  bff8000000000000  -1.5
  - .rodata+08  3ff8000000000000  1.5
  + .rodata+08  4004000000000000  2.5
  
  --- other_layout (before)
  +++ other_layout (after)
  @@ +00 +00 @@
    +00  10000003  adr   x3, .rodata
  - +04  fd400460  ldr   d0, [x3, #8]                 ; .rodata+0x8  2.0
  + +04  fd400060  ldr   d0, [x3]                     ; .rodata  2.0
    +08  d65f03c0  ret
  @@ .rodata+00 .rodata+00 @@
  - .rodata+00  3ff0000000000000  1
  - .rodata+08  4000000000000000  2
  + .rodata+00  4000000000000000  2
  + .rodata+08  3ff0000000000000  1
  [1]

For a pull request, and for a program:

  $ vorna-kernels diff --format=github before after
  ::notice title=only after::only after: added; instructions 0 -> 1 (+1), code bytes 0 -> 4 (+4), constant bytes 0 -> 8 (+8)
  ::warning title=less_code::less_code: code; instructions 3 -> 1 (-2), code bytes 12 -> 4 (-8), constant bytes 0
  ::warning title=only before::only before: removed; instructions 1 -> 0 (-1), code bytes 4 -> 0 (-4), constant bytes 0
  ::warning title=other_code::other_code: code; instructions 4 -> 3 (-1), code bytes 16 -> 12 (-4), constant bytes 0
  ::notice title=other_order::other_order: order; instructions 3, code bytes 12, constant bytes 0
  ::notice title=other_register::other_register: registers; instructions 3, code bytes 12, constant bytes 0
  ::warning title=other_callee::other_callee: relocations; instructions 2, code bytes 8, constant bytes 0
  ::notice title=other_layout::other_layout: layout; instructions 3, code bytes 12, constant bytes 16
  ::warning title=other_constant::other_constant: constants; instructions 3, code bytes 12, constant bytes 16
  1 same
  [1]
  $ vorna-kernels diff --format=markdown --limit=1 before after
  | kernel | class | instructions | code bytes | constant bytes |
  |---|---|---:|---:|---:|
  | <code>only after</code> | added | 0 -> 1 (+1) | 0 -> 4 (+4) | 0 -> 8 (+8) |
  | <code>less_code</code> | code | 3 -> 1 (-2) | 12 -> 4 (-8) | 0 |
  | <code>only before</code> | removed | 1 -> 0 (-1) | 4 -> 0 (-4) | 0 |
  | <code>other_code</code> | code | 4 -> 3 (-1) | 16 -> 12 (-4) | 0 |
  | <code>other_order</code> | order | 3 | 12 | 0 |
  | <code>other_register</code> | registers | 3 | 12 | 0 |
  | <code>other_callee</code> | relocations | 2 | 8 | 0 |
  | <code>other_layout</code> | layout | 3 | 12 | 16 |
  | <code>other_constant</code> | constants | 3 | 12 | 16 |
  
  1 same
  
  <details><summary><code>less_code</code>: code</summary>
  
  ```diff
  --- less_code (before)
  +++ less_code (after)
  @@ +00 +00 @@
  - +00  1e612800  fadd  d0, d0, d1
  - +04  1e622800  fadd  d0, d0, d2
    +00  d65f03c0  ret
  ```
  
  </details>
  
  6 more changed kernels; show all with --limit=7
  [1]
  $ vorna-kernels diff --format=json before after
  {
    "version": 2,
    "kernels": [
      {
        "kernel": "as_before",
        "class": "same",
        "old": {
          "code": 4,
          "data": 0,
          "instructions": 1
        },
        "new": {
          "code": 4,
          "data": 0,
          "instructions": 1
        }
      },
      {
        "kernel": "less_code",
        "class": "code",
        "old": {
          "code": 12,
          "data": 0,
          "instructions": 3
        },
        "new": {
          "code": 4,
          "data": 0,
          "instructions": 1
        }
      },
      {
        "kernel": "only after",
        "class": "added",
        "old": null,
        "new": {
          "code": 4,
          "data": 8,
          "instructions": 1
        }
      },
      {
        "kernel": "only before",
        "class": "removed",
        "old": {
          "code": 4,
          "data": 0,
          "instructions": 1
        },
        "new": null
      },
      {
        "kernel": "other_callee",
        "class": "relocations",
        "old": {
          "code": 8,
          "data": 0,
          "instructions": 2
        },
        "new": {
          "code": 8,
          "data": 0,
          "instructions": 2
        }
      },
      {
        "kernel": "other_code",
        "class": "code",
        "old": {
          "code": 16,
          "data": 0,
          "instructions": 4
        },
        "new": {
          "code": 12,
          "data": 0,
          "instructions": 3
        }
      },
      {
        "kernel": "other_constant",
        "class": "constants",
        "old": {
          "code": 12,
          "data": 16,
          "instructions": 3
        },
        "new": {
          "code": 12,
          "data": 16,
          "instructions": 3
        }
      },
      {
        "kernel": "other_layout",
        "class": "layout",
        "old": {
          "code": 12,
          "data": 16,
          "instructions": 3
        },
        "new": {
          "code": 12,
          "data": 16,
          "instructions": 3
        }
      },
      {
        "kernel": "other_order",
        "class": "order",
        "old": {
          "code": 12,
          "data": 0,
          "instructions": 3
        },
        "new": {
          "code": 12,
          "data": 0,
          "instructions": 3
        }
      },
      {
        "kernel": "other_register",
        "class": "registers",
        "old": {
          "code": 12,
          "data": 0,
          "instructions": 3
        },
        "new": {
          "code": 12,
          "data": 0,
          "instructions": 3
        }
      }
    ]
  }
  [1]

The kernels that are named, in the table's order:

  $ vorna-kernels diff before after "only after" as_before "only before"
  kernel       class    instructions  code bytes   constant bytes
  only after   added    0 -> 1 (+1)   0 -> 4 (+4)  0 -> 8 (+8)
  only before  removed  1 -> 0 (-1)   4 -> 0 (-4)  0
  1 same
  [1]
  $ vorna-kernels diff before after as_before
  1 same

Fewer in detail:

  $ vorna-kernels diff --limit=6 before after | tail -n 2
  
  1 more changed kernel; show all with --limit=7
  $ vorna-kernels diff --limit=0 before after | tail -n 3
  1 same
  
  7 more changed kernels; show all with --limit=7
  $ vorna-kernels diff --limit=-1 before after
  vorna-kernels: --limit: not a number
  [2]

Classes taken for the same:

  $ vorna-kernels diff --limit=0 --ignore=layout,order before after
  kernel          class        instructions  code bytes     constant bytes
  only after      added        0 -> 1 (+1)   0 -> 4 (+4)    0 -> 8 (+8)
  less_code       code         3 -> 1 (-2)   12 -> 4 (-8)   0
  only before     removed      1 -> 0 (-1)   4 -> 0 (-4)    0
  other_code      code         4 -> 3 (-1)   16 -> 12 (-4)  0
  other_register  registers    3             12             0
  other_callee    relocations  2             8              0
  other_constant  constants    3             12             16
  3 same
  
  5 more changed kernels; show all with --limit=5
  [1]
  $ vorna-kernels diff --ignore=layout,registers,order before after other_layout other_register other_order
  3 same
  $ vorna-kernels diff --ignore=code before after
  vorna-kernels: --ignore: code not in {layout,registers,order}
  [2]

Nothing to compare, and what cannot be read:

  $ vorna-kernels diff before before
  9 same
  $ vorna-kernels diff before after absent
  vorna-kernels: no kernel absent in either set
  [2]
  $ mkdir empty
  $ vorna-kernels diff before empty
  vorna-kernels: empty: no dumps found
  [2]
  $ vorna-kernels diff before nowhere
  vorna-kernels: nowhere: No such file or directory
  [2]
  $ head -c 100 after/as_before > after/truncated
  $ vorna-kernels diff before after as_before
  vorna-kernels: after/truncated: no kernel found
  1 same
  [2]
