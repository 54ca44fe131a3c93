# idevice_id: USB and network listings, attach and detach through the control channel.
. "$(dirname "$0")/harness.sh"
need_tool idevice_id
start_sim

run_tool idevice_id -l
expect_ok "USB listing"
[ "$OUT" = "$BUILTIN_UDID" ] || fail "USB listing should be the built-in device only: $OUT"

NET=$(ctl "attach $ZSIM_PROFILES/iphone12-ios16-network") || fail "attach network profile: $NET"
NET_UDID=${NET#ok }
run_tool idevice_id -n
expect_ok "network listing"
[ "$OUT" = "$NET_UDID" ] || fail "network listing should hold the network device only: $OUT"
run_tool idevice_id -l
[ "$OUT" = "$BUILTIN_UDID" ] || fail "a network device must not show in the USB listing: $OUT"
# The host reaches a network device itself, over TCP at the address usbmuxd gave.
if command -v ideviceinfo >/dev/null; then
  run_tool ideviceinfo -n -u "$NET_UDID" -k ProductVersion
  [ "$OUT" = "16.6" ] || fail "network device over TCP: $OUT"
fi

ctl "detach $BUILTIN_UDID" >/dev/null || fail "detach"
run_tool idevice_id -l
[ -z "$OUT" ] || fail "detached device still listed: $OUT"
ctl "attach $BUILTIN_UDID" >/dev/null || fail "re-attach by UDID"
run_tool idevice_id -l
[ "$OUT" = "$BUILTIN_UDID" ] || fail "re-attached device missing: $OUT"

# The control channel answers every line, errors included.
LIST=$(ctl list) || fail "list: $LIST"
grep -q "^ok 2 " <<<"$LIST" || fail "list should count 2 devices: $LIST"
grep -q "$BUILTIN_UDID,USB,trusted,attached,Zebrelo%20iPhone" <<<"$LIST" || fail "list entry: $LIST"
grep -q "$NET_UDID,Network," <<<"$LIST" || fail "network entry: $LIST"
for bad in "detach 0000" "frobnicate $BUILTIN_UDID" "stall $BUILTIN_UDID sideways" "attach /nonexistent"; do
  A=$(ctl "$bad") && fail "'$bad' should be refused: $A"
  grep -q "^error: " <<<"$A" || fail "'$bad' answer: $A"
done
stop_sim
