#!/bin/sh
# The demonstration's steps, run where the sequencer is: on this machine, or inside the test
# VM (a busybox system, hence plain sh). Shows the devices, records the phrase played through
# the library, and has a virtual keyboard play while nuvmidi monitor listens.
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
exit "$status"
