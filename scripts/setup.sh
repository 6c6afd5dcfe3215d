#!/usr/bin/env bash
# Installs the Debian packages Varitap needs to build, test and run its tools,
# and any further packages named on the command line (the test command adds
# the real host). Does nothing when every package is already there. Needs root (or sudo) only
# when something is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config clang libclang-rt-14-dev
  libxml2-dev                         # preset files
  libcairo2-dev                       # drawing, PNG
  libxcb1-dev libxkbcommon-x11-dev libxkbcommon-dev libfontconfig-dev  # windows, keys, fonts
  libglib2.0-dev                      # options key file
  libsndfile1-dev                     # audio files in the command-line host
  lv2-dev lilv-utils sordi            # LV2 declarations; lv2_validate, lv2info, lv2apply in tests
  gettext                             # locale catalogues
  locales                             # locale sources: tests build a German (decimal comma) locale
  libgtest-dev googletest libgmock-dev libbenchmark-dev  # tests and benchmarks
  xvfb xauth x11-utils fonts-urw-base35 fonts-dejavu-core  # GUI tests under Xvfb
  g++-aarch64-linux-gnu qemu-user     # the 64-bit Arm build and its emulated check
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
