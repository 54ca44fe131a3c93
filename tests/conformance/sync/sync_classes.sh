# Calendars, bookmarks and notes through libimobiledevice's mobilesync
# client: what the built-in device and the generated profiles hold, every
# record in its entity's shape and after what it belongs to; records a host
# adds get the device's ids, come back as one page of changes and go again
# on removal; and the stores give the same values after a restart.
. "$(dirname "$0")/sync_common.sh"
need_tool ideviceinfo
CALENDARS45_UDID=00008110-001A2B3C4D5E6045
SYNCBENCH_UDID=00008110-001A2B3C4D5E6005
CALENDARS=com.apple.Calendars
BOOKMARKS=com.apple.Bookmarks
NOTES=com.apple.Notes
PROFILES=(--builtin --profile "$ZSIM_PROFILES/iphone13-ios17-calendars45"
  --profile "$ZSIM_PROFILES/iphone13-ios17-syncbench" --profile "$ZSIM_PROFILES/iphone13-ios17-noapps")
start_sim "${PROFILES[@]}"

lines() { printf '%s\n' "$@"; }
has() {  # FIELDS LINE...: each line is in the fields output
  local fields=$1
  shift
  for line in "$@"; do grep -qxF -- "$line" <<<"$fields" || fail "no '$line' in the device's records"; done
}
count() { grep -c -- "$1" <<<"$2"; }

# Built-in calendars: 3 calendars, 8 events, two alarms on the dentist and
# two recurrences, weekly without end and daily with one.
expect_check "records 15 pages 1 parents 3 children 12" read $BUILTIN_UDID $CALENDARS
expect_check "$(lines "com.apple.calendars.Calendar 3" "com.apple.calendars.Event 8" \
  "com.apple.calendars.DisplayAlarm 2" "com.apple.calendars.Recurrence 2")" entities $BUILTIN_UDID $CALENDARS
check fields $BUILTIN_UDID $CALENDARS
CAL_FIELDS=$OUT
has "$CAL_FIELDS" "cal-1|read only|0" "cal-3|read only|1" "cal-3|colorComponents|[52, 199, 89, 255]" \
  "ev-4|calendar|[cal-1, cal-2]" "ev-4|summary|Summer party & BBQ" "ev-7|summary|Café with Zoë" \
  "ev-1|start date|2024-05-14T07:30:00Z" "ev-1|start date.timezone|Europe/Berlin" "ev-5|all day|1" \
  "al-1|owner|[ev-1]" "al-1|triggerduration|-3600" "al-2|owner|[ev-1]" "al-2|triggerduration|-900" \
  "rec-1|frequency|weekly" "rec-2|frequency|daily" "rec-2|until|2024-06-30T04:30:00Z"
[ "$(count '|all day|' "$CAL_FIELDS")" -eq 1 ] || fail "timed events carry \"all day\""
[ "$(count '^rec-1|until|' "$CAL_FIELDS")" -eq 0 ] || fail "the weekly recurrence has an end"

# Built-in bookmarks: two roots, folders three deep, one bookmark in two folders.
expect_check "records 15 pages 1 parents 5 children 10" read $BUILTIN_UDID $BOOKMARKS
check fields $BUILTIN_UDID $BOOKMARKS
BOOKMARK_FIELDS=$OUT
has "$BOOKMARK_FIELDS" "f-1|name|Favorites" "f-2|name|Bookmarks Menu" "f-3|parent|[f-2]" "f-4|parent|[f-3]" \
  "b-3|parent|[f-1, f-2]" "b-2|name|News & Weather" "b-4|name|Docs <Reference>"
[ "$(count '^f-[0-9]*|parent|' "$BOOKMARK_FIELDS")" -eq 3 ] || fail "not two root folders"

# Built-in notes: text as written, one without an author.
expect_check "com.apple.notes.Note 4" entities $BUILTIN_UDID $NOTES
check fields $BUILTIN_UDID $NOTES
NOTE_FIELDS=$OUT
has "$NOTE_FIELDS" 'n-1|content|Milk & bread\nEggs (fewer than 10 < 12)' 'n-3|subject|Lisbon trip 🌞' \
  "n-2|content|\"Simplicity is the ultimate sophistication.\" — 'Leonardo'" "n-3|contentType|text/html"
