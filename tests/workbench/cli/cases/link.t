An image of two mappings:

  $ make_dumps dumps <<'END'
  > kernel callee
  >     ret
  >     .section .rodata
  >     .double 1
  > kernel caller
  >     adr x0, .rodata
  >     bl callee
  >     bl caller
  >     ret
  >     .section .rodata
  >     .double 2
  > mapping 0x50000
  > kernel distant
  >     bl callee
  >     ret
  > END
  $ vorna-kernels link dumps -o image.elf
  2 mappings, 3 kernels, 28 bytes of code, 16 of data -> image.elf
    0x10000  callee, caller
    0x50000  distant
  gdb:  add-symbol-file image.elf
  perf: perf buildid-cache --add image.elf
        perf inject -b --known-build-ids='a4bc38f4499cc2e6 /tmp/perf-PID.map' -i perf.data -o kernels.data
        perf annotate -i kernels.data
  $ vorna-kernels link dumps -o image.elf --format=json
  {
    "version": 2,
    "image": "image.elf",
    "build_id": "a4bc38f4499cc2e6",
    "mappings": [
      {
        "begin": "0x10000",
        "end": "0x10050"
      },
      {
        "begin": "0x50000",
        "end": "0x50008"
      }
    ],
    "kernels": [
      {
        "kernel": "callee",
        "mapping": 0,
        "address": "0x10000",
        "bytes": 4,
        "data_address": "0x10040",
        "data_bytes": 8
      },
      {
        "kernel": "caller",
        "mapping": 0,
        "address": "0x10020",
        "bytes": 16,
        "data_address": "0x10048",
        "data_bytes": 8
      },
      {
        "kernel": "distant",
        "mapping": 1,
        "address": "0x50000",
        "bytes": 8,
        "data_address": "0x50020",
        "data_bytes": 0
      }
    ],
    "missing": [],
    "findings": []
  }

A callee without a dump is named once. The image is written, with the call as it was:

  $ make_dumps incomplete <<'END'
  > kernel a
  >     bl gone
  >     bl a
  >     bl gone
  >     ret
  > kernel b
  >     bl gone
  >     bl lost
  >     ret
  > END
  $ vorna-kernels link incomplete -o image
  a+0x0: error: relocation R_AARCH64_CALL26 against 'gone': target not found in the dumps [unknown-target]
      also at a+0x8 and 1 other place
  b+0x4: error: relocation R_AARCH64_CALL26 against 'lost': target not found in the dumps [unknown-target]
  1 mapping, 2 kernels, 28 bytes of code, 0 of data -> image
    0x10000  a, b
  gdb:  add-symbol-file image
  perf: perf buildid-cache --add image
        perf inject -b --known-build-ids='bf1ce63cab440309 /tmp/perf-PID.map' -i perf.data -o kernels.data
        perf annotate -i kernels.data
  [1]
  $ vorna-kernels link incomplete -o image --format=json
  {
    "version": 2,
    "image": "image",
    "build_id": "bf1ce63cab440309",
    "mappings": [
      {
        "begin": "0x10000",
        "end": "0x1002c"
      }
    ],
    "kernels": [
      {
        "kernel": "a",
        "mapping": 0,
        "address": "0x10000",
        "bytes": 16,
        "data_address": "0x10040",
        "data_bytes": 0
      },
      {
        "kernel": "b",
        "mapping": 0,
        "address": "0x10020",
        "bytes": 12,
        "data_address": "0x10040",
        "data_bytes": 0
      }
    ],
    "missing": [
      "gone",
      "lost"
    ],
    "findings": [
      {
        "id": "unknown-target",
        "kernel": "a",
        "relocation": 0,
        "offset": 0,
        "message": "relocation R_AARCH64_CALL26 against 'gone': target not found in the dumps"
      },
      {
        "id": "unknown-target",
        "kernel": "b",
        "relocation": 1,
        "offset": 4,
        "message": "relocation R_AARCH64_CALL26 against 'lost': target not found in the dumps"
      }
    ]
  }
  [1]

