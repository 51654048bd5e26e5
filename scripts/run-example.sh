#!/usr/bin/env bash
# Builds the tool and runs it on the bundled example: writes out/samples.jsonl.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$(nproc)" --target karven

ctf=examples/stack.ctf
if [ ! -f "$ctf" ]; then
  echo "run-example: the bundled technology file $ctf is not in this build yet;" \
       "running the tool without it stops at reading the technology." >&2
fi
build/karven -i "$ctf" -o out/samples.jsonl --param-json examples/params.json "$@"
