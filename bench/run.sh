#!/usr/bin/env bash
# Times the installed command-line tool on generated workloads and reports the
# throughput of the template input and the peak resident memory, beside
# envsubst doing the same substitution, then runs the micro-benchmarks briefly.
#
# Usage: bench/run.sh BUILD_DIR INSTALL_PREFIX
#   BENCH_RUNS  timed runs per workload after one warm-up (default 5)
#
# The inputs are written once into BUILD_DIR/bench-data and reused. Exits
# non-zero when a run fails or renders a wrong output; a missed target is
# reported, not failed, since the figures depend on the machine.
set -euo pipefail

if [ $# -ne 2 ]; then
    echo "usage: $0 BUILD_DIR INSTALL_PREFIX" >&2
    exit 2
fi
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
tool=$(cd "$2" && pwd)/bin/tessivane-template
data=$build/bench-data
results=$build/bench-results
runs=${BENCH_RUNS:-5}
helper=(python3 "$here/benchtool.py")

fail() {
    echo "bench: $*" >&2
    exit 1
}

[ -x "$tool" ] || fail "no tool at $tool"
[ -x /usr/bin/time ] || fail "/usr/bin/time (Debian package 'time') is needed to measure peak memory"

"${helper[@]}" generate "$data"
large=yes
if [ ! -f "$data/memory-1GB.tmpl" ]; then
    free_kib=$(df -Pk "$data" | awk 'NR == 2 { print $4 }')
    if [ "$free_kib" -lt $((3000000000 / 1024)) ]; then
        echo "bench: SKIPPING the 1 GB memory run: $((free_kib / 1024)) MiB free in $data," \
            "at least 3 GB wanted to write its input" >&2
        large=no
    else
        "${helper[@]}" generate-large "$data"
    fi
fi
rm -rf "$results"
mkdir -p "$results"
cd "$data"

mapfile -t envsubst_env <envsubst.env
have_envsubst=no
command -v envsubst >/dev/null && have_envsubst=yes

# Sets tool_args to the tool's arguments for the workload $1, output aside.
# Under --strict any warning fails the run, so a workload that stops matching
# the registry or the tags cannot go on being timed unnoticed.
set_tool_args() {
    local registry=(-r registry.conf -R /etc/bench)
    case $1 in
        plain | memory-*) tool_args=() ;;
        reg | include) tool_args=("${registry[@]}") ;;
        mixed)
            tool_args=("${registry[@]}" -s /etc/bench/flag/on=1 -s /etc/bench/flag/off=0
                -t host=bench -t n=3)
            ;;
    esac
    tool_args=(--strict "${tool_args[@]}" "$1.tmpl")
}

# timed RESULT STDIN COMMAND...: one run, recorded under RESULT.
timed() {
    local result=$1 stdin=$2
    shift 2
    "${helper[@]}" time "$stdin" "$results/$result" "$@" \
        || fail "$result: '$*' exited with status $?"
}

# run_tool WORKLOAD RESULT
run_tool() {
    set_tool_args "$1"
    timed "$2" /dev/null "$tool" "${tool_args[@]}" /dev/null
}

# run_envsubst WORKLOAD RESULT: the same lines, with ${K<M>} for REG.
run_envsubst() {
    case $1 in
        plain) timed "$2" plain.tmpl envsubst ;;
        reg) timed "$2" reg.envsubst env "${envsubst_env[@]}" envsubst ;;
    esac
}

bytes() {
    cat "$@" | wc -c
}

# expect_count WHAT PATTERN FILE COUNT
expect_count() {
    local found
    found=$(grep -c -e "$2" "$3" || true)
    [ "$found" -eq "$4" ] || fail "$1: $found lines match '$2', $4 expected"
}

