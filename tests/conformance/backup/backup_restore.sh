# The stock tool restores a backup it made: the device asks for every file
# Manifest.db lists and checks each arrived whole; a backup with a file
# missing, or with no Manifest.db, is refused.
. "$(dirname "$0")/backup_common.sh"
start_sim --builtin
DIR="$WORK/backups"
mkdir -p "$DIR"
U=$BUILTIN_UDID
backup_tool -u $U backup --full "$DIR"
expect_ok "backup to restore from"

backup_tool -u $U restore --system "$DIR"
expect_ok "restore"
expect_output "restore" "Restore Successful."
# The device took every file from the host.
[ "$(grep -c "^Sending '$U/../" <<<"$OUT")" -eq "$(sqlite3 "$DIR/$U/Manifest.db" "SELECT count(*) FROM Files WHERE flags = 1")" ] \
  || fail "the device did not ask for every file"

rm "$DIR/$U/3d/3d0d7e5fb2ce288813306e4d4636395e047a3d28"
backup_tool -u $U restore --system "$DIR"
expect_failure "restore with a file missing"
expect_output "restore with a file missing" "ErrorCode 104"

rm "$DIR/$U/Manifest.db"
backup_tool -u $U restore --system "$DIR"
expect_failure "restore without Manifest.db"
expect_output "restore without Manifest.db" "ErrorCode 205"
stop_sim
