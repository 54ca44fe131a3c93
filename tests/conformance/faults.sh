# "break" closes a device's connections and "stall" silences it.
. "$(dirname "$0")/harness.sh"
start_sim
ZSIM_CONTROL="$WORK/ctl.sock" ZSIM_UDID="$BUILTIN_UDID" timeout 30 "$ZSIM_FAULTS" || fail "faults"
stop_sim
