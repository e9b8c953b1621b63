#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Measures how far every stage is from its floor; docs/performance.md explains what comes out. Builds
# the benchmarks, runs them in a scratch folder and writes benchmarks/results/<date>-<commit>.txt,
# with one JSON object per measurement in the .jsonl file beside it.
#   ./bench.sh                 everything: an hour or more on two cores, some 25 GB of room
#   ./bench.sh --quick         small sizes: some minutes, to see that all is in order
#   ./bench.sh --only NAME     one program, such as split; repeatable
#   ./bench.sh --points N      synthetic surveys of N points instead of 10 and 40 million
#   ./bench.sh --laz FILE      storage and export for a cloud of your own as well
# BENCH_FOLDER: where the scratch folder is made [TMPDIR or /tmp]; /dev/shm keeps the disk out of it.
# The exit status is 1 when an answer was wrong or a measurement failed; a missed goal is neither.
set -euo pipefail
cd "$(dirname "$0")"

programs=(split memory storage selection copy plan link table scaling growth startup export text)
quick=false
only=()
points=()
laz=
usage() { sed -n '3,13s/^# \{0,1\}//p' "$0"; exit "$1"; }
while [ $# -gt 0 ]; do
  case $1 in
    --quick) quick=true ;;
    --only) [ $# -ge 2 ] || usage 2 >&2; only+=("$2"); shift ;;
    --points) [ $# -ge 2 ] || usage 2 >&2; points=("$2"); shift ;;
    --laz) [ $# -ge 2 ] || usage 2 >&2; laz=$(realpath -e "$2"); shift ;;
    -h|--help) usage 0 ;;
    *) printf 'bench.sh: unknown argument: %s\n' "$1" >&2; usage 2 >&2 ;;
  esac
  shift
done
for name in "${only[@]}"; do
  [[ " ${programs[*]} " == *" $name "* ]] || {
    printf 'bench.sh: --only: no such program, found %s, expected one of: %s\n' "$name" "${programs[*]}" >&2
    exit 2
  }
done
[ ${#only[@]} -eq 0 ] || programs=("${only[@]}")

[ -x .venv/bin/cmake ] && PATH="$PWD/.venv/bin:$PATH"
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)" --target refragment "${programs[@]/%/_benchmark}" >/dev/null

scratch=$(mktemp -d "${BENCH_FOLDER:-${TMPDIR:-/tmp}}/refragment-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

commit=$(git rev-parse --short HEAD 2>/dev/null || echo unknown)
dirty=$(git status --porcelain --untracked-files=no 2>/dev/null | grep -q . && echo "-dirty" || true)
name=$(date +%Y-%m-%d)-$commit$dirty
$quick && name+=-quick
[ ${#only[@]} -eq 0 ] || name+=$(printf -- '-%s' "${only[@]}")
mkdir -p benchmarks/results
text=benchmarks/results/$name.txt
json=benchmarks/results/$name.jsonl
: >"$text"
: >"$json"

header() {
  printf 'date         %s\n' "$(date '+%Y-%m-%d %H:%M %z')"
  printf 'commit       %s%s\n' "$commit" "$dirty"
  printf 'processor    %s\n' "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)"
  printf 'cores        %s\n' "$(nproc)"
  printf 'memory       %s\n' "$(awk '/^MemTotal/ {printf "%.1f GB", $2 / 1e6}' /proc/meminfo)"
  printf 'kernel       %s\n' "$(uname -sr)"
  printf 'file system  %s\n' "$(stat -f -c %T "$scratch")"
  printf 'load before  %s\n' "$(cut -d ' ' -f 1-3 /proc/loadavg)"
  if $quick; then printf 'sizes        quick: ratios of small sizes say little\n'; fi
}

status=0
run() {
  local program=$1
  shift
  "build/release/benchmarks/${program}_benchmark" --folder "$scratch" --results "$json" "$@" 2>&1 |
    tee -a "$text" || status=1
}

survey_points() { if [ ${#points[@]} -gt 0 ]; then echo "--points ${points[0]}"; fi; }

# measure PROGRAM: with the flags that fit the sizes asked for.
measure() {
  local flags=()
  if $quick; then
    case $1 in
      split) flags=(--points 500000 --repetitions 1) ;;
      memory|storage|scaling|startup|export|text) flags=(--points 500000 --repetitions 1) ;;
      selection) flags=(--points 2000000) ;;
      copy) flags=(--elements 2000000) ;;
      plan|growth) flags=(--quick --repetitions 1) ;;
      link) flags=(--tiles 1000 --repetitions 1) ;;
      table) flags=(--fragments 10000) ;;
    esac
    run "$1" "${flags[@]}"
  elif [ ${#points[@]} -gt 0 ]; then
    case $1 in
      split|memory|storage|scaling|startup|export|text|selection) flags=(--points "${points[0]}") ;;
    esac
    run "$1" "${flags[@]}"
  elif [ "$1" = split ]; then
    run split --points 10000000
    run split --points 40000000
  elif [ "$1" = selection ] || [ "$1" = copy ]; then
    # Milliseconds each; it takes some before the allocator serves them from the memory before.
    run "$1" --repetitions 10
  else
    run "$1"
  fi
  case $1 in storage|export) [ -z "$laz" ] || run "$1" --laz "$laz" ;; esac
}

header | tee -a "$text"
for program in "${programs[@]}"; do measure "$program"; done
printf '\n' | tee -a "$text"
python3 benchmarks/summarise.py "$json" | tee -a "$text"
printf '\n%s\n' "$text"
exit $status
