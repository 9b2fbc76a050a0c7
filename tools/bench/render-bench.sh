#!/usr/bin/env bash
# The offline-render row: `nuvmidi render` beside FluidSynth's own `fluidsynth -F` on the
# demonstration's phrase, same font, rate and sample format, three runs each (min / median /
# max wall time). Needs no VM: neither uses a sequencer or a sound card.
#   tools/bench/render-bench.sh [nuvmidi]     (default build/tools/cli/nuvmidi)
set -euo pipefail
cd "$(dirname "$0")/../.."
nuvmidi=${1:-build/tools/cli/nuvmidi}
font=/usr/share/sounds/sf2/TimGM6mb.sf2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tools/demo/make-phrase.sh "$work/phrase.mid"

seconds() { # COMMAND...: wall seconds of one run
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  awk -v s="$start" -v e="$end" 'BEGIN { print e - s }'
}
row() { # NAME OUT.wav COMMAND...
  local name=$1 out=$2 runs=()
  shift 2
  for _ in 1 2 3; do runs+=("$(seconds "$@")"); done
  mapfile -t runs < <(printf '%s\n' "${runs[@]}" | sort -n)
  local audio=$(( ($(stat -c %s "$out") - 44) / 192000 ))
  printf '| %-28s | %5.2f / %5.2f / %5.2f s | %d s of audio |\n' "$name" "${runs[0]}" \
    "${runs[1]}" "${runs[2]}" "$audio"
}
echo "| offline render of the 5.2 s phrase | min / median / max | output |"
echo "|---|---|---|"
row "nuvmidi render" "$work/n.wav" \
  "$nuvmidi" --font "$font" render "$work/phrase.mid" -o "$work/n.wav"
row "fluidsynth -F (anchor)" "$work/f.wav" \
  fluidsynth -ni -q -F "$work/f.wav" -r 48000 -g 1.0 -T wav -O s16 "$font" "$work/phrase.mid"
