The manual page is made of what --help prints. groff finds nothing to complain about:

  $ command -v groff >/dev/null || exit 80
  $ vorna-kernels --man-page > page
  $ groff -man -ww -z page
  $ sed -n '/^.SH SYNOPSIS/,/^.SH DESCRIPTION/p' page
  .SH SYNOPSIS
  .B vorna\-kernels explain
  [\fIOPTIONS\fR] [\fILOG\fR]
  .br
  .B vorna\-kernels check
  [\fIOPTIONS\fR] \fIDUMPS...\fR
  .br
  .B vorna\-kernels show
  [\fIOPTIONS\fR] \fIDUMPS\fR [\fIKERNEL...\fR]
  .br
  .B vorna\-kernels cost
  [\fIOPTIONS\fR] \fIDUMPS\fR [\fIKERNEL...\fR]
  .br
  .B vorna\-kernels where
  [\fIOPTIONS\fR] \fIDUMPS\fR [\fIADDRESS...\fR]
  .br
  .B vorna\-kernels link
  \-o IMAGE [\fIOPTIONS\fR] \fIDUMPS\fR
  .br
  .B vorna\-kernels objdump
  \-\-image IMAGE [\fIOPTIONS\fR]
  .br
  .B vorna\-kernels diff
  [\fIOPTIONS\fR] \fIOLD\fR \fINEW\fR [\fIKERNEL...\fR]
  .br
  .B vorna\-kernels baseline check
  [\fIOPTIONS\fR] \fIFILE\fR \fIDUMPS\fR
  .br
  .B vorna\-kernels baseline bless
  [\fIOPTIONS\fR] \fIFILE\fR \fIDUMPS\fR [\fIKERNEL...\fR]
  .br
  .B vorna\-kernels profile
  [\fIOPTIONS\fR] \fIDUMPS\fR [\fIKERNEL...\fR]
  .br
  .B vorna\-kernels report
  \-o FILE.html [\fIOPTIONS\fR] \fIDUMPS\fR
  .br
  .SH DESCRIPTION
  $ grep '^\.S[HS]' page
  .SH NAME
  .SH SYNOPSIS
  .SH DESCRIPTION
  .SH OPTIONS
  .SH COMMANDS
  .SS explain
  .SS check
  .SS show
  .SS cost
  .SS where
  .SS link
  .SS objdump
  .SS diff
  .SS baseline
  .SS profile
  .SS report
  .SH EXAMPLES
  .SH EXIT STATUS
  $ head -n 3 page | sed 's|kernels [0-9.]*"|kernels VERSION"|'
  .TH VORNA\-KERNELS 1 "" "vorna\-kernels VERSION" "User Commands"
  .SH NAME
  vorna\-kernels \- workbench for generated machine\-code kernels
  $ sed -n '/^.SH EXAMPLES/,/^.fi/p' page
  .SH EXAMPLES
  .nf
  To start, in an empty directory:
    VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dump every kernel that HOST generates
    vorna\-kernels explain ../log \-\-dumps .    if the finaliser aborted HOST: where, why, what to do
    vorna\-kernels check .                     find other mistakes in the kernels
    vorna\-kernels show . KERNEL               disassemble a kernel, with names and constants
  .fi
