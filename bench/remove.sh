#!/usr/bin/env bash
# Times Cleaner::remove (quorvel-removebench) against `gio trash` and `trash-put` moving the
# same 10,000 small files and 1,000 small folders from ~/Library/Caches to the XDG Trash,
# and checks after every run that each item landed in the Trash exactly once. Wall and CPU
# time (user + system of the process and its children) side by side. The file system's
# floor is measured in our runs too, just before the removal: creating and writing one
# small file per item in a fresh folder of the same file system, which no XDG Trash move
# can avoid. Right after each of our runs everything is put back from the log
# (quorvel-removebench --restore) and the tree checked byte-identical again, modes and link
# targets included, with no .trashinfo left; its time is reported beside the removal's.
# No tree is deleted until the timed runs are over, and the restore's deleted records get
# half a minute before the next run: on an ext4 without a journal a new file skips every
# inode freed in the last half minute, which would slow the next run's file creation.
#   bash bench/remove.sh [path/to/quorvel-removebench]
# Environment: REMOVE_RUNS (timed runs per tool, at least 5; default 5),
#              REMOVE_SETTLE_SECONDS (the pause after each restore; default 31).
# Every run gets a fresh HOME inside one temporary folder with an identical tree; nothing
# outside that folder is touched, and it is removed at the end.
set -euo pipefail
export LC_ALL=C

BIN=${1:-build/bench/quorvel-removebench}
RUNS=${REMOVE_RUNS:-5}
SETTLE=${REMOVE_SETTLE_SECONDS:-31} # after each restore; see run_one
FILES=10000
FOLDERS=1000
GOAL_PEER=0.5   # quorvel's wall time against gio trash's (the fastest peer without gio)
GOAL_FLOOR=1.15 # Cleaner::remove against the floor of the same run

die() {
    echo "remove: $*" >&2
    exit 2
}

[ "$(uname -s)" = Linux ] || die "runs on Linux only (XDG Trash, gio, trash-cli)"
[ "$RUNS" -ge 5 ] 2>/dev/null || die "REMOVE_RUNS must be at least 5"
[ -x "$BIN" ] || die "no executable at $BIN (make bench builds it)"
BIN=$(realpath "$BIN")
for tool in gio trash-put python3 awk sort; do
    command -v "$tool" >/dev/null || die "$tool is missing (bash scripts/install-deps.sh --bench)"
done
PYTHON=$(command -v python3)

