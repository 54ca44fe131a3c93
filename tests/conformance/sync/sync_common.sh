# Sourced by the mobilesync scripts: the shared harness, the devices they
# use, and the checker.
. "$(dirname "$0")/../harness.sh"

CONTACTS250_UDID=00008110-001A2B3C4D5E6250
CONTACTS20K_UDID=00008110-001A2B3C4D5E6020
NOAPPS_UDID=00008110-001A2B3C4D5E6000
IPHONE4_UDID=3b7d9f0e1c2a4b5d6e7f8091a2b3c4d5e6f70812
CONTACTS=com.apple.Contacts

# check ARGS...: mobilesync_check with a time limit; stdout in $OUT, stderr in $ERR.
check() {
  OUT=$(timeout 20 "$ZSIM_SYNC_CHECK" "$@" 2>"$WORK/check.err")
  RC=$?
  ERR=$(cat "$WORK/check.err")
}

expect_check() {  # what ARGS... : must succeed and print exactly what
  local what=$1
  shift
  check "$@"
  [ "$RC" -eq 0 ] || fail "mobilesync_check $* (exit $RC): $OUT $ERR"
  [ "$OUT" = "$what" ] || fail "mobilesync_check $*: expected '$what', got '$OUT'"
}

# profile_with NAME PYTHON: a copy of the 250-contact profile changed by
# PYTHON (acting on the dictionary `p`), as $WORK/NAME.
profile_with() {
  mkdir -p "$WORK/$1"
  python3 - "$ZSIM_PROFILES/iphone13-ios17-contacts250/profile.plist" "$WORK/$1/profile.plist" "$2" <<'PY' \
    || fail "could not make profile $1"
import plistlib, sys
with open(sys.argv[1], "rb") as f:
    p = plistlib.load(f)
exec(sys.argv[3])
with open(sys.argv[2], "wb") as f:
    plistlib.dump(p, f)
PY
}
