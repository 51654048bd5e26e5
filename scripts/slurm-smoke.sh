#!/bin/bash
# Smoke test of the Slurm example on this machine: installs Debian's slurm-wlm and munge, starts a
# one-node cluster on localhost (munged, slurmctld, slurmd), submits examples/slurm/submit.sh as
# an array of 4 shards on a small run, waits, checks that the merged file equals a single run over
# the same indices, and shuts the cluster down again. Needs root and a built tree:
#
#   scripts/slurm-smoke.sh [BUILD_DIR]      (default: build)
#
# Exit status 0 when the merged file is byte-identical to the single run. Not part of CI.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
karven="$build/karven"
merge="$build/karven-merge"
if [ ! -x "$karven" ] || [ ! -x "$merge" ]; then
    echo "build karven and karven-merge first: cmake --build $build --target karven karven-merge" >&2
    exit 2
fi
[ "$(id -u)" = 0 ] || { echo "run as root (it installs packages and starts daemons)" >&2; exit 2; }

if ! command -v slurmctld >/dev/null || ! command -v munged >/dev/null; then
    echo "== installing slurm-wlm and munge"
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends slurm-wlm munge \
        >/dev/null
fi

work="$(mktemp -d /tmp/karven-slurm-smoke.XXXXXX)"
conf="$work/slurm.conf"
export SLURM_CONF="$conf"
# munged runs as its own user, which cannot enter the private work folder.
munge_pid=/run/munge/karven-smoke.pid

shutdown() {
    echo "== shutting the cluster down"
    scancel --quiet --full --user=root 2>/dev/null || true
    for pidfile in "$work/slurmd.pid" "$work/slurmctld.pid" "$munge_pid"; do
        if [ -s "$pidfile" ]; then kill "$(cat "$pidfile")" 2>/dev/null || true; fi
    done
    sleep 1
    echo "   logs kept in $work"
}
trap shutdown EXIT

echo "== starting munged"
install -d -o munge -g munge -m 0755 /run/munge
install -d -o munge -g munge -m 0700 /var/lib/munge /var/log/munge
[ -s /etc/munge/munge.key ] || runuser -u munge -- mungekey --create
runuser -u munge -- /usr/sbin/munged --pid-file="$munge_pid" \
    --log-file=/var/log/munge/karven-smoke.log
munge -n | unmunge >/dev/null

host="$(hostname -s)"
cpus="$(nproc)"
memory=$(($(awk '/MemTotal/ {print $2}' /proc/meminfo) / 1024 / 2))
mkdir -p "$work/state" "$work/spool"
cat >"$conf" <<CONF
ClusterName=karven-smoke
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
SlurmctldLogFile=$work/slurmctld.log
SlurmdLogFile=$work/slurmd.log
SlurmctldPort=16817
SlurmdPort=16818
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/backfill
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
MpiDefault=none
ReturnToService=2
MinJobAge=600
NodeName=$host NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=$memory State=UNKNOWN
PartitionName=smoke Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF

echo "== starting slurmctld and slurmd on $host ($cpus CPUs)"
/usr/sbin/slurmctld -f "$conf"
/usr/sbin/slurmd -f "$conf"
for _ in $(seq 60); do
    state="$(sinfo -h -N -o %t 2>/dev/null || true)"
    [ "$state" = idle ] && break
    sleep 1
done
sinfo
[ "$state" = idle ] || { echo "FAIL: the node did not come up ($state)" >&2; exit 1; }

# A small run: 8 one- or two-wire samples at a coarse precision, split into 4 shards.
cat >"$work/params.json" <<'JSON'
{"Random": {"nsamples": 8, "poisson_lambda": 1, "window": 10.0, "conductor_window": 4.0}}
JSON
export KARVEN="$karven" KARVEN_MERGE="$merge" CTF="$root/examples/stack.ctf"
export PARAMS="$work/params.json" OUT_DIR="$work/shards" SHARDS=4 MERGED="$work/merged.jsonl"
export PRECISION=0.05 SEED=5

echo "== submitting the array of $SHARDS shards and the merge"
"$root/examples/slurm/submit.sh"
for _ in $(seq 600); do
    [ -z "$(squeue -h -o %i)" ] && break
    sleep 1
done
squeue -h -o %i | grep -q . && { echo "FAIL: jobs still queued after 10 minutes" >&2; squeue; exit 1; }
scontrol -o show job | grep -oE "^JobId=[0-9]+|JobName=[^ ]+|JobState=[^ ]+|ExitCode=[^ ]+" |
    paste - - - - | sed 's/^/   /' || true
for log in "$OUT_DIR"/karven-*.log; do
    echo "--- $(basename "$log")"
    grep -E "^(Total solve count|Merged|Error)" "$log" || tail -2 "$log"
done

echo "== single run over the same indices"
"$karven" -i "$CTF" --param-json "$PARAMS" -o "$work/single.jsonl" -p "$PRECISION" --seed "$SEED" \
    -n "$cpus" >"$work/single.log" 2>&1
grep "^Total solve count" "$work/single.log"

[ -s "$MERGED" ] || { echo "FAIL: no merged file $MERGED" >&2; exit 1; }
echo "   merged: $(wc -l <"$MERGED") samples, single: $(wc -l <"$work/single.jsonl") samples"
if cmp "$MERGED" "$work/single.jsonl"; then
    echo "PASS: the merged shards equal the single run byte for byte"
else
    echo "FAIL: the merged shards differ from the single run" >&2
    exit 1
fi
