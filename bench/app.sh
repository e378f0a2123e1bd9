#!/usr/bin/env bash
# What the desktop app costs, under a private Xvfb: CPU and memory while it waits with no
# window open, launch to the tools window, and the clean-up page holding 10,000 items
# (quorvel-uibench). Prints a table of goals; a miss is reported, not fatal. A run that
# cannot measure (the app dies, the page shows the wrong items) ends with status 1.
#   bash bench/app.sh [build-dir]
# Environment: APP_IDLE_SECONDS (the idle run, at least 120 so that minute 1 and the end
#              are a minute or more apart; default 300),
#              APP_LAUNCHES (timed launches, at least 3; default 5).
# Every process started here (Xvfb and xdotool included) gets a HOME, TMPDIR and XDG_*
# folders inside one temporary folder, which is removed at the end.
set -euo pipefail
export LC_ALL=C

BUILD=${1:-build}
APP=$BUILD/src/app/quorvel
UIBENCH=$BUILD/bench/quorvel-uibench
IDLE=${APP_IDLE_SECONDS:-300}
LAUNCHES=${APP_LAUNCHES:-5}
ITEMS=10000
UI_ROUNDS=5

GOAL_CPU_PCT=0.5
GOAL_RSS_MB=80 # MB of 10^6 bytes
GOAL_LAUNCH_MS=500
GOAL_UI_MS=100
GOAL_WIDGETS=1000 # under one widget per ten rows
SAMPLE_SECONDS=10

die() {
    echo "app: $*" >&2
    exit 2
}

[ "$(uname -s)" = Linux ] || die "runs on Linux only (/proc, Xvfb)"
[ "$IDLE" -ge 120 ] 2>/dev/null || die "APP_IDLE_SECONDS must be at least 120"
[ "$LAUNCHES" -ge 3 ] 2>/dev/null || die "APP_LAUNCHES must be at least 3"
for bin in "$APP" "$UIBENCH"; do
    [ -x "$bin" ] || die "no executable at $bin (make bench builds it)"
done
APP=$(realpath "$APP")
UIBENCH=$(realpath "$UIBENCH")
for tool in Xvfb xdotool python3 awk sort getconf; do
    command -v "$tool" >/dev/null || die "$tool is missing (bash scripts/install-deps.sh)"
done
PYTHON=$(command -v python3)
# shellcheck source=bench/cputime.sh
source "$(dirname "${BASH_SOURCE[0]}")/cputime.sh"
TICK=$(getconf CLK_TCK)
PAGE_KIB=$(($(getconf PAGESIZE) / 1024))

WORK=$(mktemp -d "${TMPDIR:-/var/tmp}/quorvel-appbench.XXXXXX")
CPUTIME_FILE=$WORK/times
PIDS=()
cleanup() {
    local pid
    for pid in "${PIDS[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${PIDS[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# --- isolation ------------------------------------------------------------------------

# Nothing of the user's session may reach a child: its own folders, no session bus (so no
# tray host either), no Qt or locale settings, and an App Store address that refuses.
for var in $(compgen -e); do
    case "$var" in
    XDG_* | QT_* | LC_* | QUORVEL_* | DBUS_* | LANGUAGE | WAYLAND_DISPLAY | DISPLAY) unset "$var" ;;
    esac
done
export LC_ALL=C

# isolated ROOT: the environment assignments for a process living in ROOT (created here).
isolated() {
    local root=$1
    mkdir -p "$root/home" "$root/tmp" "$root/run"
    chmod 700 "$root/run"
    ISOLATED=(HOME="$root/home" TMPDIR="$root/tmp" XDG_RUNTIME_DIR="$root/run"
        XDG_CONFIG_HOME="$root/home/.config" XDG_CACHE_HOME="$root/home/.cache"
        XDG_DATA_HOME="$root/home/.local/share" XDG_STATE_HOME="$root/home/.local/state"
        DBUS_SESSION_BUS_ADDRESS="unix:path=$root/tmp/no-bus")
}

