A walk through a table in a loop, after an instruction that is new:

  $ make_dumps before <<'END'
  > kernel walk
  >     adr x3, .rodata
  > 1:  ldr d7, [x3], #8
  >     sub x0, x0, #1
  >     cbnz x0, 1b
  >     ret
  >     .section .rodata
  >     .double 1, 2, 3, 4
  > END
  $ make_dumps after <<'END'
  > kernel walk
  >     nop
  >     adr x3, .rodata
  > 1:  ldr d7, [x3], #8
  >     sub x0, x0, #1
  >     cbnz x0, 1b
  >     ret
  >     .section .rodata
  >     .double 9, 2, 3, 4
  > END
  $ vorna-kernels diff before after
  kernel  class  instructions  code bytes     constant bytes
  walk    code   5 -> 6 (+1)   20 -> 24 (+4)  32
  0 same
  
  --- walk (before)
  +++ walk (after)
  @@ +00 +00 @@
  + +00  d503201f  nop
    +04  10000003  adr   x3, .rodata
  - +04  fc408467  ldr   d7, [x3], #8                 ; .rodata  1.0, ...
  + +08  fc408467  ldr   d7, [x3], #8                 ; .rodata  9.0, ...
    +0c  d1000400  sub   x0, x0, #1
    +10  b5ffffc0  cbnz  x0, .L8
    +14  d65f03c0  ret
  @@ .rodata+00 .rodata+00 @@
  - .rodata+00  3ff0000000000000  1
  + .rodata+00  4022000000000000  9
    .rodata+08  4000000000000000  2
    .rodata+10  4008000000000000  3
    .rodata+18  4010000000000000  4
  [1]

One more constant; one that is not a plain number is shown as its words:

  $ make_dumps fewer <<'END'
  > kernel table
  >     ret
  >     .section .rodata
  >     .double -0.0, 2, 1e300
  > END
  $ make_dumps more <<'END'
  > kernel table
  >     ret
  >     .section .rodata
  >     .double -0.0, 4, 2, 1e300, 2e-30, 1e-31
  > END
  $ vorna-kernels diff fewer more
  kernel  class      instructions  code bytes  constant bytes
  table   constants  1             4           24 -> 48 (+24)
  0 same
  
  --- table (before)
  +++ table (after)
  @@ .rodata+00 .rodata+00 @@
    .rodata+00  8000000000000000  -0
  + .rodata+08  4010000000000000  4
    .rodata+10  4000000000000000  2
    .rodata+18  7e37e43c8800759c  {2281731484, 2117592124}
  + .rodata+20  39c4484bfeebc2a0  2e-30
  + .rodata+28  398039d665896880  {1703504000, 964704726}
  [1]

Of many, the first:

  $ make_dumps zeros <<'END'
  > kernel table
  >     ret
  >     .section .rodata
  >     .rept 1000
  >     .quad 0
  >     .endr
  > END
  $ make_dumps ones <<'END'
  > kernel table
  >     ret
  >     .section .rodata
  >     .rept 1000
  >     .quad 1
  >     .endr
  > END
  $ vorna-kernels diff zeros ones | sed '9,54d'
  kernel  class      instructions  code bytes  constant bytes
  table   constants  1             4           8000
  0 same
  
  --- table (before)
  +++ table (after)
  @@ .rodata+0000 .rodata+0000 @@
  - .rodata+0000  0000000000000000  0
  + .rodata+00b8  0000000000000001  {1, 0}
  @@ 976 more differing lines @@
