#!/usr/bin/env bash
# Checks every Python file: format, style and types. The settings are in pyproject.toml and .flake8;
# the package has stricter ones of its own for types,
# and the tests of Dask, whose files have the names of others, have their own.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
status=0
black --quiet --check . || { black --check .; status=1; }
flake8 || status=1
mypy || status=1
(cd python && mypy) || status=1
(cd tests/dask && mypy) || status=1
exit "$status"
