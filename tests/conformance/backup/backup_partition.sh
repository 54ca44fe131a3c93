# A media partition with a size of its own (the 256 MiB profile): AFC's
# device info and lockdown's disk usage report it and what its files leave,
# a written file takes its bytes and gives them back when removed, a write
# beyond the free bytes writes what fits and answers AFC's no-space status,
# and a restore counts too.
. "$(dirname "$0")/backup_common.sh"
P=00008110-001A2B3C4D5E6256
TOTAL=268435456
MIB=1048576
start_sim --profile "$ZSIM_PROFILES/iphone13-ios17-partition256m" --builtin
media() { OUT=$("$ZSIM_MEDIA_CHECK" $P "$@") || fail "media_check $*: $OUT"; }
space() { media space; FREE=${OUT#* }; [ "${OUT% *}" = $TOTAL ] || fail "FSTotalBytes: $OUT"; }
disk_usage() { run_tool ideviceinfo -u $P -q com.apple.disk_usage -k "$1"; echo "$OUT"; }

USED=$(find "$WORK/state/$P/media" -type f -printf '%s\n' | awk '{s += $1} END {print s}')
[ "$USED" -gt 0 ] || fail "the profile's media partition is empty"
space
[ "$FREE" -eq $((TOTAL - USED)) ] || fail "FSFreeBytes $FREE with $USED bytes of files in $TOTAL"
[ "$(disk_usage TotalDataCapacity)" = $TOTAL ] || fail "disk usage capacity disagrees"
[ "$(disk_usage TotalDataAvailable)" = "$FREE" ] || fail "disk usage free bytes disagree"
START=$FREE

media write /Downloads/ten.bin $((10 * MIB))
[ "$OUT" = "0 $((10 * MIB))" ] || fail "a 10 MiB write: $OUT"
space
[ "$FREE" -eq $((START - 10 * MIB)) ] || fail "10 MiB written, free went from $START to $FREE"
[ "$(disk_usage AmountDataAvailable)" = "$FREE" ] || fail "disk usage did not follow the write"

# One MiB more than is free: what fits lands, the rest is refused.
media write /Downloads/too-big.bin $((FREE + MIB))
[ "$OUT" = "18 $FREE" ] || fail "a write past the free bytes: $OUT (free was $FREE)"
space
[ "$FREE" -eq 0 ] || fail "a full partition reports $FREE bytes free"

media rm /Downloads/too-big.bin
media rm /Downloads/ten.bin
space
[ "$FREE" -eq "$START" ] || fail "removals gave back $FREE of $START bytes"

# A restore writes into the partition through the same count.
mkdir -p "$WORK/backups"
backup_tool -u $BUILTIN_UDID backup --full "$WORK/backups"
expect_ok "backup to restore from"
backup_tool -u $P restore --system -s $BUILTIN_UDID "$WORK/backups"
expect_ok "restore onto the small partition"
space
USED=$(find "$WORK/state/$P/media" -type f -printf '%s\n' | awk '{s += $1} END {print s}')
[ "$FREE" -eq $((TOTAL - USED)) ] || fail "after a restore FSFreeBytes is $FREE with $USED bytes of files"
stop_sim
