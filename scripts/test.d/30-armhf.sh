#!/usr/bin/env bash
# Cross-builds the library and the unit tests for 32-bit ARM (armhf) and runs
# the tests under qemu-arm, so 32-bit faults (4-byte long and time_t) show up here.
source "$(dirname "$0")/../lib/common.sh"
cd "$ROOT"
start=$(date +%s)

step "armhf: host tools"
# The same three are in scripts/deps-apt.txt; naming them here lets the stage run alone.
ensure_apt_packages <(printf '%s\n' g++-arm-linux-gnueabihf qemu-user dpkg-dev)

step "armhf: sysroot"
SYSROOT="$(bash scripts/armhf-sysroot.sh | tail -n1)"
echo "sysroot: $SYSROOT"

# A build folder configured against another sysroot cannot be switched over in place.
if [ -f build-armhf/CMakeCache.txt ] &&
   ! grep -qx "OCPP_ARMHF_SYSROOT:PATH=$SYSROOT" build-armhf/CMakeCache.txt; then
    echo "build-armhf/ was configured for another sysroot; starting it afresh"
    rm -rf build-armhf
fi

step "armhf: build in build-armhf/"
cmake_build build-armhf -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchains/armhf.cmake" \
    -DOCPP_ARMHF_SYSROOT="$SYSROOT" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DOCPP_BUILD_EXAMPLES=OFF -DOCPP_BUILD_BENCH=OFF -DOCPP_SANITIZE=OFF

step "armhf: unit tests under qemu-arm"
# Under emulation a test may run ten times slower than natively; a test that
# fails on timing gets one more run, and a failure that repeats fails the stage.
(cd build-armhf && ctest -L unit --output-on-failure -j "$JOBS" --repeat until-pass:2)

lib="$(readlink -f build-armhf/libocppprotocol.so)"
stripped="$(mktemp)"
trap 'rm -f "$stripped"' EXIT
arm-linux-gnueabihf-strip -o "$stripped" "$lib"
bytes=$(stat -c %s "$stripped")
step "armhf: stripped $(basename "$lib") is $bytes bytes ($(( (bytes + 1023) / 1024 )) KiB); stage took $(( $(date +%s) - start )) s"
