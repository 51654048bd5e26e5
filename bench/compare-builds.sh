#!/bin/bash
# Two builds of karven side by side on the bundled example: one thread, each round a cold run
# (fresh table cache) and a warm run (the cache that cold run left) of each build, interleaved so
# that a slow spell of a shared machine hits both. Prints user CPU seconds per run and the fastest
# of each kind. Both builds must take --table-cache (the table cache came with it).
#
#   bench/compare-builds.sh OLD/karven NEW/karven [ROUNDS=3] [SAMPLES=6]
set -euo pipefail
old=$1 new=$2 rounds=${3:-3} samples=${4:-6}
here=$(cd "$(dirname "$0")/.." && pwd)
dir=$(mktemp -d /tmp/karven-compare-XXXXXX)
trap 'rm -rf "$dir"' EXIT
cat > "$dir/params.json" <<JSON
{"Random": {"nsamples": $samples, "nlayers": 5, "poisson_lambda": 4, "exponent_base": 0.75,
            "window": 20.0, "conductor_window": 6.0}}
JSON
run() {  # name binary mode round
    /usr/bin/time -f "%U" -o "$dir/t" "$2" -i "$here/examples/stack.ctf" \
        -o "$dir/$1-$3-$4.jsonl" -n 1 --seed 1 --param-json "$dir/params.json" \
        --table-cache "$dir/cache-$1-$4" > /dev/null 2> "$dir/log"
    local t
    t=$(tail -1 "$dir/t")
    echo "$1 $3 $t" >> "$dir/times"
    printf '  round %d  %-3s %-4s %6.2f s user\n' "$4" "$1" "$3" "$t"
}
for r in $(seq 1 "$rounds"); do
    for b in old new; do
        bin=$old; [ $b = new ] && bin=$new
        run $b "$bin" cold "$r"
        run $b "$bin" warm "$r"
    done
done
echo "fastest of $rounds, $samples samples, one thread:"
for b in old new; do
    for m in cold warm; do
        awk -v b=$b -v m=$m '$1 == b && $2 == m { if (best == "" || $3 < best) best = $3 }
            END { printf "  %-3s %-4s %6.2f s user, %.2f s/sample\n", b, m, best, best / '"$samples"' }' \
            "$dir/times"
    done
done
