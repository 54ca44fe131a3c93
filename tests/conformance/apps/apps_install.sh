# Install, upgrade and uninstall with ideviceinstaller; packages the device
# rejects, with its error; installs surviving a restart on the same state.
. "$(dirname "$0")/apps_common.sh"
start_sim --builtin
ID=com.zebrelo.sample

make_ipa "$WORK/v1.ipa" --id $ID --name "Zebrelo Sample" --version 10 --short 1.0
make_ipa "$WORK/v2.ipa" --id $ID --name "Zebrelo Sample" --version 20 --short 2.0 --payload-bytes 300000
run_tool ideviceinstaller -i "$WORK/v1.ipa"
expect_ok "install"
expect_output "install" "Install: InspectingPackage (20%)"
expect_output "install" "Install: Complete"
run_tool ideviceinstaller -l
expect_output "installed app listed" "$ID, \"10\", \"Zebrelo Sample\""

run_tool ideviceinstaller -g "$WORK/v2.ipa"
expect_ok "upgrade"
expect_output "upgrade" "Upgrade: Complete"
run_tool ideviceinstaller -l
expect_output "upgraded app listed" "$ID, \"20\", \"Zebrelo Sample\""
[ "$(grep -c "^$ID," <<<"$OUT")" -eq 1 ] || fail "upgrade left two entries"

# The device's own verdicts, after the stage where each fault shows.
make_ipa "$WORK/noversion.ipa" --id com.zebrelo.noversion --no-bundle-version
run_tool ideviceinstaller -i "$WORK/noversion.ipa"
[ "$RC" -eq 128 ] || fail "package without CFBundleVersion accepted ($RC): $OUT"
expect_output "rejected package" 'Got error "MissingBundleVersion"'
echo "not a zip" > "$WORK/text.ipa"
OUT=$("$ZSIM_APPS_CHECK" stage-install "$WORK/text.ipa" 2>&1)
[ "$OUT" = "PackageExtractionFailed" ] || fail "non-zip package: $OUT"
python3 -c "import zipfile,sys; zipfile.ZipFile(sys.argv[1],'w').writestr('README','no bundle')" "$WORK/nobundle.ipa"
OUT=$("$ZSIM_APPS_CHECK" stage-install "$WORK/nobundle.ipa" 2>&1)
[ "$OUT" = "PackageInspectionFailed" ] || fail "zip without a bundle: $OUT"

# -w waits for the device's application_uninstalled notification.
run_tool ideviceinstaller -w -U $ID
expect_ok "uninstall"
expect_output "uninstall" "Uninstall: RemovingApplication (50%)"
expect_output "uninstall" "Uninstall: Complete"
run_tool ideviceinstaller -l
grep -q "^$ID," <<<"$OUT" && fail "uninstalled app still listed"

run_tool ideviceinstaller -w -i "$WORK/v1.ipa"
expect_ok "install waiting for the notification"
stop_sim
start_sim --builtin
run_tool ideviceinstaller -l
expect_output "install survives a restart" "$ID, \"10\", \"Zebrelo Sample\""
stop_sim
