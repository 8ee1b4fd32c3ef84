#!/usr/bin/env bash
# Checks the format of every C++ file against .clang-format, and the comments, which it leaves
# alone.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
status=0
find src tests tools benchmarks \( -name '*.cpp' -o -name '*.h' \) -print0 |
    xargs -0 -P "$(nproc)" -n 40 clang-format-14 --dry-run -Werror || status=1
scripts/check_comments.py || status=1
exit "$status"
