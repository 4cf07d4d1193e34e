#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Feeds fuzz targets that the preset `fuzz` has built (`./dev fuzz` builds and calls this):
#   fuzz/run.sh [TARGET|all] [SECONDS]     each target for so long, 20 s unless told otherwise
#   fuzz/run.sh --check [TARGET|all] [SECONDS]     only whether the arguments can be run
# Prints one line a target. What was learnt stays in build/fuzz/corpus/TARGET for the next run.
# Exit status 1 on a finding, whose input is then in build/fuzz/findings/TARGET; 2: cannot be run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=build/fuzz

# What one input may cost. None needs a fraction of it; what grows without bound soon does.
limits=(-timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=256)
# Of the memory that an input has freed, as much is kept to find later uses as fits into the above.
export ASAN_OPTIONS=quarantine_size_mb=32:allocator_may_return_null=1:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1

statistic() { sed -n "s/^stat::$1: *//p" "$2"; }

fuzz_one() { # TARGET SECONDS
    local target=$1 seconds=$2 log=$build/$1.log findings=$build/findings/$1 found=none status=0
    local program=$build/fuzz/fuzz_$target dictionary=()
    mkdir -p "$build/corpus/$target" "$findings"
    [ ! -f "fuzz/$target.dict" ] || dictionary=("-dict=fuzz/$target.dict")
    touch "$findings/.before"
    "$program" -max_total_time="$seconds" "${limits[@]}" "${dictionary[@]}" -print_final_stats=1 \
        -artifact_prefix="$findings/" "$build/corpus/$target" "fuzz/seeds/$target" \
        >"$log" 2>&1 || status=$?
    if [ $status -ne 0 ]; then
        found=$(find "$findings" -type f -newer "$findings/.before" ! -name .before | head -n 1)
        found=${found:-"$log"}
    fi
    printf '%-16s %10s executions %7s/s   findings: %s\n' "$target" \
        "$(statistic number_of_executed_units "$log")" \
        "$(statistic average_exec_per_sec "$log")" "$([ $status -eq 0 ] && echo 0 || echo 1)"
    if [ $status -ne 0 ]; then
        grep -E '^does not hold|runtime error|^SUMMARY|^==[0-9]+== *ERROR' "$log" | sed 's/^/    /' || true
        echo "    the whole report: $log; again: $program $found"
        return 1
    fi
}

if [ "${1:-}" = --one ]; then
    fuzz_one "$2" "$3"
    exit
fi

check=false
if [ "${1:-}" = --check ]; then
    check=true
    shift
fi
target=${1:-all}
seconds=${2:-20}
mapfile -t known < <(sed -n 's/^fuzz_target(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
if [ "$target" = all ]; then
    targets=("${known[@]}")
elif printf '%s\n' "${known[@]}" | grep -qxF -e "$target"; then
    targets=("$target")
else
    echo "./dev fuzz: unknown target '$target': it is one of ${known[*]}, or all" >&2
    exit 2
fi
if ! [[ $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "./dev fuzz: '$seconds' is no number of seconds" >&2
    exit 2
fi
$check || printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} fuzz/run.sh --one {} "$seconds" || exit 1
