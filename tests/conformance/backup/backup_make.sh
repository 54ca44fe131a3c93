# A full backup by the stock tool holds every file of the device's content,
# byte for byte, indexed by Manifest.db; the tool reads it back (info,
# list), and a second, incremental backup works the same way.
. "$(dirname "$0")/backup_common.sh"
start_sim --builtin
DIR="$WORK/backups"
mkdir -p "$DIR"
U=$BUILTIN_UDID
B="$DIR/$U"

backup_tool -u $U backup --full "$DIR"
expect_ok "full backup"
expect_output "full backup" "Backup Successful."
for f in Info.plist Manifest.plist Manifest.db Status.plist; do [ -s "$B/$f" ] || fail "no $f in the backup"; done
[ ! -e "$B/Snapshot" ] || fail "the snapshot folder was left behind"
[ "$(plist_value "$B/Status.plist" SnapshotState)" = finished ] || fail "Status.plist not finished"
[ "$(plist_value "$B/Status.plist" IsFullBackup)" = True ] || fail "a first backup that is not full"
[ "$(plist_value "$B/Manifest.plist" IsEncrypted)" = False ] || fail "an unencrypted backup marked encrypted"
[ "$(plist_value "$B/Manifest.plist" Lockdown.UniqueDeviceID)" = $U ] || fail "Manifest.plist names another device"

# Every generated file and every file of the media partition arrived
# unchanged, with the sync stores beside them, and nothing else did.
"$ZSIM_BACKUP_DUMP" > "$WORK/expected.sha1" || fail "backup_content_dump failed"
media_sha1 $U >> "$WORK/expected.sha1"
grep -q "$(printf '%s' "CameraRollDomain-Media/DCIM/100APPLE/IMG_0001.JPG" | sha1sum | cut -c1-40)" "$WORK/expected.sha1" \
  || fail "the device's photos are not among the expected files"
(cd "$B" && sha1sum --quiet -c "$WORK/expected.sha1") || fail "backup files differ from the device's"
[ "$(cd "$B" && ls -d ?? | wc -l)" -gt 100 ] || fail "files not spread over two-hex-digit folders"
(cd "$B" && find ?? -type f | sort) > "$WORK/got.list"
{ awk '{print $2}' "$WORK/expected.sha1"; store_files; } | sort > "$WORK/expected.list"
cmp -s "$WORK/got.list" "$WORK/expected.list" || fail "the backup holds other files than the device's"
# Manifest.db lists exactly those files, each under the hash of its domain and path.
sqlite3 "$B/Manifest.db" "SELECT substr(fileID, 1, 2) || '/' || fileID FROM Files WHERE flags = 1" | sort \
  > "$WORK/manifest.list" || fail "sqlite3 cannot read Manifest.db"
cmp -s "$WORK/manifest.list" "$WORK/expected.list" || fail "Manifest.db does not list the backup's files"
SMS="$B/3d/3d0d7e5fb2ce288813306e4d4636395e047a3d28"
[ "$(sqlite3 "$B/Manifest.db" "SELECT domain || '-' || relativePath FROM Files WHERE fileID = '3d0d7e5fb2ce288813306e4d4636395e047a3d28'")" \
  = "HomeDomain-Library/SMS/sms.db" ] || fail "sms.db is not where its hash says"
[ "$(sqlite3 "$SMS" "SELECT count(*) FROM message")" -gt 0 ] || fail "sms.db has no messages"

backup_tool -u $U info "$DIR"
expect_ok "info"
expect_output "info" "uniqueDeviceID=$U"
expect_output "info" "snapshotState=finished"
backup_tool -u $U list "$DIR"
expect_ok "list"
expect_output "list" "HomeDomain,Library/SMS/sms.db,"
[ "$(grep -c ',' <<<"$OUT")" -eq "$(($(wc -l < "$WORK/expected.list") + 1))" ] || fail "list does not show every file"

# Incremental: the tool finds Info.plist and asks without ForceFullBackup.
backup_tool -u $U backup "$DIR"
expect_ok "incremental backup"
expect_output "incremental backup" "Incremental backup mode."
expect_output "incremental backup" "Backup Successful."
[ "$(plist_value "$B/Status.plist" IsFullBackup)" = False ] || fail "a backup over a finished one counted as full"
(cd "$B" && sha1sum --quiet -c "$WORK/expected.sha1") || fail "the incremental backup changed files"
stop_sim
