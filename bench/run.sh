#!/usr/bin/env bash
# Times quorvel-walkbench against du, gdu, find and fd on a generated home folder, checks
# that every tool reports the bytes it should, and measures the walks' peak memory. Every
# timing has the CPU time (user + system of the tool and its children) beside the wall
# time: on a shared machine wall-clock ratios move with the load, CPU time much less.
#   bash bench/run.sh [path/to/quorvel-walkbench]
# Environment: BENCH_RUNS (timed runs per tool, at least 5; default 7),
#              BENCH_MIN_MB (large-file threshold in MiB; default 50).
# Everything happens inside one temporary folder, which is HOME while this runs.
set -euo pipefail
export LC_ALL=C

BIN=${1:-build/bench/quorvel-walkbench}
RUNS=${BENCH_RUNS:-7}
MIN_BYTES=$((${BENCH_MIN_MB:-50} * 1024 * 1024))
MIN_ENTRIES=200000

die() {
    echo "bench: $*" >&2
    exit 2
}

[ "$(uname -s)" = Linux ] || die "runs on Linux only (GNU find, du, /proc)"
[ "$RUNS" -ge 5 ] 2>/dev/null || die "BENCH_RUNS must be at least 5"
[ -x "$BIN" ] || die "no executable at $BIN (make bench builds it)"
BIN=$(realpath "$BIN")
for tool in gdu du find fdfind xargs stat awk sort python3; do
    command -v "$tool" >/dev/null || die "$tool is missing (bash scripts/install-deps.sh --bench)"
done
[ -x /usr/bin/time ] || die "GNU time is missing (bash scripts/install-deps.sh --bench)"
PYTHON=$(command -v python3)

WORK=$(mktemp -d "${TMPDIR:-/var/tmp}/quorvel-bench.XXXXXX")
cleanup() {
    echo "bench: removing $WORK (unlinking the trees takes a while)" >&2
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
TREE=$WORK/home
TREE2=$WORK/home2
EMPTY=$WORK/empty
mkdir "$TREE" "$TREE2" "$EMPTY"
export HOME=$TREE

# --- the tree -------------------------------------------------------------------------

# Bulk: nested folders of random width and depth under the usual top-level folders, a few
# hidden files and folders, small files of which some hold data, hard and symbolic links.
# Planted: big files placed where large-file listing must and must not see them; only a
# few hold real blocks, the rest are hard links to those, so the tree stays small on disk.
# File creation is kernel-bound, so the bulk is made by several processes at once, each
# its own share of every area.
#   gen.py plant ROOT MINBYTES [LINK_FROM]   planted files; from LINK_FROM as hard links
#   gen.py bulk ROOT SCALE PART PARTS        part PART of PARTS of the bulk
cat >"$WORK/gen.py" <<'PY'
import os, random, sys

mode, root = sys.argv[1], sys.argv[2]
if mode == "plant":
    min_bytes = int(sys.argv[3])
    link_from = sys.argv[4] if len(sys.argv) > 4 else None
else:
    scale, part, parts = int(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5])
    rng = random.Random(20240 + 100 * scale + part)
MiB = 1024 * 1024
DATA = b"quorvel-bench " * 1024
made = 0
serial = 0
content_files = []

def P(rel):
    return os.path.join(root, rel)

def mkdir(rel):
    global made
    os.makedirs(P(rel), exist_ok=True)
    made += 1

def mkfile(rel, nbytes=0):
    global made
    fd = os.open(P(rel), os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644)
    if nbytes:
        os.write(fd, DATA[:nbytes])
    os.close(fd)
    made += 1

def name(stem):
    global serial
    serial += 1
    r = rng.random()
    if r < 0.01:
        return "R\u00e9sum\u00e9 \u7167\u7247 %s%d_%d" % (stem, part, serial)
    if r < 0.03:
        return "%s with spaces %d_%d" % (stem, part, serial)
    return "%s%d_%d" % (stem, part, serial)