What the finaliser would have aborted for, and a call that leads elsewhere:

  $ make_dumps wrong <<'END'
  > kernel wrong
  >     bl distant + 4
  >     bl wrong + 2
  >     .reloc ., R_AARCH64_CALL26, wrong
  >     bl . + 4
  >     adr x0, .rodata.distant
  >     ldr x0, wrong
  >     .reloc ., R_AARCH64_CALL26, wrong
  >     .inst 0x96000000
  >     ret
  > mapping 0x90000000
  > kernel distant
  >     ret
  > END
  $ vorna-kernels link wrong -o image
  wrong+0x0: error: relocation R_AARCH64_CALL26 against 'distant'+0x4 out of range: 2415853572 is not in [-134217728, 134217727] [range]
  wrong+0x4: error: relocation R_AARCH64_CALL26 against 'wrong'+0x2 misaligned: -2 is not a multiple of 4 [range]
  wrong+0x8: error: relocation R_AARCH64_CALL26 against 'wrong': field not zero in 0x94000001 [field-filled]
  wrong+0xc: error: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.distant': constants of another kernel [foreign-data]
  wrong+0x10: error: relocation R_AARCH64_LD_PREL_LO19 (type 273) against 'wrong': type not supported [unhandled-type]
  2 mappings, 2 kernels, 32 bytes of code, 0 of data -> image
    0x10000  wrong
    0x90000000  distant
  gdb:  add-symbol-file image
  perf: perf buildid-cache --add image
        perf inject -b --known-build-ids='31cda098418d0f72 /tmp/perf-PID.map' -i perf.data -o kernels.data
        perf annotate -i kernels.data
  [1]

Names with characters that cannot be printed:

  $ make_dumps odd <<'END'
  > kernel odd="name" \xc3\xa9\xff\x0a
  >     ret
  > END
  $ vorna-kernels link odd -o image | head -n 2
  1 mapping, 1 kernel, 4 bytes of code, 0 of data -> image
    0x10000  odd="name" \xc3\xa9\\xff\\n (esc)

Dumps of two runs:

  $ make_dumps overlapping <<'END'
  > kernel a
  >     nop
  >     ret
  > mapping 0x10004
  > kernel b
  >     ret
  > END
  $ vorna-kernels link overlapping -o overlapping/image
  vorna-kernels: overlapping/a and overlapping/b: a and b are placed in the same memory: dumps of two runs
  [2]
  $ ls overlapping
  a
  b

What is not overwritten:

  $ echo kept > kept
  $ vorna-kernels link dumps -o dumps/callee
  vorna-kernels: dumps/callee: is one of the dumps; not overwritten
  [2]
  $ vorna-kernels link dumps -o .
  vorna-kernels: .: not a regular file
  [2]
  $ vorna-kernels link dumps -o /dev/null
  vorna-kernels: /dev/null: not a regular file
  [2]
  $ vorna-kernels link dumps -o no/such
  vorna-kernels: no/such: No such file or directory
  [2]
  $ mkdir none
  $ vorna-kernels link none -o kept
  vorna-kernels: none: no dumps found
  [2]
  $ make_dumps far <<'END'
  > kernel far
  >     ret
  >     .section .rodata
  >     .double 1
  > END
  $ aarch64-linux-gnu-objcopy --change-section-address .rodata.far=0x100000000000 far/far
  $ vorna-kernels link far -o kept
  vorna-kernels: kept: the kernels lie so far apart that the image would be larger than 1 GiB
  [2]
  $ cat kept
  kept

Any other file is replaced:

  $ vorna-kernels link dumps -o kept | head -n 1
  2 mappings, 3 kernels, 28 bytes of code, 16 of data -> kept
  $ head -c 4 kept | od -An -c
   177   E   L   F

The image of the others where a dump cannot be read:

  $ head -c 100 dumps/caller > dumps/truncated
  $ vorna-kernels link dumps -o image | head -n 1
  vorna-kernels: dumps/truncated: no kernel found
  2 mappings, 3 kernels, 28 bytes of code, 16 of data -> image
