#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Rules of the house that no compiler checks. Prints each line that breaks one; exit status 1 then.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
git rev-parse --is-inside-work-tree >/dev/null || exit 2 # without it every rule would seem kept
status=0

rule() { # TEXT LINES
    [ -z "$2" ] && return
    status=1
    printf '%s:\n%s\n' "$1" "$2"
}

product=(daemon comhandler glink fwupdater rma wire)

rule "The kernel is reached through platform/ only" "$(
    git grep -nE '#include <(fcntl|unistd|poll|sys/ioctl|sys/mman)\.h>' -- "${product[@]}"
)"
rule "No #ifdef for a system outside platform/" "$(
    git grep -nE '#.*\b(__ANDROID__|ANDROID|__BIONIC__|__linux__|__GLIBC__)\b' -- "${product[@]}" sim 'tests/*.cpp' 'tests/*.h'
)"
rule "The virtual co-processor includes nothing of the product" "$(
    git grep -nE '#include "(daemon|comhandler|glink|fwupdater|rma|wire|platform)/' -- sim
)"
rule "The product includes nothing of what tries it" "$(
    git grep -nE '#include [<"](sim|sweep|fuzz|tests|bench|tools|platform/scripted)/' -- \
        "${product[@]}" 'platform/*.h' 'platform/*.cpp' ':!platform/scripted'
)"
rule "Rooms do not point backwards" "$(
    git grep -nE '#include "(comhandler/MarloComHandler|daemon/(Marlo|DFU)|fwupdater|rma)' -- \
        comhandler/client_wakelock.* glink wire platform
    git grep -nE '#include "(glink|fwupdater|rma|daemon/(Marlo|DFU))' -- comhandler
    git grep -nE '#include "(daemon/(Marlo|DFU)|comhandler/MarloComHandler)' -- fwupdater rma
    git grep -nE '#include "rma/' -- fwupdater
    git grep -nE '#include "fwupdater/' -- rma
)"
rule "No packet is cast to a record" "$(
    git grep -nE 'reinterpret_cast' -- glink fwupdater rma wire daemon |
        grep -v 'reinterpret_cast<uintptr_t>('
)"
rule "A test sleeps" "$(
    git grep -nE 'sleep_for|sleep_until|\b(u|nano)?sleep\(' -- 'tests/*.cpp' 'tests/*.h' |
        grep -vE '(os|Platform)::|unsigned int sleep|int usleep'
)"
rule "Source without a licence line" "$(
    git ls-files '*.cpp' '*.h' | xargs grep -L 'SPDX-License-Identifier: Apache-2.0'
)"
exit "$status"
