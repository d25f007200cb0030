#!/usr/bin/env python3
"""Writes a libFuzzer dictionary from the OCPP JSON schemas: every action name,
every member name and every enumeration text, plus the OCPP-J frame tokens."""
import json
import sys


def walk(node, words):
    if isinstance(node, dict):
        for value in node.get("enum", []):
            if isinstance(value, str):
                words.add(value)
        for name in node.get("properties", {}):
            words.add(name)
        for value in node.values():
            walk(value, words)
    elif isinstance(node, list):
        for value in node:
            walk(value, words)


def quote(word):
    out = []
    for ch in word.encode("utf-8"):
        if ch in (0x22, 0x5C) or ch < 0x20 or ch > 0x7E:
            out.append("\\x%02x" % ch)
        else:
            out.append(chr(ch))
    return '"' + "".join(out) + '"'


def main(argv):
    if len(argv) < 3:
        sys.stderr.write("usage: gen_fuzz_dict.py OUT.dict SCHEMA.json...\n")
        return 2
    words = set()
    for path in argv[2:]:
        with open(path, encoding="utf-8") as f:
            schemas = json.load(f)
        for schema in schemas:
            sid = schema.get("$id", "")
            action = sid.split(":", 1)[-1].split(".", 1)[0]
            for suffix in ("Request", "Response"):
                if action.endswith(suffix):
                    action = action[: -len(suffix)]
            if action:
                words.add(action)
            walk(schema, words)
    tokens = ['[2,"', '[3,"', '[4,"', '",', '":', '{}', '[]', 'null', 'true', 'false', '-1e999', '"\\u0000"']
    with open(argv[1], "w", encoding="utf-8") as out:
        for t in tokens:
            out.write(quote(t) + "\n")
        for w in sorted(words):
            out.write(quote(w) + "\n")
            out.write(quote('"' + w + '"') + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
