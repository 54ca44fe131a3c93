# A backup of one device restored by the stock tool onto others: the target
# then lists the source's user apps and holds the source's media files byte
# for byte, its sync stores and (with --settings) its name; its own files
# stay unless --remove asks for them to go, which takes its other apps too.
. "$(dirname "$0")/backup_common.sh"
need_tool ideviceinstaller
APPS23_UDID=00008110-001A2B3C4D5E6023
start_sim --builtin --profile "$ZSIM_PROFILES/iphone13-ios17-noapps" --profile "$ZSIM_PROFILES/iphone13-ios17-apps23"
A=$BUILTIN_UDID
B=$NOAPPS_UDID
C=$APPS23_UDID
DIR="$WORK/backups"
mkdir -p "$DIR"
echo "from the source" > "$WORK/state/$A/media/Downloads/from-a.txt"
echo "the target's own" > "$WORK/state/$B/media/Downloads/only-on-b.txt"
echo "the target's own" > "$WORK/state/$C/media/Recordings/only-on-c.m4a"

user_apps() { run_tool ideviceinstaller -u "$1" -l; expect_ok "app list of $1"; grep '^[^ ]*, "' <<<"$OUT" | sort; }
media_tree() { "$ZSIM_MEDIA_CHECK" "$1" tree | grep -v -e '^/iTunesRestore' -e '^/com.apple.itunes.lock_sync' | sort; }
# Every file and folder of the first device's tree is in the second's, the same size.
same_tree() {
  comm -23 <(media_tree "$1") <(media_tree "$2") > "$WORK/absent"
  [ ! -s "$WORK/absent" ] || fail "$2 lacks what $1 holds: $(head -5 "$WORK/absent")"
}
store_records() { plist_value "$WORK/state/$1/sync/$2.plist" Records; }

user_apps $A > "$WORK/a.apps"
[ "$(wc -l < "$WORK/a.apps")" -eq 36 ] || fail "the source lists $(wc -l < "$WORK/a.apps") user apps"
backup_tool -u $A backup --full "$DIR"
expect_ok "backup of the source"

backup_tool -u $B restore --system --settings -s $A "$DIR"
expect_ok "restore onto the empty device"
expect_output "restore onto the empty device" "Restore Successful."
user_apps $B | cmp -s - "$WORK/a.apps" || fail "the target's user apps differ from the source's"
same_tree $A $B
cmp -s "$WORK/state/$A/media/DCIM/100APPLE/IMG_0002.JPG" "$WORK/state/$B/media/DCIM/100APPLE/IMG_0002.JPG" \
  || fail "a photo changed on its way"
cmp -s "$WORK/state/$A/media/Downloads/from-a.txt" "$WORK/state/$B/media/Downloads/from-a.txt" \
  || fail "the source's own file did not arrive"
[ -f "$WORK/state/$B/media/Downloads/only-on-b.txt" ] || fail "without --remove the target's own file went"
run_tool ideviceinfo -u $B -k DeviceName
[ "$OUT" = "Zebrelo iPhone" ] || fail "--settings did not take the source's name: $OUT"
# The source's stores were never changed, so their records are its profile's.
for class in Contacts Calendars Bookmarks Notes; do
  [ "$(store_records $B $class)" != None ] || fail "no $class store on the target"
done
python3 - "$WORK/state/$B/sync/Contacts.plist" <<'PY' || fail "the source's contacts did not arrive"
import plistlib, sys
records = plistlib.load(open(sys.argv[1], "rb"))["Records"]
assert len([r for r in records.values() if r["com.apple.syncservices.RecordEntityName"] == "com.apple.contacts.Contact"]) == 6, records
PY
ls -d "$WORK/state/$B"/restore-* 2>/dev/null && fail "the staging folder was left behind"

# --remove: the apps23 device ends up with the source's apps, and of its
# own files only those the backup holds as well.
media_tree $C | grep -v '/$' > "$WORK/c.before"
backup_tool -u $C restore --system --remove -s $A "$DIR"
expect_ok "restore with --remove"
user_apps $C | cmp -s - "$WORK/a.apps" || fail "--remove left the target other apps than the source's"
same_tree $A $C
comm -23 "$WORK/c.before" <(media_tree $A) | grep -q only-on-c || fail "the target's own file was not its own"
comm -12 <(comm -23 "$WORK/c.before" <(media_tree $A)) <(media_tree $C) > "$WORK/kept"
[ ! -s "$WORK/kept" ] || fail "--remove kept files the backup does not hold: $(head -3 "$WORK/kept")"
run_tool ideviceinfo -u $C -k DeviceName
[ "$OUT" = "Apps 23 iPhone" ] || fail "the name changed without --settings: $OUT"
stop_sim
