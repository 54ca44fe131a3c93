# Backup encryption as the stock tool sets it: lockdown's WillEncrypt
# follows each change, a wrong password changes nothing, the setting
# outlives a restart on the same state folder, and a backup made with it
# on says it is encrypted.
. "$(dirname "$0")/backup_common.sh"
start_sim --builtin
U=$BUILTIN_UDID
[ "$(will_encrypt $U)" = false ] || fail "encryption on from the start"

backup_tool -u $U encryption on first
expect_ok "encryption on"
expect_output "encryption on" "Backup encryption has been enabled successfully."
[ "$(will_encrypt $U)" = true ] || fail "WillEncrypt did not follow 'encryption on'"

backup_tool -u $U changepw wrong second
expect_failure "changepw with a wrong password"
expect_output "changepw with a wrong password" "ErrorCode 207"
backup_tool -u $U encryption off wrong
expect_failure "encryption off with a wrong password"
[ "$(will_encrypt $U)" = true ] || fail "a wrong password turned encryption off"

backup_tool -u $U changepw first second
expect_ok "changepw"
expect_output "changepw" "Backup encryption password has been changed successfully."

stop_sim
start_sim --builtin
[ "$(will_encrypt $U)" = true ] || fail "encryption forgotten over a restart"
mkdir -p "$WORK/backups"
backup_tool -u $U backup --full "$WORK/backups"
expect_ok "encrypted backup"
expect_output "encrypted backup" "Backup will be encrypted."
[ "$(plist_value "$WORK/backups/$U/Manifest.plist" IsEncrypted)" = True ] || fail "an encrypted backup not marked so"

backup_tool -u $U encryption off first
expect_failure "encryption off with the old password"
backup_tool -u $U encryption off second
expect_ok "encryption off"
expect_output "encryption off" "Backup encryption has been disabled successfully."
[ "$(will_encrypt $U)" = false ] || fail "WillEncrypt did not follow 'encryption off'"
stop_sim
