#!/usr/bin/env bash
# A long fuzzing campaign by hand: scripts/fuzz.sh --minutes N [target...]
# The minutes are shared among the targets, run one after the other on one core.
# The corpora grow in build-fuzz/corpus/, crashes land in build-fuzz/crashes/; a
# crash worth keeping becomes a regression input in tests/fuzz/corpus/<target>/.
source "$(dirname "$0")/lib/common.sh"
cd "$ROOT"
source scripts/lib/fuzz.sh

minutes=10
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
        --minutes) minutes="$2"; shift 2 ;;
        -h|--help) sed -n '2,5p' "$0"; exit 0 ;;
        *) targets+=("$1"); shift ;;
    esac
done
[ ${#targets[@]} -gt 0 ] || targets=("${FUZZ_TARGETS[@]}")
ensure_apt_packages <(printf '%s\n' clang-14 libfuzzer-14-dev)
fuzz_build

seconds=$(( minutes * 60 / ${#targets[@]} ))
failed=0
summary="$FUZZ_DIR/campaign-$(date +%Y%m%d-%H%M%S).txt"
for target in "${targets[@]}"; do
    step "fuzz: $target for $seconds s"
    log="$FUZZ_DIR/campaign-$target.log"
    fuzz_run "$target" "$seconds" "$log" || { failed=1; echo "$target: crash, see build-fuzz/crashes/$target/"; }
    fuzz_summary "$target" "$log" | tee -a "$summary"
done
echo "summary: $summary"
exit $failed
