#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the demo need.
# Quiet and quick when everything is already there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libgtest-dev libgmock-dev libbenchmark-dev
  libgoogle-glog-dev libgflags-dev rapidjson-dev libtinyxml2-dev
  zlib1g-dev libminizip-dev libcurl4-openssl-dev libsqlite3-dev libssl-dev
  libimobiledevice-dev libplist-dev libusbmuxd-dev
  libimobiledevice-utils ideviceinstaller
  clang python3 tzdata
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "installed ${#missing[@]} packages"
