# Sourced by the backup scripts: the shared harness, the stock tool, and
# helpers over backup folders.
. "$(dirname "$0")/../harness.sh"
need_tool idevicebackup2
need_tool ideviceinfo
need_tool sqlite3
need_tool python3

NOAPPS_UDID=00008110-001A2B3C4D5E6000

# backup_tool ARGS...: idevicebackup2 with a time limit that a hang cannot
# outlast; output in $OUT, status in $RC, seconds taken in $TOOK.
backup_tool() {
  local started=$SECONDS
  OUT=$(timeout 30 idevicebackup2 "$@" < /dev/null 2>&1)
  RC=$?
  TOOK=$((SECONDS - started))
}

# plist_value FILE KEY[.KEY...]: a value of a plist file, as Python prints it.
plist_value() {
  python3 - "$1" "$2" <<'PY'
import plistlib, sys
value = plistlib.load(open(sys.argv[1], "rb"))
for key in sys.argv[2].split("."):
    value = value.get(key) if isinstance(value, dict) else None
print(value)
PY
}

will_encrypt() {
  run_tool ideviceinfo -u "$1" -q com.apple.mobile.backup -k WillEncrypt
  echo "$OUT"
}

# profile_with NAME PYTHON: a copy of the no-apps profile changed by PYTHON
# (acting on the dictionary `p`), as $WORK/NAME.
profile_with() {
  mkdir -p "$WORK/$1"
  python3 - "$ZSIM_PROFILES/iphone13-ios17-noapps/profile.plist" "$WORK/$1/profile.plist" "$2" <<'PY' \
    || fail "could not make profile $1"
import plistlib, sys
with open(sys.argv[1], "rb") as f:
    p = plistlib.load(f)
exec(sys.argv[3])
with open(sys.argv[2], "wb") as f:
    plistlib.dump(p, f)
PY
}

# media_sha1 UDID: the device's media partition as a backup should hold it,
# in sha1sum's form ("<sha1>  <xx>/<fileID>"): DCIM and PhotoData under
# CameraRollDomain, the rest under MediaDomain, the host's lock left out.
media_sha1() {
  python3 - "$WORK/state/$1/media" <<'PY'
import hashlib, os, sys
root = sys.argv[1]
for folder, dirs, files in os.walk(root):
    rel = os.path.relpath(folder, root)
    dirs[:] = [d for d in dirs if not (rel == "." and d == "iTunesRestore")]
    for name in files:
        path = os.path.normpath(os.path.join(rel, name))
        if path == "com.apple.itunes.lock_sync":
            continue
        domain = "CameraRollDomain" if path.split("/")[0] in ("DCIM", "PhotoData") else "MediaDomain"
        file_id = hashlib.sha1(f"{domain}-Media/{path}".encode()).hexdigest()
        digest = hashlib.sha1(open(os.path.join(root, path), "rb").read()).hexdigest()
        print(f"{digest}  {file_id[:2]}/{file_id}")
PY
}

# The sync stores every backup carries, as "<xx>/<fileID>".
store_files() {
  for p in Library/AddressBook/Contacts.plist Library/Calendar/Calendars.plist Library/Safari/Bookmarks.plist \
           Library/Notes/Notes.plist; do
    id=$(printf '%s' "HomeDomain-$p" | sha1sum | cut -c1-40)
    echo "${id:0:2}/$id"
  done
}
