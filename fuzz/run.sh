#!/usr/bin/env bash
# Builds the fuzz targets with clang into build-fuzz and runs each of them.
#
#   fuzz/run.sh [SECONDS] [TARGET...]
#
# SECONDS is the time per target (default 60); without TARGETs every
# fuzz_*.cpp runs. New inputs collect in build-fuzz/corpus/<target>, seeded
# from fuzz/corpus/<target>. MERGE=1 folds what was found back into
# fuzz/corpus/<target>, minimised. fuzz/<target>.dict, where there is one,
# gives the fuzzer the tokens of its format. A crash leaves its input in
# build-fuzz/artifacts/<target>/ and fails the script. FUZZ_BUILD names
# another build folder.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="${FUZZ_BUILD:-$root/build-fuzz}"
seconds=${1:-60}
shift || true

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in "$root"/fuzz/fuzz_*.cpp; do
    targets+=("$(basename "$source" .cpp)")
  done
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DVYRAX_BUILD_FUZZ=ON -DVYRAX_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"${JOBS:-2}" --target "${targets[@]}"

status=0
for target in "${targets[@]}"; do
  seeds="$root/fuzz/corpus/$target"
  work="$build/corpus/$target"
  artifacts="$build/artifacts/$target"
  mkdir -p "$seeds" "$work" "$artifacts"
  options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096
           -print_final_stats=1 -artifact_prefix="$artifacts/")
  if [ -f "$root/fuzz/$target.dict" ]; then
    options+=(-dict="$root/fuzz/$target.dict")
  fi
  echo "== $target: ${seconds}s"
  if ! "$build/bin/$target" "${options[@]}" "$work" "$seeds"; then
    echo "== $target: FAILED, see $artifacts" >&2
    status=1
    continue
  fi
  if [ "${MERGE:-0}" = 1 ]; then
    "$build/bin/$target" -merge=1 -max_len=4096 "$seeds" "$work"
  fi
done
exit $status
