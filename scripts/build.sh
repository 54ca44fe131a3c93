#!/usr/bin/env bash
# Configures (once) and builds everything into build/. Incremental.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${ZEBRELO_BUILD_DIR:-$root/build}"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEBRELO_SKIP="" >/dev/null
cmake --build "$build" -j"$(nproc)"
