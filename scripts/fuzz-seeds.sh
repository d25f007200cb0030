#!/usr/bin/env bash
# Makes the fuzz seed corpora in tests/fuzz/corpus/ again from what the tests
# produce: one valid frame of every message (the model property test), the frames
# a strict CSMS sent during the end-to-end suite, the stores the power-cut writer
# leaves, and a few bus packets. Needs build/ (normal build) with its tests built.
source "$(dirname "$0")/lib/common.sh"
cd "$ROOT"
ensure_npm_packages
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

step "seeds: one valid payload per message"
FUZZ_SEEDS="$work/models" MODEL_ROUNDTRIP="$ROOT/build/tests/model_roundtrip" OCPP_SOURCE_DIR="$ROOT" \
    node --test tests/model/property.test.mjs >/dev/null

step "seeds: frames a strict CSMS sends in the end-to-end suite"
OCPP_E2E_CAPTURE="$work/e2e.txt" node --test --test-concurrency=2 \
    $(ls tests/e2e/*.test.mjs | grep -v hostile) >/dev/null || echo "(an e2e test failed; its frames are kept anyway)"

step "seeds: store files"
for store in variablecache.json VariableCharacteristicscache.json csmscfg.json reservation.json transactioncache.bin; do
    mkdir -p "$work/stores"
    build/tests/store_writer "$work/stores" "$store" write > "$work/ready" &
    pid=$!
    while ! grep -q ready "$work/ready" 2>/dev/null; do sleep 0.05; done
    kill -9 "$pid"; wait "$pid" 2>/dev/null || true
done

python3 tools/make_fuzz_corpus.py "$work" tests/fuzz/corpus
du -sh tests/fuzz/corpus/*
