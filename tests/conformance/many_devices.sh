# Thirty-two devices at once, each with a UDID of its own, all reachable.
. "$(dirname "$0")/harness.sh"
need_tool idevice_id
need_tool ideviceinfo
start_sim
for _ in $(seq 31); do ctl "attach builtin" >/dev/null || fail "attach builtin"; done
run_tool idevice_id -l
expect_ok "listing"
[ "$(wc -l <<<"$OUT")" -eq 32 ] || fail "expected 32 devices: $OUT"
[ "$(sort -u <<<"$OUT" | wc -l)" -eq 32 ] || fail "UDIDs are not distinct: $OUT"
grep -Evq '^00008110-[0-9A-F]{16}$' <<<"$OUT" && fail "derived UDIDs must keep the device's format: $OUT"
# The last one answers with its own identity.
LAST=$(tail -n1 <<<"$OUT")
run_tool ideviceinfo -u "$LAST" -k UniqueDeviceID
[ "$OUT" = "$LAST" ] || fail "device $LAST answered $OUT"
stop_sim
