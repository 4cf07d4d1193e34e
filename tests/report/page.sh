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
mkdir -p "$directory/driver" "$directory/screenshots"
cp "$sources/package.json" "$sources/package-lock.json" "$directory/driver"
if [ ! -d "$directory/driver/node_modules/playwright-core" ]; then
    npm ci --prefix "$directory/driver" --ignore-scripts --no-audit --no-fund \
        >"$scratch/npm" 2>&1 ||
        skip "npm cannot fetch playwright-core: $(tail -n 3 "$scratch/npm")"
fi

# At once: each waits most of its time.
simulate update --quiet --report "$scratch/update.html" &
simulate noflash --quiet --report "$scratch/noflash.html" &
simulate update --quiet --flash-rate 400000 --fault hang-up-at-fragment@20:300 \
    --fault erase-fails@1 --report "$scratch/faults.html" &
simulate update --quiet --fault flash-load-fails@1 --report "$scratch/failing.html" || true
wait
NODE_PATH=$directory/driver/node_modules \
    node "$sources/page_test.js" "$chromium" "$scratch" "$directory/screenshots"
