#!/usr/bin/env bash
# Builds the armhf sysroot that the cross build compiles, links and runs its
# tests against, from Debian 12 armhf packages downloaded and unpacked (never
# installed through multiarch, so the host's own package versions do not
# matter). The result is cached outside the tree, keyed by the package list and
# this script, so a second run on the same machine returns at once.
#
# Usage: scripts/armhf-sysroot.sh        prints the sysroot's path as its last line
# Environment: OCPP_ARMHF_CACHE           cache folder (/var/cache/ocppprotocol/armhf-sysroot)
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
LIST="$HERE/armhf-packages.txt"
CACHE="${OCPP_ARMHF_CACHE:-/var/cache/ocppprotocol/armhf-sysroot}"
KEY="$(cat "$LIST" "${BASH_SOURCE[0]}" | sha256sum | cut -c1-16)"
SYSROOT="$CACHE/$KEY"

say() { echo "armhf-sysroot: $*" >&2; }

if [ -f "$SYSROOT/.complete" ]; then
    say "cached at $SYSROOT"
    echo "$SYSROOT"
    exit 0
fi

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo mkdir -p "$CACHE"
$sudo chown "$(id -u):$(id -g)" "$CACHE"

# Two builds on one machine (a developer and CI) must not race on the cache.
exec 9>"$CACHE/.lock"
flock 9
if [ -f "$SYSROOT/.complete" ]; then
    say "built meanwhile at $SYSROOT"
    echo "$SYSROOT"
    exit 0
fi

started=$(date +%s)

# apt only downloads armhf packages once it knows the architecture's index.
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    say "adding the armhf architecture to dpkg"
    $sudo dpkg --add-architecture armhf
fi
if ! apt-cache show --no-all-versions libc6:armhf >/dev/null 2>&1; then
    say "fetching the armhf package index"
    # A mirror that is mid-sync fails one index but leaves the others usable.
    $sudo apt-get update -qq >&2 || say "apt-get update reported errors; going on with the indexes it got"
    apt-cache show --no-all-versions libc6:armhf >/dev/null 2>&1 || { say "no armhf package index"; exit 1; }
fi

# The named packages plus every armhf library they need at run or link time.
# Each pass asks apt about a whole level of the dependency tree at once.
resolved="$(python3 - "$LIST" <<'PY'
import re, subprocess, sys

def stanzas(names, qualifier):
    if not names:
        return {}
    out = subprocess.run(["apt-cache", "show", "--no-all-versions"] + [n + qualifier for n in names],
                         capture_output=True, text=True).stdout
    found = {}
    for block in out.split("\n\n"):
        fields, key = {}, None
        for line in block.splitlines():
            if line[:1] in (" ", "\t") and key:
                fields[key] += " " + line.strip()
            elif ":" in line:
                key, value = line.split(":", 1)
                fields[key] = value.strip()
        if "Package" in fields and fields.get("Architecture") in ("armhf", "all"):
            found.setdefault(fields["Package"], fields)
    return found

def lookup(names):
    found = stanzas(names, ":armhf")
    found.update(stanzas([n for n in names if n not in found], ""))
    return found

named = []
with open(sys.argv[1]) as f:
    for line in f:
        line = line.split("#", 1)[0].strip()
        if line:
            named.append(line)

known, order, level = {}, [], list(dict.fromkeys(named))
while level:
    info = lookup([n for n in level if n not in known])
    known.update(info)
    missing = [n for n in level if n in named and n not in known]
    if missing:
        sys.exit("no armhf candidate for: " + " ".join(missing))
    alternatives = []
    for name in level:
        fields = known.get(name)
        if fields is None or name in order:
            continue
        tool_or_data = fields.get("Architecture") == "all" or fields.get("Multi-Arch") == "foreign"
        if tool_or_data and name not in named:
            continue
        order.append(name)
        deps = ", ".join(fields.get(k, "") for k in ("Pre-Depends", "Depends"))
        for group in filter(None, (g.strip() for g in deps.split(","))):
            alternatives.append([re.sub(r"\(.*?\)|\[.*?\]|<.*?>", "", a).strip().split(":")[0]
                                 for a in group.split("|")])
    # The first alternative apt knows a real package for wins.
    known.update(lookup(sorted({a for alts in alternatives for a in alts if a not in known})))
    nxt = []
    for alts in alternatives:
        pick = next((a for a in alts if a in known), None)
        if pick and pick not in order and pick not in nxt:
            nxt.append(pick)
    level = nxt
for name in order:
    print(name + ("" if known[name].get("Architecture") == "all" else ":armhf"))
PY
)"
mapfile -t PACKAGES <<<"$resolved"
say "${#PACKAGES[@]} packages"

work="$(mktemp -d "$CACHE/.build.XXXXXX")"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/debs" "$work/root"
# apt's unprivileged download user must be able to write there.
chmod 755 "$work"; chmod 777 "$work/debs"
(cd "$work/debs" && apt-get download -q "${PACKAGES[@]}" >&2)

for deb in "$work"/debs/*.deb; do
    dpkg -x "$deb" "$work/root"
    dpkg-deb -W --showformat='${Package} ${Version} ${Architecture}\n' "$deb" >>"$work/root/.packages"
done

# Absolute links point into the host once the tree is moved; make them relative.
root="$work/root"
while IFS= read -r -d '' link; do
    target="$(readlink "$link")"
    case "$target" in
        /*) ln -sfn "$(realpath -s -m --relative-to="$(dirname "$link")" "$root$target")" "$link" ;;
    esac
done < <(find "$root" -type l -print0)

touch "$root/.complete"
rm -rf "$SYSROOT"
mv "$root" "$SYSROOT"
ln -sfn "$KEY" "$CACHE/current"
say "built $SYSROOT in $(( $(date +%s) - started )) s ($(du -sh "$SYSROOT" | cut -f1))"
echo "$SYSROOT"
