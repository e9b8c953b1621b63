#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows what the program does: builds it, then splits the given LAS, LAZ or bundle files into tiles
# below demo/; without files, a made-up survey of about five million points. Stopped with Ctrl-C or
# run again, it goes on with the tiles that are there.
#   ./demo.sh [FILE...]
set -euo pipefail

inputs=()
for file in "$@"; do inputs+=("$(realpath "$file")"); done
cd "$(dirname "$0")"

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
[ -t 1 ] && [ -z "${NO_COLOR:-}" ] || say() { printf '\n%s\n' "$*"; }

# quietly LOG COMMAND...: shows the log only when the command fails.
quietly() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }
}

scripts/install_dependencies.sh --no-tests
[ -x .venv/bin/cmake ] && PATH="$PWD/.venv/bin:$PATH"
mkdir -p build demo
say "Building (some minutes the first time)"
quietly build/demo-configure.log \
  cmake --preset release -B build/demo -DLIDARLIB_BUILD_TESTS=OFF -DLIDARLIB_BUILD_BENCHMARKS=OFF
quietly build/demo-build.log \
  cmake --build build/demo --parallel "$(nproc)" --target refragment
refragment=build/demo/host/refragment

# Tiles enough to see something, whatever the size of the input.
bytes=$(du -cb "${inputs[@]:-/dev/null}" | awk 'END {print $1}')
per_tile=$((bytes / 200))
[ "$per_tile" -ge 5000 ] || per_tile=5000
[ "$per_tile" -le 2000000 ] || per_tile=2000000

if [ ${#inputs[@]} -eq 0 ]; then
  inputs=(demo/survey.las)
  per_tile=200k
  if [ ! -f demo/survey.las ]; then
    say "A survey to work on: $refragment synth -o demo/survey.las"
    "$refragment" synth -o demo/survey.las --points 5M --seed 7
  fi
fi
name=$(basename "${inputs[0]}")
output=demo/${name%.*}.f5
split=("$refragment" split "${inputs[@]}" -o "$output" --points-per-tile "$per_tile")

say "The plan: $refragment info ${inputs[*]} --points-per-tile $per_tile"
"$refragment" info "${inputs[@]}" --points-per-tile "$per_tile"

say "The split: ${split[*]}"
"${split[@]}"

say "What came out: $refragment show $output"
"$refragment" show "$output"

say "All there? $refragment verify $output"
"$refragment" verify "$output"

cat <<TEXT

Try next:
  ./demo.sh ${*@Q}
      the same again: the tiles are kept, it ends in a moment
  $refragment split ${inputs[*]} -o demo/overlap.f5 --points-per-tile $per_tile --overlap 0.1
      tiles that reach into their neighbours
  $refragment show $output --all
      every tile; docs/user-guide.md tells all that the program can do
TEXT
