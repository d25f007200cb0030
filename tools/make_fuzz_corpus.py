#!/usr/bin/env python3
"""Turns what scripts/fuzz-seeds.sh collected into the fuzz targets' seed corpora.

Only files named seed-* are replaced; regression inputs (crash-*, timeout-*, leak-*)
stay where they are."""
import json
import os
import re
import sys

STORES = ["variablecache.json", "VariableCharacteristicscache.json", "csmscfg.json", "reservation.json",
          "transactioncache.bin"]
MAX_FRAME = 64 * 1024
PER_ACTION = 2


def crc16_modbus(data):
    crc = 0xFFFF
    for b in data:
        crc ^= b
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc


def packet(command, payload, r0=0x12, r1=0x34):
    body = bytes([r0, r1]) + (len(payload) + 4).to_bytes(2, "big") + command.to_bytes(2, "big") + payload
    return bytes([0xFF, 0x6A, 0xA6]) + body + crc16_modbus(body).to_bytes(2, "big")


def reset(folder):
    os.makedirs(folder, exist_ok=True)
    for name in os.listdir(folder):
        if name.startswith("seed-"):
            os.remove(os.path.join(folder, name))


def write(folder, name, data):
    with open(os.path.join(folder, "seed-" + re.sub(r"[^A-Za-z0-9_.-]", "_", name)), "wb") as f:
        f.write(data)


def model_order(root):
    inc = os.path.join(root, "build", "generated", "models", "ModelTable.inc")
    with open(inc, encoding="utf-8") as f:
        return re.findall(r'^\{"(\w+)",', f.read(), re.M)


def main(work, out):
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    order = model_order(root)
    models = os.path.join(work, "models")

    folder = os.path.join(out, "model")
    reset(folder)
    frames = {}
    for name in sorted(os.listdir(models)):
        with open(os.path.join(models, name), "rb") as f:
            text = f.read()
        write(folder, name, bytes([order.index(name)]) + text)
        if name.endswith("Request"):
            frames.setdefault(name[: -len("Request")], []).append(text)

    capture = os.path.join(work, "e2e.txt")
    if os.path.exists(capture):
        with open(capture, "rb") as f:
            for line in f:
                line = line.rstrip(b"\n")
                try:
                    frame = json.loads(line)
                except ValueError:
                    continue
                if len(line) > MAX_FRAME or not isinstance(frame, list) or frame[:1] != [2]:
                    continue
                kept = frames.setdefault(frame[2], [])
                if len(kept) < PER_ACTION + 1 and line not in kept:
                    kept.append(line)
    folder = os.path.join(out, "frame")
    reset(folder)
    for action, texts in sorted(frames.items()):
        for i, text in enumerate(texts):
            write(folder, "%s-%d" % (action, i), text)

    folder = os.path.join(out, "store")
    reset(folder)
    for i, store in enumerate(STORES):
        path = os.path.join(work, "stores", store)
        if os.path.exists(path):
            with open(path, "rb") as f:
                write(folder, store, bytes([i]) + f.read())

    folder = os.path.join(out, "package")
    reset(folder)
    write(folder, "empty", packet(0x0001, b""))
    write(folder, "text", packet(0x0102, b"hello station"))
    write(folder, "record", packet(0x0A0B, bytes(range(256))))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
