#!/usr/bin/env python3
"""Every entry the public headers declare is exported by the shared library,
and nothing of the library's internals is."""
import re
import subprocess
import sys

lib, include_dir = sys.argv[1], sys.argv[2]
import glob

declared = set()
for header in glob.glob(include_dir + "/*.h"):
    text = "\n".join(l for l in open(header, encoding="utf-8").read().splitlines()
                     if not l.lstrip().startswith("#"))
    for m in re.finditer(r"OCPP_API\s+[\w\s\*]*?\b(\w+)\s*\(", text):
        declared.add(m.group(1))

out = subprocess.run(["nm", "-D", "--defined-only", lib], check=True, capture_output=True, text=True).stdout
exported = {line.split()[-1] for line in out.splitlines() if line.strip()}
demangled = subprocess.run(["nm", "-DC", "--defined-only", lib], check=True, capture_output=True, text=True).stdout

missing = sorted(d for d in declared if d not in exported)
allowed = re.compile(r"^(Ocpp\w+|LibDbus_\w+|CWebSocketServer::.*)$")
leaked = []
for line in demangled.splitlines():
    parts = line.split(None, 2)
    if len(parts) == 3 and not allowed.match(parts[2]):
        leaked.append(parts[2])

for name in missing:
    print(f"declared in a public header but not exported: {name}")
for name in leaked:
    print(f"internal symbol exported: {name}")
print(f"{len(declared)} public entries declared, {len(exported)} symbols exported")
sys.exit(1 if missing or leaked else 0)
