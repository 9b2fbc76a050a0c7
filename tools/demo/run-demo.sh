#!/usr/bin/env bash
# The demonstration of libNuvMIDI, through its command-line host nuvmidi: the devices the
# library finds, a short phrase played through its synthesizer and recorded, a virtual
# keyboard whose notes nuvmidi monitor shows, and (in the VM) a USB keyboard plugged in,
# played and pulled out under nuvmidi devices --watch and monitor. Where this kernel has an ALSA sequencer it
# runs here; elsewhere it runs the same steps inside the test VM (tools/vm/vm-run). It
# leaves out/demo.wav (what was played) and out/demo.png (its spectrogram).
#
#   tools/demo/run-demo.sh [--install-font] [--build DIR] [--out DIR]
#     --install-font  place Debian's sound font at /usr/share/tallowin/DefaultSF.sf2, where
#                     the library looks for its default font (needs root or sudo)
#     --build DIR     build tree (default build)
#     --out DIR       where the results go (default out)
set -euo pipefail
cd "$(dirname "$0")/../.."

readonly DEFAULT_FONT=/usr/share/tallowin/DefaultSF.sf2
readonly DEBIAN_FONT=/usr/share/sounds/sf2/TimGM6mb.sf2

install_font=0
build=build
out=out
while [[ $# -gt 0 ]]; do
  case $1 in
    --install-font) install_font=1; shift ;;
    --build) build=${2:?--build needs a directory}; shift 2 ;;
    --out) out=${2:?--out needs a directory}; shift 2 ;;
    -h | --help) sed -n '2,13s/^# \{0,1\}//p' "$0"; exit 0 ;;
    *) echo "run-demo.sh: unknown argument '$1' (see --help)" >&2; exit 2 ;;
  esac
done

step() { printf '\n== %s\n' "$*"; }
as_root() { if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi; }

started=$SECONDS
# Only what the path taken needs: the VM's packages where there is no sequencer here.
if [[ -e /dev/snd/seq ]]; then tools/install-deps.sh build demo; else tools/install-deps.sh build demo vm; fi
if [[ $install_font == 1 && ! -e $DEFAULT_FONT ]]; then
  step "Installing $DEBIAN_FONT as $DEFAULT_FONT"
  as_root install -D -m 644 "$DEBIAN_FONT" "$DEFAULT_FONT"
fi

step "Building nuvmidi and libNuvMIDI.so"
[[ -f $build/build.ninja ]] || cmake -S . -B "$build" -G Ninja >/dev/null
ninja -C "$build" -j 2 nuvmidi >/dev/null
build=$(cd "$build" && pwd)
mkdir -p "$out"
out=$(cd "$out" && pwd)
rm -f "$out/demo.wav" "$out/demo.png"
tools/demo/make-phrase.sh "$out/phrase.mid"

nuvmidi=$build/tools/cli/nuvmidi
if [[ -e /dev/snd/seq ]]; then
  step "Running here: this kernel has an ALSA sequencer"
  font=()
  [[ -e $DEFAULT_FONT ]] || font=(--font "$DEBIAN_FONT")
  tools/demo/demo-steps.sh "$nuvmidi" "$out/phrase.mid" "$out" ${font[@]+"${font[@]}"}
else
  step "Running in the test VM: this kernel has no ALSA sequencer (/dev/snd/seq)"
  # nuvmidi finds libNuvMIDI.so.1 through its build-tree run path: both keep their paths.
  tools/vm/vm-run --timeout 600 --out "$out" --usb-keyboards 1 --usb-names "Nuv USB Keys" \
    --add "$nuvmidi" --add "$build/midi/libNuvMIDI.so.1" \
    --add tools/demo/demo-steps.sh:/demo/demo-steps.sh \
    --add "$out/phrase.mid:/demo/phrase.mid" \
    -- /demo/demo-steps.sh "$nuvmidi" /demo/phrase.mid /out
fi

step "Spectrogram of what was played"
sox "$out/demo.wav" -n spectrogram -t "nuvmidi play phrase.mid" -o "$out/demo.png"
printf '%s: %s s of sound, %s bytes\n' "$out/demo.wav" "$(soxi -D "$out/demo.wav")" \
  "$(stat -c %s "$out/demo.wav")"
printf '%s: %s bytes\n' "$out/demo.png" "$(stat -c %s "$out/demo.png")"
echo "Demonstration done in $((SECONDS - started)) s."
