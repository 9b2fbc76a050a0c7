#!/usr/bin/env bash
# Installs the Debian packages that a job needs, when they are missing. Safe to run again:
# it installs nothing when everything is there.
#   tools/install-deps.sh [GROUP...]     default: every group
#     build    compiler, CMake, ALSA and FluidSynth headers: builds the library and nuvmidi
#     test     GoogleTest, the ARM cross compiler (record layout check), lintian for the packages
#     vm       qemu, a kernel, busybox and the programs the test VM carries
#     armhf    the ARM emulator and the tools that build the ARM VM's extra kernel modules
#     demo     the sound font and sox for the demonstration's spectrogram
set -euo pipefail

declare -A group=(
  [build]="build-essential cmake ninja-build pkg-config libasound2-dev libfluidsynth-dev"
  [test]="libgtest-dev libbenchmark-dev g++-arm-linux-gnueabihf lintian"
  [vm]="qemu-system-x86 linux-image-amd64 busybox-static cpio alsa-utils fluidsynth timgm6mb-soundfont"
  [armhf]="qemu-system-arm make kmod xz-utils"
  [demo]="timgm6mb-soundfont sox"
)
wanted=("$@")
[ ${#wanted[@]} -gt 0 ] || wanted=(build test vm armhf demo)

packages=()
for name in "${wanted[@]}"; do
  [ -n "${group[$name]+x}" ] || { echo "install-deps.sh: unknown group '$name'" >&2; exit 2; }
  read -ra more <<<"${group[$name]}"
  packages+=("${more[@]}")
done

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
