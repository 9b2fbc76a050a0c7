#!/usr/bin/env bash
# The plug-in's dynamic symbol table offers exactly its three entry functions and the
# entry's three kernel-module operations.
set -euo pipefail
library=$1
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | c++filt | sort)
expected=$(printf '%s\n' NuvMIDI_Create NuvMIDI_Destroy NuvMIDI_GetDeviceManager \
  'NuvMIDIEntry::m_ExecShell(char const*)' \
  'NuvMIDIEntry::m_InsertModules(char const*, char const**)' \
  'NuvMIDIEntry::m_ReadProcModules(char*)' | sort)
if [ "$actual" != "$expected" ]; then
  echo "exported symbols differ from the three entry functions and three module operations:" >&2
  diff <(echo "$expected") <(echo "$actual") >&2 || true
  exit 1
fi
echo "exports:"
echo "$actual"
