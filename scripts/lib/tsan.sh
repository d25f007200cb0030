# ThreadSanitizer's run-time settings, shared by the TSan stage and by hand runs:
#   source scripts/lib/tsan.sh; $TSAN_RUN ctest --test-dir build-tsan
# Some kernels randomise the address space more than TSan's shadow layout allows
# (vm.mmap_rnd_bits above 28 gives "FATAL: ThreadSanitizer: unexpected memory
# mapping"): there every run goes through `setarch -R`, which children inherit.
export TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1 history_size=4 suppressions=$ROOT/tests/tsan.supp ${TSAN_OPTIONS:-}"
TSAN_RUN=""
tsan_probe() {
    local probe="$1"
    if "$probe" --gtest_list_tests >/dev/null 2>&1; then
        echo "tsan: runs as it is"
    elif setarch "$(uname -m)" -R "$probe" --gtest_list_tests >/dev/null 2>&1; then
        TSAN_RUN="setarch $(uname -m) -R"
        echo "tsan: address space randomisation off for the TSan runs (setarch -R)"
    else
        echo "tsan: $probe does not start, even with setarch -R:" >&2
        "$probe" --gtest_list_tests 2>&1 | tail -n 5 >&2
        return 1
    fi
}
