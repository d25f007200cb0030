#!/usr/bin/env bash
# Installs what is missing, builds the library and runs every test suite.
source "$(dirname "$0")/lib/common.sh"
cd "$ROOT"
start=$(date +%s)

step "Dependencies"
ensure_apt_packages scripts/deps-apt.txt
ensure_npm_packages

step "Build (RelWithDebInfo) in build/"
cmake_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOCPP_BUILD_BENCH=ON

step "Tests (build/)"
(cd build && ctest --output-on-failure -j "$JOBS")

step "Build with AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/"
cmake_build build-asan -DCMAKE_BUILD_TYPE=Debug -DOCPP_SANITIZE=ON -DOCPP_BUILD_EXAMPLES=ON
step "Tests (build-asan/)"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --output-on-failure -j "$JOBS")

# Further stages (cross build, end-to-end) register as scripts/test.d/*.sh and run in name order.
for stage in scripts/test.d/*.sh; do
    [ -e "$stage" ] || continue
    step "Stage $(basename "$stage")"
    bash "$stage"
done

step "All tests passed in $(( $(date +%s) - start )) s"
