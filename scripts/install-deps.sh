#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need.
# Idempotent: packages already present are left alone and nothing is fetched.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libfmt-dev libcli11-dev libtomlplusplus-dev libeigen3-dev libfftw3-dev libcairo2-dev
  nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcpp-httplib-dev libjs-three
  rtklib python3
  chromium chromium-driver python3-selenium
  gnss-sdr
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