# app_env ROOT: ISOLATED plus what the app and the page bench run with on our display.
app_env() {
    isolated "$1"
    ISOLATED+=(LANG=C.UTF-8 QT_QPA_PLATFORM=xcb DISPLAY="$DISPLAY_NAME"
        QUORVEL_APP_STORE_URL=http://127.0.0.1:9)
}

# x11.py launch APP: starts APP, waits for a window named "Quorvel" to be mapped and prints
# the milliseconds from the start; it watches the server's map events, so the time is
# exact rather than a polling step (xdotool's --sync polls every half second). Then checks
# xdotool sees exactly that window, ends APP with SIGTERM and requires a clean exit.
# x11.py close WINDOW: asks WINDOW to close the way a window manager's close button does.
cat >"$WORK/x11.py" <<'PY'
import ctypes as C, os, resource, select, signal, subprocess, sys, time

X = C.cdll.LoadLibrary("libX11.so.6")
X.XOpenDisplay.restype = C.c_void_p
X.XOpenDisplay.argtypes = [C.c_char_p]
X.XDefaultRootWindow.restype = C.c_ulong
X.XDefaultRootWindow.argtypes = [C.c_void_p]
X.XSelectInput.argtypes = [C.c_void_p, C.c_ulong, C.c_long]
X.XSync.argtypes = [C.c_void_p, C.c_int]
X.XFlush.argtypes = [C.c_void_p]
X.XPending.argtypes = [C.c_void_p]
X.XConnectionNumber.argtypes = [C.c_void_p]
X.XInternAtom.restype = C.c_ulong
X.XInternAtom.argtypes = [C.c_void_p, C.c_char_p, C.c_int]
X.XGetWindowProperty.argtypes = [C.c_void_p, C.c_ulong, C.c_ulong, C.c_long, C.c_long,
    C.c_int, C.c_ulong, C.POINTER(C.c_ulong), C.POINTER(C.c_int), C.POINTER(C.c_ulong),
    C.POINTER(C.c_ulong), C.POINTER(C.POINTER(C.c_ubyte))]
X.XFree.argtypes = [C.c_void_p]

class Head(C.Structure):
    _fields_ = [("type", C.c_int), ("serial", C.c_ulong), ("send_event", C.c_int),
                ("display", C.c_void_p)]
class Map(C.Structure):
    _fields_ = Head._fields_ + [("event", C.c_ulong), ("window", C.c_ulong),
                                ("override_redirect", C.c_int)]
class Message(C.Structure):
    _fields_ = Head._fields_ + [("window", C.c_ulong), ("message_type", C.c_ulong),
                                ("format", C.c_int), ("l", C.c_long * 5)]
class Event(C.Union):
    _fields_ = [("type", C.c_int), ("xmap", Map), ("xclient", Message), ("pad", C.c_long * 24)]
X.XNextEvent.argtypes = [C.c_void_p, C.POINTER(Event)]
X.XSendEvent.argtypes = [C.c_void_p, C.c_ulong, C.c_int, C.c_long, C.POINTER(Event)]

# A window may be gone by the time we ask about it; that is no reason to stop.
ERROR_HANDLER = C.CFUNCTYPE(C.c_int, C.c_void_p, C.c_void_p)(lambda d, e: 0)
C.CFUNCTYPE(C.c_void_p, C.c_void_p)(("XSetErrorHandler", X))(C.cast(ERROR_HANDLER, C.c_void_p))
MAP_NOTIFY, CLIENT_MESSAGE, SUBSTRUCTURE_NOTIFY = 19, 33, 1 << 19

def fail(text):
    sys.exit("app: " + text)

display = X.XOpenDisplay(None) or fail("cannot open display %s" % os.environ.get("DISPLAY"))

def name(window):
    for atom in (b"_NET_WM_NAME", b"WM_NAME"):
        kind, fmt, n, after = C.c_ulong(), C.c_int(), C.c_ulong(), C.c_ulong()
        data = C.POINTER(C.c_ubyte)()
        if X.XGetWindowProperty(display, window, X.XInternAtom(display, atom, 0), 0, 256, 0, 0,
                                C.byref(kind), C.byref(fmt), C.byref(n), C.byref(after),
                                C.byref(data)) == 0 and data:
            text = C.string_at(data, n.value).decode("utf-8", "replace")
            X.XFree(data)
            if n.value:
                return text
    return ""

def children_cpu():
    r = resource.getrusage(resource.RUSAGE_CHILDREN)
    return r.ru_utime + r.ru_stime

def launch(argv):
    X.XSelectInput(display, X.XDefaultRootWindow(display), SUBSTRUCTURE_NOTIFY)
    cpu0 = children_cpu()
    X.XSync(display, 0)
    fd = X.XConnectionNumber(display)
    start = time.monotonic()
    app = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    event, shown = Event(), None
    while shown is None:
        if time.monotonic() - start > 15:
            app.kill()
            fail("no window named Quorvel within 15 s")
        if not X.XPending(display):
            select.select([fd], [], [], 0.1)
            if app.poll() is not None:
                fail("the app ended at launch: " + app.stderr.read().decode(errors="replace"))
            continue
        X.XNextEvent(display, C.byref(event))
        if event.type == MAP_NOTIFY and name(event.xmap.window) == "Quorvel":
            shown = time.monotonic()
    tool0 = children_cpu()
    seen = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^Quorvel$"],
                          capture_output=True, text=True).stdout.split()
    tool = children_cpu() - tool0
    app.send_signal(signal.SIGTERM)
    try:
        status = app.wait(5)
    except subprocess.TimeoutExpired:
        app.kill()
        fail("the app did not end within 5 s of SIGTERM")
    if len(seen) != 1:
        fail("xdotool sees %d visible Quorvel windows, not 1" % len(seen))
    if status != 0:
        fail("the app exited with %d: %s" % (status, app.stderr.read().decode(errors="replace")))
    # Wall time to the window; CPU time (user + system) of the whole run, quitting included.
    print("%.1f %.1f" % ((shown - start) * 1000, (children_cpu() - cpu0 - tool) * 1000))

