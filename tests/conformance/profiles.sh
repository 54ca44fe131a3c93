# Every shipped profile loads, and each device reports what its profile says.
. "$(dirname "$0")/harness.sh"
need_tool ideviceinfo
args=()
for dir in "$ZSIM_PROFILES"/*/; do args+=(--profile "$dir"); done
start_sim "${args[@]}"
grep -q "$(ls -d "$ZSIM_PROFILES"/*/ | wc -l) device(s)" "$WORK/sim.log" || fail "not every profile loaded: $(cat "$WORK/sim.log")"
check() {  # udid key expected
  run_tool ideviceinfo -u "$1" -k "$2"
  [ "$OUT" = "$3" ] || fail "$1 $2: expected '$3', got '$OUT'"
}
check 3b7d9f0e1c2a4b5d6e7f8091a2b3c4d5e6f70812 ProductVersion 4.3.3
check a1b2c3d4e5f60718293a4b5c6d7e8f9012345678 ProductType iPhone8,1
check 4e00000000000000000000000000000000000001 ProductVersion 12.5.7
check 00008101-000A1B2C3D4E502E DeviceClass iPad
check 5f1e2d3c4b5a69788796a5b4c3d2e1f001234567 ProductVersion 14.3
# The jailbroken device carries a whole file system with its media inside.
JB="$WORK/state/5f1e2d3c4b5a69788796a5b4c3d2e1f001234567/root"
[ -f "$JB/System/Library/CoreServices/SystemVersion.plist" ] || fail "jailbroken root file system missing"
[ -f "$JB/private/var/mobile/Media/Downloads/notes.txt" ] || fail "profile media not copied into the media partition"
# Generated photos are real JPEG files.
for f in "$WORK/state/$BUILTIN_UDID/media/DCIM/100APPLE/"*.JPG "$JB/private/var/mobile/Media/DCIM/100APPLE/"*.JPG; do
  [ "$(head -c 3 "$f" | od -An -tx1 | tr -d ' ')" = "ffd8ff" ] || fail "$f is not a JPEG"
done
stop_sim
