What each command says of itself:

  $ vorna-kernels --help
  Looks at generated kernels: at their dumps, of which a host writes one a kernel into its
  current directory when VORNA_WFTA_DUMP_KERNEL is set in its environment (to nothing, for
  all kernels), and at what the finaliser said when it ended a process.
  Usage: vorna-kernels [OPTIONS] SUBCOMMAND
  
  Options:
    -h,--help                   Print this help message and exit
    --version                   Display program version information and exit
  
  Subcommands:
    explain                     Say what a process that the finaliser ended died of
    check                       Find what is wrong with kernels: exit status 1 with errors
    show                        List kernels as they run, with names and constants
    link                        Make one image of all kernels at their addresses, for gdb and perf
    objdump                     Stand in for objdump, so that perf annotate shows kernels
    diff                        What a change did to kernels, wherever they were placed
    baseline                    Compare kernels with a file under version control
    profile                     Where the time goes, from what perf recorded
    report                      Make one page to look at, an HTML file
  
  To start, in an empty directory:
    VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dumps each kernel that HOST makes, before it is linked
    vorna-kernels explain ../log --dumps .    if the finaliser ended HOST: where, why, what to do
    vorna-kernels check .                     anything else that is wrong with the kernels
    vorna-kernels show . KERNEL               its instructions, with names and constants
  
  Exit status: 0 nothing found, 1 found, 2 error. Each command has a --help of its own.

  $ vorna-kernels explain --help
  Say what a process that the finaliser ended died of
  Usage: vorna-kernels explain [OPTIONS] [LOG]
  
  Positionals:
    LOG                         What the process wrote to stderr; standard input without, or -
  
  Options:
    -h,--help                   Print this help message and exit
    --dumps DUMPS               Directory of the dumps that it wrote, or one dump
    --format {text,json}        How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 explained, 1 no report in the input, 2 error.

  $ vorna-kernels check --help
  Find what is wrong with kernels: exit status 1 with errors
  Usage: vorna-kernels check [OPTIONS] DUMPS...
  
  Positionals:
    DUMPS                       Directories of dumps, or dumps, of one process
  
  Options:
    -h,--help                   Print this help message and exit
    --strict                    Warnings are found too: exit status 1
    --format {text,json,github} How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 nothing found, 1 found, 2 error. Each command has a --help of its own.

  $ vorna-kernels show --help
  List kernels as they run, with names and constants
  Usage: vorna-kernels show [OPTIONS] DUMPS [KERNEL...]
  
  Positionals:
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Names of kernels; all of them without
  
  Options:
    -h,--help                   Print this help message and exit
    --unlinked                  As generated, without relocations
    --format {text,json}        How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 shown, 2 error.

  $ vorna-kernels link --help
  Make one image of all kernels at their addresses, for gdb and perf
  Usage: vorna-kernels link -o IMAGE [OPTIONS] DUMPS
  
  Positionals:
    DUMPS                       Directory of dumps, or one dump
  
  Options:
    -h,--help                   Print this help message and exit
    -o,--output IMAGE           The file to write
    --format {text,json}        How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 linked, 1 linked, with findings, 2 error.

  $ vorna-kernels objdump --help
  Stand in for objdump, so that perf annotate shows kernels
  Usage: vorna-kernels objdump --image IMAGE [OPTIONS]
  
  Options:
    --help                      Print this help message and exit
    --image IMAGE               Image that link made, in the place of a perf map (*.map)
    --objdump PROGRAM           The real program; without it, one that knows the machine of the file
  
    perf annotate --objdump='vorna-kernels objdump --image=IMAGE'
  Everything behind these options goes to objdump.

  $ vorna-kernels diff --help
  What a change did to kernels, wherever they were placed
  Usage: vorna-kernels diff [OPTIONS] OLD NEW [KERNEL...]
  
  Positionals:
    OLD                         Directory of dumps, or one dump, before the change
    NEW                         The same after it
    KERNEL                      Kernels to compare; all without
  
  Options:
    -h,--help                   Print this help message and exit
    --ignore {layout,registers,order}
                                Classes to take for the same, with commas between
    --limit N                   Changed kernels to show in detail, the smallest first; 10 without
    --format {text,json,github,markdown}
                                How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 all the same, 1 different, 2 error.

  $ vorna-kernels baseline --help
  Compare kernels with a file under version control
  Usage: vorna-kernels baseline [OPTIONS] SUBCOMMAND
  
  Options:
    -h,--help                   Print this help message and exit
  
  Subcommands:
    check                       Tell which kernels are not as the baseline has them
    bless                       Accept kernels as they are now, in the baseline
  
  Exit status: 0 nothing found, 1 found, 2 error. Each command has a --help of its own.

  $ vorna-kernels profile --help
  Where the time goes, from what perf recorded
  Usage: vorna-kernels profile [OPTIONS] DUMPS [KERNEL...]
  
  Positionals:
    DUMPS                       Directory of dumps, or one dump
    KERNEL                      Kernels to list (default: the one with most time)
  
  Options:
    -h,--help                   Print this help message and exit
    --perf-data FILE            What perf record wrote
    --perf-script FILE          Or the text of perf script; - is standard input
    --event EVENT               Event, as perf names it (default: the one with most samples)
    --format {text,json}        How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  The text for --perf-script is made by
    perf script -F pid,time,event,period,ip -G --show-mmap-events --show-task-events
  Exit status: 0 samples in kernels, 1 none, 2 error.

  $ vorna-kernels report --help
  Make one page to look at, an HTML file
  Usage: vorna-kernels report -o FILE.html [OPTIONS] DUMPS
  
  Positionals:
    DUMPS                       Directory of dumps, or one dump
  
  Options:
    -h,--help                   Print this help message and exit
    -o,--output FILE.html       The page: one file, to be opened from anywhere
    --perf-data FILE            What perf record wrote
    --perf-script FILE          Or the text of perf script; - is standard input
    --event EVENT               Event, as perf names it (default: the one with most samples)
    --against OLD               Dumps from before a change, to be compared with
    --format {text,json}        How results are printed; text without
    --color {always,never,auto} When in colour; auto, on a terminal, without
    --verbose                   Name the files that are passed over
  
  Exit status: 0 done, 2 error.

No line is wider than 100 columns:

  $ for command in '' explain check show link objdump diff baseline profile report; do
  >   vorna-kernels $command --help
  > done | awk 'length > 100'