def fill(rel, depth, budget):
    global made
    start = made
    nfiles = min(budget, rng.choice((0, 1, 2, 3, 5, 8, 13, 21, 34, 55, 150)))
    for _ in range(nfiles):
        r = rng.random()
        base = name("f") + rng.choice((".txt", ".dat", ".json", ".o", ".png", ""))
        if r < 0.04:
            base = "." + base
        path = os.path.join(rel, base)
        if r > 0.995 and content_files:
            os.link(P(rng.choice(content_files)), P(path))
            made += 1
        elif r > 0.99:
            targets = ["..", ".", "/nonexistent/quorvel"] + [P(f) for f in content_files[-1:]]
            os.symlink(rng.choice(targets), P(path))
            made += 1
        elif r > 0.90:
            mkfile(path, rng.randrange(1, 9000))
            if len(content_files) < 5000:
                content_files.append(path)
        else:
            mkfile(path)
    left = budget - (made - start)
    if left <= 0 or depth >= 30:
        return
    nsub = rng.randint(1, 8)
    weights = [rng.random() ** 2 + 0.01 for _ in range(nsub)]
    total = sum(weights)
    for w in weights:
        share = int(left * w / total)
        if share <= 0:
            continue
        sub = name("d")
        if rng.random() < 0.03:
            sub = "." + sub
        mkdir(os.path.join(rel, sub))
        fill(os.path.join(rel, sub), depth + 1, share - 1)

def bulk(target):
    areas = {"Documents": 0.25, "Projects": 0.25, "Pictures": 0.1, "Music": 0.05,
             "Downloads": 0.08, "Desktop": 0.03, "Movies": 0.02, "Applications": 0.04,
             "Library": 0.08, "node_modules": 0.04, ".cache": 0.04, ".config": 0.02}
    for area, share in areas.items():
        mkdir(area)
        start, quota = made, int(target * share / parts)
        while made - start < quota:
            sub = os.path.join(area, name("d"))
            mkdir(sub)
            fill(sub, 2, quota - (made - start))
    if part != 0:
        return
    # One very wide folder and one very deep chain.
    mkdir("Downloads/wide")
    for i in range(5000 * scale):
        mkfile("Downloads/wide/item%05d.bin" % i, 100 if i % 10 == 0 else 0)
    rel = "Projects/deep"
    mkdir(rel)
    for level in range(120):
        rel = os.path.join(rel, "level%03d" % level)
        mkdir(rel)
        mkfile(os.path.join(rel, "note.txt"), 10)
    # Names the walkers must not choke on: not UTF-8, a FIFO, links to folders.
    fd = os.open(os.path.join(root.encode(), b"Downloads/caf\xe9.txt"), os.O_WRONLY | os.O_CREAT, 0o644)
    os.write(fd, b"x" * 5000)
    os.close(fd)
    os.mkfifo(P("Desktop/pipe"))
    os.symlink("Movies", P("MoviesLink"))
    os.symlink("Library", P("LibraryLink"))
    os.symlink(root, P("Projects/home-loop"))
    os.symlink("Projects/deep", P("DeepLink"))

planted = []  # (listed if big enough, path)

def big(rel, eligible, nbytes=0, sparse=0, link=None):
    os.makedirs(os.path.dirname(P(rel)), exist_ok=True)
    if link_from:
        os.link(os.path.join(link_from, rel), P(rel))
    elif link:
        os.link(P(link), P(rel))
    else:
        fd = os.open(P(rel), os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644)
        if sparse:
            os.ftruncate(fd, sparse)
        if nbytes:
            os.posix_fallocate(fd, max(0, sparse - nbytes), nbytes)
        os.close(fd)
    planted.append((eligible, rel))

