# Sourced by every conformance script: a simulator on fresh temporary paths,
# stopped (and its files removed) when the script ends.
set -u

WORK=$(mktemp -d "${TMPDIR:-/tmp}/zsim-conformance.XXXXXX")
SIM_PID=""
BUILTIN_UDID=00008110-001A2B3C4D5E601E

fail() { echo "FAIL: $*"; exit 1; }

need_tool() {
  command -v "$1" >/dev/null 2>&1 || { echo "SKIP: $1 is not installed"; exit 77; }
}

# start_sim [zebrelo-sim options...]: waits for the ready line.
start_sim() {
  : > "$WORK/sim.log"
  "$ZSIM_BIN" --socket "$WORK/mux.sock" --control "$WORK/ctl.sock" --state "$WORK/state" "$@" \
    > "$WORK/sim.log" 2>&1 &
  SIM_PID=$!
  for _ in $(seq 200); do
    grep -q "listening on" "$WORK/sim.log" && break
    kill -0 "$SIM_PID" 2>/dev/null || break
    sleep 0.05
  done
  grep -q "listening on $WORK/mux.sock" "$WORK/sim.log" || fail "simulator did not start: $(cat "$WORK/sim.log")"
  export USBMUXD_SOCKET_ADDRESS="UNIX:$WORK/mux.sock"
}

# stop_sim: SIGTERM must end it cleanly and take its socket files with it.
stop_sim() {
  kill -TERM "$SIM_PID"
  wait "$SIM_PID"
  local rc=$?
  SIM_PID=""
  [ "$rc" -eq 0 ] || fail "simulator exited with $rc on SIGTERM"
  [ ! -e "$WORK/mux.sock" ] || fail "usbmuxd socket left behind"
  [ ! -e "$WORK/ctl.sock" ] || fail "control socket left behind"
}

cleanup() {
  [ -n "$SIM_PID" ] && kill -KILL "$SIM_PID" 2>/dev/null
  rm -rf "$WORK"
}
trap cleanup EXIT

ctl() { "$ZSIM_CTL" "$WORK/ctl.sock" "$*"; }

# run_tool NAME ARGS...: a stock tool with a time limit, output in $OUT, status in $RC.
run_tool() {
  OUT=$(timeout 20 "$@" 2>&1)
  RC=$?
}

expect_ok() { [ "$RC" -eq 0 ] || fail "$1 (exit $RC): $OUT"; }
expect_failure() { [ "$RC" -ne 0 ] || fail "$1 unexpectedly succeeded: $OUT"; }
expect_output() { grep -qF -- "$2" <<<"$OUT" || fail "$1: no '$2' in: $OUT"; }
