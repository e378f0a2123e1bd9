#!/usr/bin/env bash
# Sets the health sampler's CPU cost per pass beside what `vmstat 2` costs per report, and
# checks that passes do not grow the resident memory.
#   bash bench/stats.sh [path/to/quorvel-statsbench]
# Environment: STATS_ROUNDS (rounds, each one sampler run and one pair of vmstat runs;
#              at least 3, default 3).
# vmstat runs with interval 1 to keep this short: a report costs the same whatever the
# interval. Its cost per report is (CPU of `vmstat 1 13` - CPU of `vmstat 1 3`) / 10, which
# cancels start-up and the first, since-boot report. CPU time comes from wait4(), exact to
# the microsecond on Linux; /usr/bin/time and /proc/PID/stat count 10 ms ticks, coarser than
# the whole difference being measured.
set -euo pipefail
export LC_ALL=C

BIN=${1:-build/bench/quorvel-statsbench}
ROUNDS=${STATS_ROUNDS:-3}
LONG=13
SHORT=3
GOAL_PASS_US=100
GOAL_RATIO=1.0
# "No growth": not one byte more on the heap after 10,000 passes, and the resident size
# within one step of the kernel's per-CPU counter batch (64 KiB here), by which it moves
# even when nothing is allocated.
GOAL_GROWTH_KIB=64

die() {
    echo "stats: $*" >&2
    exit 2
}

[ "$(uname -s)" = Linux ] || die "runs on Linux only (/proc, vmstat from procps)"
[ "$ROUNDS" -ge 3 ] 2>/dev/null || die "STATS_ROUNDS must be at least 3"
[ -x "$BIN" ] || die "no executable at $BIN (make bench builds it)"
for tool in vmstat python3 awk sort; do
    command -v "$tool" >/dev/null || die "$tool is missing"
done

# CPU microseconds (user + system) the command spent, its output discarded.
cpu_us() {
    python3 - "$@" <<'PY'
import os, subprocess, sys
child = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL)
_, status, usage = os.wait4(child.pid, 0)
if status != 0:
    sys.exit("stats: %s failed" % " ".join(sys.argv[1:]))
print(round((usage.ru_utime + usage.ru_stime) * 1e6))
PY
}

median() { # numbers as arguments -> the median
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
        m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; printf "%.1f\n", m }'
}

echo "== machine"
echo "cores:   $(nproc)"
echo "cpu:     $(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
echo "kernel:  $(uname -sr)"
echo "vmstat:  $(vmstat --version 2>&1 | head -1)"
echo "load:    $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min; other work skews timings)"
echo "rounds:  $ROUNDS, each: one sampler run (20 x 500 passes, then 10,000 for memory)," \
    "vmstat 1 $LONG and vmstat 1 $SHORT"

PASS_US=()
VMSTAT_US=()
GROWTH=()
HEAP=()
for ((r = 1; r <= ROUNDS; r++)); do
    out=$("$BIN") || die "$BIN failed"
    value() { awk -v k="$1" '$1 == k { print $2 }' <<<"$out"; }
    PASS_US+=("$(value pass_us_median)")
    before=$(value rss_kib_before)
    after=$(value rss_kib_after)
    [ "$before" -ge 0 ] || die "no resident size from /proc/self/statm"
    GROWTH+=($((after - before)))
    heap_before=$(value heap_bytes_before)
    heap_after=$(value heap_bytes_after)
    [ "$heap_before" -ge 0 ] || die "no heap figure (glibc only)"
    HEAP+=($((heap_after - heap_before)))
    long=$(cpu_us vmstat 1 "$LONG")
    short=$(cpu_us vmstat 1 "$SHORT")
    VMSTAT_US+=("$(awk -v l="$long" -v s="$short" -v n=$((LONG - SHORT)) \
        'BEGIN { printf "%.1f", (l - s) / n }')")
    printf 'round %d: pass %s us; vmstat %s us per report (%s - %s us);' \
        "$r" "${PASS_US[-1]}" "${VMSTAT_US[-1]}" "$long" "$short"
    printf ' resident %s -> %s KiB; heap %s -> %s bytes\n' \
        "$before" "$after" "$heap_before" "$heap_after"
done

pass=$(median "${PASS_US[@]}")
vm=$(median "${VMSTAT_US[@]}")
growth=$(printf '%s\n' "${GROWTH[@]}" | sort -n | tail -1)
heap=$(printf '%s\n' "${HEAP[@]}" | sort -n | tail -1)
verdict() { awk -v ok="$1" 'BEGIN { print (ok ? "PASS" : "MISS") }'; }
ratio=$(awk -v a="$pass" -v b="$vm" 'BEGIN { printf (b > 0 ? "%.2f" : "inf"), (b > 0 ? a / b : 0) }')

echo
echo "== cost ($ROUNDS rounds, median)"
printf '%-40s %12s   %-14s %s\n' figure value goal verdict
printf '%-40s %12s   %-14s %s\n' "SystemStats pass, CPU us" "$pass" "< $GOAL_PASS_US us" \
    "$(verdict "$(awk -v p="$pass" -v g=$GOAL_PASS_US 'BEGIN { print p < g }')")"
printf '%-40s %12s   %-14s %s\n' "vmstat report, CPU us" "$vm" "-" "-"
printf '%-40s %12s   %-14s %s\n' "pass / vmstat report" "${ratio}x" "<= ${GOAL_RATIO}x" \
    "$(verdict "$(awk -v r="$ratio" -v g=$GOAL_RATIO 'BEGIN { print r != "inf" && r <= g }')")"
printf '%-40s %12s   %-14s %s\n' "resident growth, 10,000 passes (worst)" "${growth} KiB" \
    "<= $GOAL_GROWTH_KIB KiB" "$(verdict "$((growth <= GOAL_GROWTH_KIB))")"
printf '%-40s %12s   %-14s %s\n' "heap growth, 10,000 passes (worst)" "${heap} B" "0 B" \
    "$(verdict "$((heap <= 0))")"
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
