  $ unset CI
  $ make_dumps dumps <<'END'
  > kernel a
  >     mov x0, #1
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel b
  >     adr x0, .rodata
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel c
  >     ret
  > END

A baseline is made on request only:

  $ vorna-kernels baseline check base dumps
  vorna-kernels: base: no such file; create it with: vorna-kernels baseline bless base dumps --all
  [2]
  $ vorna-kernels baseline bless base dumps a
  vorna-kernels: base: no such file; create it with --all
  [2]
  $ ls base
  ls: cannot access 'base': No such file or directory
  [2]
  $ vorna-kernels baseline bless base dumps --all
  a: added, 2 instructions
  b: added, 2 instructions
  c: added, 1 instruction
  base: created, 3 kernels
  $ cat base
  vorna-kernels baseline 1
  a a220069fbb74b2316fc015916fe82bbe 99aa06d3014798d86001c324468d497f 1d85e13540b8f55dacbcf3ae8a39cd07 2
  b fe63141805731226f812ad4c537b046f cb5ed1e9310edb75191f2827f51df7dc 1d85e13540b8f55dacbcf3ae8a39cd07 2
  c 664d45b3e8dd5dff17c603e265a9ecf4 99aa06d3014798d86001c324468d497f 99aa06d3014798d86001c324468d497f 1
  $ vorna-kernels baseline check base dumps
  3 kernels: 3 same
  $ vorna-kernels baseline bless base dumps --all
  base: no changes

Kernels that changed, that were added and that were removed:

  $ cp base first
  $ make_dumps changed <<'END'
  > kernel a
  >     mov x0, #1
  >     nop
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel aa
  >     ret
  > kernel b
  >     adr x0, .rodata + 4
  >     ret
  >     .section .rodata
  >     .double 2
  > kernel z
  >     ret
  > END
  $ vorna-kernels baseline check base changed
  base:2: a: code changed, 2 -> 3 instructions
  aa: not in the baseline, 1 instruction
  base:3: b: relocations and constants changed, code the same, 2 instructions
  base:4: c: not in the dumps, 1 instruction
  z: not in the baseline, 1 instruction
  5 kernels: 2 changed, 2 added, 1 removed
  to accept: vorna-kernels baseline bless base changed a aa b c z
  [1]
  $ vorna-kernels baseline check --format=github base changed
  ::error file=base,line=2,title=a::a: code changed, 2 -> 3 instructions
  ::error file=base,line=3,title=aa::aa: not in the baseline, 1 instruction
  ::error file=base,line=3,title=b::b: relocations and constants changed, code the same, 2 instructions
  ::error file=base,line=4,title=c::c: not in the dumps, 1 instruction
  ::error file=base,line=4,title=z::z: not in the baseline, 1 instruction
  5 kernels: 2 changed, 2 added, 1 removed
  to accept: vorna-kernels baseline bless base changed a aa b c z
  [1]
  $ vorna-kernels baseline check --format=markdown base changed
  | kernel | status | |
  |---|---|---|
  | <code>a</code> | changed | code changed, 2 -> 3 instructions |
  | <code>aa</code> | added | not in the baseline, 1 instruction |
  | <code>b</code> | changed | relocations and constants changed, code the same, 2 instructions |
  | <code>c</code> | removed | not in the dumps, 1 instruction |
  | <code>z</code> | added | not in the baseline, 1 instruction |
  
  5 kernels: 2 changed, 2 added, 1 removed
  
  To accept:
  
  ```sh
  vorna-kernels baseline bless base changed a aa b c z
  ```
  [1]
  $ vorna-kernels baseline check --format=json base changed
  {
    "version": 2,
    "kernels": [
      {
        "kernel": "a",
        "status": "changed",
        "changed": [
          "code"
        ]
      },
      {
        "kernel": "aa",
        "status": "added",
        "changed": []
      },
      {
        "kernel": "b",
        "status": "changed",
        "changed": [
          "relocations",
          "constants"
        ]
      },
      {
        "kernel": "c",
        "status": "removed",
        "changed": []
      },
      {
        "kernel": "z",
        "status": "added",
        "changed": []
      }
    ]
  }
  [1]

Only the named kernels are accepted:

  $ vorna-kernels baseline bless base changed a c
  base:2: a: code changed, 2 -> 3 instructions
  base:4: c: removed, 1 instruction
  base: 2 of 5 kernels accepted
  $ vorna-kernels baseline check base changed
  aa: not in the baseline, 1 instruction
  base:3: b: relocations and constants changed, code the same, 2 instructions
  z: not in the baseline, 1 instruction
  4 kernels: 1 same, 1 changed, 2 added
  to accept: vorna-kernels baseline bless base changed aa b z
  [1]
  $ vorna-kernels baseline bless base changed --all
  aa: added, 1 instruction
  base:3: b: relocations and constants changed, code the same, 2 instructions
  z: added, 1 instruction
  base: 3 of 4 kernels accepted
  $ vorna-kernels baseline check base changed
  4 kernels: 4 same

