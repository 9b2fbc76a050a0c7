#!/usr/bin/env bash
# The plug-in's dynamic symbol table offers exactly its three entry functions.
set -euo pipefail
library=$1
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | sort)
expected=$(printf '%s\n' NuvMIDI_Create NuvMIDI_Destroy NuvMIDI_GetDeviceManager)
if [ "$actual" != "$expected" ]; then
  echo "exported symbols differ from the three entry functions:" >&2
  diff <(echo "$expected") <(echo "$actual") >&2 || true
  exit 1
fi
echo "exports: $(echo $actual)"
