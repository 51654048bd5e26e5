#!/usr/bin/env bash
# Builds the tool and runs it on the bundled example: writes out/samples.jsonl, one
# cross-section with its capacitance matrix per line. Extra arguments go to the tool.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$(nproc)" --target karven

build/karven -i examples/stack.ctf -o out/samples.jsonl --param-json examples/params.json "$@"
echo "run-example: wrote $(wc -l < out/samples.jsonl) samples to out/samples.jsonl"
