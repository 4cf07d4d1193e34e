#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What bash offers for lines of marlo-sim ($1) and marlo-fw ($2), as if Tab were pressed.
. "$(dirname "$0")/common.sh"
library=/usr/share/bash-completion/bash_completion
if [ ! -e "$library" ]; then
    echo "SKIPPED: bash-completion is not installed"
    exit 77
fi
set +eu # the library takes failures and unset variables as they come
. "$library"
status=0
for program in "$@"; do
    PATH=$(dirname "$program"):$PATH
done
. "$here/../../tools/completion/marlo.bash"

offered() { # LINE
    COMP_LINE=$1
    COMP_POINT=${#COMP_LINE}
    read -ra COMP_WORDS <<<"${COMP_LINE//=/ = }" # it breaks words at =, as readline does
    [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _marlo "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" \
        "${COMP_WORDS[COMP_CWORD - 1]}"
    printf '%s\n' "${COMPREPLY[@]}" | sort
}

offers() { # LINE WORD...
    local line=$1
    shift
    diff <(printf '%s\n' "$@" | sort) <(offered "$line") || {
        echo "^ for '$line'" >&2
        status=1
    }
}

options() { # PROGRAM [COMMAND]
    "$@" --help | grep -oE '^ +(-.,)?--[a-z-]+' | grep -o -- '--.*'
}

cd "$scratch"
mkdir images && touch image.mbn

offers 'marlo-sim -' $(options marlo-sim)
for trial in chaos kill soak idle; do offers "marlo-sim $trial -" $(options marlo-sim "$trial"); done
offers 'marlo-sim ' chaos kill soak idle $(marlo-sim --list | cut -d ' ' -f 1)
offers 'marlo-sim --quiet misc' misc-failure misc-retry
offers 'marlo-sim chaos ' ''
offers 'marlo-sim --fault ' $(marlo-sim --list-faults | cut -d ' ' -f 1)
offers 'marlo-sim --fault erase' erase-fails
offers 'marlo-sim update --firmware ' images
offers 'marlo-sim kill --transcript ' image.mbn images
offers 'marlo-sim --fragment ' ''

offers 'marlo-fw ' compare inspect patch
offers 'marlo-fw -' --help --version
for command in compare inspect patch; do
    offers "marlo-fw $command -" $(options marlo-fw "$command")
    offers "marlo-fw $command " images
done
offers 'marlo-fw patch images -o ' image.mbn images
offers 'marlo-fw patch images --platform ' IDP WDP
offers 'marlo-fw inspect images --platform=I' IDP
offers 'marlo-fw inspect images --platform=' IDP WDP
offers 'marlo-sim kill --transcript=im' image.mbn images
offers 'marlo-fw inspect --json ' images
exit "$status"
