#!/usr/bin/env bash
# Static analysis of everything of ours that is C++ and compiled on Linux. The framework's headers are what takes
# the time, so the sources are checked a dozen at once, as a build in such batches would compile them. A batch is
# checked again only when one of its sources, or any header, has changed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Precompiled headers of one compiler mean nothing to the other. Batches of an earlier time may name sources that are gone.
mkdir -p build/tidy/checked
find build/tidy -name 'unity_*.cxx' -delete
cmake --preset linux -B build/tidy -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DCMAKE_UNITY_BUILD=ON \
    -DCMAKE_UNITY_BUILD_BATCH_SIZE=12 -DQUELTA_BUILD_BENCHMARKS=ON -DQUELTA_BUILD_FUZZERS=ON >build/tidy/configure.log

headers=$({ find src tools tests benchmarks -name '*.h' -print0 | sort -z | xargs -0 cat; cat .clang-tidy; } | sha256sum)

check() {
    local batch=$1 sources stamp
    sources=$(sed -n 's/^#include "\(.*\)"$/\1/p' "$batch")
    stamp="build/tidy/checked/$({ echo "$headers"; xargs cat <<<"$sources"; } | sha256sum | cut -c1-32)"
    [ -e "$stamp" ] && return 0
    sed "s|^$PWD/|  |" <<<"$sources"
    clang-tidy-14 --quiet --config-file=.clang-tidy -p build/tidy "$batch" 2>/dev/null && touch "$stamp"
}
export -f check
export headers

find build/tidy -name 'unity_*.cxx' -print0 | sort -z | xargs -0 -P "$(nproc)" -I{} bash -c 'check {}'
