No command, or one that there is not:

  $ vorna-kernels
  vorna-kernels: no command given; run vorna-kernels --help
  [2]
  $ vorna-kernels shwo
  vorna-kernels: unknown command 'shwo'; run vorna-kernels --help
  [2]
  $ vorna-kernels baseline chekc
  vorna-kernels: unknown command 'chekc'; run vorna-kernels baseline --help
  [2]

An argument that is missing, or wrong:

  $ vorna-kernels show
  vorna-kernels: DUMPS is required
  [2]
  $ vorna-kernels show . --format=xml
  vorna-kernels: --format: xml not in {text,json}
  [2]
  $ vorna-kernels show . --color=blue
  vorna-kernels: --color: blue not in {always,never,auto}
  [2]
  $ vorna-kernels show . --colour=always
  vorna-kernels: unexpected argument '--colour=always'; run vorna-kernels show --help
  [2]

The version:

  $ vorna-kernels --version
  0.1.0
