# Services the control channel refuses, and requests a device turns down.
. "$(dirname "$0")/apps_common.sh"
start_sim --builtin

ctl "refuse-service $BUILTIN_UDID com.apple.mobile.installation_proxy on" >/dev/null || fail "refuse-service"
run_tool ideviceinstaller -l
expect_failure "listing with the installation proxy refused"
expect_output "refused service" "Could not start com.apple.mobile.installation_proxy"
ctl "refuse-service $BUILTIN_UDID com.apple.mobile.installation_proxy off" >/dev/null || fail "refuse-service off"
run_tool ideviceinstaller -l
expect_ok "listing once the service is allowed again"

ctl "refuse-service $BUILTIN_UDID com.apple.springboardservices on" >/dev/null || fail "refuse springboard"
OUT=$("$ZSIM_APPS_CHECK" icons com.northwindlabs.notes com.apple.mobilesafari x 2>&1)
grep -q "springboardservices did not start" <<<"$OUT" || fail "springboard still started: $OUT"

run_tool ideviceinstaller -U com.apple.mobilesafari
[ "$RC" -eq 128 ] || fail "system app uninstalled: $OUT"
expect_output "system app" 'Got error "UninstallProhibited"'
# A device removes an app that is not there without complaint.
run_tool ideviceinstaller -U com.example.not.installed
expect_ok "uninstall of an unknown app"
run_tool ideviceinstaller -a com.example.not.installed
[ "$RC" -eq 128 ] || fail "archive of an unknown app: $OUT"
stop_sim
