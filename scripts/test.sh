#!/usr/bin/env bash
# Sets up, builds and runs all tests; ends with the summary of ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "== set-up"
scripts/setup.sh
echo "== build (preset dev)"
cmake --preset dev >build-dev.log 2>&1 || { cat build-dev.log; exit 1; }
rm -f build-dev.log
cmake --build --preset dev
echo "== tests"
ctest --preset dev -j 2
