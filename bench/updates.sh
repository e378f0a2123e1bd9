#!/usr/bin/env bash
# Times one whole update check (quorvel-updatesbench) against curl fetching the same 203
# URLs from the same kind of loopback server, six at a time, and checks the findings.
#   bash bench/updates.sh [path/to/quorvel-updatesbench]
# Environment: UPDATES_RUNS (rounds, at least 5; default 5),
#              UPDATES_TIMEOUT (inactivity limit in seconds on both sides; default 2),
#              UPDATES_PEER (parallel: one `curl --parallel --parallel-max 6`, the default;
#                            xargs: one curl per URL through `xargs -P 6`).
# The server delays each answer by 50-500 ms, fixed per URL, and three feeds never answer,
# so both sides wait out the inactivity limit three times. curl gets the URLs in the order
# the checker asked them in that round, which gives both the same schedule; ideal_ms is
# that schedule's length with no overhead at all. Beside each wall time stands the CPU time
# (user + system) of quorvel-updatesbench, whose loopback server runs in its own process,
# and of curl (with xargs) plus its server process: getrusage for the children, the
# server's /proc ticks (10 ms steps) for the server.
set -euo pipefail
export LC_ALL=C

BIN=${1:-build/bench/quorvel-updatesbench}
RUNS=${UPDATES_RUNS:-5}
TIMEOUT=${UPDATES_TIMEOUT:-2}
PEER=${UPDATES_PEER:-parallel}
PARALLEL=6
URLS=203
SILENT=3
GOAL_RATIO=1.1

die() {
    echo "updates: $*" >&2
    exit 2
}

[ "$RUNS" -ge 5 ] 2>/dev/null || die "UPDATES_RUNS must be at least 5"
[[ "$TIMEOUT" =~ ^[1-9][0-9]*$ ]] || die "UPDATES_TIMEOUT must be whole seconds"
[ "$PEER" = parallel ] || [ "$PEER" = xargs ] || die "UPDATES_PEER is parallel or xargs"
[ -x "$BIN" ] || die "no executable at $BIN (make bench builds it)"
BIN=$(realpath "$BIN")
for tool in curl xargs awk sort; do
    command -v "$tool" >/dev/null || die "$tool is missing"
done

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quorvel-updates.XXXXXX")
SERVER_PID=
cleanup() {
    if [ -n "$SERVER_PID" ]; then
        kill "$SERVER_PID" 2>/dev/null || true
        wait "$SERVER_PID" 2>/dev/null || true
    fi
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
mkdir "$WORK/home"
export HOME=$WORK/home TMPDIR=$WORK
# Loopback only: no proxy may stand between either side and the server.
unset http_proxy HTTP_PROXY https_proxy HTTPS_PROXY all_proxy ALL_PROXY no_proxy NO_PROXY

# curl's server: the same code, in its own process for the whole run.
"$BIN" serve 0 >"$WORK/serve.out" 2>"$WORK/serve.err" &
SERVER_PID=$!
for _ in $(seq 50); do
    grep -q '^port ' "$WORK/serve.out" 2>/dev/null && break
    sleep 0.1
done
PORT=$(awk '$1 == "port" { print $2 }' "$WORK/serve.out")
[ -n "$PORT" ] || die "the server did not start: $(cat "$WORK/serve.err")"
BASE=http://127.0.0.1:$PORT
CPUTIME_FILE=$WORK/times
# shellcheck source=bench/cputime.sh
source "$(dirname "${BASH_SOURCE[0]}")/cputime.sh"

median() { # numbers as arguments -> the median
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
        m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; printf "%.0f\n", m }'
}
now_ms() { # bash's own clock: no process start in the measurement
    local t=${EPOCHREALTIME/./}
    echo $((t / 1000))
}

HZ=$(getconf CLK_TCK)
TICKS=0
server_ticks() { # user + system ticks of the server process so far, into TICKS; no fork
    local stat fields
    read -r stat <"/proc/$SERVER_PID/stat"
    read -ra fields <<<"${stat##*) }"
    TICKS=$((fields[11] + fields[12]))
}

# Fetches every URL of the list file, prints "ms answered timed_out cpu_ms": answered is a
# complete 200 answer, timed out is curl's exit 28 with no answer at all. Runs in a
# subshell of its own, whose children are curl (and xargs) alone while it is timed.
run_curl() {
    local list=$1 codes=$WORK/codes start end cpu0
    local opts=(-s -o /dev/null --noproxy '*' --speed-limit 1 --speed-time "$TIMEOUT"
        -w '%{http_code} %{exitcode}\n')
    [ "$PEER" = parallel ] &&
        awk '{ printf "url = \"%s\"\noutput = \"/dev/null\"\n", $0 }' "$list" >"$WORK/curl.cfg"
    start=$(now_ms)
    read_children_cpu
    cpu0=$CHILD_CPU_US
    server_ticks
    local ticks0=$TICKS
    if [ "$PEER" = parallel ]; then
        curl --parallel --parallel-max $PARALLEL --parallel-immediate "${opts[@]}" \
            -K "$WORK/curl.cfg" >"$codes" 2>"$WORK/curl.err" || true
    else
        xargs -P $PARALLEL -n 1 curl "${opts[@]}" <"$list" >"$codes" 2>"$WORK/curl.err" || true
    fi
    read_children_cpu
    server_ticks
    end=$(now_ms)
    echo "$((end - start)) $(grep -c '^200 0$' "$codes") $(grep -c '^000 28$' "$codes")" \
        "$(((CHILD_CPU_US - cpu0) / 1000 + (TICKS - ticks0) * 1000 / HZ))"
}

