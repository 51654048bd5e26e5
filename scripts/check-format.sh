#!/usr/bin/env bash
# Fails, listing the files, when any C++ source under src/, tests/, bench/ or tools/ differs from
# what clang-format makes of it with the repository's .clang-format. `--fix` rewrites them instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files --cached --others --exclude-standard -- src tests bench tools |
  grep -E '\.(cpp|h)$')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  [ -f "$f" ] || continue
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
  echo "check-format: ${#bad[@]} file(s) differ from .clang-format (fix: scripts/check-format.sh --fix):"
  printf '  %s\n' "${bad[@]}"
  exit 1
fi
echo "check-format: ${#files[@]} files formatted"
