The page, and what the command says about it:

  $ make_dumps dumps <<'END'
  > kernel wfta_3
  >     ret
  > kernel wfta_12
  >     nop
  >     ret
  > END
  $ cp -r dumps before
  $ rm before/wfta_12
  $ vorna-kernels report dumps -o page.html > said
  $ sed "s/ $((($(wc -c < page.html) + 1023) / 1024)) KiB/ SIZE/" said
  page.html: 2 kernels, 1 mapping, SIZE
  $ head -n 1 page.html
  <!DOCTYPE html>
  $ vorna-kernels report dumps -o page.html --format=json > said
  $ sed "s/ $(wc -c < page.html),/ SIZE,/" said
  {
    "version": 2,
    "page": "page.html",
    "bytes": SIZE,
    "kernels": 2,
    "mappings": 1,
    "event": null
  }

The same page each time:

  $ mkdir elsewhere
  $ vorna-kernels report dumps -o elsewhere/page.html > output
  $ cmp page.html elsewhere/page.html

With a profile and a comparison:

  $ cat > text <<'END'
  >     7     1.000000: PERF_RECORD_MMAP2 7/7: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon
  >     7     1.100000:        300 cycles:u:             10000
  > END
  $ vorna-kernels report dumps -o page.html --perf-script=text --against=before | sed 's/[0-9]* KiB/SIZE/'
  page.html: 2 kernels, 1 mapping, profile cycles:u, SIZE

What is left where a dump is bad:

  $ cp -r dumps bad
  $ head -c 100 dumps/wfta_3 > bad/truncated
  $ vorna-kernels report bad -o page.html > said
  vorna-kernels: bad/truncated: no kernel found
  [2]
  $ sed 's/[0-9]* KiB/SIZE/' said
  page.html: 2 kernels, 1 mapping, SIZE

The old page stays after an error:

  $ echo old > page.html
  $ mkdir none
  $ vorna-kernels report none -o page.html
  vorna-kernels: none: no dumps found
  [2]
  $ vorna-kernels report dumps -o page.html --against=none
  vorna-kernels: none: no dumps found
  [2]
  $ sed 's/1000/9000/g' text > other
  $ vorna-kernels report dumps -o page.html --perf-script=other
  vorna-kernels: other: dumps and profile are of different runs: no process maps the memory of the kernels
  [2]
  $ cp text counts
  $ vorna-kernels report dumps -o page.html --perf-data=counts
  vorna-kernels: counts: text, not what perf record writes: give it with --perf-script=counts
  [2]
  $ vorna-kernels report dumps -o page.html --event=cycles
  vorna-kernels: --event: requires a profile
  [2]
  $ vorna-kernels report dumps -o page.html --perf-data=a --perf-script=b
  vorna-kernels: --perf-data excludes --perf-script
  [2]
  $ vorna-kernels report dumps
  vorna-kernels: --output is required
  [2]
  $ cat page.html
  old

What is not overwritten:

  $ vorna-kernels report dumps -o nowhere/page.html
  vorna-kernels: nowhere/page.html: No such file or directory
  [2]
  $ vorna-kernels report dumps -o /dev/full
  vorna-kernels: /dev/full: not a regular file
  [2]
  $ vorna-kernels report dumps -o dumps/wfta_3
  vorna-kernels: dumps/wfta_3: is one of the dumps; not overwritten
  [2]
  $ vorna-kernels report dumps --against=before -o before/wfta_3
  vorna-kernels: before/wfta_3: is one of the dumps; not overwritten
  [2]
  $ vorna-kernels report dumps --perf-script=text -o ./text
  vorna-kernels: ./text: is the profile; not overwritten
  [2]

Dumps of two runs:

  $ make_dumps two <<'END'
  > mapping 0x10030
  > kernel wfta_3
  >     ret
  > END
  $ cp two/wfta_3 dumps/again
  $ vorna-kernels report dumps -o page.html
  vorna-kernels: dumps of more than one run or registry: two kernels wfta_3 lie in one mapping; use a directory for each
  [2]
