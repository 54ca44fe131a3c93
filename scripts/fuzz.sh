#!/usr/bin/env bash
# Runs the fuzz targets for longer than the test suite's smoke runs.
# Usage: scripts/fuzz.sh [target|all] [seconds per target] (default: all, 1800)
# Each target starts from its seeds in fuzz/corpus/<target>/ and keeps what it
# finds in <build>/fuzz-corpus/<target>/; a crash, hang or leak is written to
# <build>/fuzz-findings/<target>/ and ends that target's run with a failure.
# Copy a finding into fuzz/corpus/<target>/ (a name that says what it is)
# once it is fixed, so the smoke run keeps checking it.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${ZEBRELO_BUILD_DIR:-$root/build}"
which=${1:-all}
seconds=${2:-1800}
# ZEBRELO_FUZZ_SKIP_BUILD=1 runs what is built, beside a build in progress.
if [ "${ZEBRELO_FUZZ_SKIP_BUILD:-0}" != 1 ]; then
    "$root/scripts/build.sh" >/dev/null || { echo "fuzz: the build failed" >&2; exit 1; }
fi

targets=()
if [ "$which" = all ]; then
    for program in "$build"/bin/fuzz_*; do [ -x "$program" ] && targets+=("$(basename "$program")"); done
else
    targets=("$which")
fi
if [ ${#targets[@]} -eq 0 ]; then
    echo "fuzz: no fuzz targets were built (is clang installed?)" >&2
    exit 1
fi

# The provider the contact target binds, as its smoke test does.
export ZEBRELO_DEVICE_PROVIDER="$build/bin/libzebrelo-mobiledevice.so"
# RapidJSON's known pointer arithmetic report is suppressed as in the tests.
export UBSAN_OPTIONS="suppressions=$root/scripts/ubsan.supp"
failed=()
for target in "${targets[@]}"; do
    program="$build/bin/$target"
    if [ ! -x "$program" ]; then
        echo "fuzz: no such target: $target" >&2
        failed+=("$target")
        continue
    fi
    found="$build/fuzz-corpus/$target"
    findings="$build/fuzz-findings/$target"
    mkdir -p "$found" "$findings"
    seeds=()
    [ -d "$root/fuzz/corpus/$target" ] && seeds=("$root/fuzz/corpus/$target")
    log="$findings/run.log"
    echo "fuzz: $target for $seconds s (log: $log)"
    "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
        -print_final_stats=1 -artifact_prefix="$findings/" "$found" "${seeds[@]}" >"$log" 2>&1
    status=$?
    runs=$(grep -ao 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$')
    echo "fuzz: $target: ${runs:-?} runs, corpus $(find "$found" -type f | wc -l) inputs, exit $status"
    if [ $status -ne 0 ]; then
        grep -a -m3 -E 'ERROR|SUMMARY|Test unit written' "$log" | sed 's/^/    /'
        failed+=("$target")
    fi
done
if [ ${#failed[@]} -ne 0 ]; then
    echo "fuzz: findings in: ${failed[*]}" >&2
    exit 1
fi
echo "fuzz: no findings"
