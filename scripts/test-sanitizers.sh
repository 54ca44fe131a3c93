#!/usr/bin/env bash
# The test suite under AddressSanitizer + UndefinedBehaviorSanitizer (every
# test, with leak detection), then the pool, channel, hub, device-layer and
# provider tests under ThreadSanitizer. Each build has a folder of its own
# (build-asan/, build-tsan/). The worker and the simulator that the tests
# start run instrumented as well; their reports go to files, and any report
# fails the run, since their standard error is not the test's.
# Usage: scripts/test-sanitizers.sh [asan|tsan] (default: both)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
which=${1:-both}
"$root/scripts/install-deps.sh"

reports_clean() {  # $1: the folder the sanitizers wrote to
    local found
    found=$(find "$1" -type f -size +0 2>/dev/null | head -20)
    if [ -n "$found" ]; then
        echo "test-sanitizers: reports from the processes the tests started:" >&2
        for f in $found; do echo "== $f" >&2; head -40 "$f" >&2; done
        return 1
    fi
}

run_build() {  # $1: folder, $2: sanitizers
    cmake -S "$root" -B "$1" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEBRELO_SANITIZE="$2" >/dev/null \
        && cmake --build "$1" -j"$(nproc)" > "$1/sanitizer-build.log" 2>&1 \
        || { echo "test-sanitizers: the $2 build failed, see $1/sanitizer-build.log" >&2; return 1; }
}

status=0
if [ "$which" = asan ] || [ "$which" = both ]; then
    build="$root/build-asan"
    reports=$(mktemp -d /tmp/zeb-asan-XXXXXX)
    run_build "$build" address,undefined || exit 1
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:log_path=$reports/asan"
    export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$root/scripts/ubsan.supp:log_path=$reports/ubsan"
    # Instrumented programs run two to three times slower; a conformance
    # script's time-limited step that runs out is given one more try.
    (cd "$build" && ctest --output-on-failure --timeout 600 -j"$(nproc)" --repeat until-pass:2) || status=1
    reports_clean "$reports" || status=1
    rm -rf "$reports"
fi
if [ "$which" = tsan ] || [ "$which" = both ]; then
    build="$root/build-tsan"
    reports=$(mktemp -d /tmp/zeb-tsan-XXXXXX)
    run_build "$build" thread || exit 1
    # The worker's channels and their threads live as long as the process
    # and are never joined, by design; a thread that ends with its socket is
    # not a leak worth a report.
    export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:report_thread_leaks=0:suppressions=$root/scripts/tsan.supp:log_path=$reports/tsan"
    (cd "$build" && ctest --output-on-failure --timeout 600 -j"$(nproc)" \
        -R "ThreadPool|Hub|Channel|Frame|DeviceEvents|Commands\.|Provider|provider") || status=1
    reports_clean "$reports" || status=1
    rm -rf "$reports"
fi
exit $status
