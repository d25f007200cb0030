#!/usr/bin/env bash
# End-to-end: the station simulator against a strict CSMS (ocpp-rpc), every
# security profile included, once with the normal build and once with the
# sanitizer build. Needs node and openssl.
source "$(dirname "$0")/../lib/common.sh"
cd "$ROOT"

ensure_npm_packages
command -v openssl >/dev/null || ensure_apt_packages <(echo openssl)

run_suite() {
    local sim="$1"
    [ -x "$sim" ] || cmake --build "$(dirname "$(dirname "$(dirname "$sim")")")" --target ocpp_station_sim
    step "e2e: node --test tests/e2e (simulator $sim)"
    OCPP_STATION_SIM="$sim" node --test --test-reporter=spec --test-concurrency=2 tests/e2e/*.test.mjs
}

if [ -n "${OCPP_STATION_SIM:-}" ]; then
    run_suite "$OCPP_STATION_SIM"
    exit 0
fi
run_suite "$ROOT/build/examples/station-sim/ocpp_station_sim"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_suite "$ROOT/build-asan/examples/station-sim/ocpp_station_sim"
