#!/usr/bin/env bash
# Runs clang-tidy on every C++ source that is compiled on Linux. Checks a source again only if it,
# any header or the settings have changed. The static analyzer's checks, two thirds of the time, are
# for what is shipped: the tests run under the sanitizers instead.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/build.sh

configure_preset tidy
mkdir -p build/tidy/checked
shared=$({
    find src tools tests benchmarks -name '*.h' -print0 | sort -z | xargs -0 cat
    cat .clang-tidy CMakePresets.json
} | sha256sum)

check() {
    local source=$1 stamp checks=
    stamp=build/tidy/checked/$({ echo "$shared $source"; cat "$source"; } | sha256sum | cut -c1-32)
    [ -e "$stamp" ] && return 0
    echo "  $source"
    [[ $source != tests/* ]] || checks='-clang-analyzer-*'
    clang-tidy-14 --quiet --config-file=.clang-tidy --checks="$checks" -p build/tidy "$source" 2>/dev/null && touch "$stamp"
}
export -f check
export shared

sed -n "s|^ *\"file\": \"$PWD/\(.*\)\"$|\1|p" build/tidy/compile_commands.json | grep -v '^build/' |
    sort -ru | xargs -P "$(nproc)" -I{} bash -c 'check {}'
