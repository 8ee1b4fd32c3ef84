#!/usr/bin/env bash
# Runs the tests of the farm view's page in a headless Chromium. Screenshots go to
# build/page/screenshots.
#
# usage: scripts/page_tests.sh [TEST FILE...]      without files: all of them
#
# Failed tests are added to the file QUELTA_FAILURES.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
output=build/page
packages=$output/npm

# npm ci removes what it finds, so it runs only when the list of packages has changed.
install_packages() {
    cmp -s tests/page/package-lock.json "$packages/installed.json" && return
    mkdir -p "$packages" || return
    cp tests/page/package.json tests/page/package-lock.json tests/page/.npmrc "$packages" || return
    (cd "$packages" && npm ci --loglevel=error) || return
    cp tests/page/package-lock.json "$packages/installed.json"
}

install_packages || exit
cmake -D OUTPUT="$output" -P tools/farm_view/page/BuildPage.cmake || exit

files=("$@")
[ $# -gt 0 ] || files=(tests/page/*.test.mjs)
QUELTA_BIN_DIR=${QUELTA_BIN_DIR:-$PWD/build/linux/bin} node --test --test-concurrency=4 "${files[@]}" |
    tee "$output/page_tests.log"
status=$?
[ "$status" -eq 0 ] || grep -ao '^ *not ok [0-9]* - .*' "$output/page_tests.log" |
    sed 's/^ *not ok [0-9]* - /page: /' | head -n 20 >>"${QUELTA_FAILURES:-/dev/null}"
exit "$status"
