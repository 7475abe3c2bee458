  $ make_dumps dumps <<'END'
  > kernel k
  >     ret
  > END

Not in a file or a pipe, unless asked for:

  $ vorna-kernels show dumps
  k  0x10000  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  $ vorna-kernels show --color=never dumps
  k  0x10000  4 bytes, 1 instruction
    stack 0 bytes; max live 1 general (+00)
   +00  d65f03c0  ret
  $ vorna-kernels show --color=always dumps
  \x1b[1mk  0x10000  4 bytes, 1 instruction\x1b[0m (esc)
  \x1b[2m  stack 0 bytes; max live 1 general (+00)\x1b[0m (esc)
   +00  d65f03c0  ret

Comments are coloured:

  $ make_dumps commented <<'END'
  > kernel seven
  >     adr x3, .rodata
  >     ldr x1, [x3]
  >     ret
  >     .section .rodata
  >     .quad 7
  > END
  $ vorna-kernels show --color=always commented | grep ldr
   +04  f9400061  ldr   x1, [x3]                     \x1b[32m; .rodata  7\x1b[0m (esc)

On a terminal, unless the environment forbids it:

  $ on_terminal() { script -qec "env -u TERM -u NO_COLOR $* vorna-kernels show dumps" /dev/null </dev/null | sed 's/\r//; 1q'; }
  $ on_terminal TERM=xterm
  \x1b[1mk  0x10000  4 bytes, 1 instruction\x1b[0m (esc)
  $ on_terminal TERM=xterm NO_COLOR=
  \x1b[1mk  0x10000  4 bytes, 1 instruction\x1b[0m (esc)
  $ on_terminal TERM=xterm NO_COLOR=1
  k  0x10000  4 bytes, 1 instruction
  $ on_terminal TERM=dumb
  k  0x10000  4 bytes, 1 instruction
  $ on_terminal TERM=
  k  0x10000  4 bytes, 1 instruction
  $ on_terminal
  k  0x10000  4 bytes, 1 instruction

A difference, and findings:

  $ make_dumps after <<'END'
  > kernel k
  >     b k
  > END
  $ vorna-kernels diff --color=always dumps after
  kernel  class  instructions  code bytes  constant bytes
  \x1b[1mk     \x1b[0m  \x1b[1;31mcode \x1b[0m  1             4           0 (esc)
  0 same
  
  \x1b[1m--- k (before)\x1b[0m (esc)
  \x1b[1m+++ k (after)\x1b[0m (esc)
  \x1b[36m@@ +00 +00 @@\x1b[0m (esc)
  \x1b[1;31m- +00  d65f03c0  ret\x1b[0m (esc)
  \x1b[32m+ +00  14000000  b     .L0                          ; relocation type 282 k, type not supported\x1b[0m (esc)
  [1]
  $ vorna-kernels check --color=always after
  \x1b[1mk\x1b[0m: \x1b[1;33mwarning\x1b[0m: perf ignores names of less than three bytes [name-map] (esc)
      \x1b[2mhelp: choose a longer name\x1b[0m (esc)
  \x1b[1mk+0x0\x1b[0m: \x1b[1;31merror\x1b[0m: relocation R_AARCH64_JUMP26 (type 282) against 'k': type not supported [unhandled-type] (esc)
      14000000  b 0x10000               relocation 1 of 1: k + 0
      \x1b[2mhelp: call with BL (283), or form the address with ADRP and ADD and use BR\x1b[0m (esc)
  \x1b[1mk+0x0\x1b[0m: \x1b[36mnote\x1b[0m: has relocations that are not for this instruction: what comes after it is not checked [unfollowed] (esc)
      14000000  b 0x10000
  1 kernel, 1 relocation: 1 error, 1 warning, 1 note
  [1]
