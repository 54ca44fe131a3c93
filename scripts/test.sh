#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test with CTest.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh"
cd "${ZEBRELO_BUILD_DIR:-$root/build}"
ctest --output-on-failure --timeout 300 -j"$(nproc)" "$@"
