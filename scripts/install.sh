#!/usr/bin/env bash
# Installs the built plug-in bundle where Linux VST 2 hosts look for it.
#
# Usage: scripts/install.sh [--prefix DIR] [--build DIR]
#   --build DIR   build folder that holds Varitap.vst (default: build/release)
#   --prefix DIR  install as DIR/Varitap.vst instead of the default places
#
# Default place: /usr/local/lib/vst/Varitap.vst when that folder is writable
# (Ardour, Carla, Qtractor, Audacity and MusE search it), else
# ~/.vst/Varitap.vst (Ardour then needs LXVST_PATH to include ~/.vst).
# Hosts list a plug-in found twice twice, so one copy only: installing to one
# default place removes a Varitap.vst left in the other.
set -euo pipefail
cd "$(dirname "$0")/.."

build="build/release"
prefix=""
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build="${2:?--build needs a folder}"; shift 2 ;;
    --prefix) prefix="${2:?--prefix needs a folder}"; shift 2 ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d'; exit 0 ;;
    *) echo "install: unknown argument $1 (see --help)" >&2; exit 2 ;;
  esac
done

source_bundle="$build/Varitap.vst"
if ! ls "$source_bundle"/Contents/*-linux/Varitap.so >/dev/null 2>&1; then
  echo "install: no built bundle in $source_bundle (build first)" >&2
  exit 1
fi

system_dir="/usr/local/lib/vst"
user_dir="${HOME:?}/.vst"

writable() {
  # A folder is usable when it is writable, or when it can be made.
  local dir="$1"
  if [ -d "$dir" ]; then
    [ -w "$dir" ]
  else
    mkdir -p "$dir" 2>/dev/null
  fi
}

other=""
if [ -n "$prefix" ]; then
  target_dir="$prefix"
  mkdir -p "$target_dir"
elif writable "$system_dir"; then
  target_dir="$system_dir"
  other="$user_dir/Varitap.vst"
else
  target_dir="$user_dir"
  mkdir -p "$target_dir"
  other="$system_dir/Varitap.vst"
fi

target="$target_dir/Varitap.vst"
# Copy beside the target first, then swap it in, so a host scanning now never
# sees half a bundle.
staging="$target_dir/.Varitap.vst.installing.$$"
rm -rf "$staging"
cp -R "$source_bundle" "$staging"
rm -rf "$target"
mv "$staging" "$target"
echo "install: $target"

if [ -n "$other" ] && [ -d "$other" ]; then
  if rm -rf "$other" 2>/dev/null; then
    echo "install: removed the older copy $other (hosts would list it twice)"
  else
    echo "install: warning: an older copy remains in $other; hosts may list Varitap twice" >&2
  fi
fi
if [ "$target_dir" = "$user_dir" ]; then
  echo "install: Ardour finds it with LXVST_PATH=$user_dir"
fi
