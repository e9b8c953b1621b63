#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what is missing, builds everything and runs all tests: ctest, then pytest, whose own
# summaries come last. The exit status is 0 only if both passed.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install_dependencies.sh
PATH="$PWD/.venv/bin:$PATH"

cmake --preset dev
cmake --build --preset dev --parallel "$(nproc)"

status=0
ctest --preset dev --parallel "$(nproc)" --timeout 600 || status=1
REFRAGMENT="$PWD/build/dev/host/refragment" .venv/bin/python -m pytest -q tests/python || status=1
exit $status
