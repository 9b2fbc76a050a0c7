#!/usr/bin/env bash
# Fetches, once, what building for and running on 32-bit ARM (armhf) needs, into a cache
# that later runs reuse, and prints the cache directory:
#   <cache>/sysroot   Debian's armhf libraries and headers (the cross-build's sysroot) and
#                     the test VM's programs (busybox, alsa-utils, fluidsynth)
#   <cache>/kernel    Debian's armmp kernel and its modules, with the virtual-keyboard
#                     modules it is built without (snd-virmidi, snd-seq-virmidi) built here
#                     out of tree from its headers and the kernel's own two source files
# The packages come from Debian's archive through a private apt root (its own sources,
# lists, package cache and an empty dpkg status) and are unpacked with dpkg-deb: nothing is
# installed for armhf on this machine, which would fail where the amd64 and armhf versions of
# a package differ. Set NUV_ARMHF_CACHE to put the cache elsewhere, NUV_DEBIAN_MIRROR to
# use another Debian mirror.
#   tools/armhf/fetch.sh            fetch what is missing, print the cache directory
set -euo pipefail

cache=${NUV_ARMHF_CACHE:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/nuvmidi/armhf}
mirror=${NUV_DEBIAN_MIRROR:-http://deb.debian.org/debian}
host_arch=$(dpkg --print-architecture)

die() {
  echo "fetch-armhf: $*" >&2
  exit 1
}
say() { echo "fetch-armhf: $*" >&2; }
now() { echo "$EPOCHREALTIME"; }
took() { awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.0f s", b - a }'; }

# What the cross-build compiles and links against, and the programs the test VM runs.
readonly SYSROOT_PACKAGES="libc6-dev libstdc++-12-dev libasound2-dev libfluidsynth-dev
  libgtest-dev busybox-static alsa-utils fluidsynth"
# This machine's tools for the above: the cross compiler, the emulator, module tools.
readonly HOST_PACKAGES="g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf
  qemu-system-arm make kmod xz-utils cpio"

ensure_host_packages() {
  local missing=() package
  for package in $HOST_PACKAGES; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
      missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] && return 0
  say "installing ${missing[*]}"
  local sudo=()
  [[ $(id -u) -eq 0 ]] || sudo=(sudo)
  {
    "${sudo[@]}" apt-get update -q &&
      "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
        --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}"
  } >&2 || die "could not install ${missing[*]}"
}

# apt-get and apt-cache on the private root. Only the release's main suites: the security
# suite's armhf index has been seen to fail its size check on mirrors here, and a sysroot
# from the point release is what every run gets alike.
apt_root=$cache/apt
private_apt() {
  local tool=$1
  shift
  "$tool" -o Dir="$apt_root" -o Dir::State::status="$apt_root/status" \
    -o Dir::Etc::Parts="$apt_root/apt.conf.d" -o Dir::Etc::PreferencesParts="$apt_root/preferences.d" \
    -o Dir::Etc::TrustedParts=/etc/apt/trusted.gpg.d -o Dir::Etc::SourceParts="$apt_root/sources.list.d" \
    -o APT::Architecture=armhf -o APT::Architectures::=armhf -o APT::Architectures::="$host_arch" \
    -o APT::Sandbox::User=root -o Acquire::Retries=5 -o Acquire::Languages=none \
    -o APT::Install-Recommends=false "$@"
}
apt_update() {
  mkdir -p "$apt_root"/{apt.conf.d,preferences.d,sources.list.d,var/lib/apt/lists/partial} \
    "$apt_root"/var/cache/apt/archives/partial "$apt_root/etc/apt"
  touch "$apt_root/status"
  local suite
  for suite in bookworm bookworm-updates; do
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $suite main"
  done >"$apt_root/etc/apt/sources.list"
  # The lists are fetched again once a day.
  if [[ -n $(find "$apt_root/lists.stamp" -mmin -1440 2>/dev/null) ]]; then return 0; fi
  rm -f "$cache/kernel.want"
  local try
  for try in 1 2 3; do
    if private_apt apt-get update -q >"$apt_root/update.log" 2>&1 &&
      ! grep -q '^E: ' "$apt_root/update.log"; then
      touch "$apt_root/lists.stamp"
      return 0
    fi
    say "reading Debian's package lists failed (try $try of 3)"
    sleep $((try * 5))
  done
  cat "$apt_root/update.log" >&2
  die "cannot read Debian's armhf package lists from $mirror"
}

# Downloads into the private cache, with retries around apt's own.
apt_fetch() {
  local try
  for try in 1 2 3; do
    private_apt apt-get "$@" >"$apt_root/fetch.log" 2>&1 && return 0
    say "download failed (try $try of 3)"
    sleep $((try * 5))
  done
  cat "$apt_root/fetch.log" >&2
  die "cannot download from $mirror: $*"
}

# Rewrites the absolute symlinks under DIR to relative ones that stay inside DIR.
keep_links_inside() {
  local dir=$1 link target
  while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfnr "$dir$target" "$link"
  done < <(find "$dir" -type l -lname '/*' -print0)
}

