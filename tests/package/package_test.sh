#!/usr/bin/env bash
# The .deb made from this build, unpacked into a scratch root: its files,
# dependencies that dpkg-shlibdeps found, and the installed programs (the
# worker finding its provider under lib/zebrelo/) reading a simulated device.
# Usage: package_test.sh BUILD_DIR VERSION
set -uo pipefail
build=$1
version=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/zeb-package.XXXXXX")
sim_pid=""
cleanup() {
    [ -n "$sim_pid" ] && kill -KILL "$sim_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; exit 1; }

command -v dpkg-shlibdeps >/dev/null || { echo "SKIP: dpkg-shlibdeps is not installed"; exit 77; }
cpack --config "$build/CPackConfig.cmake" -B "$work/out" > "$work/cpack.log" 2>&1 \
    || fail "cpack failed: $(tail -20 "$work/cpack.log")"
deb=$(ls "$work"/out/*.deb 2>/dev/null | head -1)
[ -n "$deb" ] || fail "cpack made no .deb: $(tail -20 "$work/cpack.log")"

depends=$(dpkg-deb -f "$deb" Depends)
for library in libimobiledevice6 libplist3 libusbmuxd6 libgoogle-glog libcurl4; do
    grep -q "$library" <<<"$depends" || fail "Depends lacks $library: $depends"
done
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "package version $(dpkg-deb -f "$deb" Version), not $version"

root="$work/root"
dpkg -x "$deb" "$root" || fail "dpkg -x failed"
for file in usr/bin/zebrelo usr/bin/zebrelo-ctl usr/bin/zebrelo-sim usr/lib/zebrelo/libzebrelo-mobiledevice.so usr/lib/zebrelo/libzebrelo-download.so \
            usr/share/doc/zebrelo/README.md usr/share/doc/zebrelo/README.simulator.md; do
    [ -e "$root/$file" ] || fail "$file is not in the package"
done
for program in zebrelo zebrelo-ctl zebrelo-sim; do
    out=$("$root/usr/bin/$program" --version) || fail "$program --version failed"
    [ "$out" = "$program $version" ] || fail "$program --version printed '$out'"
done

"$root/usr/bin/zebrelo-sim" --socket "$work/mux.sock" --control "$work/ctl.sock" --state "$work/state" \
    > "$work/sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 200); do
    grep -q "listening on" "$work/sim.log" && break
    sleep 0.05
done
grep -q "listening on" "$work/sim.log" || fail "the installed simulator did not start: $(cat "$work/sim.log")"

# Only the installed tree: no provider named from outside, no build folder.
out=$(env -u ZEBRELO_DEVICE_PROVIDER timeout 60 "$root/usr/bin/zebrelo-ctl" --usbmuxd "$work/mux.sock" info 2>&1) \
    || fail "installed zebrelo-ctl info failed: $out"
grep -q "00008110-001A2B3C4D5E601E" <<<"$out" || fail "info did not read the simulated device: $out"
echo "package: $(basename "$deb") installs and reads a device"
