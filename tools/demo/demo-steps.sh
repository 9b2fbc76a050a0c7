#!/bin/sh
# The demonstration's steps, run where the sequencer is: on this machine, or inside the test
# VM (a busybox system, hence plain sh). Shows the devices, records the phrase played through
# the library, has a virtual keyboard play while nuvmidi monitor listens, and plugs in, plays
# and pulls out a USB keyboard where there is one.
#   demo-steps.sh NUVMIDI PHRASE.mid OUTDIR [NUVMIDI OPTION...]
set -eu
nuvmidi=$1
phrase=$2
out=$3
shift 3

show() {
  printf '\n$ nuvmidi %s\n' "$*"
  "$nuvmidi" "$@"
}

# Waits up to SECONDS for FILE to hold a line with TEXT.
wait_for_text() {
  tries=$(($3 * 10))
  until grep -q "$1" "$2" 2>/dev/null; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || return 1
    sleep 0.1
  done
}

show "$@" devices
# Through a pipe, play prints one line instead of its progress bar.
show "$@" --wav "$out/demo.wav" play "$phrase" | cat

# The first snd-virmidi card: its raw node is the keyboard, its client what the library sees.
card=$(sed -n 's/^ *\([0-9][0-9]*\) \[[^]]*\]: VirMIDI.*/\1/p' /proc/asound/cards 2>/dev/null | head -n 1)
if [ -z "$card" ]; then
  echo
  echo "(no virtual keyboard here: 'modprobe snd-virmidi' shows nuvmidi monitor at work)"
  exit 0
fi
keyboard="Virtual Raw MIDI $card-0"
log=${TMPDIR:-/tmp}/demo-monitor.$$
printf '\n$ nuvmidi %smonitor --count 6 "%s"    # while the keyboard plays C, E, G\n' "${*:+$* }" "$keyboard"
"$nuvmidi" "$@" monitor --count 6 "$keyboard" >"$log" 2>&1 &
monitor=$!
if ! wait_for_text "Waiting for data" "$log" 60; then
  cat "$log"
  kill "$monitor" 2>/dev/null || true
  echo "nuvmidi monitor did not start listening" >&2
  exit 1
fi
for note in 074 100 103; do # C4, E4, G4 as octal bytes: note on, then note off
  printf "\\220\\$note\\144" >"/dev/snd/midiC${card}D0"
  sleep 0.3
  printf "\\200\\$note\\100" >"/dev/snd/midiC${card}D0"
done
status=0
wait "$monitor" || status=$?
cat "$log"
rm -f "$log"
[ "$status" = 0 ] || exit "$status"

# A USB keyboard (in the test VM: vm-run --usb-keyboards, a USB MIDI gadget on the dummy USB
# controller) plugged in, played and pulled out.
gadget=/sys/kernel/config/usb_gadget/keyboard0
if [ ! -e "$gadget/UDC" ]; then
  echo
  echo "(no USB keyboard to plug in here: tools/vm/vm-run --usb-keyboards 1 has one)"
  exit 0
fi
usb=$(cat "$gadget/strings/0x409/product")
watch_log=${TMPDIR:-/tmp}/demo-watch.$$
printf '\n$ nuvmidi %sdevices --watch &    # then the USB keyboard "%s" is plugged in\n' "${*:+$* }" "$usb"
"$nuvmidi" "$@" devices --watch >"$watch_log" 2>&1 &
watch=$!
wait_for_text "Press Ctrl+C" "$watch_log" 60 || { cat "$watch_log"; exit 1; }
echo dummy_udc.0 >"$gadget/UDC"
wait_for_text "$usb .*Device arrived" "$watch_log" 10 || { cat "$watch_log"; exit 1; }
cat "$watch_log"
shown=$(grep -c '' "$watch_log")
show "$@" devices

# The keyboard's keys: the raw MIDI node of the gadget's own card (id gadget0).
keys=/dev/snd/midiC$(sed -n 's/^ *\([0-9][0-9]*\) \[gadget0 *\].*/\1/p' /proc/asound/cards)D0
printf '\n$ nuvmidi %smonitor "%s"    # while it plays C, E, G, and is then pulled out\n' "${*:+$* }" "$usb"
"$nuvmidi" "$@" monitor "$usb" >"$log" 2>&1 &
monitor=$!
wait_for_text "Waiting for data" "$log" 60 || { cat "$log"; exit 1; }
for note in 074 100 103; do
  printf "\\220\\$note\\144" >"$keys"
  sleep 0.3
  printf "\\200\\$note\\100" >"$keys"
done
wait_for_text "note 67, velocity 64" "$log" 10 || true
echo >"$gadget/UDC"
status=0
wait "$monitor" || status=$?
cat "$log"
echo "(nuvmidi monitor ended with status $status: its keyboard has gone)"
wait_for_text "$usb .*Device left" "$watch_log" 10 || true
kill -INT "$watch" 2>/dev/null || true
wait "$watch" || true
printf '\n(devices --watch, meanwhile)\n'
sed -n "$((shown + 1)),\$p" "$watch_log"
rm -f "$log" "$watch_log"
[ "$status" = 7 ]
