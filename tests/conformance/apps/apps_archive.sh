# Archive (-a, with its options), list archives (-L), restore (-r) and
# remove archives (-R) with ideviceinstaller.
. "$(dirname "$0")/apps_common.sh"
start_sim --builtin
ID=com.northwindlabs.notes

run_tool ideviceinstaller -a $ID
expect_ok "archive"
expect_output "archive" "Archive: ArchivingApplication (50%)"
expect_output "archive" "Archive: Complete"
run_tool ideviceinstaller -L
expect_output "archive listed" "Total: 1 archived apps"
expect_output "archive listed" "$ID - Northwind Notes 41201"
run_tool ideviceinstaller -l
expect_output "archive keeps the app by default" "$ID, "

run_tool ideviceinstaller -a $ID
[ "$RC" -eq 128 ] || fail "second archive accepted: $OUT"
expect_output "second archive" 'Got error "AlreadyArchived"'

run_tool ideviceinstaller -R $ID
expect_ok "remove archive"
expect_output "remove archive" "RemoveArchive: Complete"
run_tool ideviceinstaller -L
expect_output "archive removed" "Total: 0 archived apps"

# Archive with uninstall, then restore from the archive.
run_tool ideviceinstaller -w -a $ID -o uninstall -o copy="$WORK"
expect_ok "archive and uninstall"
expect_output "archive and uninstall" "Archive: RemovingApplication"
[ -s "$WORK/$ID.ipa" ] || fail "archive not copied off the device"
python3 - "$WORK/$ID.ipa" <<'PY' || fail "copied archive is not the app's package"
import plistlib, sys, zipfile
z = zipfile.ZipFile(sys.argv[1])
info = plistlib.loads(z.read("Payload/NorthwindNotes.app/Info.plist"))
meta = plistlib.loads(z.read("iTunesMetadata.plist"))
assert info["CFBundleIdentifier"] == "com.northwindlabs.notes" and meta["artistName"] == "Northwind Labs Ltd"
PY
run_tool ideviceinstaller -l
grep -q "^$ID," <<<"$OUT" && fail "archived app still installed"
run_tool ideviceinstaller -r $ID
expect_ok "restore"
expect_output "restore" "Restore: Complete"
run_tool ideviceinstaller -l
expect_output "restored app listed" "$ID, \"41201\", \"Northwind Notes\""
stop_sim
