#!/bin/sh
# Runs every fuzz target of a fuzz build for a set time each, one after the
# other. Usage: fuzz/run.sh BUILD_DIR SECONDS [TARGET ...]
# New inputs gather in BUILD_DIR/corpus/<target> (the seeds of
# fuzz/corpus/<target> are read, never written); a crash leaves its input in
# BUILD_DIR/artifacts and makes the script fail. The wisdom file is kept out
# of it: KEEL_DATA_PATH is emptied. With FUZZ_KEEP=1 the inputs that add
# coverage are merged into fuzz/corpus/<target> afterwards (make fuzz-long).
# The memory limit leaves room for the sanitizer's quarantine and the
# allocator's caches on top of what the stream targets allocate (a second of
# input per channel at rates up to the engines' bounds): they peak above
# 2 GB, and an out-of-memory stop during the exit-time leak scan left the
# process stopped for good instead of failing.
set -eu
build="$1"
seconds="$2"
shift 2
here="$(cd "$(dirname "$0")" && pwd)"
targets="${*:-$(cd "$here" && ls *_fuzzer.cpp | sed 's/_fuzzer\.cpp$//')}"
mkdir -p "$build/artifacts"
status=0
for t in $targets; do
    mkdir -p "$build/corpus/$t" "$here/corpus/$t"
    log="$build/fuzz-$t.log"
    dict=""
    [ -f "$here/dict/$t.dict" ] && dict="-dict=$here/dict/$t.dict"
    if env KEEL_DATA_PATH= UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "$build/fuzz/${t}_fuzzer" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=4096 -print_final_stats=1 $dict \
        -artifact_prefix="$build/artifacts/$t-" \
        "$build/corpus/$t" "$here/corpus/$t" >"$log" 2>&1; then
        result=ok
    else
        result=FAILED
        status=1
        tail -n 40 "$log"
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
    cov=$(echo "$last" | sed -n 's/.*cov: \([0-9]*\).*/\1/p')
    ft=$(echo "$last" | sed -n 's/.*ft: \([0-9]*\).*/\1/p')
    corp=$(echo "$last" | sed -n 's/.*corp: \([0-9]*\).*/\1/p')
    echo "fuzz $t: $result, ${runs:-?} runs in ${seconds} s, coverage ${cov:-?} edges, ${ft:-?} features, corpus ${corp:-?}"
    if [ "${FUZZ_KEEP:-0}" = 1 ] && [ "$result" = ok ]; then
        env KEEL_DATA_PATH= "$build/fuzz/${t}_fuzzer" -merge=1 \
            -rss_limit_mb=4096 "$here/corpus/$t" "$build/corpus/$t" \
            >>"$log" 2>&1
    fi
done
exit $status
