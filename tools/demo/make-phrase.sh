#!/usr/bin/env bash
# Writes the demonstration's phrase as a standard MIDI file: a piano arpeggio up and down
# and a closing chord, 5.2 s long, its second bar faster than its first so that players
# have a tempo change to follow. Written byte by byte here, so the file is ours.
#   make-phrase.sh OUT.mid
set -euo pipefail
out=${1:?usage: make-phrase.sh OUT.mid}

readonly QUARTER=480 # ticks per quarter note

hex() { printf '\\x%02x' "$@"; }
be16() { hex $(($1 >> 8 & 255)) $(($1 & 255)); }
be32() { hex $(($1 >> 24 & 255)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) $(($1 & 255)); }
# A variable-length quantity: seven bits a byte, the high bit set on all but the last.
varlen() {
  local n=$1 bytes
  bytes=$(hex $((n & 0x7F)))
  while ((n >>= 7)); do bytes=$(hex $(((n & 0x7F) | 0x80)))$bytes; done
  printf '%s' "$bytes"
}
# "\xHH" per byte: a chunk's length is a quarter of its text's.
chunk() { printf '%s' "$1"; be32 $((${#2} / 4)); printf '%s' "$2"; }

track=
event() { # DELTA BYTE...
  track+=$(varlen "$1")
  shift
  track+=$(hex "$@")
}
tempo() { event "$1" 0xFF 0x51 0x03 $(($2 >> 16 & 255)) $(($2 >> 8 & 255)) $(($2 & 255)); }
end_of_track() { event "$1" 0xFF 0x2F 0x00; }
note() { # NOTE TICKS: one legato note on channel 0
  event 0 0x90 "$1" 90
  event "$2" 0x80 "$1" 64
}

# Track 0, the tempo map: 120 bpm for the first bar, 150 bpm from the second.
tempo 0 500000
tempo $((4 * QUARTER)) 400000
end_of_track 0
tempo_map=$track

# Track 1: acoustic grand piano, C major up and down, then the chord for a whole note.
track=
event 0 0xC0 0
for pitch in 60 64 67 72 76 72 67 62; do note "$pitch" "$QUARTER"; done
for pitch in 60 64 67 72; do event 0 0x90 "$pitch" 80; done
event $((4 * QUARTER)) 0x80 60 64
for pitch in 64 67 72; do event 0 0x80 "$pitch" 64; done
end_of_track 0
melody=$track

data=$(chunk MThd "$(be16 1)$(be16 2)$(be16 $QUARTER)")
data+=$(chunk MTrk "$tempo_map")
data+=$(chunk MTrk "$melody")
printf "$data" >"$out"
