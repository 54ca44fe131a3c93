# idevicepair against untrusted and locked devices, with the user's answers
# given through the control channel.
. "$(dirname "$0")/harness.sh"
need_tool idevicepair
start_sim --profile "$ZSIM_PROFILES/iphone11-ios16-untrusted" --profile "$ZSIM_PROFILES/iphone11-ios15-locked"
U=00008030-001A2B3C4D5E802E
L=00008030-000B2C3D4E5F702E

run_tool idevicepair -u "$U" pair
expect_failure "pair before the user answered"
expect_output "pending dialog" "accept the trust dialog"
ctl list | grep -q "$U,USB,pending," || fail "control list should show the pending dialog"
run_tool idevicepair -u "$U" pair
expect_failure "pair while the dialog is still up"
expect_output "still pending" "accept the trust dialog"

ctl "refuse $U" >/dev/null || fail "refuse"
run_tool idevicepair -u "$U" pair
expect_failure "pair after refusal"
expect_output "refused" "denied the trust dialog"
run_tool idevicepair -u "$U" validate
expect_failure "validate without pairing"

run_tool idevicepair -u "$U" pair
expect_output "dialog again" "accept the trust dialog"
ctl "trust $U" >/dev/null || fail "trust"
run_tool idevicepair -u "$U" pair
expect_ok "pair after trust"
expect_output "paired" "SUCCESS: Paired with device $U"
[ -s "$WORK/state/usbmuxd/$U.plist" ] || fail "the host's pair record was not stored through usbmuxd"
run_tool idevicepair -u "$U" validate
expect_ok "validate"
ctl list | grep -q "$U,USB,paired," || fail "control list should show the device as paired"

run_tool idevicepair -u "$U" unpair
expect_ok "unpair"
[ ! -e "$WORK/state/usbmuxd/$U.plist" ] || fail "unpair left the host's pair record"
run_tool idevicepair -u "$U" pair
expect_failure "pair after unpair"
expect_output "forgotten host" "accept the trust dialog"

run_tool idevicepair -u "$L" pair
expect_failure "pair with a locked device"
expect_output "locked" "passcode is set"
ctl "trust $L" >/dev/null || fail "unlock and trust"
run_tool idevicepair -u "$L" pair
expect_ok "pair after unlock"
stop_sim
