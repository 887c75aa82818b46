#!/usr/bin/env bash
# Times the installed command-line tool on generated workloads and reports the
# throughput of the template input and the peak resident memory, beside
# ctemplate rendering the same output (bench/ctemplate_driver.cpp), then runs
# the micro-benchmarks briefly.
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
driver=$build/bench/ctemplate_driver
data=$build/bench-data
results=$build/bench-results
runs=${BENCH_RUNS:-5}
helper=(python3 "$here/benchtool.py")

fail() {
    echo "bench: $*" >&2
    exit 1
}

[ -x "$tool" ] || fail "no tool at $tool"
[ -x "$driver" ] || fail "no ctemplate driver at $driver (configure with TESSIVANETEMPLATE_BENCHMARKS=ON)"
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
# The rendered outputs of the timed runs, on the file system of the data.
outputs=$results/out
mkdir -p "$outputs"
cd "$data"

# Sets options to the registry and tag options for the workload $1, which the
# tool and the ctemplate driver take alike.
set_options() {
    local registry=(-r registry.conf -R /etc/bench)
    case $1 in
        plain | memory-*) options=() ;;
        reg | include) options=("${registry[@]}") ;;
        mixed)
            options=("${registry[@]}" -s /etc/bench/flag/on=1 -s /etc/bench/flag/off=0
                -t host=bench -t n=3)
            ;;
    esac
}

# timed RESULT STDOUT COMMAND...: one run, recorded under RESULT, with its
# standard output written to the file STDOUT.
timed() {
    local result=$1 stdout=$2
    shift 2
    "${helper[@]}" time --stdout "$stdout" /dev/null "$results/$result" "$@" \
        || fail "$result: '$*' exited with status $?"
}

# run_tool WORKLOAD RESULT: the tool under --strict, where any warning fails
# the run, so that a workload that stops matching the registry or the tags
# cannot go on being timed unnoticed.
run_tool() {
    set_options "$1"
    timed "$2" /dev/null "$tool" --strict "${options[@]}" "$1.tmpl" /dev/null
}

# run_compared WORKLOAD SUFFIX: one run of each way of rendering WORKLOAD that
# is compared with ctemplate, recorded under WORKLOAD.<way>SUFFIX. Not under
# --strict: it holds standard output back in a temporary and copies it, which
# is not the engine's speed; check_outputs has rendered each workload under it.
run_compared() {
    set_options "$1"
    # The engine's speed, as ctemplate writes: to standard output, into a file.
    timed "$1.stdout$2" "$outputs/$1.stdout" "$tool" "${options[@]}" "$1.tmpl"
    # The tool replacing OUTPUT, left by the run before, with its safe write.
    timed "$1.output$2" /dev/null "$tool" "${options[@]}" "$1.tmpl" "$outputs/$1.output"
    timed "$1.ctemplate$2" "$outputs/$1.ctemplate" "$driver" "${options[@]}" "$1.ctpl"
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
    local out=$results/check.out ctemplate_out=$results/check.ctemplate
    echo "bench: checking what the workloads render" >&2
    for workload in plain reg mixed include; do
        set_options "$workload"
        "$tool" --strict "${options[@]}" "$workload.tmpl" "$out" \
            || fail "$workload: the tool exited with status $?"
        expect_count "$workload" '%%' "$out" 0
        if [ -f "$workload.ctpl" ]; then
            "$driver" "${options[@]}" "$workload.ctpl" >"$ctemplate_out" \
                || fail "$workload: the ctemplate driver exited with status $?"
            cmp "$ctemplate_out" "$out" >&2 || fail "$workload: the output differs from ctemplate's"
        fi
        case $workload in
            plain) cmp -s plain.tmpl "$out" || fail "plain: the output differs from the input" ;;
            reg)
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
    rm -f "$out" "$ctemplate_out"
}

check_outputs

compared=(plain reg mixed)
for workload in "${compared[@]}"; do
    bytes "$workload.tmpl" >"$results/$workload.stdout.bytes"
    bytes "$workload.tmpl" >"$results/$workload.output.bytes"
    bytes "$workload.ctpl" >"$results/$workload.ctemplate.bytes"
done
echo "$(($(bytes include.tmpl) + 100 * $(bytes include.d/*)))" >"$results/include.tool.bytes"
echo "$(bytes memory-10MB.tmpl)" >"$results/memory-10MB.tool.bytes"
echo "$(bytes memory-longline.tmpl)" >"$results/memory-longline.tool.bytes"
[ "$large" = yes ] && echo "$(bytes memory-1GB.tmpl)" >"$results/memory-1GB.tool.bytes"

# The first run of each series warms the caches and is not counted. The tool
# and ctemplate take turns, so that whatever else loads the machine hits all
# the ways alike.
for workload in "${compared[@]}"; do
    echo "bench: $workload, $runs runs after a warm-up, the tool and ctemplate in turn" >&2
    for ((run = 0; run <= runs; run++)); do
        [ "$run" -eq 0 ] && suffix=.warm-up || suffix=
        run_compared "$workload" "$suffix"
    done
    # What the timed runs wrote, checked as check_outputs checked the rest.
    for way in stdout output; do
        cmp "$outputs/$workload.ctemplate" "$outputs/$workload.$way" >&2 \
            || fail "$workload: the tool's timed output ($way) differs from ctemplate's"
    done
    rm -f "$outputs/$workload".*
done

memory_workloads=(memory-10MB memory-longline)
[ "$large" = yes ] && memory_workloads+=(memory-1GB)
for workload in include "${memory_workloads[@]}"; do
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
