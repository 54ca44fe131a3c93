# libusbmuxd's event subscription sees attach, paired and detach in order.
. "$(dirname "$0")/harness.sh"
start_sim
ZSIM_CONTROL="$WORK/ctl.sock" ZSIM_PROFILE="$ZSIM_PROFILES/iphone11-ios16-untrusted" timeout 30 "$ZSIM_EVENTS" \
  || fail "event order"
stop_sim
