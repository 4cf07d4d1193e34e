#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Feeds fuzz targets that the preset `fuzz` has built (`./dev fuzz` builds them and calls this):
#   fuzz/run.sh [--check] [TARGET|all] [SECONDS]
# each target for so long, 20 s unless told otherwise, and prints one line for each; --check only
# looks whether these arguments can be run. What was learnt stays in build/fuzz/corpus/TARGET for the
# next run. Exit status 1 on a finding: its input lies in build/fuzz/findings/TARGET, and is run
# first from then on. 2: cannot be run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=build/fuzz

# What one input may cost. None needs a fraction of it; what grows without bound soon does.
limits=(-timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=256)
# So much freed memory is kept aside, for its later uses to be found.
export ASAN_OPTIONS=quarantine_size_mb=32:allocator_may_return_null=1:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1

statistic() { sed -n "s/^stat::$1: *//p" "$2"; } # NAME LOG

fuzz_one() { # TARGET SECONDS
    local target=$1 seconds=$2 program=$build/fuzz/fuzz_$1 log=$build/$1.log status=0
    local options=("${limits[@]}" -print_final_stats=1 -max_total_time="$seconds"
        -artifact_prefix="$build/findings/$target/")
    mkdir -p "$build/corpus/$target" "$build/findings/$target"
    [ ! -f "fuzz/$target.dict" ] || options+=(-dict="fuzz/$target.dict")
    "$program" "${options[@]}" "$build/corpus/$target" "fuzz/seeds/$target" \
        "$build/findings/$target" >"$log" 2>&1 || status=$?
    printf '%-16s %10s executions %7s/s   findings: %d\n' "$target" \
        "$(statistic number_of_executed_units "$log")" \
        "$(statistic average_exec_per_sec "$log")" $((status != 0 && status != 72))
    [ $status -ne 0 ] || return 0
    [ $status -ne 72 ] || echo "    interrupted"
    grep -aE '^does not hold|runtime error|^SUMMARY|^==[0-9]+== *ERROR' "$log" | sed 's/^/    /' || true
    echo "    all of it: $log"
    sed -n "s|.*Test unit written to |    again: $program |p" "$log"
    return 1
}

if [ "${1:-}" = --one ]; then
    fuzz_one "$2" "$3"
    exit
fi
runs=true
if [ "${1:-}" = --check ]; then
    runs=false
    shift
fi
target=${1:-all}
seconds=${2:-20}
mapfile -t known < <(ls fuzz/seeds)
targets=("$target")
if [ "$target" = all ]; then
    targets=("${known[@]}")
elif ! printf '%s\n' "${known[@]}" | grep -qxF -e "$target"; then
    echo "./dev fuzz: unknown target '$target': it is one of ${known[*]}, or all" >&2
    exit 2
fi
if ! [[ $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "./dev fuzz: '$seconds' is no number of seconds" >&2
    exit 2
fi
$runs || exit 0
printf '%s\n' "${targets[@]}" |
    xargs -P "$(nproc)" -I{} fuzz/run.sh --one {} "$seconds" || exit 1
