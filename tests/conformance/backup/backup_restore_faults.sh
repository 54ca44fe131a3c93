# Faults of a restore, by the bytes the device has taken: an error it
# reports, a device pulled out midway. Either way nothing is applied, no
# staged file stays behind, and the device serves the next session.
. "$(dirname "$0")/backup_common.sh"
need_tool ideviceinstaller
FAIL_UDID=00008110-001A2B3C4D5E6F11
DROP_UDID=00008110-001A2B3C4D5E6F12
profile_with fail "p['Backup'] = {'FailAtPercent': 50}; p['Values']['UniqueDeviceID'] = '$FAIL_UDID'"
profile_with drop "p['Backup'] = {'DropAtPercent': 40.5}; p['Values']['UniqueDeviceID'] = '$DROP_UDID'"
start_sim --builtin --profile "$WORK/fail" --profile "$WORK/drop"
A=$BUILTIN_UDID
DIR="$WORK/backups"
mkdir -p "$DIR"
echo "from the source" > "$WORK/state/$A/media/Downloads/from-a.txt"
backup_tool -u $A backup --full "$DIR"
expect_ok "backup to restore from"

untouched() {
  run_tool ideviceinstaller -u "$1" -l
  grep -q '^[^ ]*, "' <<<"$OUT" && fail "$2 installed apps"
  [ ! -e "$WORK/state/$1/media/Downloads/from-a.txt" ] || fail "$2 wrote media files"
  ls -d "$WORK/state/$1"/restore-* 2>/dev/null && fail "$2 left its staging folder"
  backup_tool -u "$1" -s $A info "$DIR"
  expect_ok "a session after $2"
}

backup_tool -u $FAIL_UDID restore --system -s $A "$DIR"
expect_failure "restore onto a failing device"
expect_output "restore onto a failing device" "ErrorCode 105:"
untouched $FAIL_UDID "a failed restore"

backup_tool -u $DROP_UDID restore --system -s $A "$DIR"
expect_failure "restore onto a device pulled out"
[ "$RC" -ne 124 ] || fail "the tool hung on a device pulled out"
[ "$TOOK" -lt 10 ] || fail "a device pulled out took $TOOK s to notice"
grep -qF "Restore Successful." <<<"$OUT" && fail "a restore cut short counted as successful"
untouched $DROP_UDID "a restore cut short"
stop_sim
