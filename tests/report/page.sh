#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# page.sh DIRECTORY: reports of real runs in a browser; the screenshots are left in the directory.
. "$(dirname "$0")/../scenarios/common.sh"
sources=$(cd "$(dirname "$0")" && pwd)
directory=$1

skip() {
    echo "skipped: $*"
    exit 77
}

need_fuse
chromium=$(command -v chromium) || skip "no chromium; install Debian's package chromium"
command -v npm >/dev/null || skip "no npm; install Debian's packages nodejs and npm"
mkdir -p "$directory/screenshots"
if [ ! -d "$directory/driver" ]; then
    mkdir "$scratch/driver"
    cp "$sources/package.json" "$sources/package-lock.json" "$scratch/driver"
    timeout 120 npm ci --prefix "$scratch/driver" --ignore-scripts --no-audit --no-fund \
        --fetch-retries=1 >"$scratch/npm" 2>&1 ||
        skip "npm cannot fetch playwright-core: $(tail -n 3 "$scratch/npm")"
    mv "$scratch/driver" "$directory" # all of it, or nothing
fi

# At once: each waits most of its time.
running=()
simulate update --quiet --report "$scratch/update.html" &
running+=($!)
simulate noflash --quiet --report "$scratch/noflash.html" &
running+=($!)
simulate update --quiet --flash-rate 400000 --fault hang-up-at-fragment@20:300 \
    --fault erase-fails@1 --report "$scratch/faults.html" &
running+=($!)
simulate update --quiet --fault flash-load-fails@1 --report "$scratch/failing.html" || true
for process in "${running[@]}"; do wait "$process"; done
NODE_PATH=$directory/driver/node_modules \
    node "$sources/page_test.js" "$chromium" "$scratch" "$directory/screenshots"
