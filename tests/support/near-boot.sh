#!/usr/bin/env bash
# Runs a test program as if the machine had booted a few seconds ago: in a time namespace of
# its own, its monotonic clock starts near zero. Exits 77 (skipped) where that isn't allowed.
#   near-boot.sh PROGRAM [ARGUMENTS...]
set -euo pipefail
up=$(python3 -c 'import time; print(int(time.monotonic()))')
offset=$((up > 3 ? up - 3 : 0))
if ! unshare --time --monotonic=-"$offset" true 2>/dev/null; then
  echo "skipped: no time namespace here (unshare --time needs root and Linux 5.6 or later)"
  exit 77
fi
exec unshare --time --monotonic=-"$offset" "$@"
