A profile of two kernels, of another one without a dump, and of the rest of the system:

  $ make_dumps dumps <<'END'
  > mapping 0x10000
  > kernel wfta_3
  >     nop
  >     nop
  >     ret
  > kernel between
  >     ret
  > kernel wfta_12
  >     nop
  >     bl wfta_3
  >     bl wfta_12
  >     nop
  >     ret
  >     .inst 0xffffffff
  > END
  $ rm dumps/between
  $ map='  662     1.000000: PERF_RECORD_MMAP2 662/662: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon'
  $ cat > text <<END
  > $map
  >   662     2.000000:       1000 cycles:u:             10004
  >   662     2.000001:       6000 cycles:u:             1004c
  >   662     2.000002:        500 cycles:u:             10040
  >   662     2.000003:          1 cycles:u:             10044
  >   662     2.000004:        499 cycles:u:             10030
  >   662     2.000005:       2000 cycles:u:  ffffcf10d54a0c14
  >   662     2.000005:         77 arm_spe//:             10000
  > END
  $ vorna-kernels profile dumps --perf-script=text
  cycles:u by period, 6 samples; in kernels 75.0 %, mapping without dump 5.0 %, elsewhere 20.0 %
  also recorded: --event=arm_spe//, 1 sample
    65.0 %  wfta_12
    10.0 %  wfta_3
  
  wfta_12, 3 samples, percent of the kernel
    7.7 \xe2\x96\x8b        +00  d503201f  nop (esc)
   <0.1          +04  97ffffef  bl    wfta_3                       ; 10.0 % of all is in wfta_3
                 +08  97fffffe  bl    wfta_12                      ; 65.0 % of all is in wfta_12
   92.3 \xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88 +0c  d503201f  nop (esc)
                 +10  d65f03c0  ret
                 +14  ffffffff  .word 0xffffffff
  
  note: samples skid: read a row with those before it; perf record -e arm_spe// is exact
  $ vorna-kernels profile dumps --perf-script=text --format=json
  {
    "version": 2,
    "event": "cycles:u",
    "samples": 6,
    "period": 10000,
    "in_kernels": 7501,
    "unknown": 499,
    "elsewhere": 2000,
    "kernels": [
      {
        "kernel": "wfta_12",
        "samples": 3,
        "period": 6501,
        "rows": [
          {
            "offset": 0,
            "samples": 1,
            "period": 500
          },
          {
            "offset": 4,
            "samples": 1,
            "period": 1
          },
          {
            "offset": 12,
            "samples": 1,
            "period": 6000
          }
        ]
      },
      {
        "kernel": "wfta_3",
        "samples": 1,
        "period": 1000,
        "rows": [
          {
            "offset": 4,
            "samples": 1,
            "period": 1000
          }
        ]
      }
    ]
  }
  $ vorna-kernels profile dumps --perf-script=text --color=always | grep 92
  \x1b[1;31m 92.3 \xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\x1b[0m +0c  d503201f  nop (esc)

From standard input:

  $ vorna-kernels profile dumps --perf-script=text > output
  $ vorna-kernels profile dumps --perf-script=- < text | cmp - output
  $ vorna-kernels profile dumps --perf-script - < text | cmp - output

Named kernels, and another event:

  $ vorna-kernels profile dumps wfta_3 wfta_12 --perf-script text --event=arm_spe//
  arm_spe// by period, 1 sample; in kernels 100.0 %, mapping without dump 0.0 %, elsewhere 0.0 %
  also recorded: --event=cycles:u, 6 samples
   100.0 %  wfta_3
  
  wfta_3, 1 sample, percent of the kernel
  100.0 \xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88 +00  d503201f  nop (esc)
                 +04  d503201f  nop
                 +08  d65f03c0  ret
  
  wfta_12, 0 samples
  
  note: arm_spe samples are of operations, not of time, each at its own instruction
  $ vorna-kernels profile dumps wfta_3 --perf-script=text --format=json | grep -E '"(kernel|in_kernels)"'
    "in_kernels": 7501,
        "kernel": "wfta_3",

Exact counts of executions:

  $ cat > counts <<END
  > $map
  >   662     1.000000:          4 executions:             10000
  >   662     1.000000:       1096 executions:             10004
  > END
  $ vorna-kernels profile dumps --perf-script=counts
  1,100 executions of 2 instructions; in kernels 100.0 %, mapping without dump 0.0 %, elsewhere 0.0 %
   100.0 %  wfta_3
  
  wfta_3, 1,100 executions, percent of the kernel
    0.4          +00  d503201f  nop
   99.6 \xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88\xe2\x96\x88 +04  d503201f  nop (esc)
                 +08  d65f03c0  ret
  
  note: exact counts: how often each instruction ran, not how long it took

No sample in a kernel that has a dump:

  $ printf '%s\n' "$map" '  662     2.000000:  3 e:  10030' > unknown
  $ vorna-kernels profile dumps --perf-script=unknown
  e by period, 1 sample; in kernels 0.0 %, mapping without dump 100.0 %, elsewhere 0.0 %
  
  note: no sample is in a kernel with a dump; others ran
  [1]
  $ vorna-kernels profile dumps --perf-script=unknown --format=json
  {
    "version": 2,
    "event": "e",
    "samples": 1,
    "period": 3,
    "in_kernels": 0,
    "unknown": 3,
    "elsewhere": 0,
    "kernels": []
  }
  [1]
  $ printf '%s\n' "$map" '  662     2.000000:  3 e:  70030' > elsewhere
  $ vorna-kernels profile dumps --perf-script=elsewhere
  e by period, 1 sample; in kernels 0.0 %, mapping without dump 0.0 %, elsewhere 100.0 %
  
  note: no sample is in a kernel; perf does not see what a simulator or an emulator runs
  [1]
  $ echo "$map" > none
  $ vorna-kernels profile dumps --perf-script=none
  no samples
  [1]
  $ vorna-kernels profile dumps --perf-script=none --format=json
  {
    "version": 2,
    "event": "",
    "samples": 0,
    "period": 0,
    "in_kernels": 0,
    "unknown": 0,
    "elsewhere": 0,
    "kernels": []
  }
  [1]

Samples that the recording lost, lines that are not perf's, and a kernel that does not exist:

  $ (cat text; echo '  0 2.000006: PERF_RECORD_LOST lost 1234') > lost
  $ vorna-kernels profile dumps --perf-script=lost | sed 5q
  cycles:u by period, 6 samples; in kernels 75.0 %, mapping without dump 5.0 %, elsewhere 20.0 %
  also recorded: --event=arm_spe//, 1 sample
  lost while recording: 1,234 samples
    65.0 %  wfta_12
    10.0 %  wfta_3
  $ (cat text; echo some words; echo and more) > garbled
  $ vorna-kernels profile dumps --perf-script=garbled wfta_12 wfta_124 | sed 5q
  vorna-kernels: garbled:9: not a line of perf script -F pid,time,event,period,ip, as 2 in all; they are skipped
  vorna-kernels: no kernel wfta_124 in the dumps; did you mean wfta_12?
  cycles:u by period, 6 samples; in kernels 75.0 %, mapping without dump 5.0 %, elsewhere 20.0 %
  also recorded: --event=arm_spe//, 1 sample
    65.0 %  wfta_12
    10.0 %  wfta_3
  

What cannot be read:

  $ vorna-kernels profile dumps
  vorna-kernels: --perf-data or --perf-script is required
  [2]
  $ vorna-kernels profile dumps --perf-script=nowhere
  vorna-kernels: nowhere: No such file or directory
  [2]
  $ vorna-kernels profile dumps --perf-data=nowhere
  vorna-kernels: nowhere: No such file or directory
  [2]
  $ vorna-kernels profile dumps --perf-script=dumps
  vorna-kernels: dumps: Is a directory
  [2]
  $ vorna-kernels profile dumps --perf-data=text
  vorna-kernels: text: text, not what perf record writes: give it with --perf-script=text
  [2]
  $ vorna-kernels profile dumps --perf-script=text --event=cycles
  vorna-kernels: no event cycles in the profile; there is cycles:u, arm_spe//
  [2]
  $ echo '  5 1.0: PERF_RECORD_MMAP2 5/5: [0x1000(0x1000) @ 0 0:0 0 0]: r-xp x' > other
  $ vorna-kernels profile dumps --perf-script=other
  vorna-kernels: other: dumps and profile are of different runs: no process maps the memory of the kernels
  [2]
  $ mkdir empty
  $ vorna-kernels profile empty --perf-script=text
  vorna-kernels: empty: no dumps found
  [2]

Runs perf, without a shell:

  $ mkdir bin
  $ perf() { (echo '#!/bin/sh'; cat) > bin/perf; chmod +x bin/perf; }
  $ export PATH=$PWD/bin:$PATH
  $ perf <<'END'
  > printf '%s\n' "$@" > arguments
  > cat text
  > END
  $ touch perf.data 'a; b $(c)'
  $ vorna-kernels profile dumps --perf-data='a; b $(c)' wfta_3 | sed 5q
  cycles:u by period, 6 samples; in kernels 75.0 %, mapping without dump 5.0 %, elsewhere 20.0 %
  also recorded: --event=arm_spe//, 1 sample
    65.0 %  wfta_12
    10.0 %  wfta_3
  
  $ cat arguments
  script
  -F
  pid,time,event,period,ip
  -G
  --show-mmap-events
  --show-task-events
  -i
  a; b $(c)
  $ echo 'echo warning >&2; cat text' | perf
  $ vorna-kernels profile dumps --perf-data=perf.data | cmp - output

What goes wrong with perf:

  $ perf <<'END'
  > echo >&2
  > echo 'incompatible file format (rerun with -v to learn more)' >&2
  > echo more >&2
  > exit 255
  > END
  $ vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: perf script: incompatible file format (rerun with -v to learn more)
  [2]
  $ echo 'cat text; exit 3' | perf
  $ vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: perf script: exit status 3
  [2]
  $ echo 'cat text; kill -9 $$' | perf
  $ vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: perf script was ended by signal 9
  [2]
  $ echo 'exit 0' | perf
  $ vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: no line of the text of perf script -F pid,time,event,period,ip
  [2]
  $ echo 'echo PERFILE2; while :; do echo; done' | perf
  $ vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: data of perf record, not the text that perf script makes of it
  [2]
  $ PATH=$(dirname "$(command -v vorna-kernels)") vorna-kernels profile dumps --perf-data=perf.data
  vorna-kernels: perf.data: cannot run perf: No such file or directory; --perf-script reads the text that perf script made elsewhere
  [2]
