# An encrypted backup carries a key bag for its password: a restore with a
# wrong password is refused with 207 and changes nothing, the right one
# restores.
. "$(dirname "$0")/backup_common.sh"
need_tool ideviceinstaller
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-noapps"
A=$BUILTIN_UDID
B=$NOAPPS_UDID
DIR="$WORK/backups"
mkdir -p "$DIR"

backup_tool -u $A encryption on "s3cret pass"
expect_ok "encryption on"
backup_tool -u $A backup --full "$DIR"
expect_ok "encrypted backup"
[ "$(plist_value "$DIR/$A/Manifest.plist" IsEncrypted)" = True ] || fail "not marked encrypted"
[ "$(plist_value "$DIR/$A/Manifest.plist" BackupKeyBag)" != None ] || fail "no key bag in Manifest.plist"
grep -qF "s3cret" "$DIR/$A/Manifest.plist" && fail "the password itself is in Manifest.plist"

backup_tool -u $B restore --system --password wrong -s $A "$DIR"
expect_failure "restore with a wrong password"
expect_output "restore with a wrong password" "ErrorCode 207: Invalid password (MBErrorDomain/207)"
run_tool ideviceinstaller -u $B -l
grep -q '^[^ ]*, "' <<<"$OUT" && fail "a refused restore installed apps"

backup_tool -u $B restore --system --password "s3cret pass" -s $A "$DIR"
expect_ok "restore with the right password"
expect_output "restore with the right password" "Restore Successful."
run_tool ideviceinstaller -u $B -l
[ "$(grep -c '^[^ ]*, "' <<<"$OUT")" -eq 36 ] || fail "the encrypted restore did not install the apps"
stop_sim
