#!/usr/bin/env bash
# Builds the library, runs the C host and the log-export host, then a local
# CSMS with the station simulator: boot, heartbeats, one variables round and
# one charging session.
source "$(dirname "$0")/lib/common.sh"
cd "$ROOT"

step "Dependencies"
ensure_apt_packages scripts/deps-apt.txt
ensure_npm_packages

step "Build in build/"
cmake_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo

cache="$(mktemp -d /tmp/ocpp-demo-XXXXXX)"
trap 'rm -rf "$cache"' EXIT

step "Run the C host with cache folder $cache"
build/examples/c-host/ocpp_c_host "$cache"

step "Run the demo host with cache folder $cache"
build/examples/demo-host/ocpp_demo_host "$cache"

step "Local CSMS and the station simulator"
OCPP_STATION_SIM="$ROOT/build/examples/station-sim/ocpp_station_sim" node examples/demo-csms/demo.mjs

step "Demo finished"
