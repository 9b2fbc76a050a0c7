#!/usr/bin/env bash
# The Debian packages as a host developer meets them: cpack makes them, lintian finds no
# error in them, they unpack into a fresh prefix, pkg-config and find_package(NuvMIDI) find
# the library there, and the examples built against it run in the test VM. A tree installed
# with cmake --install --prefix elsewhere finds its own libraries too.
#   installed-package.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
source=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

step() { echo "installed-package: $*"; }

step "cpack and lintian"
(cd "$work" && cpack -G DEB -B "$work/debs" --config "$build/CPackConfig.cmake" >/dev/null)
debs=("$work"/debs/*.deb)
[ ${#debs[@]} -eq 3 ] || { echo "expected 3 packages, got ${#debs[@]}" >&2; exit 1; }
lintian --fail-on error "${debs[@]}"

step "unpacked into a fresh prefix"
prefix=$work/prefix
for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$prefix"; done
libdir=$(dirname "$(find "$prefix" -name libNuvMIDI.so.1 -print -quit)")
flags=$(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs nuvmidi)
case $flags in *"$prefix"*) ;; *) echo "nuvmidi.pc points elsewhere: $flags" >&2; exit 1 ;; esac
# shellcheck disable=SC2086
c++ -std=c++17 "$source/examples/play-note.cpp" $flags -o "$work/play-note-pc"
cmake -S "$source/examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/usr" \
  >/dev/null
ninja -C "$work/examples" >/dev/null

step "cmake --install --prefix elsewhere"
cmake --install "$build" --prefix "$work/elsewhere" >/dev/null
ldd "$work/elsewhere/bin/nuvmidi" >/dev/null
found=$(ldd "$work/elsewhere/lib/libNuvMIDI.so.1")
if ! grep -q "libNuvCore.so.1 => $work/elsewhere/" <<<"$found"; then
  echo "the installed libNuvMIDI does not find the libNuvCore beside it: $found" >&2
  exit 1
fi

step "the examples, built against the packages, in the test VM"
# The monitor is started, a note is played on the first virtual keyboard once it listens,
# and the monitor ends after that one event.
cat >"$work/run-examples.sh" <<'GUEST'
set -e
nuv-play-note
nuv-monitor 60 1 >/tmp/monitor.out &
monitor=$!
tries=0
until grep -q "listening to Virtual Raw MIDI 1-0" /tmp/monitor.out; do
  tries=$((tries + 1)); [ $tries -lt 600 ] || { echo "the monitor never listened"; exit 1; }
  sleep 0.1
done
printf '\220\074\144' >/dev/snd/midiC1D0
wait $monitor
cat /tmp/monitor.out
GUEST
out=$("$source/tools/vm/vm-run" --timeout 300 --add "$work/examples/nuv-play-note" \
  --add "$work/examples/nuv-monitor" --add "$work/run-examples.sh:/tmp/run-examples.sh" \
  -- sh /tmp/run-examples.sh)
echo "$out"
grep -q "played middle C on FLUID" <<<"$out"
grep -q "Virtual Raw MIDI 1-0 *event 16  channel  0  param  60" <<<"$out"
step "1 passed, 0 failed"
