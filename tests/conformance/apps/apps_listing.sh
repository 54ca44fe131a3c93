# ideviceinstaller -l in its three modes, and Browse through the library
# client, on the built-in device and on the 23-app, no-app and 1,000-app
# profiles attached to the same simulator.
. "$(dirname "$0")/apps_common.sh"
start_sim --builtin
for p in iphone13-ios17-apps23 iphone13-ios17-noapps iphone13-ios17-apps1000; do
  ctl "attach $ZSIM_PROFILES/$p" >/dev/null || fail "attach $p"
done

run_tool ideviceinstaller -u "$BUILTIN_UDID" -l
expect_ok "list user apps"
expect_output "list header" "CFBundleIdentifier, CFBundleVersion, CFBundleDisplayName"
expect_output "list user apps" 'com.northwindlabs.notes, "41201", "Northwind Notes"'
expect_output "list user apps" 'com.fitandfood.tracker, "231", "Fit & Food"'
[ "$(count_apps "$OUT")" -eq 36 ] || fail "built-in device should list 36 user apps: $OUT"
grep -q "com.apple." <<<"$OUT" && fail "system app among user apps"

run_tool ideviceinstaller -u "$BUILTIN_UDID" -l -o list_system
expect_ok "list system apps"
expect_output "list system apps" 'com.apple.mobilesafari, "1.0", "Safari"'
[ "$(count_apps "$OUT")" -eq 40 ] || fail "built-in device should list 40 system apps"

run_tool ideviceinstaller -u "$BUILTIN_UDID" -l -o list_all
expect_ok "list all apps"
[ "$(count_apps "$OUT")" -eq 76 ] || fail "built-in device should list 76 apps in all"

# Full entries: every attribute but the disk usage, which only comes when asked.
run_tool ideviceinstaller -u "$BUILTIN_UDID" -l -o xml
expect_ok "list as xml"
expect_output "xml listing" "<key>iTunesMetadata</key>"
expect_output "xml listing" "<key>Container</key>"
grep -q "StaticDiskUsage" <<<"$OUT" && fail "disk usage given without being asked"
OUT=$(ZSIM_UDID=$BUILTIN_UDID "$ZSIM_APPS_CHECK" browse User CFBundleIdentifier StaticDiskUsage 2>&1)
[ "$OUT" = "36" ] || fail "browse with attributes: $OUT"

run_tool ideviceinstaller -u "$APPS23_UDID" -l
expect_ok "23-app profile"
[ "$(count_apps "$OUT")" -eq 23 ] || fail "23-app profile lists $(count_apps "$OUT")"

run_tool ideviceinstaller -u "$NOAPPS_UDID" -l
expect_ok "no-app profile"
[ "$(count_apps "$OUT")" -eq 0 ] || fail "no-app profile lists apps: $OUT"
OUT=$(ZSIM_UDID=$NOAPPS_UDID "$ZSIM_APPS_CHECK" browse System 2>&1)
[ "$OUT" = "40" ] || fail "no-app profile keeps its system apps: $OUT"

run_tool ideviceinstaller -u "$BENCH_UDID" -l
expect_ok "1,000-app profile"
[ "$(count_apps "$OUT")" -eq 1000 ] || fail "1,000-app profile lists $(count_apps "$OUT")"
expect_output "generated app" 'com.example.bench.app0001, "101", "Bench App 0001"'
expect_output "generated app" 'com.example.bench.app1000, "1100", "Bench App 1000"'
stop_sim
