# bash completion of vorna-kernels. Commands, options and their values are read from the program's own help.

# shellcheck disable=SC2086 # a command within a command is two words
_vorna_kernels() {
    # shellcheck disable=SC2034 # set by _init_completion
    local cur prev words cword split
    _init_completion -s || return

    # The words of the command, which may have commands of its own.
    local command="" at=1 names
    while names=$("$1" $command --help 2>/dev/null | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p') && [[ $names ]]; do
        if [[ $cword -eq $at && $cur != -* ]]; then
            # shellcheck disable=SC2207
            COMPREPLY=($(compgen -W "$names" -- "$cur"))
            return
        fi
        [[ $at -lt $cword && $'\n'$names$'\n' == *$'\n'${words[at]}$'\n'* ]] || break
        command+=${command:+ }${words[at++]}
    done

    local values
    if [[ $prev == --* ]]; then # "  --format {text,json}"
        values=$("$1" $command --help 2>/dev/null | sed -n "s/^  $prev {\([^}]*\)}.*/\1/p")
        if [[ $values ]]; then
            # shellcheck disable=SC2207
            COMPREPLY=($(compgen -W "${values//,/ }" -- "$cur"))
            return
        fi
    fi
    if [[ $prev == --cpu ]]; then # one processor, or several separated by commas
        values=$("$1" $command --cpu=help 2>/dev/null | sed 's/ .*//')
        [[ $command == check ]] || values+=" native"
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -P "${cur%"${cur##*,}"}" -W "$values" -- "${cur##*,}"))
        return
    fi
    if [[ $cur == -* ]]; then
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -W "$(_parse_help "$1" "$command --help")" -- "$cur"))
        [[ ${COMPREPLY-} == *= ]] && compopt -o nospace
        return
    fi

    # After a directory of dumps come names of kernels, which are the names of its files.
    local word
    for word in "${words[@]:at:cword-at}"; do
        if [[ -d $word && $command == @(show|cost|profile|"baseline bless") ]]; then
            local IFS=$'\n'
            # shellcheck disable=SC2207
            COMPREPLY=($(cd "$word" && compgen -f -- "$cur"))
            compopt -o filenames # blanks in names are quoted
            return
        fi
    done
    _filedir
} && complete -F _vorna_kernels vorna-kernels
