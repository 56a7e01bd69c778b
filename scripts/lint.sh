#!/usr/bin/env bash
# Checks formatting, the layers, the scripts, the JavaScript and the C++ code, and reports all that it
# finds. scripts/format.sh corrects the formatting.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# A file that clang-tidy has found clean is not checked again, unless the rules have changed.
rules() { git ls-files -z '*.clang-tidy' | xargs -0 tail -n +1; }
rules | cmp -s - build/tidy/checked_with || rm -rf build/tidy
scripts/setup.sh tidy --for lint
rules >build/tidy/checked_with

clean=true
check() {
  echo "Checking with $1"
  "${@:2}" || clean=false
}

mapfile -d '' -t cpp_files < <(git ls-files -z '*.cc' '*.h')
mapfile -d '' -t shell_scripts < <(git ls-files -z '*.sh' .ci/run)

check clang-format clang-format --dry-run -Werror "${cpp_files[@]}"
check "the layers" node scripts/check_layers.mjs
check shellcheck shellcheck "${shell_scripts[@]}"
check prettier node_modules/.bin/prettier --check --log-level warn .
check eslint node_modules/.bin/eslint --max-warnings 0 .
check "clang and clang-tidy (the first time takes some minutes)" \
  cmake --build --preset tidy -- --quiet -k 0

$clean || exit 1
echo "Lint is clean"
