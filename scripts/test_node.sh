#!/usr/bin/env bash
# scripts/test_node.sh LINE... [--only TEXT] [--without TEXT]...
#
# Runs the JavaScript tests of build/release with the newest Node.js of each LINE (24 or 26, for
# example), which is fetched from npm. The fuzzers, which do not use Node.js, are left out; the
# options are those of run_tests.mjs. Ends with one line for each Node.js, and fails when a test
# fails.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

lines=() options=()
for argument; do
  if [[ $argument =~ ^[0-9]+$ ]]; then lines+=("$argument"); else options+=("$argument"); fi
done
((${#lines[@]})) || {
  echo 'usage: scripts/test_node.sh LINE... [--only TEXT] [--without TEXT]...' >&2
  exit 2
}

outcomes=()
is_green=true
for line in "${lines[@]}"; do
  commands=$(scripts/fetch_node.sh "$line")
  log=build/test_node-$line.log
  PATH=$commands:$PATH node scripts/run_tests.mjs release --javascript --without test/fuzz/ \
    "${options[@]}" | tee "$log" || is_green=false
  outcomes+=("Node.js $("$commands/node" --version): $(tail -n 1 "$log")")
done
printf '%s\n' '' "${outcomes[@]}"
$is_green
