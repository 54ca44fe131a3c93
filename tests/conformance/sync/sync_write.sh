# Writes through libimobiledevice's mobilesync client: new records get the
# device's ids, fast sessions follow anchors, and what was written or
# cleared is still there after a restart on the same state folder and
# after the device is attached again.
. "$(dirname "$0")/sync_common.sh"
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-contacts250"

expect_check "contact 7 phone 3/7/0" add $BUILTIN_UDID "Zoë" "O'Brien & <Sons>"
expect_check "contact 251 phone 3/251/0" add $CONTACTS250_UDID "Ada" "Lovelace"
# A finished session's anchor gives one fast session; only the last
# finished session's anchor counts, and made-up ones are slow, not refused.
check anchor $CONTACTS250_UDID
[ "$RC" -eq 0 ] && [ -n "$OUT" ] || fail "no anchor from a finished session: $ERR"
ANCHOR=$OUT
expect_check "fast parents 0 children 0" changes $CONTACTS250_UDID "$ANCHOR"
expect_check "slow parents 0 children 0" changes $CONTACTS250_UDID "$ANCHOR"
expect_check "slow parents 0 children 0" changes $CONTACTS250_UDID Contacts-Device-Anchor
check anchor $BUILTIN_UDID
ANCHOR=$OUT

stop_sim
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-contacts250"
# The device still knows the last session it finished.
expect_check "fast parents 0 children 0" changes $BUILTIN_UDID "$ANCHOR"
expect_check "slow parents 0 children 0" changes $BUILTIN_UDID "$ANCHOR"
check list $BUILTIN_UDID $CONTACTS
grep -qxF "7|com.apple.contacts.Contact|Zoë O'Brien & <Sons>" <<<"$OUT" || fail "added contact lost on restart: $OUT"
grep -qxF "3/7/0|com.apple.contacts.Phone Number|+1 555 0199 0000" <<<"$OUT" || fail "added phone lost: $OUT"
# 503 and Ada with her phone.
expect_check "records 505 pages 9 parents 254 children 251" read $CONTACTS250_UDID $CONTACTS

ctl "detach $BUILTIN_UDID" >/dev/null || fail "detach"
ctl "attach $BUILTIN_UDID" >/dev/null || fail "attach again"
expect_check "records 26 pages 1 parents 9 children 17" read $BUILTIN_UDID $CONTACTS

check clear $CONTACTS250_UDID $CONTACTS
[ "$RC" -eq 0 ] || fail "clear (exit $RC): $ERR"
expect_check "records 0 pages 1 parents 0 children 0" read $CONTACTS250_UDID $CONTACTS
# A cleared store gives new contacts the first ids again.
expect_check "contact 1 phone 3/1/0" add $CONTACTS250_UDID "After" "Clear"
stop_sim
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-contacts250"
expect_check "records 2 pages 1 parents 1 children 1" read $CONTACTS250_UDID $CONTACTS
stop_sim