def plant():
    film = "Movies/Holiday 2023/film.mov"
    iso = "Downloads/installer.iso"
    big(film, True, 80 * MiB)
    big(iso, True, 52 * MiB)
    big("Downloads/exact-threshold.bin", True, min_bytes)
    big("Downloads/just-below.bin", True, min_bytes - 4096)
    big("Downloads/vm-partial.raw", True, 52 * MiB, sparse=1024 * MiB)
    big("Downloads/sparse-huge.img", True, 0, sparse=4096 * MiB)
    big("Documents/a/b/c/d/e/f/g/h/i/j/k/archive.zip", True, link=film)
    big("Documents/notes.app", True, link=iso)  # a file, not a package folder
    big("Music/R\u00e9sum\u00e9 \u7167\u7247.m4a", True, link=film)
    big("Projects/web/node_modules/blob.bin", True, link=iso)
    big("Projects/Library/dataset.bin", True, link=film)
    big("Library/Caches/cache.db", False, 52 * MiB)
    big("Library/Mail/attachments.bin", False, link=film)
    big("node_modules/big-dep/blob.bin", False, link=iso)
    big(".hidden-stuff/big.bin", False, link=film)
    big(".big-hidden-file", False, link=iso)
    big("Documents/.git/objects/pack.pack", False, link=film)
    big("Applications/Foo.app/Contents/Resources/big.dat", False, link=film)
    big("Projects/Bar.APP/big.dat", False, link=iso)
    big("Projects/sdk/Thing.framework/Versions/A/Thing", False, link=film)
    big("Documents/VM.utm/Data/disk.img", False, link=iso)
    big("Pictures/Photos Library.photoslibrary/originals/x.heic", False, link=film)
    big("Documents/disk.vmdk", False, link=film)
    big("Documents/Photos.SPARSEIMAGE", False, link=iso)
    big("Documents/login.keychain-db", False, link=film)
    big("Backups.backupdb/host/2024-01-01/big.bin", False, link=iso)
    big("Documents/Old Backups.backupdb copy.bin", False, link=film)
    os.symlink("../Movies/Holiday 2023/film.mov", P("Downloads/film-link.mov"))
    os.symlink("/dev/null", P("Downloads/devnull.app"))

if mode == "bulk":
    bulk(205000 * scale - 500)
else:
    plant()
    with open(root + ".planted", "w") as out:
        for eligible, rel in planted:
            st = os.lstat(P(rel))
            if eligible and st.st_blocks * 512 >= min_bytes:
                out.write("%d\t%s\n" % (st.st_blocks * 512, P(rel)))
PY

SECONDS=0
"$PYTHON" "$WORK/gen.py" plant "$TREE" "$MIN_BYTES"
"$PYTHON" "$WORK/gen.py" plant "$TREE2" "$MIN_BYTES" "$TREE"
GEN_PIDS=()
for part in 0 1; do
    "$PYTHON" "$WORK/gen.py" bulk "$TREE" 1 "$part" 2 &
    GEN_PIDS+=($!)
done
for part in 0 1 2 3; do
    "$PYTHON" "$WORK/gen.py" bulk "$TREE2" 2 "$part" 4 &
    GEN_PIDS+=($!)
done
GEN_FAILED=0
for pid in "${GEN_PIDS[@]}"; do wait "$pid" || GEN_FAILED=1; done
[ "$GEN_FAILED" = 0 ] || die "generating the trees failed"
sync # writeback of the new trees would otherwise land in the first timed runs
GEN_SECONDS=$SECONDS
ENTRIES=$(($(find "$TREE" | wc -l) - 1))
ENTRIES2=$(($(find "$TREE2" | wc -l) - 1))

# --- the tools ------------------------------------------------------------------------

PACKAGE_EXTENSIONS=(app bundle framework plugin kext appex xpc photoslibrary musiclibrary
    tvlibrary photobooth utm vmwarevm pvm sparsebundle rtfd xcodeproj xcworkspace xcarchive
    playground pages numbers key logicx fcpbundle band imovielibrary aplibrary lrlibrary dSYM
    mdimporter qlgenerator prefPane saver wdgt)
PROTECTED_EXTENSIONS=(photoslibrary sparsebundle sparseimage vmdk vdi utm pvm vmwarevm
    keychain-db)
