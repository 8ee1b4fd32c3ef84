# shellcheck shell=bash disable=SC2034 # the lists are for the sourcing script
# Sourced by ./run, ./test and ./bench: installs missing Debian packages.

export DEBIAN_FRONTEND=noninteractive

build_packages=(
    g++ cmake ninja-build juce-modules-source-data zlib1g-dev libcli11-dev nlohmann-json3-dev
    libtomlplusplus-dev libboost1.81-dev
)
test_packages=(
    googletest python3 python3-pytest python3-pytest-xdist python3-pytest-asyncio python3-hypothesis
    python3-jsonschema python3-yaml iproute2 povray povray-includes prometheus
)
windows_packages=(
    g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 xvfb zip unzip locales
)
clang_packages=(clang libclang-rt-14-dev llvm)
lint_packages=(clang clang-format-14 clang-tidy-14 libspdlog-dev shellcheck black flake8 mypy)
farm_packages=(python3 python3-distributed python3-pil povray povray-includes)
blender_packages=(blender)
bench_packages=(libspdlog-dev python3)
page_packages=(chromium-headless-shell)
# A Node.js that is not Debian's brings its own npm, and conflicts with Debian's.
command -v npm >/dev/null 2>&1 || page_packages+=(nodejs npm)

apt_lock_limit=300 # seconds
apt_limit=3600

# apt_get LOG ARGUMENT...: waits while another apt or dpkg holds a lock, as on a machine that
# updates itself, and says so. The option DPkg::Lock::Timeout waits silently, and not for the lock
# of the package lists.
apt_get() {
    local log=$1 began=$SECONDS told=
    shift
    until "${as_root[@]}" env LC_ALL=C timeout --kill-after=60 "$apt_limit" apt-get "$@" >"$log" 2>&1; do
        grep -q '^E: Could not get lock' "$log" && [ $((SECONDS - began)) -lt "$apt_lock_limit" ] || return 1
        [ -n "$told" ] || sed -n "s/^E: \(Could not get lock .*\)/\1; waiting up to $apt_lock_limit s for it/p" "$log"
        told=yes
        sleep 2
    done
}

# need_packages NAME...: installs the missing ones through apt, which needs root or sudo.
need_packages() {
    local missing=() name
    for name in "$@"; do
        dpkg-query -W -f '${Status}' "$name" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null 2>&1 || ! sudo -n true 2>/dev/null; then
            echo "These Debian packages are missing, and this user may not install them:" >&2
            echo "  ${missing[*]}" >&2
            echo "Install them as root with: apt-get install ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo -n env DEBIAN_FRONTEND=noninteractive)
    fi

    echo "installing Debian packages: ${missing[*]}"
    local log
    log=$(mktemp)
    if ! apt_get "$log" update -qq || ! apt_get "$log" install -y -qq --no-install-recommends "${missing[@]}"; then
        echo "apt-get could not install them; its last words:" >&2
        tail -n 15 "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
