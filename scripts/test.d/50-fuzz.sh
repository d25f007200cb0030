#!/usr/bin/env bash
# Every fuzz target for a short fixed budget (FUZZ_SECONDS each, 20 by default),
# seeded with tests/fuzz/corpus, whose regression inputs run first.
source "$(dirname "$0")/../lib/common.sh"
cd "$ROOT"
source scripts/lib/fuzz.sh
ensure_apt_packages <(printf '%s\n' clang-14 libfuzzer-14-dev)

step "fuzz: build in build-fuzz/"
fuzz_build
failed=0
for target in "${FUZZ_TARGETS[@]}"; do
    log="$FUZZ_DIR/fuzz-$target.log"
    if fuzz_run "$target" "${FUZZ_SECONDS:-20}" "$log"; then
        fuzz_summary "$target" "$log"
    else
        echo "fuzz: $target FAILED (inputs in build-fuzz/crashes/$target/)"
        grep -A 30 -m1 -E '^==[0-9]+==ERROR|runtime error|ALARM|deadly signal' "$log" || tail -n 30 "$log"
        failed=1
    fi
done
exit $failed
