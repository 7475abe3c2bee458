No command, or one that there is not:

  $ vorna-kernels
  vorna-kernels: a command is required; vorna-kernels --help lists them
  [2]
  $ vorna-kernels shwo
  vorna-kernels: shwo is no command; vorna-kernels --help lists them
  [2]
  $ vorna-kernels baseline chekc
  vorna-kernels: chekc is no command; vorna-kernels baseline --help lists them
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
  vorna-kernels: The following argument was not expected: --colour=always
  [2]

The version:

  $ vorna-kernels --version
  0.1.0
