A name cannot break out of its place in a workflow command or in Markdown:

  $ make_dumps before <<'END'
  > kernel a,b
  >     ret
  > kernel a|`<b>
  >     bl "```f"
  >     ret
  > kernel fixes #1, \xff
  >     nop
  >     ret
  > END
  $ make_dumps after <<'END'
  > kernel a,b
  >     nop
  >     ret
  > kernel a|`<b>
  >     bl "```f"
  >     nop
  >     ret
  > kernel a\x0ab\x1b[31m%::error::
  >     ret
  > kernel fixes #1, \xff
  >     ret
  > END
  $ vorna-kernels diff --format=github before after
  ::notice title=a\nb\x1b[31m%25%3A%3Aerror%3A%3A::a\nb\x1b[31m%25::error::: added; instructions 0 -> 1 (+1), code bytes 0 -> 4 (+4), constant bytes 0
  ::warning title=a%2Cb::a,b: code; instructions 1 -> 2 (+1), code bytes 4 -> 8 (+4), constant bytes 0
  ::warning title=a|`<b>::a|`<b>: code; instructions 2 -> 3 (+1), code bytes 8 -> 12 (+4), constant bytes 0
  ::warning title=fixes #1%2C \xff::fixes #1, \xff: code; instructions 2 -> 1 (-1), code bytes 8 -> 4 (-4), constant bytes 0
  0 same
  [1]
  $ vorna-kernels diff --format=markdown before after
  | kernel | class | instructions | code bytes | constant bytes |
  |---|---|---:|---:|---:|
  | <code>a&#92;nb&#92;x1b&#91;31m%&#58;&#58;error&#58;&#58;</code> | added | 0 -> 1 (+1) | 0 -> 4 (+4) | 0 |
  | <code>a,b</code> | code | 1 -> 2 (+1) | 4 -> 8 (+4) | 0 |
  | <code>a&#124;&#96;&#60;b&#62;</code> | code | 2 -> 3 (+1) | 8 -> 12 (+4) | 0 |
  | <code>fixes &#35;1, &#92;xff</code> | code | 2 -> 1 (-1) | 8 -> 4 (-4) | 0 |
  
  0 same
  
  <details><summary><code>fixes &#35;1, &#92;xff</code>: code</summary>
  
  ```diff
  --- fixes #1, \xff (before)
  +++ fixes #1, \xff (after)
  @@ +00 +00 @@
  - +00  d503201f  nop
    +00  d65f03c0  ret
  ```
  
  </details>
  
  <details><summary><code>a,b</code>: code</summary>
  
  ```diff
  --- a,b (before)
  +++ a,b (after)
  @@ +00 +00 @@
  + +00  d503201f  nop
    +04  d65f03c0  ret
  ```
  
  </details>
  
  <details><summary><code>a&#124;&#96;&#60;b&#62;</code>: code</summary>
  
  ````diff
  --- a|`<b> (before)
  +++ a|`<b> (after)
  @@ +00 +00 @@
    +00  94000000  bl    ```f
  + +04  d503201f  nop
    +08  d65f03c0  ret
  ````
  
  </details>
  [1]

A name of more than 40 bytes does not widen the table for the others:

  $ make_dumps long <<'END'
  > kernel short
  >     ret
  > kernel a_name_of_forty-six_bytes_________________|||||
  >     ret
  > END
  $ vorna-kernels diff after long short a_name_of_forty-six_bytes_________________\|\|\|\|\|
  kernel                                    class  instructions  code bytes   constant bytes
  a_name_of_forty-six_bytes_________________|||||  added  0 -> 1 (+1)   0 -> 4 (+4)  0
  short                                     added  0 -> 1 (+1)   0 -> 4 (+4)  0
  0 same
  [1]