echo "== machine"
echo "cores:   $(nproc 2>/dev/null || sysctl -n hw.ncpu)"
echo "curl:    $(curl --version | head -1 | cut -d' ' -f1-2)"
echo "load:    $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"
echo "work:    $URLS URLs (100 appcasts, 100 lookups, $SILENT silent feeds), $PARALLEL at once," \
    "inactivity limit ${TIMEOUT} s, $RUNS rounds, peer: curl ($PEER)"

OURS=()
OURS_CPU=()
THEIRS=()
THEIRS_CPU=()
IDEAL=()
mismatches=0
peer_wrong=0
for ((r = 1; r <= RUNS; r++)); do
    status=0
    read_children_cpu
    cpu0=$CHILD_CPU_US
    "$BIN" --timeout "$TIMEOUT" --requests "$WORK/requests" >"$WORK/bench.out" \
        2>"$WORK/bench.err" || status=$?
    read_children_cpu
    OURS_CPU+=($(((CHILD_CPU_US - cpu0) / 1000)))
    value() { awk -v k="$1" '$1 == k { print $2 }' "$WORK/bench.out"; }
    [ "$status" -le 1 ] && [ -n "$(value elapsed_ms)" ] ||
        die "$BIN failed (exit $status): $(cat "$WORK/bench.err")"
    verdict=$(value verdict)
    if [ "$status" -ne 0 ] || [ "$verdict" != match ]; then
        mismatches=$((mismatches + 1))
        sed 's/^/    /' "$WORK/bench.err" >&2
    fi
    OURS+=("$(value elapsed_ms)")
    IDEAL+=("$(value ideal_ms)")
    sed "s|^|$BASE|" "$WORK/requests" >"$WORK/urls"
    [ "$(wc -l <"$WORK/urls")" -eq "$URLS" ] || die "the check asked $(wc -l <"$WORK/urls") URLs, not $URLS"
    read -r ms answered timed_out cpu_ms < <(run_curl "$WORK/urls")
    THEIRS+=("$ms")
    THEIRS_CPU+=("$cpu_ms")
    # curl is held to the fixture too: every answer in full, only the silent feeds cut off.
    if [ "$answered" -ne $((URLS - SILENT)) ] || [ "$timed_out" -ne $SILENT ]; then
        peer_wrong=$((peer_wrong + 1))
    fi
    printf 'round %d: quorvel %s ms, CPU %s ms (%s/%s findings, %s), curl %s ms, CPU %s ms' \
        "$r" "${OURS[-1]}" "${OURS_CPU[-1]}" "$(value found)" "$(value expected)" "$verdict" \
        "$ms" "$cpu_ms"
    printf ' (%s answered, %s timed out),' "$answered" "$timed_out"
    printf ' ideal %s ms\n' "${IDEAL[-1]}"
done

ours=$(median "${OURS[@]}")
theirs=$(median "${THEIRS[@]}")
ours_cpu=$(median "${OURS_CPU[@]}")
theirs_cpu=$(median "${THEIRS_CPU[@]}")
ideal=$(median "${IDEAL[@]}")
ratio=$(awk -v a="$ours" -v b="$theirs" 'BEGIN { printf "%.3f", a / b }')
verdict=$(awk -v r="$ratio" -v g=$GOAL_RATIO 'BEGIN { print (r <= g ? "PASS" : "MISS") }')
pass() { [ "$1" -eq 0 ] && echo PASS || echo FAIL; }

echo
echo "== one update check, wall and CPU time (user + system) ($RUNS rounds, median)"
printf '%-40s %10s   %-10s %s\n' figure value goal verdict
printf '%-40s %10s   %-10s %s\n' "quorvel AppUpdater scan, ms" "$ours" - -
printf '%-40s %10s   %-10s %s\n' "curl, $PARALLEL at once ($PEER), ms" "$theirs" - -
printf '%-40s %10s   %-10s %s\n' "no-overhead schedule, ms" "$ideal" - -
printf '%-40s %10s   %-10s %s\n' "quorvel CPU (server included), ms" "$ours_cpu" - -
printf '%-40s %10s   %-10s %s\n' "curl + server CPU, ms" "$theirs_cpu" - -
printf '%-40s %10s   %-10s %s\n' "quorvel / curl, CPU" \
    "$(awk -v a="$ours_cpu" -v b="$theirs_cpu" 'BEGIN { printf (b > 0 ? "%.2fx" : "-"), (b > 0 ? a / b : 0) }')" - -
printf '%-40s %10s   %-10s %s\n' "quorvel / curl" "${ratio}x" "<= ${GOAL_RATIO}x" "$verdict"
printf '%-40s %10s   %-10s %s\n' "quorvel findings = fixture's truth" "$((RUNS - mismatches))/$RUNS" \
    "all" "$(pass "$mismatches")"
printf '%-40s %10s   %-10s %s\n' "curl: $((URLS - SILENT)) answered, $SILENT timed out" \
    "$((RUNS - peer_wrong))/$RUNS" "all" "$(pass "$peer_wrong")"
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"

[ "$mismatches" -eq 0 ] && [ "$peer_wrong" -eq 0 ]
