#!/usr/bin/env bash
# test/reliability/valgrind.sh [COUNT]
#
# The trial of stale frames under valgrind, which sees what JavaScript reads as long as V8 generates
# no code (--jitless). Ends with code 9 when it found something.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

valgrind --error-exitcode=9 --suppressions=test/reliability/valgrind.supp \
  node --jitless test/reliability/trial_process.mjs \
  "$PWD/test/reliability/trials/stale_frames.mjs" \
  "{\"count\":${1:-300},\"seed\":\"1\"}" 3>&1 >/dev/null