WORK=$(mktemp -d "${TMPDIR:-/var/tmp}/quorvel-removebench.XXXXXX")
cleanup() { rm -rf "$WORK"; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# Everything the tools might read or write resolves below the run's HOME; no session bus
# of the real user either (gio gets a private one below if it needs one at all).
unset XDG_DATA_HOME XDG_CONFIG_HOME XDG_CACHE_HOME XDG_STATE_HOME DBUS_SESSION_BUS_ADDRESS

# --- trees and checks -----------------------------------------------------------------

# gen.py HOME FILES FOLDERS: the tree in HOME/Library/Caches, the same for the same
# arguments. Writes HOME.items (the item paths, NUL-separated, byte order) and prints
# "items regular_files size_bytes allocated_bytes", measured from the finished tree.
# check.py HOME ITEMS FILES SIZE [LOG]: the Trash after a run; prints "ok" or the faults.
cat >"$WORK/gen.py" <<'PY'
import os, random, sys

home, nfiles, nfolders = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
caches = os.path.join(home, "Library", "Caches")
os.makedirs(caches)
rng = random.Random(4711)
modes = random.Random(815)  # apart, so the sizes stay those of earlier trees
DATA = b"quorvel-remove " * 700

def name(kind, i):
    # Mostly plain, some of what cache folders really hold: spaces, non-ASCII, '%' (which
    # the .trashinfo Path= must escape), hidden entries, several dots.
    r = i % 50
    if r == 7:
        return "%s %05d with spaces" % (kind, i)
    if r == 19:
        return "R\u00e9sum\u00e9 \u7f13\u5b58 %s%05d" % (kind, i)
    if r == 23:
        return "%s%%20%05d" % (kind, i)
    if r == 31:
        return ".%s-%05d" % (kind, i)
    if r == 43:
        return "com.example.%s.%05d.tar.gz" % (kind, i)
    return "%s-%05d.cache" % (kind, i)

def mkfile(path):
    with open(path, "xb") as f:
        f.write(DATA[: rng.randrange(0, 8000)])
    os.chmod(path, modes.choice([0o600, 0o640, 0o644, 0o755]))

items = []
for i in range(nfiles):
    p = os.path.join(caches, name("file", i))
    mkfile(p)
    items.append(p)
for i in range(nfolders):
    d = os.path.join(caches, name("folder", i))
    os.mkdir(d)
    for j in range(2 + i % 4):
        mkfile(os.path.join(d, "part%d.bin" % j))
    if i % 10 == 0:  # links go back as links, their targets untouched
        os.symlink("part0.bin", os.path.join(d, "latest"))
    items.append(d)

regular = size = blocks = 0
for root, dirs, files in os.walk(caches):
    for f in files:
        st = os.lstat(os.path.join(root, f))
        regular += 1
        size += st.st_size
        blocks += st.st_blocks
listed = sorted(os.fsencode(os.path.join(caches, e)) for e in os.listdir(caches))
assert listed == sorted(os.fsencode(p) for p in items)
with open(home + ".items", "wb") as out:
    out.write(b"".join(p + b"\0" for p in listed))
print(len(listed), regular, size, blocks * 512)
PY

cat >"$WORK/check.py" <<'PY'
import os, sys
from collections import Counter
from urllib.parse import unquote_to_bytes

home, items_file, want_files, want_size = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
log = sys.argv[5] if len(sys.argv) > 5 else None
with open(items_file, "rb") as f:
    items = [p for p in f.read().split(b"\0") if p]
want = set(items)
faults = []

def fault(text):
    faults.append(text)

caches = os.path.join(os.fsencode(home), b"Library/Caches")
left = os.listdir(caches)
if left:
    fault("%d entries still in Library/Caches" % len(left))

trash = os.path.join(os.fsencode(home), b".local/share/Trash")
info_dir, files_dir = os.path.join(trash, b"info"), os.path.join(trash, b"files")
infos = os.listdir(info_dir) if os.path.isdir(info_dir) else []
stored = set(os.listdir(files_dir)) if os.path.isdir(files_dir) else set()
origin = Counter()
for entry in infos:
    if not entry.endswith(b".trashinfo"):
        fault("not an info file: %r" % entry)
        continue
    with open(os.path.join(info_dir, entry), "rb") as f:
        lines = f.read().splitlines()
    paths = [l[5:] for l in lines if l.startswith(b"Path=")]
    if not lines or lines[0] != b"[Trash Info]" or len(paths) != 1 or \
            not any(l.startswith(b"DeletionDate=") for l in lines):
        fault("malformed %r" % entry)
        continue
    origin[unquote_to_bytes(paths[0])] += 1
    if entry[: -len(b".trashinfo")] not in stored:
        fault("no files/ entry for %r" % entry)
twice = [p for p, n in origin.items() if n > 1]
missing, extra = want - set(origin), set(origin) - want
if len(infos) != len(want) or twice or missing or extra:
    fault("info/: %d files for %d items; %d items twice, %d missing, %d unknown%s" % (
        len(infos), len(want), len(twice), len(missing), len(extra),
        "; e.g. %r" % sorted(twice or missing or extra)[0] if twice or missing or extra else ""))
if len(stored) != len(want):
    fault("files/: %d entries for %d items" % (len(stored), len(want)))

regular = size = 0
for root, dirs, names in os.walk(files_dir):
    for n in names:
        st = os.lstat(os.path.join(root, n))
        regular += 1
        size += st.st_size
if (regular, size) != (want_files, want_size):
    fault("files/ holds %d files, %d bytes; the tree had %d, %d" % (regular, size, want_files, want_size))

if log is not None:
    logged = Counter()
    lines = open(log, "rb").read().splitlines() if os.path.exists(log) else []
    for line in lines:
        fields = line.split(b"\t")
        moved = fields[3].split(" \u2192 ".encode()) if len(fields) == 4 else []
        if len(moved) != 2 or fields[1] != b"userCache":
            fault("malformed log line %r" % line[:200])
            continue
        logged[moved[0]] += 1
        if not os.path.lexists(moved[1]):
            fault("logged destination missing: %r" % moved[1])
    if len(lines) != len(want) or set(logged) != want or max(logged.values(), default=0) != 1:
        fault("removal log: %d lines for %d items, %d distinct items logged" % (
            len(lines), len(want), len(set(logged) & want)))

print("; ".join(faults[:5]) + (" (+%d more)" % (len(faults) - 5) if len(faults) > 5 else "")
      if faults else "ok")
PY

# manifest.py HOME: one digest over every entry of HOME/Library/Caches (path, mode, link
# target or contents) and the number of entries; equal digests mean an identical tree.
cat >"$WORK/manifest.py" <<'PY'
import hashlib, os, stat, sys

caches = os.path.join(os.fsencode(sys.argv[1]), b"Library/Caches")
digest, count = hashlib.sha256(), 0
for root, dirs, files in os.walk(caches):
    for n in sorted(dirs + files):
        p = os.path.join(root, n)
        st = os.lstat(p)
        if stat.S_ISLNK(st.st_mode):
            what = b"-> " + os.readlink(p)
        elif stat.S_ISREG(st.st_mode):
            what = hashlib.sha256(open(p, "rb").read()).digest()
        else:
            what = b""
        digest.update(os.path.relpath(p, caches) + b"\0%o\0" % st.st_mode + what + b"\0")
        count += 1
print(count, digest.hexdigest())
PY

HOMES=0
fresh_home() { # a new HOME holding the tree; sets RUN_HOME and TREE (the gen.py figures)
    HOMES=$((HOMES + 1))
    RUN_HOME=$WORK/home$HOMES
    TREE=$("$PYTHON" "$WORK/gen.py" "$RUN_HOME" "$FILES" "$FOLDERS") || die "generating a tree failed"
    # An existing, empty Trash, as on any used system: no tool pays for creating it.
    mkdir -p -m 700 "$RUN_HOME/.local" "$RUN_HOME/.local/share" \
        "$RUN_HOME/.local/share/Trash" "$RUN_HOME/.local/share/Trash/files" \
        "$RUN_HOME/.local/share/Trash/info"
    sync # writeback of the new tree would otherwise land in the timed run
}

# --- the peers' invocation ------------------------------------------------------------

# gio trash may want a session bus; try without one first, then under a private one.
GIO=(gio trash)
GIO_NOTE="no session bus needed"
fresh_home_probe() {
    PROBE=$WORK/probe$1
    mkdir -p "$PROBE/Library/Caches"
    : >"$PROBE/Library/Caches/probe.bin"
}
gio_works() { # probe-number, command...
    local n=$1
    shift
    fresh_home_probe "$n"
    HOME=$PROBE "$@" "$PROBE/Library/Caches/probe.bin" >/dev/null 2>&1 &&
        [ ! -e "$PROBE/Library/Caches/probe.bin" ] &&
        [ -f "$PROBE/.local/share/Trash/info/probe.bin.trashinfo" ]
}
if ! gio_works 1 "${GIO[@]}"; then
    if command -v dbus-run-session >/dev/null && gio_works 2 dbus-run-session -- "${GIO[@]}"; then
        GIO=(dbus-run-session -- gio trash)
        GIO_NOTE="needs a session bus: run under dbus-run-session, whose start-up is timed too"
    else
        GIO=()
        GIO_NOTE="does not work here, even under dbus-run-session: left out"
    fi
fi

# All items in one call when the argument list fits, else through xargs.
fresh_home
read -r ITEMS REGULAR SIZE ALLOCATED <<<"$TREE"
ARGV_BYTES=$("$PYTHON" - "$RUN_HOME.items" <<'PY'
import os, sys
items = [p for p in open(sys.argv[1], "rb").read().split(b"\0") if p]
env = sum(len(k) + len(v) + 2 + 8 for k, v in os.environb.items())
print(sum(len(p) + 1 + 8 for p in items) + env + 64 + 2048)
PY
)
ARG_MAX=$(getconf ARG_MAX)
if [ "$ARGV_BYTES" -lt "$ARG_MAX" ]; then
    XARGS=()
    ARGS_NOTE="all $ITEMS paths in one call ($ARGV_BYTES of $ARG_MAX bytes of ARG_MAX)"
else
    XARGS_MAX=$(xargs --show-limits </dev/null 2>&1 | awk -F': *' '/actually use/ { print $2 }')
    XARGS=(xargs -0 -n 100000 -s "$XARGS_MAX")
    ARGS_NOTE="too long for one call ($ARGV_BYTES > $ARG_MAX bytes): through ${XARGS[*]}"
fi
rm -rf "$RUN_HOME" "$RUN_HOME.items"

PATHS=()
peer() { # command... : the command on every item of the run, in one call if possible
    if [ ${#XARGS[@]} -eq 0 ]; then
        "$@" "${PATHS[@]}"
    else
        "${XARGS[@]}" "$@" <"$RUN_HOME.items"
    fi
}

# --- machine --------------------------------------------------------------------------

echo "== machine"
echo "cores:      $(nproc)"
echo "cpu:        $(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
echo "kernel:     $(uname -sr)"
echo "load:       $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min; other work on the machine skews timings)"
echo "filesystem: $(df --output=fstype "$WORK" | tail -1) ($WORK)"
echo "tools:      gio $(gio version) (${GIO_NOTE}); $(trash-put --version 2>&1 | head -1)"
echo "tree:       $ITEMS items in ~/Library/Caches ($FILES files, $FOLDERS folders of 2-5 files):" \
    "$REGULAR files, $SIZE bytes, $ALLOCATED allocated"
echo "arguments:  $ARGS_NOTE; quorvel lists the folder itself"
echo "runs:       1 untimed + $RUNS timed per tool, a fresh HOME and tree each, tools rotated" \
    "run by run; median wall time"

# --- runs -----------------------------------------------------------------------------

TOOLS=(ours trash-put)
[ ${#GIO[@]} -gt 0 ] && TOOLS=(ours gio trash-put)
declare -A LABEL=([ours]="quorvel Cleaner::remove" [gio]="gio trash" [trash-put]="trash-put")
declare -A SAMPLES CPU_SAMPLES REMOVE_SAMPLES SIZE_SAMPLES
RESTORE_SAMPLES= RESTORE_ONLY= RESTORE_LIST= FLOOR_SAMPLES= FLOOR_RATIOS= REMOVE_CPU=
RENAME_SAMPLES=
FAILED=0

# The children's user + system time as `times` reports it (builtin, so nothing is forked
# between the marks), in microseconds.
cpu_us() { awk 'NR == 2 { t = 0; for (i = 1; i <= 2; i++) { split($i, p, "m"); sub("s", "", p[2]); t += p[1] * 60 + p[2] } printf "%.0f", t * 1e6 }' "$1"; }

run_one() { # tool, timed (0/1)
    local tool=$1 timed=$2 t0 t1 rc=0 out verdict log= faults=()
    fresh_home
    [ "$TREE" = "$ITEMS $REGULAR $SIZE $ALLOCATED" ] || die "tree differs between runs: $TREE"
    out=$WORK/out$HOMES
    mapfile -d '' PATHS <"$RUN_HOME.items" # read before the clock starts
    local manifest= floor_ms= rename_ms=
    if [ "$tool" = ours ]; then
        manifest=$("$PYTHON" "$WORK/manifest.py" "$RUN_HOME")
        floor_ms=$(floor_run "$out") || faults+=("floor run failed: $floor_ms")
        read -r floor_ms rename_ms <<<"$floor_ms"
        sync
    fi
    times >"$WORK/cpu0"
    t0=${EPOCHREALTIME/[.,]/}
    case $tool in
    ours) HOME=$RUN_HOME "$BIN" >"$out" 2>"$out.err" || rc=$? ;;
    gio) HOME=$RUN_HOME peer "${GIO[@]}" >"$out" 2>"$out.err" || rc=$? ;;
    trash-put) HOME=$RUN_HOME peer trash-put >"$out" 2>"$out.err" || rc=$? ;;
    esac
    t1=${EPOCHREALTIME/[.,]/}
    times >"$WORK/cpu1"

    local elapsed=$((t1 - t0)) cpu
    cpu=$(($(cpu_us "$WORK/cpu1") - $(cpu_us "$WORK/cpu0")))
    [ "$rc" = 0 ] || faults+=("exit $rc: $(head -c 300 "$out.err")")
    if [ "$tool" = ours ]; then
        log=$RUN_HOME/Library/Logs/Quorvel/removals.log
        value() { awk -v k="$1" '$1 == k { print $2 }' "$out"; }
        local got="$(value items) $(value moved) $(value failures) $(value bytes)"
        [ "$got" = "$ITEMS $ITEMS 0 $ALLOCATED" ] ||
            faults+=("items/moved/failures/bytes $got, expected $ITEMS $ITEMS 0 $ALLOCATED")
        # The sizing pass belongs to the scan, not to the removal: it is taken out.
        local size_us
        size_us=$(awk '{ printf "%.0f", $1 * 1000 }' <<<"$(value size_ms)")
        elapsed=$((elapsed - size_us))
        cpu=$((cpu - $(awk '{ printf "%.0f", $1 * 1000 }' <<<"$(value size_cpu_ms)")))
        if [ "$timed" = 1 ]; then
            REMOVE_SAMPLES[ours]+="$(value remove_ms) "
            REMOVE_CPU+="$(value remove_cpu_ms) "
            SIZE_SAMPLES[ours]+="$(value size_ms) "
            FLOOR_SAMPLES+="$floor_ms "
            RENAME_SAMPLES+="$rename_ms "
            FLOOR_RATIOS+="$(awk -v a="$(value remove_ms)" -v b="$floor_ms" 'BEGIN { printf "%.3f", a / b }') "
        fi
    fi
    verdict=$("$PYTHON" "$WORK/check.py" "$RUN_HOME" "$RUN_HOME.items" "$REGULAR" "$SIZE" ${log:+"$log"}) ||
        verdict="checker failed"
    [ "$verdict" = ok ] || faults+=("$verdict")
    if [ "$tool" = ours ]; then
        # Put back at once, while the home is warm, as an undo right after a clean-up is;
        # then the records it deleted get time to age: ext4 without a journal makes new
        # files skip inodes freed in the last half minute, which would slow the next run.
        restore_check "$timed" "$manifest" "$out"
        sleep "$SETTLE"
    fi
    if [ ${#faults[@]} -gt 0 ]; then
        FAILED=1
        printf 'MISMATCH %s run %s: %s\n' "${LABEL[$tool]}" "$HOMES" "${faults[*]}"
    fi
    [ "$timed" = 1 ] && SAMPLES[$tool]+="$elapsed " && CPU_SAMPLES[$tool]+="$cpu "
    return 0
}

restore_check() { # timed, manifest before, output prefix: puts the run's tree back
    local timed=$1 before=$2 out=$3.restore t0 t1 rc=0 got left
    t0=${EPOCHREALTIME/[.,]/}
    HOME=$RUN_HOME "$BIN" --restore >"$out" 2>"$out.err" || rc=$?
    t1=${EPOCHREALTIME/[.,]/}
    value() { awk -v k="$1" '$1 == k { print $2 }' "$out"; }
    [ "$rc" = 0 ] || faults+=("restore exit $rc: $(head -c 300 "$out.err")")
    got="$(value restorable) $(value restored) $(value failures)"
    [ "$got" = "$ITEMS $ITEMS 0" ] ||
        faults+=("restorable/restored/failures $got, expected $ITEMS $ITEMS 0")
    [ "$("$PYTHON" "$WORK/manifest.py" "$RUN_HOME")" = "$before" ] ||
        faults+=("restored tree differs from the original (contents, modes or links)")
    left=$(find "$RUN_HOME/.local/share/Trash/files" "$RUN_HOME/.local/share/Trash/info" \
        -mindepth 1 -maxdepth 1 | wc -l)
    [ "$left" = 0 ] || faults+=("$left entries or .trashinfo files left in the Trash")
    if [ "$timed" = 1 ]; then
        RESTORE_SAMPLES+="$((t1 - t0)) "
        RESTORE_ONLY+="$(value restore_ms) "
        RESTORE_LIST+="$(value list_ms) "
    fi
    return 0
}

floor_run() { # output prefix: prints the floor's milliseconds on the run's fresh tree
    local out=$1.floor rc=0
    HOME=$RUN_HOME "$BIN" --floor >"$out" 2>"$out.err" || rc=$?
    [ "$rc" = 0 ] && [ "$(awk '$1 == "items" { print $2 }' "$out")" = "$ITEMS" ] &&
        [ "$(find "$RUN_HOME/floor.moved" -name '*.trashinfo' | wc -l)" = "$ITEMS" ] ||
        { echo "exit $rc: $(head -c 300 "$out.err")"; return 1; }
    awk '$1 == "floor_ms" { f = $2 } $1 == "rename_ms" { r = $2 } END { print f, r }' "$out"
}

echo
echo "== runs"
for t in "${TOOLS[@]}"; do run_one "$t" 0; done
for ((r = 0; r < RUNS; r++)); do
    for ((i = 0; i < ${#TOOLS[@]}; i++)); do
        run_one "${TOOLS[$(((r + i) % ${#TOOLS[@]}))]}" 1
    done
    echo "round $((r + 1)) of $RUNS done"
done
echo "load after the timed runs: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "checks: after every run Library/Caches empty; one .trashinfo per item naming it, one" \
    "files/ entry each, every file and byte of the tree inside; for quorvel also $ITEMS moved," \
    "0 failures, the tree's allocated bytes, one removal-log line per item; after each" \
    "quorvel restore every item restored, the tree identical (contents, modes, link targets)," \
    "the Trash empty"

# --- results --------------------------------------------------------------------------

median() { # values -> median
    tr ' ' '\n' <<<"$1" | grep . | sort -g |
        awk '{ v[NR] = $1 } END { printf "%.1f\n", NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
declare -A MEDIAN
for t in "${TOOLS[@]}"; do
    MEDIAN[$t]=$(awk '{ printf "%.1f", $1 / 1000 }' <<<"$(median "${SAMPLES[$t]}")")
done
FASTEST=
for t in "${TOOLS[@]}"; do
    [ "$t" = ours ] && continue
    if [ -z "$FASTEST" ] || awk -v a="${MEDIAN[$t]}" -v b="${MEDIAN[$FASTEST]}" 'BEGIN { exit !(a < b) }'; then
        FASTEST=$t
    fi
done

PEER=$FASTEST
[ ${#GIO[@]} -gt 0 ] && PEER=gio
declare -A CPU_MEDIAN
for t in "${TOOLS[@]}"; do
    CPU_MEDIAN[$t]=$(awk '{ printf "%.1f", $1 / 1000 }' <<<"$(median "${CPU_SAMPLES[$t]}")")
done

echo
echo "== timings ($RUNS runs each, $ITEMS items per run)"
printf '%-26s %10s %12s %10s %12s   %s\n' tool "wall ms" "/ ${LABEL[$PEER]}" "cpu ms" "/ ${LABEL[$PEER]}" "runs (wall ms)"
for t in "${TOOLS[@]}"; do
    runs=$(tr ' ' '\n' <<<"${SAMPLES[$t]}" | grep . | awk '{ printf "%s%.0f", (NR > 1 ? " " : ""), $1 / 1000 }')
    printf '%-26s %10s %11sx %10s %11sx   %s\n' "${LABEL[$t]}" "${MEDIAN[$t]}" \
        "$(awk -v a="${MEDIAN[$t]}" -v b="${MEDIAN[$PEER]}" 'BEGIN { printf "%.2f", a / b }')" \
        "${CPU_MEDIAN[$t]}" \
        "$(awk -v a="${CPU_MEDIAN[$t]}" -v b="${CPU_MEDIAN[$PEER]}" 'BEGIN { printf "%.2f", a / b }')" "$runs"
done
echo "quorvel: the process less its sizing pass (median $(median "${SIZE_SAMPLES[ours]}") ms wall);" \
    "Cleaner::remove alone $(median "${REMOVE_SAMPLES[ours]}") ms wall, $(median "$REMOVE_CPU") ms cpu"
FLOOR_MEDIAN=$(median "$FLOOR_SAMPLES")
FLOOR_RATIO=$(median "$FLOOR_RATIOS" | awk '{ printf "%.2f", $1 }')
printf '%-26s %10s   %s\n' "floor: a file per item" "$FLOOR_MEDIAN" \
    "$(tr ' ' '\n' <<<"$FLOOR_SAMPLES" | grep . | awk '{ printf "%s%.0f", (NR > 1 ? " " : ""), $1 }')"
echo "floor: create, write and close one .trashinfo-sized file per item in a fresh folder of" \
    "the same file system, in our runs just before the removal; Cleaner::remove / floor per run:" \
    "$(tr ' ' '\n' <<<"$FLOOR_RATIOS" | grep . | tr '\n' ' ')"
echo "floor and one rename per item: a rename of each new file into a second fresh folder adds" \
    "$(median "$RENAME_SAMPLES") ms (runs: $(tr ' ' '\n' <<<"$RENAME_SAMPLES" | grep . | tr '\n' ' '))"
RESTORE_MEDIAN=$(awk '{ printf "%.1f", $1 / 1000 }' <<<"$(median "$RESTORE_SAMPLES")")
printf '%-26s %10s   %s\n' "quorvel restore (wall)" "$RESTORE_MEDIAN" \
    "$(tr ' ' '\n' <<<"$RESTORE_SAMPLES" | grep . | awk '{ printf "%s%.0f", (NR > 1 ? " " : ""), $1 / 1000 }')"
echo "quorvel restore: reading and proving the log $(median "$RESTORE_LIST") ms;" \
    "Restorer::restore alone $(median "$RESTORE_ONLY") ms"
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"

echo
echo "== goal"
verdict() { awk -v r="$1" -v g="$2" 'BEGIN { print (r <= g ? "PASS" : "MISS") }'; }
ratio=$(awk -v a="${MEDIAN[ours]}" -v b="${MEDIAN[$PEER]}" 'BEGIN { printf "%.2f", a / b }')
printf 'quorvel <= %sx %s (wall): %s ms vs %s ms = %sx   %s\n' "$GOAL_PEER" "${LABEL[$PEER]}" \
    "${MEDIAN[ours]}" "${MEDIAN[$PEER]}" "$ratio" "$(verdict "$ratio" "$GOAL_PEER")"
printf 'Cleaner::remove <= %sx the floor (median of the per-run ratios): %s ms vs %s ms = %sx   %s\n' \
    "$GOAL_FLOOR" "$(median "${REMOVE_SAMPLES[ours]}")" "$FLOOR_MEDIAN" "$FLOOR_RATIO" \
    "$(verdict "$FLOOR_RATIO" "$GOAL_FLOOR")"
printf 'for comparison, Cleaner::remove / (floor + rename): %s ms vs %s ms = %sx\n' \
    "$(median "${REMOVE_SAMPLES[ours]}")" \
    "$(awk -v a="$FLOOR_MEDIAN" -v b="$(median "$RENAME_SAMPLES")" 'BEGIN { printf "%.1f", a + b }')" \
    "$(awk -v r="$(median "${REMOVE_SAMPLES[ours]}")" -v a="$FLOOR_MEDIAN" -v b="$(median "$RENAME_SAMPLES")" 'BEGIN { printf "%.2f", r / (a + b) }')"

# Like with like: the removal's figure leaves out its sizing pass (the scan's), so the
# restore's leaves out reading and proving the log (finding what to put back).
RESTORE_ALONE=$(median "$RESTORE_ONLY") REMOVE_ALONE=$(median "${REMOVE_SAMPLES[ours]}")
printf 'restore <= the removal (Restorer::restore vs Cleaner::remove): %s ms vs %s ms   %s\n' \
    "$RESTORE_ALONE" "$REMOVE_ALONE" \
    "$(awk -v a="$RESTORE_ALONE" -v b="$REMOVE_ALONE" 'BEGIN { print (a <= b ? "PASS" : "MISS") }')"
printf 'for comparison, the whole restore process against the removal process: %s ms vs %s ms\n' \
    "$RESTORE_MEDIAN" "${MEDIAN[ours]}"

echo
if [ "$FAILED" != 0 ]; then
    echo "remove: a run left the Trash or the removal log wrong (see MISMATCH above)"
    exit 1
fi
echo "remove: every run moved every item to the Trash exactly once, and ours put it all back"
