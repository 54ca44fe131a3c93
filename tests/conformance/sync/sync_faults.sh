# Fault switches of the profile: the device unplugged in the middle of a
# full read, or on the host's first batch. The stock client must see an
# error, never wait for its 30-second timeout.
. "$(dirname "$0")/sync_common.sh"
profile_with drop-pages 'p["Sync"]["DropAfterPages"] = 2'
profile_with drop-changes 'p["Sync"]["DropOnHostChanges"] = True; p["Values"]["UniqueDeviceID"] = "00008110-001A2B3C4D5E6D0C"'
start_sim --profile "$WORK/drop-pages" --profile "$WORK/drop-changes"

started=$SECONDS
check read $CONTACTS250_UDID $CONTACTS
[ "$RC" -ne 0 ] || fail "a read the device broke off succeeded: $OUT"
[ "$RC" -ne 124 ] || fail "the host waited for a device that had gone"
grep -qE "(receiving|acknowledging) a page" <<<"$ERR" || fail "the read did not fail at a page: $ERR"
[ $((SECONDS - started)) -lt 10 ] || fail "the broken read took $((SECONDS - started)) s"
# The service itself lives on: sessions without a full read still work.
expect_check "refusals ok" refusals $CONTACTS250_UDID

check add 00008110-001A2B3C4D5E6D0C "Never" "Stored"
[ "$RC" -ne 0 ] && [ "$RC" -ne 124 ] || fail "a batch the device dropped on was answered (exit $RC): $OUT"
check list 00008110-001A2B3C4D5E6D0C $CONTACTS
grep -q "Never Stored" <<<"$OUT" && fail "the dropped batch was stored"
[ "$(grep -c '|com.apple.contacts.Contact|' <<<"$OUT")" -eq 250 ] || fail "contacts changed by a dropped batch"
stop_sim
