# idevicename: a new name survives a detach and re-attach, and a restart of
# the simulator with the same state folder, where the earlier pairing still holds.
. "$(dirname "$0")/harness.sh"
need_tool idevicename
need_tool ideviceinfo
start_sim

run_tool idevicename
[ "$OUT" = "Zebrelo iPhone" ] || fail "initial name: $OUT"
run_tool idevicename "Kitchen iPhone"
expect_ok "set name"
run_tool idevicename
[ "$OUT" = "Kitchen iPhone" ] || fail "name after set: $OUT"

ctl "detach $BUILTIN_UDID" >/dev/null || fail "detach"
ctl "attach $BUILTIN_UDID" >/dev/null || fail "attach"
run_tool idevicename
[ "$OUT" = "Kitchen iPhone" ] || fail "name after reconnect: $OUT"
RECORD_BEFORE=$(cat "$WORK/state/usbmuxd/$BUILTIN_UDID.plist")

stop_sim
start_sim
run_tool idevicename
[ "$OUT" = "Kitchen iPhone" ] || fail "name after restart: $OUT"
run_tool ideviceinfo -k UniqueDeviceID
[ "$OUT" = "$BUILTIN_UDID" ] || fail "session after restart: $OUT"
# The host kept using its first pairing: no new record was written.
[ "$(cat "$WORK/state/usbmuxd/$BUILTIN_UDID.plist")" = "$RECORD_BEFORE" ] || fail "the host had to pair again"
stop_sim
