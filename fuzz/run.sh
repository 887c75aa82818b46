#!/usr/bin/env bash
# Usage: fuzz/run.sh BUILD_DIR SECONDS
# Runs every fuzz target built in BUILD_DIR/fuzz for SECONDS, starting from the
# checked-in seeds plus whatever earlier runs added to the working corpus, and
# prints each target's speed and coverage. Exits non-zero when a target fails.
set -uo pipefail

if [ $# -ne 2 ]; then
    echo "usage: $0 BUILD_DIR SECONDS" >&2
    exit 2
fi
build=$(cd "$1" && pwd) || exit 2
seconds=$2
here=$(cd "$(dirname "$0")" && pwd)
work="$build/fuzz/run"

# target:dictionary:unwinder. Qt's JSON parser leaks on its own on some broken
# documents, which the registry reader and the etcd source both parse; its
# suppression needs whole stacks through Qt, and so the slow unwinder, at
# about a tenth of the speed.
targets=(tokenizer:template.dict:fast render:template.dict:fast bytepath:template.dict:fast
    registryfile:registry.dict:slow etcdprotocol:etcd.dict:slow)

export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$here/../tests/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

status=0
for entry in "${targets[@]}"; do
    IFS=: read -r name dict unwinder <<<"$entry"
    dict=$here/$dict
    fast=1
    [ "$unwinder" = slow ] && fast=0
    binary="$build/fuzz/fuzz_$name"
    corpus="$work/corpus/$name"
    artifacts="$work/artifacts/$name"
    log="$work/$name.log"
    if [ ! -x "$binary" ]; then
        echo "fuzz: $binary is missing; build with -DTESSIVANETEMPLATE_FUZZERS=ON" >&2
        exit 2
    fi
    mkdir -p "$corpus" "$artifacts"
    # The seeds are copied, never used in place: libFuzzer writes into its corpus.
    cp -n "$here/corpus/$name/"* "$corpus/"

    # Artifacts need an absolute prefix: the render target changes its working
    # directory to the files it lets templates include, and so does bytepath.
    ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:fast_unwind_on_malloc=$fast} \
        "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
        -dict="$dict" -artifact_prefix="$artifacts/" -print_final_stats=1 \
        "$corpus" >"$log" 2>&1
    rc=$?

    # The closing DONE line, or after a crash the last progress line before it.
    done_line=$(grep -E '^#[0-9]+[[:space:]].*cov: ' "$log" | tail -n 1)
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
    rss=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log" | tail -n 1)
    cov=$(echo "$done_line" | sed -n 's/.*cov: \([0-9]*\).*/\1/p')
    features=$(echo "$done_line" | sed -n 's/.*ft: \([0-9]*\).*/\1/p')
    units=$(echo "$done_line" | sed -n 's/.*corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p')
    printf '%-13s %s runs, %s exec/s, coverage %s edges, %s features, corpus %s, peak %s MB\n' \
        "$name" "${runs:-?}" "${speed:-?}" "${cov:-?}" "${features:-?}" "${units:-?}" "${rss:-?}"
    [ -n "$done_line" ] && echo "    $done_line"

    if [ $rc -ne 0 ]; then
        status=1
        echo "fuzz: $name failed (exit status $rc); log: $log" >&2
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|artifact_prefix|Test unit written)' "$log" \
            | head -n 20 >&2
    fi
done
exit $status