name_tests() { # -iname tests joined by -o
    local first=1 ext
    for ext in "$@"; do
        [ $first = 1 ] || printf '%s\0' -o
        printf '%s\0' -iname "*.$ext"
        first=0
    done
}
mapfile -d '' PACKAGE_TESTS < <(name_tests "${PACKAGE_EXTENSIONS[@]}")
mapfile -d '' PROTECTED_TESTS < <(name_tests "${PROTECTED_EXTENSIONS[@]}")
ci_glob() { # "app" -> "[aA][pP][pP]": fd's excludes know no case-insensitive switch
    local i c out=
    for ((i = 0; i < ${#1}; i++)); do
        c=${1:i:1}
        if [[ $c == [[:alpha:]] ]]; then out+="[${c,,}${c^^}]"; else out+=$c; fi
    done
    printf '%s' "$out"
}
# The same prunes for fd: a trailing slash matches folders only (a file named notes.app is
# listed), a leading one anchors at $HOME. Hidden entries are fd's default exclusion.
FD_EXCLUDES=(--exclude /Library --exclude /node_modules --exclude '*Backups.backupdb*')
for ext in "${PACKAGE_EXTENSIONS[@]}"; do FD_EXCLUDES+=(--exclude "*.$(ci_glob "$ext")/"); done
for ext in "${PROTECTED_EXTENSIONS[@]}"; do FD_EXCLUDES+=(--exclude "*.$(ci_glob "$ext")"); done

# "blocks path" of every file large-file listing should report, below $HOME.
find_large_list() {
    find "$HOME" -mindepth 1 \
        \( -name '.*' -prune \) -o \
        \( \( -path "$HOME/Library" -o -path "$HOME/node_modules" \) -prune \) -o \
        \( -type d \( "${PACKAGE_TESTS[@]}" \) -prune \) -o \
        \( -type f ! \( "${PROTECTED_TESTS[@]}" \) ! -path '*Backups.backupdb*' \
        -printf '%b %p\n' \) |
        awk -v min="$MIN_BYTES" '$1 * 512 >= min'
}
find_large() {
    find_large_list | awk '{ c++; s += $1 * 512 } END { printf "%d %.0f\n", c, s }'
}
# fd's --size is the apparent length, never below the allocated size for these files; the
# few files it passes are then judged by their blocks, as the others judge them.
fd_large_list() {
    fdfind --no-ignore --type f --size "+${MIN_BYTES}b" "${FD_EXCLUDES[@]}" -0 . "$HOME" |
        xargs -0 -r stat -c '%b %n' | awk -v min="$MIN_BYTES" '$1 * 512 >= min'
}
fd_large() {
    fd_large_list | awk '{ c++; s += $1 * 512 } END { printf "%d %.0f\n", c, s }'
}
ours_size() { "$BIN" size "$1"; }
ours_large() { "$BIN" large "$MIN_BYTES"; }
du_size() { du -s -l --block-size=1 "$1" | cut -f1; }
gdu_size() { gdu -n -p -c -s --no-prefix "$1" | awk '{ print $1 }'; }

# What each tool should report, from find alone.
expect_files() { # allocated bytes of every regular file, hard links each time
    find "$1" -type f -printf '%b\n' | awk '{ s += $1 } END { printf "%.0f\n", s * 512 }'
}
expect_du() { # every entry's blocks, the folder itself and links included
    find "$1" -printf '%b\n' | awk '{ s += $1 } END { printf "%.0f\n", s * 512 }'
}
expect_gdu() { # a flat 4096 per folder; anything else by blocks, a hard-linked inode once
    find "$1" \( -type d -printf 'd 0 0 0\n' \) -o -printf 'f %n %i %b\n' |
        awk '$1 == "d" { s += 4096; next }
             $2 > 1 { if ($3 in seen) next; seen[$3] = 1 }
             { s += $4 * 512 }
             END { printf "%.0f\n", s }'
}

# --- machine --------------------------------------------------------------------------

echo "== machine"
echo "cores:      $(nproc)"
echo "cpu:        $(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
echo "kernel:     $(uname -sr)"
echo "load:       $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min; other work on the machine skews timings)"
echo "filesystem: $(df --output=fstype "$WORK" | tail -1) ($WORK)"
echo "tools:      $(du --version | head -1); $(find --version | head -1); gdu $(gdu --version | awk '/Version/ { print $2 }'); $(fdfind --version)"
echo "tree:       $ENTRIES entries ($(du -sh --apparent-size "$TREE" | cut -f1) apparent, $(du -sh "$TREE" | cut -f1) on disk); double: $ENTRIES2 entries; made and synced in ${GEN_SECONDS}s"
echo "threshold:  large files from $MIN_BYTES bytes; $RUNS timed runs per tool, median"
[ "$ENTRIES" -ge "$MIN_ENTRIES" ] || die "tree has only $ENTRIES entries"
[ "$ENTRIES2" -ge $((2 * ENTRIES * 95 / 100)) ] || die "second tree is not twice as big"

# --- same answers ---------------------------------------------------------------------

echo
echo "== totals"
FAILED=0
compare() { # label, got, expected
    local verdict=OK
    if [ "$2" != "$3" ]; then
        verdict=MISMATCH
        FAILED=1
    fi
    printf '%-52s %-24s %-24s %s\n' "$1" "$2" "$3" "$verdict"
}
printf '%-52s %-24s %-24s %s\n' check got expected ""
compare "quorvel directorySize vs find regular files" "$(ours_size "$TREE")" "$(expect_files "$TREE")"
compare "quorvel directorySize (double tree)" "$(ours_size "$TREE2")" "$(expect_files "$TREE2")"
compare "du -s -l --block-size=1 vs find all entries" "$(du_size "$TREE")" "$(expect_du "$TREE")"
compare "gdu -n -s --no-prefix vs find (dir 4096, links once)" "$(gdu_size "$TREE")" "$(expect_gdu "$TREE")"
compare "quorvel largeFiles count+bytes vs find pipeline" "$(ours_large)" "$(find_large)"
"$BIN" large "$MIN_BYTES" --list | tail -n +2 | sort >"$WORK/ours.list"
find_large_list | awk '{ b = $1; sub(/^[0-9]+ /, ""); printf "%.0f\t%s\n", b * 512, $0 }' |
    sort >"$WORK/find.list"
sort "$TREE.planted" >"$WORK/planted.list"
compare "quorvel largeFiles paths vs find pipeline" "$(wc -l <"$WORK/ours.list") paths" \
    "$(wc -l <"$WORK/find.list") paths$(cmp -s "$WORK/ours.list" "$WORK/find.list" || echo ", differ")"
compare "find pipeline paths vs planted files" "$(wc -l <"$WORK/find.list") paths" \
    "$(wc -l <"$WORK/planted.list") paths$(cmp -s "$WORK/find.list" "$WORK/planted.list" || echo ", differ")"
fd_large_list | awk '{ b = $1; sub(/^[0-9]+ /, ""); printf "%.0f\t%s\n", b * 512, $0 }' |
    sort >"$WORK/fd.list"
compare "fd pipeline paths vs planted files" "$(wc -l <"$WORK/fd.list") paths" \
    "$(wc -l <"$WORK/planted.list") paths$(cmp -s "$WORK/fd.list" "$WORK/planted.list" || echo ", differ")"
# The shared-out walk against the depth-first one, as listed: the same paths in the same order.
"$BIN" large "$MIN_BYTES" --list >"$WORK/ours.order"
"$BIN" large "$MIN_BYTES" --list --threads 1 >"$WORK/depth-first.order"
compare "quorvel largeFiles in order vs depth-first walk" "$(($(wc -l <"$WORK/ours.order") - 1)) paths" \
    "$(($(wc -l <"$WORK/depth-first.order") - 1)) paths$(cmp -s "$WORK/ours.order" "$WORK/depth-first.order" || echo ", differ")"
cmp -s "$WORK/ours.order" "$WORK/depth-first.order" || diff "$WORK/ours.order" "$WORK/depth-first.order" || true
if ! cmp -s "$WORK/ours.list" "$WORK/find.list" || ! cmp -s "$WORK/find.list" "$WORK/planted.list" ||
    ! cmp -s "$WORK/fd.list" "$WORK/planted.list"; then
    echo "-- quorvel vs find:"
    diff "$WORK/ours.list" "$WORK/find.list" || true
    echo "-- find vs planted:"
    diff "$WORK/find.list" "$WORK/planted.list" || true
    echo "-- fd vs planted:"
    diff "$WORK/fd.list" "$WORK/planted.list" || true
fi

# --- timings --------------------------------------------------------------------------

# The commands as timed: bare, output discarded; only the find pipeline includes its awk,
# which is part of answering the question.
t_ours_size() { "$BIN" size "$TREE"; }
t_du_l() { du -s -l --block-size=1 "$TREE"; }
t_du() { du -s "$TREE"; }
t_gdu() { gdu -n -p -c -s --no-prefix "$TREE"; }
t_ours_large() { "$BIN" large "$MIN_BYTES"; }
t_ours_large1() { "$BIN" large "$MIN_BYTES" --threads 1; }
t_find() { find_large; }
t_fd() { fd_large; }
t_ours_empty() { "$BIN" size "$EMPTY"; }
TIMED=(t_ours_size t_du_l t_du t_gdu t_ours_large t_ours_large1 t_find t_fd t_ours_empty)
declare -A LABEL=(
    [t_ours_size]="quorvel-walkbench size"
    [t_du_l]="du -s -l --block-size=1"
    [t_du]="du -s"
    [t_gdu]="gdu -n -p -s --no-prefix"
    [t_ours_large]="quorvel-walkbench large"
    [t_ours_large1]="quorvel-walkbench large --threads 1"
    [t_find]="find ... | awk (same prunes)"
    [t_fd]="fdfind ... | stat | awk (same)"
    [t_ours_empty]="quorvel-walkbench size (empty dir)"
)
declare -A BASE=([t_ours_size]=t_ours_size [t_du_l]=t_ours_size [t_du]=t_ours_size
    [t_gdu]=t_ours_size [t_ours_large]=t_ours_large [t_ours_large1]=t_ours_large
    [t_find]=t_ours_large [t_fd]=t_ours_large)

CPUTIME_FILE=$WORK/times
# shellcheck source=bench/cputime.sh
source "$(dirname "${BASH_SOURCE[0]}")/cputime.sh"

declare -A SAMPLES CPU_SAMPLES
run_one() { # appends one wall and one CPU duration in microseconds to SAMPLES/CPU_SAMPLES[$1]
    local t0 t1 c0 c1
    read_children_cpu
    c0=$CHILD_CPU_US
    t0=${EPOCHREALTIME/[.,]/}
    "$1" >/dev/null || die "${LABEL[$1]} failed"
    t1=${EPOCHREALTIME/[.,]/}
    read_children_cpu
    c1=$CHILD_CPU_US
    SAMPLES[$1]+="$((t1 - t0)) "
    CPU_SAMPLES[$1]+="$((c1 - c0)) "
}

# Warm the cache (and the tools' own pages), then alternate the tools run by run so that
# drift on the machine hits all of them alike.
find "$TREE" >/dev/null
for ((r = 0; r < 2; r++)); do
    for t in "${TIMED[@]}"; do run_one "$t"; done
done
SAMPLES=()
CPU_SAMPLES=()
for ((r = 0; r < RUNS; r++)); do
    for t in "${TIMED[@]}"; do run_one "$t"; done
done

median_ms() { # samples in microseconds -> median in ms
    tr ' ' '\n' <<<"$1" | grep . | sort -n |
        awk '{ v[NR] = $1 } END { m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2
                                 printf "%.1f\n", m / 1000 }'
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
declare -A MEDIAN CPU
for t in "${TIMED[@]}"; do
    MEDIAN[$t]=$(median_ms "${SAMPLES[$t]}")
    CPU[$t]=$(median_ms "${CPU_SAMPLES[$t]}")
done

echo
echo "== timings ($RUNS runs each, warm cache; medians; CPU = user + system)"
printf '%-36s %8s %8s %9s %9s   %s\n' tool "wall ms" "CPU ms" "wall/ours" "CPU/ours" "runs, wall ms"
for t in "${TIMED[@]}"; do
    r=-
    c=-
    if [ -n "${BASE[$t]:-}" ]; then
        r=$(ratio "${MEDIAN[$t]}" "${MEDIAN[${BASE[$t]}]}")
        c=$(ratio "${CPU[$t]}" "${CPU[${BASE[$t]}]}")
    fi
    runs=$(tr ' ' '\n' <<<"${SAMPLES[$t]}" | grep . |
        awk '{ printf "%s%.0f", (NR > 1 ? " " : ""), $1 / 1000 }')
    printf '%-36s %8s %8s %9s %9s   %s\n' "${LABEL[$t]}" "${MEDIAN[$t]}" "${CPU[$t]}" "$r" "$c" "$runs"
done

echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"

echo
echo "== goals"
# Wall-time goals hold on a quiet machine; under load, the CPU-time goals are the ones
# that still mean something (the load is printed above and below).
goal() { # label, ours, theirs, factor
    local r verdict
    r=$(ratio "$2" "$3")
    verdict=$(awk -v r="$r" -v f="$4" 'BEGIN { print (r <= f ? "PASS" : "MISS") }')
    printf '%-44s ours %7s ms vs %7s ms = %5sx   %s\n' "$1" "$2" "$3" "$r" "$verdict"
}
goal "directorySize wall <= 0.5x du -s (quiet)" "${MEDIAN[t_ours_size]}" "${MEDIAN[t_du]}" 0.5
goal "directorySize CPU  <= 1.0x du -s" "${CPU[t_ours_size]}" "${CPU[t_du]}" 1.0
goal "directorySize wall <= 1.0x gdu" "${MEDIAN[t_ours_size]}" "${MEDIAN[t_gdu]}" 1.0
goal "largeFiles    wall <= 0.5x find (quiet)" "${MEDIAN[t_ours_large]}" "${MEDIAN[t_find]}" 0.5
goal "largeFiles    CPU  <= 1.0x find" "${CPU[t_ours_large]}" "${CPU[t_find]}" 1.0
goal "largeFiles    wall <= 1.0x fdfind" "${MEDIAN[t_ours_large]}" "${MEDIAN[t_fd]}" 1.0

# --- memory ---------------------------------------------------------------------------

peak_kb() { # command... -> median of three peak resident sizes in KiB
    local _
    for _ in 1 2 3; do
        /usr/bin/time -v "$@" 2>&1 >/dev/null | awk -F': *' '/Maximum resident set size/ { print $2 }'
    done | sort -n | sed -n 2p
}
echo
echo "== peak memory (GNU time, maximum resident set size)"
memory() { # label, kb on the tree, kb on the double tree
    local verdict
    verdict=$(awk -v a="$2" -v b="$3" 'BEGIN { g = (b - a) / a
        printf "growth %+.1f%%, %s", g * 100, (g <= 0.10 && b < 64 * 1024) ? "PASS" : "MISS" }')
    printf '%-26s %7d KiB (%d entries)  %7d KiB (%d entries)  %s\n' "$1" "$2" "$ENTRIES" "$3" "$ENTRIES2" "$verdict"
}
memory "directorySize" "$(peak_kb "$BIN" size "$TREE")" "$(peak_kb "$BIN" size "$TREE2")"
memory "largeFiles" "$(HOME=$TREE peak_kb "$BIN" large "$MIN_BYTES")" \
    "$(HOME=$TREE2 peak_kb "$BIN" large "$MIN_BYTES")"
echo "goal: growth within 10 % and under 64 MiB on the double tree"

echo
if [ "$FAILED" != 0 ]; then
    echo "bench: totals differ (see MISMATCH above)"
    exit 1
fi
echo "bench: all totals agree"
