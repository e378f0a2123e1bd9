# CPU time of the children of the shell that sources this, for the benchmark scripts.
# read_children_cpu sets CHILD_CPU_US to the user + system time, in microseconds, of every
# child this shell has waited for: the `times` builtin (getrusage of the children, in
# millisecond digits). Call it directly, never in $(...): a subshell counts from zero, and
# its own fork would land in the next measurement. CPUTIME_FILE is a scratch file.
CHILD_CPU_US=0
US=0
read_children_cpu() {
    local shell_line user system user_us
    times >"$CPUTIME_FILE"
    { read -r shell_line && read -r user system; } <"$CPUTIME_FILE"
    to_us "$user"
    user_us=$US
    to_us "$system"
    CHILD_CPU_US=$((user_us + US))
}
to_us() { # "1m2.345s" -> US=62345000
    [[ $1 =~ ^([0-9]+)m([0-9]+)[.,]([0-9]+)s$ ]] || {
        echo "bench: unexpected times output: $1" >&2
        exit 2
    }
    local fraction=${BASH_REMATCH[3]}000000
    US=$((10#${BASH_REMATCH[1]} * 60000000 + 10#${BASH_REMATCH[2]} * 1000000 + 10#${fraction:0:6}))
}
