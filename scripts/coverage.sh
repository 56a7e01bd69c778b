#!/usr/bin/env bash
# scripts/coverage.sh [DIRECTORY...]
#
# Runs the native tests and prints which lines and branches of the directories (those without
# JavaScript and those between the threads, unless others are named) they reach. The details of
# each file are in build/coverage/report.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

directories=("$@")
((${#directories[@]})) || directories=(sharedmem frames events)

scripts/setup.sh coverage
find build/coverage -name '*.gcda' -delete
node scripts/run_tests.mjs coverage >build/coverage/tests.log || {
  tail -n 50 build/coverage/tests.log
  exit 1
}
tail -n 1 build/coverage/tests.log

mkdir -p build/coverage/report
filters=()
for directory in "${directories[@]}"; do filters+=(--filter "$directory/"); done
# A call that may throw has a branch for the exception, which is the compiler's and not the code's.
gcovr --root . --exclude-throw-branches --exclude-unreachable-branches "${filters[@]}" \
  --html-details build/coverage/report/index.html --print-summary \
  --txt - --txt-metric "${COVERAGE_METRIC:-line}" build/coverage
