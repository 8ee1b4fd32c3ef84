#!/usr/bin/env bash
# Runs shellcheck on every shell script. .shellcheckrc has the settings.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
{
    find . -path ./build -prune -o -path ./.git -prune -o -name '*.sh' -print
    grep -rlIE -m1 --exclude-dir=build --exclude-dir=.git --exclude='*.py' '^#!.*\bsh$|^#!.*\bbash$' .
} | sort -u | xargs shellcheck
