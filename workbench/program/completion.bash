# bash completion of vorna-kernels. Commands, options and their values are read from the program's own help.

_vorna_kernels() {
    local cur prev words cword split
    _init_completion -s || return

    local command=${words[1]}
    if [[ $cword -eq 1 && $cur != -* ]]; then
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -W "$("$1" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')" -- "$cur"))
        return
    fi
    [[ $command != -* && $cword -gt 1 ]] || command=

    local values
    if [[ $prev == --* ]]; then # "  --format {text,json}"
        values=$("$1" $command --help 2>/dev/null | sed -n "s/^  $prev {\([^}]*\)}.*/\1/p")
        if [[ $values ]]; then
            # shellcheck disable=SC2207
            COMPREPLY=($(compgen -W "${values//,/ }" -- "$cur"))
            return
        fi
    fi
    if [[ $cur == -* ]]; then
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -W "$(_parse_help "$1" "$command --help")" -- "$cur"))
        [[ ${COMPREPLY-} == *= ]] && compopt -o nospace
        return
    fi

    # Behind a directory of dumps come names of kernels, which are the names of its files.
    local word
    for word in "${words[@]:2:cword-2}"; do
        if [[ -d $word && $command == @(show|profile|bless) ]]; then
            # shellcheck disable=SC2207
            COMPREPLY=($(cd "$word" && compgen -f -- "$cur"))
            return
        fi
    done
    _filedir
} && complete -F _vorna_kernels vorna-kernels
