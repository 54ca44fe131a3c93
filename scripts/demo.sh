#!/usr/bin/env bash
# The demo: a simulated device, the worker and the reference parent.
# Installs what is missing and builds first, so it runs on a fresh machine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
bin="${ZEBRELO_BUILD_DIR:-$root/build}/bin"

work=$(mktemp -d /tmp/zebrelo-demo-XXXXXX)
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

step() { printf '\n== %s\n' "$*"; }

step "Starting the simulated device (zebrelo-sim)"
"$bin/zebrelo-sim" --socket "$work/usbmuxd.sock" --state "$work/state" --control "$work/control.sock" \
  >"$work/sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  grep -q "listening" "$work/sim.log" 2>/dev/null && break
  if ! kill -0 "$sim_pid" 2>/dev/null; then
    echo "zebrelo-sim failed to start:"; cat "$work/sim.log"; exit 1
  fi
  sleep 0.1
done
cat "$work/sim.log"
export USBMUXD_SOCKET_ADDRESS="UNIX:$work/usbmuxd.sock"

step "The stock libimobiledevice tools see it"
echo "\$ idevice_id -l"; idevice_id -l
udid=$(idevice_id -l | head -1)
for key in DeviceName ProductType ProductVersion SerialNumber; do
  printf '%-15s %s\n' "$key" "$(ideviceinfo -u "$udid" -k "$key")"
done

ctl=("$bin/zebrelo-ctl" --usbmuxd "$work/usbmuxd.sock" --timeout 60)

step "The worker under the reference parent: what the device is and what fills it"
echo "\$ zebrelo-ctl info"
"${ctl[@]}" info

step "Renaming the device through the worker; the stock tool sees the new name"
echo "\$ zebrelo-ctl rename $udid 'Demo iPhone'"
"${ctl[@]}" rename "$udid" "Demo iPhone"
echo "\$ ideviceinfo -k DeviceName"; ideviceinfo -u "$udid" -k DeviceName

step "Files: browse the camera roll, pull a photo, push a file back"
echo "\$ zebrelo-ctl ls $udid /DCIM/100APPLE"
"${ctl[@]}" ls "$udid" /DCIM/100APPLE
photo=$("${ctl[@]}" ls "$udid" /DCIM/100APPLE 2>/dev/null | grep -o 'IMG_[0-9]*\.JPG' | head -1)
echo "\$ zebrelo-ctl pull $udid /DCIM/100APPLE/$photo $work/$photo"
"${ctl[@]}" pull "$udid" "/DCIM/100APPLE/$photo" "$work/$photo"
file "$work/$photo" 2>/dev/null || ls -l "$work/$photo"
head -c 3000000 /dev/urandom > "$work/notes.bin"
echo "\$ zebrelo-ctl push $udid $work/notes.bin /Downloads/"
"${ctl[@]}" push "$udid" "$work/notes.bin" /Downloads/
echo "\$ zebrelo-ctl ls $udid /Downloads"
"${ctl[@]}" ls "$udid" /Downloads

step "Apps: the list, a package built here and installed, and the stock tool sees it"
echo "\$ zebrelo-ctl apps $udid"
"${ctl[@]}" apps "$udid" | head -12
"$bin/make_test_ipa" "$work/demo.ipa" --id com.example.zebrelo.demo --name "Zebrelo Demo" --version 7 \
  --short 1.0.7 --payload-bytes 2000000 --icon-url "http://127.0.0.1:1/none.png" >/dev/null
echo "\$ zebrelo-ctl install $udid $work/demo.ipa"
"${ctl[@]}" install "$udid" "$work/demo.ipa"
echo "\$ ideviceinstaller -l | grep zebrelo"
ideviceinstaller -u "$udid" -l | grep -i zebrelo

step "Contacts: the list, a contact added with two numbers, and the list again"
echo "\$ zebrelo-ctl contacts $udid"
"${ctl[@]}" contacts "$udid"
echo "\$ zebrelo-ctl contacts add $udid --name 'Ada Lovelace' --phone '+44 20 7946 0018' --phone '+44 7700 900123' --email ada@example.org"
"${ctl[@]}" contacts add "$udid" --name "Ada Lovelace" --phone "+44 20 7946 0018" --phone "+44 7700 900123" \
  --email ada@example.org
echo "\$ zebrelo-ctl contacts $udid"
"${ctl[@]}" contacts "$udid"
echo "\$ zebrelo-ctl groups $udid"
"${ctl[@]}" groups "$udid"

step "Bookmarks and notes: the trees, the notes, and a note added"
echo "\$ zebrelo-ctl bookmarks $udid"
"${ctl[@]}" bookmarks "$udid"
printf 'Milk & eggs\n<bread>\n' > "$work/note.txt"
echo "\$ zebrelo-ctl notes add $udid --title 'Groceries' --body-file $work/note.txt"
"${ctl[@]}" notes add "$udid" --title "Groceries" --body-file "$work/note.txt" >/dev/null
echo "\$ zebrelo-ctl notes $udid"
"${ctl[@]}" notes "$udid"

step "Backup: the device backed up with a progress bar, listed, and read by the stock tool"
echo "\$ zebrelo-ctl backup $udid $work/backups/"
made=$("${ctl[@]}" backup "$udid" "$work/backups/")
echo "$made"
echo "\$ zebrelo-ctl backups $work/backups"
"${ctl[@]}" backups "$work/backups"
echo "\$ idevicebackup2 -s $(basename "$made") info $work/backups | head"
idevicebackup2 -u "$udid" -s "$(basename "$made")" info "$work/backups" | head -12

step "Done"
