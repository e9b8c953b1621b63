#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks the formatting of every C++ file of ours, their licence lines, and who includes whom.
#   scripts/lint.sh [--fix]     --fix formats in place
set -euo pipefail
cd "$(dirname "$0")/.."

own_files() { find "$@" -path ./build -prune -o -type f \( -name '*.cpp' -o -name '*.hpp' \) -print0; }
folders=(datamodel formats planning assembly operation linked host tests benchmarks fuzz)
existing=()
for folder in "${folders[@]}"; do [ -d "$folder" ] && existing+=("$folder"); done

if [ "${1:-}" = --fix ]; then
  own_files "${existing[@]}" | xargs -0 clang-format-14 -i
  exit
fi

status=0
own_files "${existing[@]}" | xargs -0 clang-format-14 --dry-run --Werror || status=1
unlicensed=$(own_files "${existing[@]}" | xargs -0 grep -L -m1 '^// SPDX-License-Identifier: Apache-2.0$' || true)
if [ -n "$unlicensed" ]; then
  printf '%s: no licence line\n' $unlicensed >&2
  status=1
fi
python3 scripts/check_includes.py || status=1
exit $status
