#!/usr/bin/env bash
# ThreadSanitizer: the library, every unit, component and fault test, and the
# end-to-end suite against the TSan-built station simulator. Any race fails it.
source "$(dirname "$0")/../lib/common.sh"
cd "$ROOT"
source scripts/lib/tsan.sh
start=$(date +%s)

step "tsan: build in build-tsan/"
cmake_build build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOCPP_TSAN=ON -DOCPP_BUILD_EXAMPLES=ON -DOCPP_BUILD_BENCH=OFF
tsan_probe build-tsan/tests/ocpp_unit_tests

step "tsan: unit, component and fault tests"
# No second chance: a race reported once fails the stage.
(cd build-tsan && $TSAN_RUN ctest --output-on-failure -j "$JOBS" --timeout 300)

step "tsan: end-to-end against build-tsan's simulator"
ensure_npm_packages
OCPP_STATION_SIM="$ROOT/build-tsan/examples/station-sim/ocpp_station_sim" \
    $TSAN_RUN node --test --test-reporter=spec --test-concurrency=2 tests/e2e/*.test.mjs
step "tsan: stage took $(( $(date +%s) - start )) s"
