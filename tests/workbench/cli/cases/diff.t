A constant changed, an instruction was inserted, a register renamed; one kernel is as it was:

  $ make_dumps before <<'END'
  > kernel same
  >     ret
  > kernel constant
  >     adr x3, .rodata
  >     ldr d0, [x3]
  >     ret
  >     .section .rodata
  >     .double 1.5
  > kernel inserted
  >     fadd d0, d0, d1
  >     ret
  > kernel renamed
  >     ldr d2, [x0]
  >     str d2, [x1]
  >     ret
  > kernel removed
  >     ret
  > END
  $ make_dumps after <<'END'
  > mapping 0x500000
  > kernel same
  >     ret
  > kernel constant
  >     adr x3, .rodata
  >     ldr d0, [x3]
  >     ret
  >     .section .rodata
  >     .double 2.5
  > kernel inserted
  >     fadd d0, d0, d1
  >     fneg d0, d0
  >     ret
  > kernel renamed
  >     ldr d3, [x0]
  >     str d3, [x1]
  >     ret
  > kernel added
  >     ret
  > END
  $ vorna-kernels diff before after
  kernel    class      instructions  bytes of code  of constants
  removed   removed    1 -> 0 (-1)   4 -> 0 (-4)    0
  added     added      0 -> 1 (+1)   0 -> 4 (+4)    0
  inserted  code       2 -> 3 (+1)   8 -> 12 (+4)   0
  renamed   code       3             12             0
  constant  constants  3             12             8
  1 same
  
  --- inserted (before)
  +++ inserted (after)
  @@ +00 +00 @@
    +00  1e612800  fadd  d0, d0, d1
  + +04  1e614000  fneg  d0, d0
    +08  d65f03c0  ret
  
  --- renamed (before)
  +++ renamed (after)
  @@ +00 +00 @@
  - +00  fd400002  ldr   d2, [x0]
  - +04  fd000022  str   d2, [x1]
  + +00  fd400003  ldr   d3, [x0]
  + +04  fd000023  str   d3, [x1]
    +08  d65f03c0  ret
  
  --- constant (before)
  +++ constant (after)
  @@ +00 +00 @@
    +00  10000003  adr   x3, .rodata
  - +04  fd400060  ldr   d0, [x3]                     ; .rodata  1.5
  + +04  fd400060  ldr   d0, [x3]                     ; .rodata  2.5
    +08  d65f03c0  ret
  @@ .rodata+00 .rodata+00 @@
  - .rodata+00  3ff8000000000000  1.5
  + .rodata+00  4004000000000000  2.5
  [1]

One kernel only:

  $ vorna-kernels diff before after same
  1 same

For a pull request, and for a program:

  $ vorna-kernels diff --format=github before after
  ::warning title=removed::removed: removed; instructions 1 -> 0 (-1), bytes of code 4 -> 0 (-4), of constants 0
  ::notice title=added::added: added; instructions 0 -> 1 (+1), bytes of code 0 -> 4 (+4), of constants 0
  ::warning title=inserted::inserted: code; instructions 2 -> 3 (+1), bytes of code 8 -> 12 (+4), of constants 0
  ::warning title=renamed::renamed: code; instructions 3, bytes of code 12, of constants 0
  ::warning title=constant::constant: constants; instructions 3, bytes of code 12, of constants 8
  [1]
  $ vorna-kernels diff --format=markdown before after
  | kernel | class | instructions | bytes of code | of constants |
  |---|---|---:|---:|---:|
  | <code>removed</code> | removed | 1 -> 0 (-1) | 4 -> 0 (-4) | 0 |
  | <code>added</code> | added | 0 -> 1 (+1) | 0 -> 4 (+4) | 0 |
  | <code>inserted</code> | code | 2 -> 3 (+1) | 8 -> 12 (+4) | 0 |
  | <code>renamed</code> | code | 3 | 12 | 0 |
  | <code>constant</code> | constants | 3 | 12 | 8 |
  
  1 same
  
  <details><summary><code>inserted</code>: code</summary>
  
  ```diff
  --- inserted (before)
  +++ inserted (after)
  @@ +00 +00 @@
    +00  1e612800  fadd  d0, d0, d1
  + +04  1e614000  fneg  d0, d0
    +08  d65f03c0  ret
  ```
  
  </details>
  
  <details><summary><code>renamed</code>: code</summary>
  
  ```diff
  --- renamed (before)
  +++ renamed (after)
  @@ +00 +00 @@
  - +00  fd400002  ldr   d2, [x0]
  - +04  fd000022  str   d2, [x1]
  + +00  fd400003  ldr   d3, [x0]
  + +04  fd000023  str   d3, [x1]
    +08  d65f03c0  ret
  ```
  
  </details>
  
  <details><summary><code>constant</code>: constants</summary>
  
  ```diff
  --- constant (before)
  +++ constant (after)
  @@ +00 +00 @@
    +00  10000003  adr   x3, .rodata
  - +04  fd400060  ldr   d0, [x3]                     ; .rodata  1.5
  + +04  fd400060  ldr   d0, [x3]                     ; .rodata  2.5
    +08  d65f03c0  ret
  @@ .rodata+00 .rodata+00 @@
  - .rodata+00  3ff8000000000000  1.5
  + .rodata+00  4004000000000000  2.5
  ```
  
  </details>
  [1]
  $ vorna-kernels diff --format=json before after
  {
    "version": 2,
    "kernels": [
      {
        "kernel": "added",
        "class": "added",
        "old": null,
        "new": {
          "code": 4,
          "data": 0,
          "instructions": 1
        }
      },
      {
        "kernel": "constant",
        "class": "constants",
        "old": {
          "code": 12,
          "data": 8,
          "instructions": 3
        },
        "new": {
          "code": 12,
          "data": 8,
          "instructions": 3
        }
      },
      {
        "kernel": "inserted",
        "class": "code",
        "old": {
          "code": 8,
          "data": 0,
          "instructions": 2
        },
        "new": {
          "code": 12,
          "data": 0,
          "instructions": 3
        }
      },
      {
        "kernel": "removed",
        "class": "removed",
        "old": {
          "code": 4,
          "data": 0,
          "instructions": 1
        },
        "new": null
      },
      {
        "kernel": "renamed",
        "class": "code",
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
        "kernel": "same",
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
      }
    ]
  }
  [1]

No difference:

  $ vorna-kernels diff before before
  5 same