[ "$(count '|author|' "$NOTE_FIELDS")" -eq 3 ] && [ "$(count '^n-4|author|' "$NOTE_FIELDS")" -eq 0 ] ||
  fail "not exactly n-4 without an author"

# Added with host ids, read back as the changes of a fast session, removed.
expect_check "$(lines "remap HOST-CALENDAR cal-4" "remap HOST-EVENT ev-9" "remap HOST-ALARM al-3" \
  "remap HOST-RECURRENCE rec-3" "changes 4 pages 1" "records 15 then 15")" roundtrip $BUILTIN_UDID $CALENDARS
expect_check "$(lines "remap HOST-FOLDER f-6" "remap HOST-BOOKMARK b-11" "changes 2 pages 1" \
  "records 15 then 15")" roundtrip $BUILTIN_UDID $BOOKMARKS
expect_check "$(lines "remap HOST-NOTE n-5" "changes 1 pages 1" "records 4 then 4")" roundtrip $BUILTIN_UDID $NOTES
# A removed record's id is not handed out again.
expect_check "$(lines "remap HOST-NOTE n-6" "changes 1 pages 1" "records 4 then 4")" roundtrip $BUILTIN_UDID $NOTES

# 45 calendars with two events each, 50 records to a page.
expect_check "records 135 pages 3 parents 45 children 90" read $CALENDARS45_UDID $CALENDARS
expect_check "$(lines "com.apple.calendars.Calendar 45" "com.apple.calendars.Event 90")" \
  entities $CALENDARS45_UDID $CALENDARS

# The benchmark device sends each class in one page (the worker lists the
# first page of bookmarks and notes only); the first read makes them.
check read $SYNCBENCH_UDID $CALENDARS
[ "$OUT" = "records 5050 pages 1 parents 50 children 5000" ] || fail "benchmark calendars: $OUT $ERR"
seconds=$(sed -n 's/read took \([0-9.]*\) s.*/\1/p' <<<"$ERR")
awk -v s="$seconds" 'BEGIN { exit !(s != "" && s < 5.0) }' || fail "making and reading 5,050 records took $ERR"
check fields $SYNCBENCH_UDID $CALENDARS
BENCH_FIELDS=$OUT
[ "$(count '|all day|1$' "$BENCH_FIELDS")" -gt 0 ] || fail "no all-day events among the generated ones"
expect_check "$(lines "com.apple.bookmarks.Folder 100" "com.apple.bookmarks.Bookmark 10000")" \
  entities $SYNCBENCH_UDID $BOOKMARKS
expect_check "records 10100 pages 1 parents 100 children 10000" read $SYNCBENCH_UDID $BOOKMARKS
expect_check "records 5000 pages 1 parents 5000 children 0" read $SYNCBENCH_UDID $NOTES
# New records follow the generated ids.
expect_check "$(lines "remap HOST-FOLDER f-101" "remap HOST-BOOKMARK b-10001" "changes 2 pages 1" \
  "records 10100 then 10100")" roundtrip $SYNCBENCH_UDID $BOOKMARKS

# An empty device with a bookmarks account: a folder at the top.
run_tool ideviceinfo -u $NOAPPS_UDID -q com.apple.mobile.data_sync -k Bookmarks
expect_output "bookmarks account" "iCloud"
expect_check "records 0 pages 1 parents 0 children 0" read $NOAPPS_UDID $BOOKMARKS
expect_check "$(lines "remap HOST-FOLDER f-1" "remap HOST-BOOKMARK b-1" "changes 2 pages 1" \
  "records 0 then 0")" roundtrip $NOAPPS_UDID $BOOKMARKS

# Written stores come back from the state folder as they were; generated
# ones are made again the same.
stop_sim
start_sim "${PROFILES[@]}"
check fields $BUILTIN_UDID $CALENDARS
[ "$OUT" = "$CAL_FIELDS" ] || fail "calendars changed across a restart: $(diff <(echo "$CAL_FIELDS") <(echo "$OUT") | head)"
check fields $BUILTIN_UDID $NOTES
[ "$OUT" = "$NOTE_FIELDS" ] || fail "notes changed across a restart"
check fields $SYNCBENCH_UDID $CALENDARS
[ "$OUT" = "$BENCH_FIELDS" ] || fail "generated calendars differ from one start to the next"
stop_sim
