#!/usr/bin/env bash
# Formats the C++ code and the JavaScript in place.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh tidy --for lint
git ls-files -z '*.cc' '*.h' | xargs -0 clang-format -i
node_modules/.bin/prettier --write --log-level warn .
