What commands take for dumps:

  $ make_dumps dumps <<'END'
  > kernel wfta_short_3
  >     ret
  > kernel wfta_short_4
  >     ret
  > END

The nearest names of kernels that are not there; the others are shown:

  $ vorna-kernels show dumps wfta_short_5 wfta_shrt_4 wfta_short_4
  vorna-kernels: no kernel wfta_short_5 in the dumps; did you mean wfta_short_3?
  vorna-kernels: no kernel wfta_shrt_4 in the dumps; did you mean wfta_short_4?
  wfta_short_4  0x10020  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  [2]

A file that is there twice is read once:

  $ ln -s wfta_short_3 dumps/link
  $ vorna-kernels check dumps dumps/wfta_short_4
  2 kernels, 0 relocations: no findings

Files that are not ELF files are skipped, and named on request:

  $ echo text > dumps/notes
  $ vorna-kernels check dumps
  2 kernels, 0 relocations: no findings
  $ vorna-kernels check --verbose dumps
  vorna-kernels: skipped: dumps/notes: not an ELF file
  2 kernels, 0 relocations: no findings
  $ vorna-kernels check dumps/notes
  vorna-kernels: dumps/notes: not an ELF file
  [2]

A file that cannot be read does not keep the others from being read:

  $ head -c 100 dumps/wfta_short_3 > dumps/bad
  $ vorna-kernels show dumps
  vorna-kernels: dumps/bad: no kernel found
  wfta_short_3  0x10000  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  
  wfta_short_4  0x10020  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  [2]
  $ : > dumps/bad
  $ vorna-kernels check dumps
  vorna-kernels: dumps/bad: empty
  2 kernels, 0 relocations: no findings
  [2]
  $ rm dumps/bad dumps/link

Dumps of two runs:

  $ make_dumps other <<'END'
  > kernel other
  >     ret
  > END
  $ cp other/other dumps
  $ vorna-kernels show dumps
  vorna-kernels: dumps/other and dumps/wfta_short_3: other and wfta_short_3 are placed in the same memory: dumps of two runs
  [2]

A directory without dumps is an error only if there are no others:

  $ mkdir none
  $ vorna-kernels check none
  vorna-kernels: none: no dumps found
  [2]
  $ vorna-kernels check --format=json none none
  vorna-kernels: none, none: no dumps found
  [2]
  $ make_dumps some <<'END'
  > kernel wfta_short_3
  >     ret
  > END
  $ vorna-kernels check none some
  1 kernel, 0 relocations: no findings
  $ vorna-kernels check absent some
  vorna-kernels: absent: No such file or directory
  1 kernel, 0 relocations: no findings
  [2]
