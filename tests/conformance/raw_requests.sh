# Request forms other hosts send, raw over the wire: the binary usbmuxd
# protocol, usbmuxd and lockdown requests without optional keys or with
# unknown ones, AFC paths without their NUL or as payload.
. "$(dirname "$0")/harness.sh"
need_tool idevicepair
start_sim
run_tool idevicepair -u "$BUILTIN_UDID" pair
expect_ok "idevicepair pair"
timeout 60 "$ZSIM_RAW_REQUESTS" "$WORK/mux.sock" "$WORK/ctl.sock" "$BUILTIN_UDID" || fail "raw request forms"
kill -0 "$SIM_PID" || fail "simulator died"
stop_sim
