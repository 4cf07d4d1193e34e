# bash completion for marlo-sim and marlo-fw                            -*- shell-script -*-
# SPDX-License-Identifier: Apache-2.0
# Commands, options and what kind of value each takes are those of --help; names are those that the
# program lists.

# What --help says behind the option $1.
_marlo_value() {
    awk -v option="$1" '{
        count = split($1, names, ",")
        for (i = 1; i <= count; ++i)
            if (names[i] == option && index($0, $1 " " $2 " ")) print $2
    }'
}

_marlo() {
    local cur prev words cword split
    _init_completion -s -n @: || return
    local commands help word command= value
    commands=$("$1" --help 2>/dev/null | sed -n '/^Subcommands:/,$ s/^  \([a-z-]*\)  .*/\1/p')
    for word in "${words[@]:1:cword-1}"; do
        [[ $'\n'$commands$'\n' != *$'\n'"$word"$'\n'* ]] || command=$word
    done
    help=$("$1" ${command:+"$command"} --help 2>/dev/null)
    value=$(_marlo_value "$prev" <<<"$help")
    if [ -z "$value" ] && [[ $cur == -* ]]; then
        value=$(grep -oE '^ +(-.,)?--[a-z-]+' <<<"$help" | grep -o -- '--.*' | tr '\n' '|')
    elif [ -z "$value" ]; then
        value=$(sed -n '/^Positionals:/,/^$/ s/^  \([A-Z]*\) .*/\1/p' <<<"$help")
        [ -n "$value" ] || [ -n "$command" ] || value="${commands//$'\n'/|}|"
    fi

    case $value in
        DIR) _filedir -d ;;
        FILE | PATH) _filedir ;;
        NAME*) value=$("$1" --list-faults | cut -d ' ' -f 1 | tr '\n' '|') ;;
        SCENARIO) value="${commands//$'\n'/|}|$("$1" --list | cut -d ' ' -f 1 | tr '\n' '|')" ;;
    esac
    [[ $value != *'|'* ]] || COMPREPLY=($(compgen -W "${value//|/ }" -- "$cur"))
} && complete -F _marlo marlo-sim marlo-fw
