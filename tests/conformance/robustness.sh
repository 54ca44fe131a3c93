# Bad input on the usbmuxd socket and on lockdown is answered or dropped.
. "$(dirname "$0")/harness.sh"
start_sim
timeout 30 "$ZSIM_ROBUSTNESS" "$WORK/mux.sock" || fail "robustness"
kill -0 "$SIM_PID" || fail "simulator died"
stop_sim
