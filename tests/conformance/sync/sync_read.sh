# Full reads through libimobiledevice's mobilesync client: what each shipped
# profile holds, in pages of the profile's size, parents first; classes and
# hosts the device refuses; and how long 20,000 contacts take.
. "$(dirname "$0")/sync_common.sh"
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-contacts250" \
  --profile "$ZSIM_PROFILES/iphone13-ios17-noapps" --profile "$ZSIM_PROFILES/iphone4-ios4" \
  --profile "$ZSIM_PROFILES/iphone13-ios17-contacts20k"

# 6 contacts and 2 groups with 16 children between them.
expect_check "records 24 pages 1 parents 8 children 16" read $BUILTIN_UDID $CONTACTS
check list $BUILTIN_UDID $CONTACTS
grep -qxF "4|com.apple.contacts.Contact|Chloé Lefèvre" <<<"$OUT" || fail "non-ASCII name: $OUT"
grep -qxF "3|com.apple.contacts.Contact|Smith & Daughters Plumbing" <<<"$OUT" || fail "company: $OUT"

# 250 generated contacts with a phone each and 3 groups, 60 to a page.
expect_check "records 503 pages 9 parents 253 children 250" read $CONTACTS250_UDID $CONTACTS
check list $CONTACTS250_UDID $CONTACTS
for id in 1 250 Group/3 3/1/0 3/250/0; do
  grep -q "^$id|" <<<"$OUT" || fail "record $id missing from the 250-contact device"
done
grep -q "^251|" <<<"$OUT" && fail "a 251st contact"

# Devices without records still answer one empty page, in every class.
for class in $CONTACTS com.apple.Calendars com.apple.Bookmarks com.apple.Notes; do
  expect_check "records 0 pages 1 parents 0 children 0" read $NOAPPS_UDID $class
  expect_check "records 0 pages 1 parents 0 children 0" read $IPHONE4_UDID $class
done
expect_check "refusals ok" refusals $BUILTIN_UDID

expect_check "records 60000 pages 120 parents 20000 children 40000" read $CONTACTS20K_UDID $CONTACTS
# A second read, with the store already made, is what hosts meet from then on.
expect_check "records 60000 pages 120 parents 20000 children 40000" read $CONTACTS20K_UDID $CONTACTS
echo "20,000 contacts: $ERR"
seconds=$(sed -n 's/.*, \([0-9.]*\) s of it for the records/\1/p' <<<"$ERR")
awk -v s="$seconds" 'BEGIN { exit !(s != "" && s < 3.0) }' || fail "reading 60,000 records took too long: $ERR"
stop_sim
