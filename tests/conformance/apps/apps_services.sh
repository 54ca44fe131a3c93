# Springboard icons and notification relays through libimobiledevice's own
# clients.
. "$(dirname "$0")/apps_common.sh"
start_sim --builtin

OUT=$("$ZSIM_APPS_CHECK" icons com.northwindlabs.notes com.apple.mobilesafari com.example.not.installed 2>&1)
RC=$?
expect_ok "springboard icons"
OUT=$("$ZSIM_APPS_CHECK" notify 2>&1)
RC=$?
expect_ok "notification relay"
stop_sim
