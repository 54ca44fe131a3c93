#!/bin/bash
# Builds and runs every benchmark in bench/, then prints one table: path,
# worker figure, reference figure, ratio, aim and whether it is met. Each
# benchmark measures its reference in the same run. Usage: bench/run.sh
# [BUILD-DIR] (default: build). Takes several minutes: two of them move 2 GB.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
benches=(device_ready_bench file_transfer_bench app_bench contact_bench sync_data_bench backup_bench restore_bench
         fill_bench)

if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null || { echo "bench: cmake failed" >&2; exit 1; }
fi
echo "bench: building ${benches[*]}" >&2
cmake --build "$build" -j"$(nproc)" --target "${benches[@]}" > "$build/bench-build.log" 2>&1 \
    || { echo "bench: the build failed, see $build/bench-build.log" >&2; exit 1; }

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
failed=()
for bench in "${benches[@]}"; do
    echo "bench: running $bench" >&2
    if ! "$build/bin/$bench" > "$rows.out" 2> "$rows.err"; then
        failed+=("$bench")
        echo "bench: $bench failed:" >&2
        tail -5 "$rows.err" >&2
    fi
    grep '^ROW' "$rows.out" >> "$rows"
done
rm -f "$rows.out" "$rows.err"

printf '\n%-48s %-14s %-14s %7s %8s %s\n' "path" "worker" "reference" "ratio" "aim" "met"
while IFS=$'\t' read -r _ path worker reference ratio aim met; do
    printf '%-48s %-14s %-14s %7s %8s %s\n' "$path" "$worker" "$reference" "$ratio" "$aim" "$met"
done < "$rows"
if [ ${#failed[@]} -gt 0 ]; then
    echo "bench: failed to run: ${failed[*]}" >&2
    exit 1
fi
