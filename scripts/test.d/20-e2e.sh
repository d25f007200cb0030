#!/usr/bin/env bash
# End-to-end: the station simulator built in build/ against a strict CSMS
# (ocpp-rpc), every security profile included. Needs node and openssl.
source "$(dirname "$0")/../lib/common.sh"
cd "$ROOT"

ensure_npm_packages
command -v openssl >/dev/null || ensure_apt_packages <(echo openssl)

sim="${OCPP_STATION_SIM:-$ROOT/build/examples/station-sim/ocpp_station_sim}"
[ -x "$sim" ] || cmake --build build --target ocpp_station_sim

step "e2e: node --test tests/e2e (simulator $sim)"
OCPP_STATION_SIM="$sim" node --test --test-reporter=spec --test-concurrency=2 tests/e2e/*.test.mjs
