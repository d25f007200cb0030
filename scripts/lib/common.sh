# Shared by the set-up commands: logging and idempotent installs.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
JOBS="${JOBS:-$(nproc)}"
# ccache hits across clones of the tree at different paths.
export CCACHE_BASEDIR="$ROOT" CCACHE_NOHASHDIR=1

step() { printf '\n==> %s\n' "$*"; }

# Installs the Debian packages listed (one per line, # comments) that are missing.
ensure_apt_packages() {
    local list=() missing=() pkg
    while read -r pkg; do
        pkg="${pkg%%#*}"; pkg="$(echo "$pkg" | xargs)"
        [ -n "$pkg" ] && list+=("$pkg")
    done < "$1"
    for pkg in "${list[@]}"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        echo "apt packages: all ${#list[@]} present"
        return
    fi
    echo "apt packages missing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    # One index that fails (a mirror mid-sync, often a foreign architecture's)
    # must not stop installing from the others; a package that is really
    # missing still fails the install below.
    $sudo apt-get update -qq || echo "apt-get update reported errors; installing from the indexes it got"
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Node.js and npm: machines may already carry a Node.js with its own npm, which
# Debian's npm package would conflict with, so install only what is absent.
ensure_node() {
    local missing=()
    command -v node >/dev/null 2>&1 || missing+=(nodejs)
    command -v npm >/dev/null 2>&1 || missing+=(npm)
    if [ ${#missing[@]} -eq 0 ]; then
        echo "node $(node --version), npm $(npm --version)"
        return
    fi
    local list; list="$(mktemp)"
    printf '%s\n' "${missing[@]}" > "$list"
    ensure_apt_packages "$list"
    rm -f "$list"
}

# Installs the pinned npm packages when the lock file changed since the last install.
ensure_npm_packages() {
    [ -f "$ROOT/package.json" ] || return 0
    ensure_node
    local stamp="$ROOT/node_modules/.installed-lock"
    if [ -f "$stamp" ] && cmp -s "$stamp" "$ROOT/package-lock.json"; then
        echo "npm packages: up to date"
        return
    fi
    echo "npm packages: installing from package-lock.json"
    (cd "$ROOT" && npm ci --no-audit --no-fund --loglevel=error)
    cp "$ROOT/package-lock.json" "$stamp"
}

# Configures (once) and builds one CMake build folder.
cmake_build() {
    local dir="$1"; shift
    if [ ! -f "$dir/build.ninja" ]; then
        cmake -S "$ROOT" -B "$dir" -G Ninja "$@"
    fi
    cmake --build "$dir" -j "$JOBS"
}
