#!/usr/bin/env bash
# Installs the built plug-in bundles where Linux hosts look for them: the
# VST 2 bundle Varitap.vst, the LV2 bundle Varitap.lv2 and the CLAP bundle
# folder Varitap (holding Contents/<arch>-linux/Varitap.clap).
#
# Usage: scripts/install.sh [--prefix DIR] [--build DIR]
#   --build DIR   build folder that holds Varitap.vst and lv2/Varitap.lv2 (default: build/release)
#   --prefix DIR  install as DIR/Varitap.vst, DIR/Varitap.lv2 and DIR/Varitap instead of the
#                 default places
#
# Default places: /usr/local/lib/vst/Varitap.vst and /usr/local/lib/lv2/Varitap.lv2
# when those folders are writable (Ardour, Carla, Qtractor, Audacity and MusE
# search them; LV2 hosts also search /usr/lib/lv2 and ~/.lv2), else
# ~/.vst/Varitap.vst (Ardour then needs LXVST_PATH to include ~/.vst) and
# ~/.lv2/Varitap.lv2 (searched by every LV2 host). The CLAP folder goes to
# /usr/local/lib/clap/Varitap, else ~/.clap/Varitap (CLAP hosts search both
# recursively for .clap files).
# Hosts list a plug-in found twice twice, so one copy only: installing to one
# default place removes a copy left in the other.
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

for bundle in "$build/Varitap.vst" "$build/lv2/Varitap.lv2" "$build/clap/Varitap"; do
  if ! compgen -G "$bundle/Contents/*-linux/Varitap.*" >/dev/null; then
    echo "install: no built bundle in $bundle (build first)" >&2
    exit 1
  fi
done

writable() {
  # A folder is usable when it is writable, or when it can be made.
  local dir="$1"
  if [ -d "$dir" ]; then
    [ -w "$dir" ]
  else
    mkdir -p "$dir" 2>/dev/null
  fi
}

# install_bundle SOURCE SYSTEM_DIR USER_DIR: copies SOURCE (a bundle folder)
# into the prefix, else the system folder when writable, else the user's.
install_bundle() {
  local source_bundle="$1" system_dir="$2" user_dir="$3"
  local name target_dir other=""
  name="$(basename "$source_bundle")"
  if [ -n "$prefix" ]; then
    target_dir="$prefix"
    mkdir -p "$target_dir"
  elif writable "$system_dir"; then
    target_dir="$system_dir"
    other="$user_dir/$name"
  else
    target_dir="$user_dir"
    mkdir -p "$target_dir"
    other="$system_dir/$name"
  fi

  local target="$target_dir/$name"
  # Copy beside the target first, then swap it in, so a host scanning now
  # never sees half a bundle.
  local staging="$target_dir/.$name.installing.$$"
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
  installed_dir="$target_dir"
}

install_bundle "$build/Varitap.vst" /usr/local/lib/vst "${HOME:?}/.vst"
if [ "$installed_dir" = "$HOME/.vst" ]; then
  echo "install: Ardour finds it with LXVST_PATH=$HOME/.vst"
fi
install_bundle "$build/lv2/Varitap.lv2" /usr/local/lib/lv2 "$HOME/.lv2"
install_bundle "$build/clap/Varitap" /usr/local/lib/clap "$HOME/.clap"
