#!/usr/bin/env bash
# Builds the project and runs every test twice: once optimised, once under AddressSanitizer and
# UndefinedBehaviorSanitizer. Build folders: build/ and build-asan/.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

# Formatting first: a difference fails in a second instead of after the builds.
scripts/check-format.sh

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"

# Line tables only (-g1): the reports keep file and line, the build is quicker.
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 \
  -DKARVEN_SANITIZE=ON -DKARVEN_BENCH=OFF
cmake --build build-asan -j "$jobs"
ctest --test-dir build-asan --output-on-failure -j "$jobs" -LE accuracy
