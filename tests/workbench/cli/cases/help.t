What each command says of itself:

  $ vorna-kernels --help
  Inspects generated kernels. A host dumps its kernels into its current directory when
  VORNA_WFTA_DUMP_KERNEL is set in its environment; set it to nothing to dump all of them.
  Usage: vorna-kernels [OPTIONS] COMMAND
  
  Options:
    -h,--help                   Print this help and exit
    --version                   Print the version and exit
  
  Commands:
    explain                     Explain an abort by the finaliser, or a crash in a kernel
    check                       Check kernels for mistakes
    show                        Disassemble kernels, with names and constants
    cost                        Estimate the cycles that kernels take
    where                       Say which kernel and instruction an address is in
    link                        Link kernels into one ELF image, for gdb and perf
    objdump                     Stand in for objdump, so that perf annotate can show kernels
    diff                        Compare two sets of kernels, wherever they are placed
    baseline                    Compare kernels with a baseline under version control
    profile                     Show where the time goes, from a recording of perf
    report                      Write an HTML page about all kernels
  
  To start, in an empty directory:
    VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dump every kernel that HOST generates
    vorna-kernels explain ../log --dumps .    if the finaliser aborted HOST: where, why, what to do
    vorna-kernels check .                     find other mistakes in the kernels
    vorna-kernels show . KERNEL               disassemble a kernel, with names and constants
  
  Exit status: 0 success, 1 findings, 2 error. For more, run vorna-kernels COMMAND --help.

  $ vorna-kernels explain --help
  Explain an abort by the finaliser, or a crash in a kernel
  Usage: vorna-kernels explain [OPTIONS] [LOG]
  
  Arguments:
    LOG                         The process's stderr, or what a debugger printed (default, and with -: standard input)
  
  Options:
    -h,--help                   Print this help and exit
    --dumps DUMPS               The process's dumps: a directory, or one dump
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 explained, 1 neither an abort nor a crash with an address in the log, 2 error.

  $ vorna-kernels check --help
  Check kernels for mistakes
  Usage: vorna-kernels check [OPTIONS] DUMPS...
  
  Arguments:
    DUMPS                       Directories of dumps, or dumps, all of one process
  
  Options:
    -h,--help                   Print this help and exit
    --strict                    Exit with 1 on warnings as well
    --cpu NAME                  Report instructions that this processor lacks; "help" lists the names
    --abi {aapcs64,none}        The calling convention that kernels keep
    --internal REGEX            Kernels that only others call, by a convention of their own
    --format {text,json,github} Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 no errors, 1 errors found, 2 dumps could not be read.

  $ vorna-kernels show --help
  Disassemble kernels, with names and constants
  Usage: vorna-kernels show [OPTIONS] DUMPS [KERNEL...]
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Kernels to show (default: all)
  
  Options:
    -h,--help                   Print this help and exit
    --unlinked                  Show the code as generated, before relocations are applied
    --live                      Show the live registers before each instruction
    --cpu NAME[,NAME...]        Show latencies, and what limits each loop, on these processors; "help" lists the names
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 success, 2 error.

  $ vorna-kernels cost --help
  Estimate the cycles that kernels take
  Usage: vorna-kernels cost [OPTIONS] DUMPS [KERNEL...]
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Kernels to estimate (default: all)
  
  Options:
    -h,--help                   Print this help and exit
    --cpu NAME[,NAME...]        Processors (default: cortex-a55, neoverse-n1, neoverse-v2); "help" lists the names
    --explain                   List the instructions with latency, throughput, ports and waits
    --format {text,json,markdown}
                                Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 success, 2 error.

  $ vorna-kernels where --help
  Say which kernel and instruction an address is in
  Usage: vorna-kernels where [OPTIONS] DUMPS [ADDRESS...]
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
    ADDRESS                     Hexadecimal addresses (default: one a line from standard input)
  
  Options:
    -h,--help                   Print this help and exit
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 all found, 1 an address is in no kernel's mapping, 2 error.

  $ vorna-kernels link --help
  Link kernels into one ELF image, for gdb and perf
  Usage: vorna-kernels link -o IMAGE [OPTIONS] DUMPS
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
  
  Options:
    -h,--help                   Print this help and exit
    -o,--output IMAGE           Image to write
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 complete image, 1 incomplete image, 2 error.

  $ vorna-kernels objdump --help
  Stand in for objdump, so that perf annotate can show kernels
  Usage: vorna-kernels objdump --image IMAGE [OPTIONS]
  
  Options:
    --help                      Print this help and exit
    --image IMAGE               Image written by link, read in place of a perf map (*.map)
    --objdump PROGRAM           objdump to run (default: one that supports the file's machine)
  
    perf annotate --objdump='vorna-kernels objdump --image=IMAGE'
  All other arguments are passed to objdump.

  $ vorna-kernels diff --help
  Compare two sets of kernels, wherever they are placed
  Usage: vorna-kernels diff [OPTIONS] OLD NEW [KERNEL...]
  
  Arguments:
    OLD                         Dumps before the change: a directory, or one dump
    NEW                         Dumps after the change
    KERNEL                      Kernels to compare (default: all)
  
  Options:
    -h,--help                   Print this help and exit
    --ignore {layout,registers,order}
                                Classes to treat as same, separated by commas
    --cpu NAME[,NAME...]        Show the change of cycles on these processors; "help" lists the names
    --limit N                   Changed kernels to show in detail, smallest first (default: 10)
    --format {text,json,github,markdown}
                                Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 all same, 1 differences, 2 error.

  $ vorna-kernels baseline --help
  Compare kernels with a baseline under version control
  Usage: vorna-kernels baseline [OPTIONS] COMMAND
  
  Options:
    -h,--help                   Print this help and exit
  
  Commands:
    check                       Report kernels that differ from the baseline
    bless                       Accept kernels as they are now
  
  Exit status: 0 success, 1 findings, 2 error. For more, run vorna-kernels COMMAND --help.

  $ vorna-kernels baseline check --help
  Report kernels that differ from the baseline
  Usage: vorna-kernels baseline check [OPTIONS] FILE DUMPS
  
  Arguments:
    FILE                        Baseline file
    DUMPS                       Directory of dumps, or one dump
  
  Options:
    -h,--help                   Print this help and exit
    --listing DIR               Directory for disassembly listings, one file per kernel
    --format {text,json,github,markdown}
                                Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 all same, 1 differences, 2 error.

  $ vorna-kernels baseline bless --help
  Accept kernels as they are now
  Usage: vorna-kernels baseline bless [OPTIONS] FILE DUMPS [KERNEL...]
  
  Arguments:
    FILE                        Baseline file
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Kernels to accept
  
  Options:
    -h,--help                   Print this help and exit
    --listing DIR               Directory for disassembly listings, one file per kernel
    --format {text,json,github,markdown}
                                Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
    --all                       Accept all kernels; create FILE if it does not exist
    --force                     Run even if CI is set in the environment
  
  Exit status: 0 success, 2 error; FILE is not changed then.

  $ vorna-kernels profile --help
  Show where the time goes, from a recording of perf
  Usage: vorna-kernels profile [OPTIONS] DUMPS [KERNEL...]
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Kernels to show in detail (default: the hottest one)
  
  Options:
    -h,--help                   Print this help and exit
    --perf-data FILE            Recording made by perf record
    --perf-script FILE          Output of perf script instead; - for standard input
    --event EVENT               Event to show (default: the one with most samples)
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Make the input of --perf-script with
    perf script -F pid,time,event,period,ip -G --show-mmap-events --show-task-events
  Exit status: 0 samples in kernels, 1 none, 2 error.

  $ vorna-kernels report --help
  Write an HTML page about all kernels
  Usage: vorna-kernels report -o FILE.html [OPTIONS] DUMPS
  
  Arguments:
    DUMPS                       Directory of dumps, or one dump
  
  Options:
    -h,--help                   Print this help and exit
    -o,--output FILE.html       Page to write, one self-contained file
    --perf-data FILE            Recording made by perf record
    --perf-script FILE          Output of perf script instead; - for standard input
    --event EVENT               Event to show (default: the one with most samples)
    --against OLD               Dumps before a change, to compare with
    --cpu NAME[,NAME...]        Estimate cycles on these processors, and mark critical chains; "help" lists the names
    --format {text,json}        Output format (default: text)
    --color {always,never,auto} Use colour (default: auto, on a terminal)
    --verbose                   Report skipped files
  
  Exit status: 0 success, 2 error.

No line is wider than 100 columns:

  $ for command in '' explain check show link objdump diff baseline profile report; do
  >   vorna-kernels $command --help
  > done | awk 'length > 100'
    LOG                         The process's stderr, or what a debugger printed (default, and with -: standard input)
    --cpu NAME[,NAME...]        Show latencies, and what limits each loop, on these processors; "help" lists the names
    --cpu NAME[,NAME...]        Estimate cycles on these processors, and mark critical chains; "help" lists the names
