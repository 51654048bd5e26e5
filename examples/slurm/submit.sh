#!/bin/bash
# Submits a karven run as a Slurm job array of SHARDS tasks and a merge job that waits for all
# of them (afterok: a failed task leaves the merge pending, never run on partial data).
#
#   KARVEN=... KARVEN_MERGE=... CTF=stack.ctf PARAMS=params.json OUT_DIR=/shared/run1 \
#   SHARDS=16 MERGED=/shared/run1/samples.jsonl [PRECISION=0.005] [SEED=1] \
#   [SBATCH_OPTIONS="--partition=... --time=..."] ./submit.sh
#
# Prints the array's job id and the merge's job id.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
: "${KARVEN:?}" "${KARVEN_MERGE:?}" "${CTF:?}" "${PARAMS:?}" "${OUT_DIR:?}" "${SHARDS:?}"
: "${MERGED:=$OUT_DIR/samples.jsonl}"
export KARVEN KARVEN_MERGE CTF PARAMS OUT_DIR SHARDS MERGED PRECISION SEED
mkdir -p "$OUT_DIR"
# shellcheck disable=SC2086  # SBATCH_OPTIONS is a list of options
array=$(sbatch --parsable --export=ALL --chdir="$OUT_DIR" ${SBATCH_OPTIONS:-} \
    --array="0-$((SHARDS - 1))" "$here/karven-shard.sbatch")
array="${array%%;*}"
# shellcheck disable=SC2086
merge=$(sbatch --parsable --export=ALL --chdir="$OUT_DIR" ${SBATCH_OPTIONS:-} \
    --dependency="afterok:$array" "$here/karven-merge.sbatch")
merge="${merge%%;*}"
echo "array job $array, merge job $merge"
