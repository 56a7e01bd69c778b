#!/usr/bin/env bash
# scripts/coverage.sh [DIRECTORY...]
#
# Runs all tests and prints which lines and branches of the directories they reach and miss. The
# default directories are addon/sharedmem, addon/frames, addon/events and addon/utils. Fails when
# the tests fail and, for the default directories, when the coverage is too low.
# build/coverage/report shows every line.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

directories=("$@")
goals=()
if ((${#directories[@]} == 0)); then
  directories=(addon/sharedmem addon/frames addon/events addon/utils)
  goals=(--fail-under-line 99 --fail-under-branch 95)
fi

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
# A call that may throw has a branch for the exception, which the compiler generates.
gcovr --exclude-throw-branches --exclude-unreachable-branches "${filters[@]}" \
  --json build/coverage/coverage.json --html-details build/coverage/report/index.html build/coverage
report() { gcovr --add-tracefile build/coverage/coverage.json "$@"; }
report --txt
reached=0
report --txt --branches --print-summary "${goals[@]}" || reached=$?
node scripts/unreached_code.mjs build/coverage/coverage.json
exit "$reached"
