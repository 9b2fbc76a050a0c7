#!/bin/sh
# The README's host example is examples/play-note.cpp, word for word.
set -eu
readme=$1 example=$2
block=$(awk '/^```cpp$/ { inside = 1; next } inside && /^```$/ { exit } inside' "$readme")
if [ "$block" != "$(cat "$example")" ]; then
  echo "the README's cpp block differs from $example:" >&2
  printf '%s\n' "$block" | diff - "$example" >&2 || true
  exit 1
fi
