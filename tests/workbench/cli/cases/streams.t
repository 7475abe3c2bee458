Output that nobody reads, that is closed, or that cannot be written:

  $ make_dumps dumps <<'END'
  > kernel k
  >     ret
  > END
  $ vorna-kernels show dumps 2>errors | head -c 1 >first; cat errors
  $ vorna-kernels show dumps >&-
  vorna-kernels: cannot write to standard output: Bad file descriptor
  [2]
  $ vorna-kernels show dumps >/dev/full
  vorna-kernels: cannot write to standard output: No space left on device
  [2]

More than a stream buffers:

  $ random_dumps dumps 100
  $ vorna-kernels show dumps >/dev/full
  vorna-kernels: cannot write to standard output: No space left on device
  [2]

The exit status does not depend on whether the error can be printed:

  $ vorna-kernels show absent 2>&-
  [2]
  $ vorna-kernels show absent 2>/dev/full
  [2]