The command to accept changes is quoted for the shell:

  $ make_dumps quoted <<'END'
  > kernel it's a kernel
  >     ret
  > END
  $ cp first base
  $ vorna-kernels baseline check base quoted
  base:2: a: not in the dumps, 2 instructions
  base:3: b: not in the dumps, 2 instructions
  base:4: c: not in the dumps, 1 instruction
  it's a kernel: not in the baseline, 1 instruction
  4 kernels: 1 added, 3 removed
  to accept: vorna-kernels baseline bless base quoted a b c 'it'\''s a kernel'
  [1]
  $ make_dumps quoted <<'END'
  > kernel it's a kernel
  >     ret
  > kernel line\x0abreak
  >     ret
  > END
  $ vorna-kernels baseline check base quoted
  base:2: a: not in the dumps, 2 instructions
  base:3: b: not in the dumps, 2 instructions
  base:4: c: not in the dumps, 1 instruction
  it's a kernel: not in the baseline, 1 instruction
  line\nbreak: not in the baseline, 1 instruction
  5 kernels: 2 added, 3 removed
  to accept: vorna-kernels baseline bless base quoted --all
  [1]

What would lose something is refused, and changes nothing:

  $ vorna-kernels baseline bless base dumps
  vorna-kernels: give names of kernels, or --all
  [2]
  $ vorna-kernels baseline bless base dumps a --all
  vorna-kernels: give either names of kernels or --all
  [2]
  $ vorna-kernels baseline bless base dumps wfta
  vorna-kernels: no kernel wfta in the baseline or the dumps
  [2]
  $ CI=true vorna-kernels baseline bless base changed --all
  vorna-kernels: CI is set in the environment, and a baseline should be blessed by a person; override with --force
  [2]
  $ vorna-kernels baseline bless base none --all
  vorna-kernels: none: No such file or directory
  [2]
  $ mkdir empty
  $ vorna-kernels baseline bless base empty --all
  vorna-kernels: empty: no dumps found
  [2]
  $ cp -r dumps truncated
  $ head -c 100 dumps/a > truncated/a
  $ vorna-kernels baseline bless base truncated --all
  vorna-kernels: truncated/a: no kernel found
  vorna-kernels: base: not changed, because some dumps could not be read
  [2]
  $ cmp base first
  $ echo '<<<<<<< HEAD' >> base
  $ vorna-kernels baseline bless base dumps --all
  vorna-kernels: base: line 5: unresolved merge conflict
  [2]
  $ vorna-kernels baseline check base dumps
  vorna-kernels: base: line 5: unresolved merge conflict
  [2]
  $ tail -n 1 base
  <<<<<<< HEAD
  $ cp first base
  $ CI=true vorna-kernels baseline bless base changed a --force
  base:2: a: code changed, 2 -> 3 instructions
  base: 1 of 5 kernels accepted
  $ cp first base

The others are compared when a dump cannot be read:

  $ vorna-kernels baseline check base truncated
  vorna-kernels: truncated/a: no kernel found
  base:2: a: not in the dumps, 2 instructions
  3 kernels: 2 same, 1 removed
  [2]

Listings beside the baseline:

  $ vorna-kernels baseline bless base dumps --all --listing=./dumps
  vorna-kernels: ./dumps: is the directory of the dumps, which cannot hold listings
  [2]
  $ make_dumps dumps <<'END'
  > kernel a
  >     mov x0, #1
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel b
  >     adr x0, .rodata
  >     ret
  >     .section .rodata
  >     .byte 1, 2, 3, 4, 5, 6, 7, 8
  > kernel c
  >     ret
  > kernel ../up
  >     ret
  > END
  $ vorna-kernels baseline bless base dumps --all --listing=listings
  ../up: added, 1 instruction
  base:2: a: listing written
  base:3: b: constants changed, code the same, 2 instructions
  base:4: c: listing written
  base: 4 of 4 kernels accepted
  $ ls listings
  %2e.%2fup.txt
  a.txt
  b.txt
  c.txt
  $ cat listings/b.txt
  b  8 bytes, 2 instructions; data 8 bytes
   +00  10000000  adr   x0, .rodata
   +04  d65f03c0  ret
  relocations:
   +0x0  R_AARCH64_ADR_PREL_LO21  .rodata +0
  constants:
   +0  0807060504030201
  $ vorna-kernels baseline check base dumps --listing=listings
  4 kernels: 4 same

The same instruction in other words is the same, another instruction is not:

  $ sed -i 's/mov /movz/' listings/a.txt
  $ vorna-kernels baseline check base dumps --listing=listings
  4 kernels: 4 same
  $ sed -i 's/d2800020/d2800040/' listings/a.txt
  $ rm listings/c.txt
  $ vorna-kernels baseline check base dumps --listing=listings
  base:3: a: same, but its listing is out of date
  base:5: c: same, but its listing is missing
  4 kernels: 4 same; 2 listings out of date
  to accept: vorna-kernels baseline bless --listing=listings base dumps a c
  [1]
  $ vorna-kernels baseline bless --listing=listings base dumps a c
  base:3: a: listing written
  base:5: c: listing written
  base: 2 of 4 kernels accepted
  $ vorna-kernels baseline check base dumps --listing=listings
  4 kernels: 4 same

The listing of a kernel that was removed is removed:

  $ rm dumps/c
  $ vorna-kernels baseline bless base dumps --all --listing=listings
  base:5: c: removed, 1 instruction
  base: 1 of 4 kernels accepted
  $ ls listings
  %2e.%2fup.txt
  a.txt
  b.txt