# Every workload is rendered once into a file and checked, so that the timed
# runs below measure the work they claim to.
check_outputs() {
    local out=$results/check.out
    echo "bench: checking what the workloads render" >&2
    for workload in plain reg mixed include; do
        set_tool_args "$workload"
        "$tool" "${tool_args[@]}" "$out" || fail "$workload: the tool exited with status $?"
        expect_count "$workload" '%%' "$out" 0
        case $workload in
            plain) cmp -s plain.tmpl "$out" || fail "plain: the output differs from the input" ;;
            reg)
                if [ "$have_envsubst" = yes ]; then
                    env "${envsubst_env[@]}" envsubst <reg.envsubst | cmp -s - "$out" \
                        || fail "reg: the output differs from envsubst's"
                fi
                expect_count reg '^key_[0-9]* = value[0-9]* # trailing' "$out" 1000000
                ;;
            mixed)
                expect_count mixed '^enabled = yes$' "$out" 50000
                expect_count mixed '^host = bench$' "$out" 100000
                expect_count mixed '^name = other$' "$out" 99800
                expect_count mixed '^label = "value[0-9]*"$' "$out" 100000
                ;;
            include)
                expect_count include '^value = value[0-9]*$' "$out" 100000
                [ "$(wc -l <"$out")" -eq 400100 ] || fail "include: wrong number of lines"
                ;;
        esac
    done
    rm -f "$out"
}

check_outputs

echo "$(bytes plain.tmpl)" >"$results/plain.tool.bytes"
echo "$(bytes plain.tmpl)" >"$results/plain.envsubst.bytes"
echo "$(bytes reg.tmpl)" >"$results/reg.tool.bytes"
echo "$(bytes reg.envsubst)" >"$results/reg.envsubst.bytes"
echo "$(bytes mixed.tmpl)" >"$results/mixed.tool.bytes"
echo "$(($(bytes include.tmpl) + 100 * $(bytes include.d/*)))" >"$results/include.tool.bytes"
echo "$(bytes memory-10MB.tmpl)" >"$results/memory-10MB.tool.bytes"
echo "$(bytes memory-longline.tmpl)" >"$results/memory-longline.tool.bytes"
[ "$large" = yes ] && echo "$(bytes memory-1GB.tmpl)" >"$results/memory-1GB.tool.bytes"

# The first run of each series warms the caches and is not counted. The tool
# and envsubst take turns, so that whatever else loads the machine hits both.
for workload in plain reg; do
    echo "bench: $workload, $runs runs after a warm-up" >&2
    for ((run = 0; run <= runs; run++)); do
        [ "$run" -eq 0 ] && suffix=warm-up || suffix=
        run_tool "$workload" "${suffix:-$workload.tool}"
        if [ "$have_envsubst" = yes ]; then
            run_envsubst "$workload" "${suffix:-$workload.envsubst}"
        fi
    done
done
[ "$have_envsubst" = yes ] || echo "bench: no envsubst here; no comparison" >&2

memory_workloads=(memory-10MB memory-longline)
[ "$large" = yes ] && memory_workloads+=(memory-1GB)
for workload in mixed include "${memory_workloads[@]}"; do
    echo "bench: $workload, $runs runs after a warm-up" >&2
    for ((run = 0; run <= runs; run++)); do
        [ "$run" -eq 0 ] && suffix=warm-up || suffix=
        run_tool "$workload" "${suffix:-$workload.tool}"
    done
done

echo "$($tool --version) on $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg)"
"${helper[@]}" report "$results"

# The sync tool against a real etcd: convergence, snapshot and memory.
python3 "$here/sync.py" "$(dirname "$tool")/tessivane-sync" "$build" || fail "sync.py exited with status $?"

# The micro-benchmarks, briefly: a check that they still run and a rough figure.
for program in "$build"/bench/bench_*; do
    [ -f "$program" ] && [ -x "$program" ] || continue
    echo
    "$program" --benchmark_min_time=0.05 2>&1 | tee "$results/${program##*/}.txt" \
        || fail "${program##*/} exited with status $?"
    if grep -q "ERROR OCCURRED" "$results/${program##*/}.txt"; then
        fail "${program##*/}: a benchmark failed its check"
    fi
done
