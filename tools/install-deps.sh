#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demonstration need, when
# they are missing. Safe to run again: it installs nothing when everything is there.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libasound2-dev libfluidsynth-dev libgtest-dev libbenchmark-dev
  g++-arm-linux-gnueabihf
  alsa-utils fluidsynth timgm6mb-soundfont sox
  qemu-system-x86 linux-image-amd64 busybox-static cpio
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}" >&2
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