def close(window):
    event = Event()
    event.xclient.type = CLIENT_MESSAGE
    event.xclient.window = window
    event.xclient.message_type = X.XInternAtom(display, b"WM_PROTOCOLS", 0)
    event.xclient.format = 32
    event.xclient.l[0] = X.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
    X.XSendEvent(display, window, 0, 0, C.byref(event))
    X.XSync(display, 0)

if sys.argv[1] == "launch":
    launch(sys.argv[2:])
elif sys.argv[1] == "close":
    close(int(sys.argv[2], 0))
PY

median() { # numbers as arguments -> the median
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
        m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; printf "%.1f\n", m }'
}
largest() { printf '%s\n' "$@" | sort -g | tail -n 1; }
verdict() { # VALUE GOAL: PASS when VALUE <= GOAL
    awk -v v="$1" -v g="$2" 'BEGIN { print ((v + 0 <= g + 0) ? "PASS" : "MISS") }'
}

# CPU ticks (user + system) of PID; the fields after the command name, which may hold
# spaces and parentheses.
cpu_ticks() {
    local stat
    stat=$(<"/proc/$1/stat")
    stat=${stat##*) }
    awk '{ print $12 + $13 }' <<<"$stat"
}
rss_kib() { awk '/^VmRSS:/ { print $2 }' "/proc/$1/status"; }

visible_windows() { # the ids of visible windows named Quorvel
    env "${X_ENV[@]}" xdotool search --onlyvisible --name '^Quorvel$' 2>/dev/null || true
}

# --- machine and display --------------------------------------------------------------

echo "== machine"
echo "cores:   $(nproc)"
echo "cpu:     $(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
echo "kernel:  $(uname -sr)"
echo "load:    $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min; other work skews timings)"

# -noreset: a server reset after the last client leaves would refuse the next launch.
isolated "$WORK/xvfb"
env "${ISOLATED[@]}" Xvfb -displayfd 3 -nolisten tcp -noreset -screen 0 1280x800x24 \
    3>"$WORK/display" 2>"$WORK/xvfb.log" &
PIDS+=($!)
for _ in $(seq 100); do
    grep -q '^[0-9][0-9]*$' "$WORK/display" 2>/dev/null && break
    sleep 0.1
done
grep -q '^[0-9][0-9]*$' "$WORK/display" || die "Xvfb did not start: $(cat "$WORK/xvfb.log")"
DISPLAY_NAME=:$(head -n 1 "$WORK/display")
isolated "$WORK/xdotool"
X_ENV=("${ISOLATED[@]}" DISPLAY="$DISPLAY_NAME")
echo "display: Xvfb $DISPLAY_NAME, 1280x800x24, no window manager, no tray"
echo "xdotool: $(env "${X_ENV[@]}" xdotool version 2>/dev/null | head -n 1)"

# --- 1: launch to the tools window ----------------------------------------------------

echo "== launch to the tools window, $LAUNCHES launches, each with a fresh HOME"
LAUNCH_MS=()
LAUNCH_CPU=()
for i in $(seq "$LAUNCHES"); do
    app_env "$WORK/launch$i"
    times=$(env "${ISOLATED[@]}" "$PYTHON" "$WORK/x11.py" launch "$APP") || exit 1
    read -r ms cpu <<<"$times"
    LAUNCH_MS+=("$ms")
    LAUNCH_CPU+=("$cpu")
    rm -rf "$WORK/launch$i"
    echo "   launch $i: $ms ms wall, $cpu ms CPU (start to quit)"
done

# --- 2: the clean-up page with 10,000 items -------------------------------------------

echo "== clean-up page with $ITEMS items in ~/Library/Caches, $UI_ROUNDS rounds"
app_env "$WORK/page"
"$PYTHON" - "$WORK/page/home/Library/Caches" "$ITEMS" <<'PY'
import os, sys
caches, count = sys.argv[1], int(sys.argv[2])
os.makedirs(caches)
for i in range(count):
    with open(os.path.join(caches, "cache-%05d.bin" % i), "wb") as f:
        f.write(b"q" * (100 + i % 3000))
PY
read_children_cpu
ui_cpu0=$CHILD_CPU_US
ui_start=$EPOCHREALTIME
env "${ISOLATED[@]}" "$UIBENCH" "$ITEMS" "$UI_ROUNDS" >"$WORK/ui.out" 2>"$WORK/ui.err" || {
    cat "$WORK/ui.out" "$WORK/ui.err" >&2
    exit 1
}
ui_end=$EPOCHREALTIME
read_children_cpu
UI_WALL_MS=$(awk -v a="$ui_start" -v b="$ui_end" 'BEGIN { printf "%.0f", (b - a) * 1000 }')
UI_CPU_MS=$(((CHILD_CPU_US - ui_cpu0) / 1000))
ui_field() { awk -v k="$1" '$1 == k { $1 = ""; print substr($0, 2) }' "$WORK/ui.out"; }
read -ra SHOWN <<<"$(ui_field shown_ms)"
read -ra NONE <<<"$(ui_field none_ms)"
read -ra ALL <<<"$(ui_field all_ms)"
WIDGETS=$(ui_field widgets)
echo "   page shown after the scan (ms): ${SHOWN[*]}"
echo "   None until repainted (ms):      ${NONE[*]}"
echo "   All until repainted (ms):       ${ALL[*]}"
echo "   widgets on the page:            $WIDGETS"
echo "   the whole run (scan, $UI_ROUNDS rounds): $UI_WALL_MS ms wall, $UI_CPU_MS ms CPU"
rm -rf "$WORK/page"

# --- 3: idle with no window open ------------------------------------------------------

echo "== idle for $IDLE s with no window open, sampled every $SAMPLE_SECONDS s"
app_env "$WORK/idle"
env "${ISOLATED[@]}" "$APP" >"$WORK/idle.log" 2>&1 &
APP_PID=$!
PIDS+=("$APP_PID")
window=
for _ in $(seq 150); do
    window=$(visible_windows | head -n 1)
    [ -n "$window" ] && break
    kill -0 "$APP_PID" 2>/dev/null || die "the app ended at launch: $(cat "$WORK/idle.log")"
    sleep 0.1
done
[ -n "$window" ] || die "the tools window never opened"
# Without a tray the tools window opens at launch; it is closed the way a window manager's
# close button would, and the app must stay running without it.
env "${X_ENV[@]}" "$PYTHON" "$WORK/x11.py" close "$window"
for _ in $(seq 50); do
    [ -z "$(visible_windows)" ] && break
    sleep 0.1
done
[ -z "$(visible_windows)" ] || die "the tools window did not close"
kill -0 "$APP_PID" 2>/dev/null || die "closing the tools window ended the app"
WINDOW_STATE="closed"

# Minute 1 is the sample at 60 s; the last one closes the run, whatever its length.
start=$EPOCHREALTIME
ticks0=$(cpu_ticks "$APP_PID")
RSS=()
RSS_AT_60=
for ((t = SAMPLE_SECONDS; t <= IDLE; t += SAMPLE_SECONDS)); do
    sleep "$(awk -v s="$start" -v now="$EPOCHREALTIME" -v t="$t" \
        'BEGIN { d = s + t - now; printf "%.3f", (d > 0 ? d : 0) }')"
    kill -0 "$APP_PID" 2>/dev/null || die "the app ended while idle: $(cat "$WORK/idle.log")"
    RSS+=("$(rss_kib "$APP_PID")")
    [ "$t" -eq 60 ] && RSS_AT_60=${RSS[-1]}
done
ticks1=$(cpu_ticks "$APP_PID")
elapsed=$(awk -v s="$start" -v now="$EPOCHREALTIME" 'BEGIN { printf "%.3f", now - s }')
[ -n "$(visible_windows)" ] && WINDOW_STATE="reopened by itself"
kill -TERM "$APP_PID"
wait "$APP_PID" || die "the app did not end cleanly on SIGTERM (status $?)"
PIDS=("${PIDS[0]}")
RSS_END=${RSS[-1]}
CPU_PCT=$(awk -v d="$((ticks1 - ticks0))" -v hz="$TICK" -v s="$elapsed" \
    'BEGIN { printf "%.3f", d / hz / s * 100 }')
RSS_PEAK=$(largest "${RSS[@]}")
echo "   CPU: $((ticks1 - ticks0)) ticks of 1/$TICK s in $elapsed s"
echo "   VmRSS (KiB) every $SAMPLE_SECONDS s: ${RSS[*]}"

# "Not growing": the kernel's resident counters are per-CPU and may hold back up to one
# batch (32 pages) each, so a flat process can read that much apart.
GROWTH_SLACK_KIB=$((32 * PAGE_KIB * $(nproc)))
GROWTH_KIB=$((RSS_END - RSS_AT_60))

# --- table ----------------------------------------------------------------------------

mb() { awk -v k="$1" 'BEGIN { printf "%.1f", k * 1024 / 1e6 }'; }
row() { printf '%-44s %-24s %-18s %s\n' "$@"; }
echo
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min)"
echo "== desktop app cost (Xvfb, tools window $WINDOW_STATE while idle)"
row "measure" "value" "goal" "result"
row "idle CPU, ${IDLE} s average (% of one core)" "$CPU_PCT %" "<= $GOAL_CPU_PCT %" \
    "$(verdict "$CPU_PCT" "$GOAL_CPU_PCT")"
