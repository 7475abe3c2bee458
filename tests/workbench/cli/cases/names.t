Control characters and bytes that are not UTF-8 in a kernel's name do not reach the terminal:

  $ make_dumps dumps <<'END'
  > kernel escape \x1b[31m, newline \x0a
  >     ret
  > kernel control sequence introducer \xc2\x9b31m
  >     ret
  > kernel no-break space \xc2\xa0 and ß
  >     ret
  > kernel not UTF-8 \xff
  >     ret
  > END
  $ vorna-kernels show dumps | grep instruction
  escape \x1b[31m, newline \n  0x10000  4 bytes, 1 instruction
  control sequence introducer \x9b31m  0x10020  4 bytes, 1 instruction
  no-break space \xc2\xa0 and \xc3\x9f  0x10040  4 bytes, 1 instruction (esc)
  not UTF-8 \xff  0x10060  4 bytes, 1 instruction
  $ vorna-kernels show --format=json dumps | grep '"kernel"'
        "kernel": "escape \u001b[31m, newline \n",
        "kernel": "control sequence introducer \xc2\x9b31m", (esc)
        "kernel": "no-break space \xc2\xa0 and \xc3\x9f", (esc)
        "kernel": "not UTF-8 \xef\xbf\xbd", (esc)

Nor does a newline begin a line of a finding:

  $ vorna-kernels check dumps
  escape \x1b[31m, newline \n: warning: the name contains a newline, which ends the line in the perf map [name-map]
      help: choose another name
  4 kernels, 0 relocations: 1 warning