# The fingerprint of what a part is made of: its packages and how it is made (raise
# CACHE_FORMAT when a change here makes a part differently).
readonly CACHE_FORMAT=1
stamp_of() { echo "$CACHE_FORMAT $*" | sha256sum | cut -c1-16; }
fresh() { [[ -d $cache/$1 && $(cat "$cache/$1.stamp" 2>/dev/null) == "$2" ]]; }

fetch_sysroot() {
  local stamp started deb
  stamp=$(stamp_of $SYSROOT_PACKAGES)
  fresh sysroot "$stamp" && return 0
  started=$(now)
  say "fetching the armhf sysroot (about 100 MiB)"
  apt_update
  # --download-only against an empty status brings every dependency down to libc.
  apt_fetch install -y -q --download-only $SYSROOT_PACKAGES
  rm -rf "$cache/sysroot.new"
  mkdir -p "$cache/sysroot.new"
  for deb in "$apt_root"/var/cache/apt/archives/*_armhf.deb "$apt_root"/var/cache/apt/archives/*_all.deb; do
    [[ -e $deb ]] && dpkg-deb -x "$deb" "$cache/sysroot.new"
  done
  keep_links_inside "$cache/sysroot.new"
  rm -rf "$cache/sysroot"
  mv "$cache/sysroot.new" "$cache/sysroot"
  rm -f "$apt_root"/var/cache/apt/archives/*.deb
  echo "$stamp" >"$cache/sysroot.stamp"
  say "sysroot ready in $(took "$started")"
}

# The armmp kernel is built without the virtual raw MIDI driver: its two modules are built
# against the kernel's headers (with this machine's kbuild tools of the same version) from
# the kernel's own sources, and added to its modules.dep.
fetch_kernel() {
  local abi stamp started version work kroot headers src
  apt_update
  # The kernel the lists name, looked up once per reading of the lists.
  if [[ ! -s $cache/kernel.want ]]; then
    abi=$(private_apt apt-cache depends linux-image-armmp | awk '/Depends: linux-image-/ { sub(/.*linux-image-/, ""); print; exit }')
    [[ -n $abi ]] || die "no armmp kernel in Debian's armhf package list"
    version=$(private_apt apt-cache show "linux-image-$abi" | awk '/^Version:/ { print $2; exit }')
    echo "$abi $version" >"$cache/kernel.want"
  fi
  read -r abi version <"$cache/kernel.want"
  stamp=$(stamp_of "$abi $version")
  fresh kernel "$stamp" && return 0
  started=$(now)
  say "fetching the armmp kernel $abi and building snd-virmidi for it"
  work=$cache/kernel.work
  rm -rf "$work" "$cache/kernel.new"
  mkdir -p "$work" "$cache/kernel.new"
  kroot=$cache/kernel.new
  (cd "$work" && apt_fetch download "linux-image-$abi=$version" "linux-headers-$abi=$version" \
    "linux-headers-${abi%-armmp}-common=$version" "linux-kbuild-6.1:$host_arch=$version" \
    "linux-source-6.1=$version")
  for deb in "$work"/linux-{image,headers,kbuild}-*.deb; do dpkg-deb -x "$deb" "$kroot"; done
  keep_links_inside "$kroot"
  headers=$kroot/usr/src/linux-headers-$abi
  sed -i "s|^include /usr/src/|include $kroot/usr/src/|" "$headers/Makefile"

  src=linux-source-6.1
  dpkg-deb --fsys-tarfile "$work"/linux-source-6.1_*.deb | tar -xO "./usr/src/$src.tar.xz" |
    xz -dc -T2 | tar -x -C "$work" "$src/sound/drivers/virmidi.c" "$src/sound/core/seq/seq_virmidi.c"
  mkdir -p "$work/virmidi"
  cp "$work/$src/sound/drivers/virmidi.c" "$work/$src/sound/core/seq/seq_virmidi.c" "$work/virmidi/"
  printf '%s\n' 'obj-m := snd-virmidi.o snd-seq-virmidi.o' 'snd-virmidi-y := virmidi.o' \
    'snd-seq-virmidi-y := seq_virmidi.o' >"$work/virmidi/Kbuild"
  make -s -C "$headers" M="$work/virmidi" ARCH=arm CROSS_COMPILE=arm-linux-gnueabihf- \
    -j "$(nproc)" modules >&2 || die "building snd-virmidi for $abi failed"
  mkdir -p "$kroot/lib/modules/$abi/updates"
  cp "$work/virmidi/"*.ko "$kroot/lib/modules/$abi/updates/"
  depmod -b "$kroot" "$abi" || die "depmod for $abi failed"

  rm -rf "$work" "$cache/kernel"
  mv "$kroot" "$cache/kernel"
  # The headers' Makefile named the staging directory.
  sed -i "s|^include $kroot/|include $cache/kernel/|" "$cache/kernel/usr/src/linux-headers-$abi/Makefile"
  echo "$stamp" >"$cache/kernel.stamp"
  say "kernel ready in $(took "$started")"
}

ensure_host_packages
mkdir -p "$cache"
# One fetch at a time; a second caller waits and then finds everything in place.
exec 8>"$cache/lock"
flock 8
fetch_sysroot
fetch_kernel
echo "$cache"