row "idle VmRSS, peak of samples" "$(mb "$RSS_PEAK") MB" "<= $GOAL_RSS_MB MB" \
    "$(verdict "$(mb "$RSS_PEAK")" "$GOAL_RSS_MB")"
row "idle VmRSS at minute 1 (60 s)" "$(mb "$RSS_AT_60") MB ($RSS_AT_60 KiB)" "" ""
END_MARK=$([ $((IDLE % 60)) -eq 0 ] && echo "minute $((IDLE / 60)) (${IDLE} s)" || echo "the end (${IDLE} s)")
row "idle VmRSS at $END_MARK" "$(mb "$RSS_END") MB ($RSS_END KiB)" "" ""
row "idle VmRSS growth, minute 1 to the end" "$GROWTH_KIB KiB" "<= $GROWTH_SLACK_KIB KiB" \
    "$(verdict "$GROWTH_KIB" "$GROWTH_SLACK_KIB")"
LAUNCH_MEDIAN=$(median "${LAUNCH_MS[@]}")
row "launch to tools window, median of $LAUNCHES" "$LAUNCH_MEDIAN ms (max $(largest "${LAUNCH_MS[@]}"))" \
    "<= $GOAL_LAUNCH_MS ms" "$(verdict "$LAUNCH_MEDIAN" "$GOAL_LAUNCH_MS")"
row "  its CPU time, start to quit, median" "$(median "${LAUNCH_CPU[@]}") ms" "" ""
for pair in "page shown after scan:SHOWN" "section None until repainted:NONE" \
    "section All until repainted:ALL"; do
    label=${pair%%:*}
    declare -n times=${pair##*:}
    m=$(median "${times[@]}")
    row "$label, median of $UI_ROUNDS" "$m ms (max $(largest "${times[@]}"))" "< $GOAL_UI_MS ms" \
        "$(awk -v v="$m" -v g="$GOAL_UI_MS" 'BEGIN { print ((v + 0 < g + 0) ? "PASS" : "MISS") }')"
    unset -n times
done
row "page bench, whole run: wall / CPU" "$UI_WALL_MS ms / $UI_CPU_MS ms" "" ""
row "widgets on the page with $ITEMS items" "$WIDGETS" "< $GOAL_WIDGETS" \
    "$(awk -v v="$WIDGETS" -v g="$GOAL_WIDGETS" 'BEGIN { print ((v + 0 < g + 0) ? "PASS" : "MISS") }')"
