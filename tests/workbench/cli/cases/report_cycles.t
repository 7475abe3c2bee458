A page with cycles says so in its model:

  $ make_dumps before <<'END'
  > kernel gather
  > 1:
  >     ldr w6, [x3], #4
  >     ldr q0, [x0, w6, uxtw #4]
  >     str q0, [x4], #16
  >     sub x5, x5, #1
  >     cbnz x5, 1b
  >     ret
  > END
  $ make_dumps after <<'END'
  > kernel gather
  > 1:
  >     ldr w6, [x3], #4
  >     sub x5, x5, #1
  >     ldr q0, [x0, w6, uxtw #4]
  >     str q0, [x4], #16
  >     cbnz x5, 1b
  >     ret
  > END
  $ vorna-kernels report after --against=before --cpu=cortex-a55,cortex-a72,cortex-a55 -o page.html > /dev/null
  $ grep -o '"cycles\(_delta\)*":{[^}]*}' page.html
  "cycles":{"cortex-a55":10.0,"cortex-a72":5.0}
  "cycles_delta":{"cortex-a55":-3.0,"cortex-a72":0.0}
  $ grep -o '"processors":[^]]*]' page.html
  "processors":[{"name":"cortex-a55","model":"cortex-a55"},{"name":"cortex-a72","model":"cortex-a57"}]
  $ grep -o '"block":"[^"]*","offset":[0-9]*\|"limited_by":"[^"]*"\|"not_modelled":"[^"]*"' page.html
  "block":"loop +0x0","offset":0
  "limited_by":"dependencies"
  "not_modelled":""
  "block":"loop +0x0","offset":0
  "limited_by":"dependencies"
  "not_modelled":""
  "block":"outside loops","offset":20
  "limited_by":"CortexA55UnitB"
  "not_modelled":""
  "block":"outside loops","offset":20
  "limited_by":"A57UnitB"
  "not_modelled":""
  $ grep -c '"processors"' page.html
  1

The processors, whatever else is missing:

  $ vorna-kernels report --cpu=help > list
  $ vorna-kernels cost --cpu=help | cmp - list
  $ vorna-kernels diff --cpu=help | cmp - list
  $ vorna-kernels show --cpu=help | cmp - list
  $ grep -x 'cortex-a72 .*' list
  cortex-a72       out of order, the model of cortex-a57

The old page stays after an error:

  $ echo old > page.html
  $ vorna-kernels report after --cpu=cortex-b1 -o page.html
  vorna-kernels: LLVM knows no processor cortex-b1
  [2]
  $ vorna-kernels report after --cpu=carmel -o page.html
  vorna-kernels: LLVM has no scheduling model for carmel
  [2]
  $ cat page.html
  old
