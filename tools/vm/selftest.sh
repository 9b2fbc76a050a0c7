#!/usr/bin/env bash
# Checks the test VM in one boot: the sequencer's clients and modules, a virtual keyboard's
# raw node, the loopback card behind "default", FluidSynth with its drivers, the shared
# /out directory and the command's exit status. The in-VM checks are selftest-guest.sh.
#   tools/vm/selftest.sh          one boot
#   tools/vm/selftest.sh --full   also: `vm-run -- false` exits 1, the time limit gives 124,
#                                 and two VMs run side by side (three more boots)
#   tools/vm/selftest.sh --arch armhf   the same for the 32-bit ARM guest
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
full=0
arch=x86_64
while [[ $# -gt 0 ]]; do
  case $1 in
    --full) full=1; shift ;;
    --arch) arch=${2:?}; shift 2 ;;
    *) echo "usage: selftest.sh [--full] [--arch x86_64|armhf]" >&2; exit 2 ;;
  esac
done
vm_run() { "$here/vm-run" --arch "$arch" "$@"; }

if ! command -v sox >/dev/null; then
  sudo=()
  [[ $(id -u) -eq 0 ]] || sudo=(sudo)
  { "${sudo[@]}" apt-get update -q && "${sudo[@]}" apt-get install -y -q --no-install-recommends sox; } >&2
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/nuv-vm-selftest.XXXXXX")
trap 'rm -rf "$work"' EXIT
passed=0
failed=0
ok() { echo "ok - $1"; passed=$((passed + 1)); }
not_ok() { echo "not ok - $1"; failed=$((failed + 1)); }
check() { # NAME COMMAND...
  local name=$1
  shift
  if "$@"; then ok "$name"; else not_ok "$name"; fi
}

# Prints the peak amplitude (0..1) of a WAV file; the loopback gives exact zeros for silence.
peak() { sox "$1" -n stat 2>&1 | awk '/^Maximum amplitude/ { print $3 }'; }
audible() { [[ -s $1 ]] && awk -v p="$(peak "$1")" 'BEGIN { exit !(p > 0.005) }'; }

sox -n -r 44100 -c 1 -b 16 "$work/tone.wav" synth 1 sine 440 vol 0.5

started=$EPOCHREALTIME
status=0
vm_run --timeout 300 --out "$work/out" \
  --add "$here/selftest-guest.sh:/selftest/guest.sh" --add "$work/tone.wav:/selftest/tone.wav" \
  -- sh /selftest/guest.sh || status=$?
check "the command's exit status comes back (42, got $status)" [ "$status" -eq 42 ]
check 'a file written to /out appears on the host' [ -s "$work/out/guest-result" ]
read -r _ guest_passed _ guest_failed <"$work/out/guest-result" 2>/dev/null || guest_passed=0 guest_failed='?'
check "the in-VM checks passed ($guest_passed passed, $guest_failed failed)" [ "$guest_failed" = 0 ]
check "the tone played to \"default\" is captured at hw:Loopback,1,0 (peak $(peak "$work/out/tone-capture.wav"))" \
  audible "$work/out/tone-capture.wav"
check "FluidSynth plays the virtual keyboard's note into the loopback (peak $(peak "$work/out/synth-capture.wav"))" \
  audible "$work/out/synth-capture.wav"
echo "one boot: $(awk -v a="$started" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f", b - a }') s"

if [[ $full == 1 ]]; then
  status=0
  vm_run -- false || status=$?
  check "vm-run -- false exits 1 (got $status)" [ "$status" -eq 1 ]

  status=0
  vm_run --timeout 20 -- sleep 600 2>/dev/null || status=$?
  check "a run past its time limit exits 124 (got $status)" [ "$status" -eq 124 ]

  vm_run --out "$work/a" -- sh -c 'echo a > /out/who' &
  first=$!
  vm_run --out "$work/b" -- sh -c 'echo b > /out/who' &
  second=$!
  status=0
  wait "$first" || status=$?
  wait "$second" || status=$?
  check "two VMs side by side each finish with their own /out (status $status)" \
    [ "$status" -eq 0 -a "$(cat "$work/a/who" 2>/dev/null)" = a -a "$(cat "$work/b/who" 2>/dev/null)" = b ]
fi

echo "selftest: $passed passed, $failed failed"
[[ $failed -eq 0 ]]
