# Builds the libFuzzer targets (clang-14, ASan and UBSan) in build-fuzz/ and runs them.
FUZZ_TARGETS=(frame model store package)
FUZZ_DIR="$ROOT/build-fuzz"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$ROOT/tests/fuzz/ubsan.supp:${UBSAN_OPTIONS:-}"

fuzz_build() {
    if [ ! -f "$FUZZ_DIR/build.ninja" ]; then
        CC=clang-14 CXX=clang++-14 cmake -S "$ROOT" -B "$FUZZ_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DOCPP_FUZZ=ON -DOCPP_BUILD_TESTS=OFF -DOCPP_BUILD_EXAMPLES=OFF -DOCPP_BUILD_BENCH=OFF
    fi
    cmake --build "$FUZZ_DIR" -j "$JOBS"
}

# fuzz_run TARGET SECONDS LOG: the repository's corpus is read, new inputs go to
# build-fuzz/corpus/TARGET, a crash to build-fuzz/crashes/TARGET/. Non-zero on any
# crash, leak, undefined behaviour or input that takes longer than 10 s.
fuzz_run() {
    local target="$1" seconds="$2" log="$3"
    local work="$FUZZ_DIR/corpus/$target" crashes="$FUZZ_DIR/crashes/$target"
    mkdir -p "$work" "$crashes"
    # A store's file holds the whole device model; a frame or a record is smaller.
    local maxLen=65536
    [ "$target" = store ] && maxLen=262144
    "$FUZZ_DIR/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len="$maxLen" -dict="$FUZZ_DIR/fuzz/ocpp.dict" -artifact_prefix="$crashes/" -print_final_stats=1 \
        "$work" "$ROOT/tests/fuzz/corpus/$target" >"$log" 2>&1
}

# One line per run: executions, coverage, features, corpus size.
fuzz_summary() {
    local target="$1" log="$2"
    local runs cov ft corp
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n1)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n1 | cut -d' ' -f2)
    ft=$(grep -o 'ft: [0-9]*' "$log" | tail -n1 | cut -d' ' -f2)
    corp=$(grep -o 'corp: [0-9]*' "$log" | tail -n1 | cut -d' ' -f2)
    printf '%-8s %12s executions  cov %6s  ft %7s  corpus %6s\n' "$target" "${runs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}"
}
