# Sourced by the app service scripts: the shared harness plus what they all need.
. "$(dirname "$0")/../harness.sh"
need_tool ideviceinstaller

APPS23_UDID=00008110-001A2B3C4D5E6023
NOAPPS_UDID=00008110-001A2B3C4D5E6000
BENCH_UDID=00008110-001A2B3C4D5E6999

# count_apps OUTPUT: the lines of an `ideviceinstaller -l` listing, header excluded.
count_apps() { grep -c '^[^ ]*, "' <<<"$1"; }

make_ipa() { "$ZSIM_MAKE_IPA" "$@" || fail "make_test_ipa $*"; }
