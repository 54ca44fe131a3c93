# ideviceinfo: the whole default domain, single keys, and each domain.
. "$(dirname "$0")/harness.sh"
need_tool ideviceinfo
start_sim

run_tool ideviceinfo
expect_ok "default domain"
for line in "UniqueDeviceID: $BUILTIN_UDID" "ProductType: iPhone14,5" "ProductVersion: 17.5.1" \
            "DeviceClass: iPhone" "DeviceName: Zebrelo iPhone" "BuildVersion: 21F90" "HardwareModel: D17AP" \
            "PasswordProtected: false" "DevicePublicKey: " "TimeIntervalSince1970: " "WiFiAddress: "; do
  expect_output "default domain" "$line"
done

run_tool ideviceinfo -k ProductVersion
[ "$OUT" = "17.5.1" ] || fail "single key: $OUT"
# The public key is a PKCS#1 PEM, base64 in the tool's output.
run_tool ideviceinfo -k DevicePublicKey
base64 -d <<<"$OUT" 2>/dev/null | grep -q "BEGIN RSA PUBLIC KEY" || fail "DevicePublicKey is not a PKCS#1 PEM: $OUT"
run_tool ideviceinfo -k NoSuchKeyAnywhere
[ -z "$OUT" ] || fail "a missing value must print nothing: $OUT"

check_domain() {
  run_tool ideviceinfo -q "$1"
  expect_ok "domain $1"
  expect_output "domain $1" "$2"
}
check_domain com.apple.mobile.battery "BatteryCurrentCapacity: 87"
check_domain com.apple.mobile.battery "BatteryIsCharging: true"
check_domain com.apple.international "Language: en"
check_domain com.apple.international "Locale: en_US"
check_domain com.apple.disk_usage "TotalDiskCapacity: 128000000000"
check_domain com.apple.disk_usage "CalculateDiskUsage: OkilyDokily"
check_domain com.apple.mobile.data_sync "Contacts:"
check_domain com.apple.mobile.data_sync "AccountNames"
check_domain com.apple.mobile.backup "WillEncrypt: false"
check_domain com.apple.fmip "IsAssociated: true"
run_tool ideviceinfo -q com.apple.mobile.battery -k BatteryCurrentCapacity
[ "$OUT" = "87" ] || fail "key within a domain: $OUT"

# An iOS 4 device answers whole seconds and has no ProductName.
U=$(ctl "attach $ZSIM_PROFILES/iphone4-ios4") || fail "attach: $U"
U=${U#ok }
run_tool ideviceinfo -u "$U"
expect_ok "iOS 4 device"
expect_output "iOS 4 device" "ProductVersion: 4.3.3"
grep -q "^ProductName:" <<<"$OUT" && fail "iOS 4 has no ProductName"
grep -Eq "^TimeIntervalSince1970: [0-9]+$" <<<"$OUT" || fail "iOS 4 time must be whole seconds: $OUT"
stop_sim
