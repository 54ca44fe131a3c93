# Faults of a backup: an error the device reports, a device pulled out
# midway, a refused service, the control channel's break and stall. The
# stock tool must fail (or wait and then succeed) without hanging.
. "$(dirname "$0")/backup_common.sh"
FAIL_UDID=00008110-001A2B3C4D5E6F01
DROP_UDID=00008110-001A2B3C4D5E6F02
SLOW_UDID=00008110-001A2B3C4D5E6F03
profile_with fail "p['Backup'] = {'FailAtPercent': 40}; p['Values']['UniqueDeviceID'] = '$FAIL_UDID'"
profile_with drop "p['Backup'] = {'DropAtPercent': 40.5}; p['Values']['UniqueDeviceID'] = '$DROP_UDID'"
profile_with slow "p['Backup'] = {'PageDelayMilliseconds': 1500}; p['Values']['UniqueDeviceID'] = '$SLOW_UDID'"
start_sim --builtin --profile "$WORK/fail" --profile "$WORK/drop" --profile "$WORK/slow"
DIR="$WORK/backups"
mkdir -p "$DIR"

backup_tool -u $FAIL_UDID backup --full "$DIR"
expect_failure "backup of a failing device"
expect_output "backup of a failing device" "ErrorCode 105:"
expect_output "backup of a failing device" "Backup Failed (Error Code 105)."
[ ! -e "$DIR/$FAIL_UDID/Status.plist" ] || fail "a failed backup left a Status.plist"

backup_tool -u $DROP_UDID backup --full "$DIR"
expect_failure "backup of a device pulled out"
[ "$RC" -ne 124 ] || fail "the tool hung on a device pulled out"
[ "$TOOK" -lt 10 ] || fail "a device pulled out took $TOOK s to notice"
grep -qF "Backup Successful." <<<"$OUT" && fail "a backup cut short counted as successful"
run_tool ideviceinfo -u $DROP_UDID -k DeviceName
expect_ok "lockdown after the drop"

ctl refuse-service $BUILTIN_UDID com.apple.mobilebackup2 on > /dev/null
backup_tool -u $BUILTIN_UDID backup --full "$DIR"
expect_failure "backup with the service refused"
expect_output "backup with the service refused" "Could not start service com.apple.mobilebackup2"
ctl refuse-service $BUILTIN_UDID com.apple.mobilebackup2 off > /dev/null
backup_tool -u $BUILTIN_UDID backup --full "$DIR"
expect_ok "backup once the service is allowed again"

# The slow device pauses 1.5 s before each page of files: break lands in
# the first pause, stall holds the second.
( sleep 1.5; ctl break $SLOW_UDID > /dev/null ) &
BREAKER=$!
backup_tool -u $SLOW_UDID backup --full "$DIR"
wait $BREAKER
expect_failure "backup of a device whose connections broke"
[ "$RC" -ne 124 ] || fail "the tool hung after break"

rm -rf "${DIR:?}/$SLOW_UDID"
( timeout 60 idevicebackup2 -u $SLOW_UDID backup --full "$DIR" > "$WORK/stalled.out" 2>&1; echo $? > "$WORK/stalled.rc" ) &
TOOL=$!
sleep 2.5
ctl stall $SLOW_UDID on > /dev/null
sleep 3
[ ! -e "$WORK/stalled.rc" ] || fail "the tool ended while the device was stalled: $(cat "$WORK/stalled.out")"
[ ! -e "$DIR/$SLOW_UDID/Status.plist" ] || fail "the backup finished while the device was stalled"
ctl stall $SLOW_UDID off > /dev/null
wait $TOOL
[ "$(cat "$WORK/stalled.rc")" = 0 ] || fail "the stalled backup did not finish: $(cat "$WORK/stalled.out")"
grep -qF "Backup Successful." "$WORK/stalled.out" || fail "the stalled backup did not succeed"
stop_sim
