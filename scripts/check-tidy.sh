#!/usr/bin/env bash
# Static analysis of every source file of the daemon and the tools (a test takes minutes, for the test library's
# headers). A file is checked again only when it or what it may include has changed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# A configuration of its own: one compiler's precompiled headers mean nothing to the other.
mkdir -p build/tidy/checked
cmake --preset linux -B build/tidy -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >build/tidy/configure.log

headers=$({ find src tools -name '*.h' -print0 | sort -z | xargs -0 cat; cat .clang-tidy; } | sha256sum)

check() {
    local file=$1 stamp
    stamp="build/tidy/checked/$(echo "$headers$(sha256sum "$file")" | sha256sum | cut -c1-32)"
    [ -e "$stamp" ] && return 0
    echo "  $file"
    clang-tidy-14 --quiet -p build/tidy "$file" 2>/dev/null && touch "$stamp"
}
export -f check
export headers

git ls-files --cached --others --exclude-standard 'src/*.cpp' 'tools/*.cpp' |
    grep -v '_windows\.cpp$' | xargs -P "$(nproc)" -I{} bash -c 'check {}'
