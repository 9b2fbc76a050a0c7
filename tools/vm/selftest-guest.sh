#!/bin/sh
# The in-VM half of selftest.sh (busybox sh): checks what the VM offers the tests, writes the
# captures and a summary to /out for the host half, and exits 42 so the host can see that a
# non-zero status comes back. Every wait is for a condition, with a deadline.
dir=$(dirname "$0")
passed=0
failed=0

ok() { echo "ok - $1"; passed=$((passed + 1)); }
not_ok() { echo "not ok - $1"; failed=$((failed + 1)); }
check() { # NAME COMMAND...
  name=$1
  shift
  if "$@"; then ok "$name"; else not_ok "$name"; fi
}

# Runs COMMAND... until it succeeds or SECONDS have passed.
wait_for() {
  deadline=$(($(cut -d. -f1 /proc/uptime) + $1))
  shift
  until "$@"; do
    [ "$(cut -d. -f1 /proc/uptime)" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}

stop() { # PID: ends a helper and waits until it is gone
  kill "$1" 2>/dev/null
  wait "$1" 2>/dev/null
}

# Prints the sequencer client number of the client whose name is exactly NAME.
client_of() {
  aconnect -l | sed -n "s/^client \([0-9]*\): '$1' .*/\1/p"
}

capture_running() { grep -q 'state: RUNNING' /proc/asound/Loopback/pcm1c/sub0/status 2>/dev/null; }

# Captures the loopback's far side for SECONDS into FILE while the caller plays.
start_capture() {
  arecord -q -D hw:Loopback,1,0 -f S16_LE -r 48000 -c 2 -d "$1" "$2" &
  capture_pid=$!
  wait_for 20 capture_running
}

aconnect -l >/tmp/clients
check '"Midi Through" is a sequencer client' grep -q "'Midi Through'" /tmp/clients
check 'two "Virtual Raw MIDI" clients' [ "$(grep -c "'Virtual Raw MIDI " /tmp/clients)" -eq 2 ]
check 'snd_seq is loaded' grep -q '^snd_seq ' /proc/modules

# The virtual keyboard: raw bytes into its node come out of its sequencer client.
card=$(sed -n 's/^ *\([0-9]*\) \[VirMIDI *\].*/\1/p' /proc/asound/cards | head -n1)
keyboard=$(client_of "Virtual Raw MIDI $card-0")
aseqdump -p "$keyboard:0" >/tmp/dump 2>&1 &
dump_pid=$!
dump_listening() { aconnect -l | grep -A3 "'aseqdump'" | grep -q "Connected From: $keyboard:0"; }
wait_for 20 dump_listening
printf '\220\074\144' >"/dev/snd/midiC${card}D0" # note on, channel 1, note 60, velocity 100
check "a note-on written to /dev/snd/midiC${card}D0 reaches aseqdump -p $keyboard:0" \
  wait_for 20 grep -q 'Note on .* note 60, velocity 100' /tmp/dump
stop "$dump_pid"

# "default" plays into the loopback card; its other side hears it.
start_capture 3 /out/tone-capture.wav
check 'aplay to "default" plays' aplay -q -D default "$dir/tone.wav"
wait "$capture_pid"
check 'arecord from hw:Loopback,1,0 wrote a capture' [ -s /out/tone-capture.wav ]

# FluidSynth with its real drivers: its libraries are complete, it registers a client, and
# a note played on the virtual keyboard comes out of the loopback card.
fluidsynth -a alsa -m alsa_seq -is /usr/share/tallowin/DefaultSF.sf2 >/tmp/fluidsynth.log 2>&1 &
synth_pid=$!
synth_up() { aconnect -l | grep -q "client [0-9]*: 'FLUID"; }
if wait_for 120 synth_up; then
  ok 'fluidsynth shows a "FLUID" client'
  synth=$(aconnect -l | sed -n "s/^client \([0-9]*\): 'FLUID.*/\1/p" | head -n1)
  aconnect "$keyboard:0" "$synth:0"
  start_capture 3 /out/synth-capture.wav
  printf '\220\074\144' >"/dev/snd/midiC${card}D0"
  wait "$capture_pid"
  printf '\200\074\000' >"/dev/snd/midiC${card}D0"
else
  not_ok 'fluidsynth shows a "FLUID" client'
  cat /tmp/fluidsynth.log
fi
stop "$synth_pid"

echo "passed $passed failed $failed" >/out/guest-result
exit 42
