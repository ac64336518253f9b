#!/usr/bin/env bash
# A short libFuzzer run of one fuzz target, for the test suite.
#   fuzz-smoke.sh --clang CC CXX SOURCE_DIR BUILD_DIR SECONDS TARGET
#       configures and builds a small clang build (-DTAVRO_FUZZ=ON, the target
#       and the libraries under it) in BUILD_DIR, then runs the fuzzer there;
#       several targets share one BUILD_DIR, so later runs only link
#   fuzz-smoke.sh --binary FUZZER SOURCE_DIR WORK_DIR SECONDS TARGET
#       runs an already built fuzzer
# TARGET is e.g. mdns_fuzz; its seeds are SOURCE_DIR/fuzz/corpus/mdns. The
# corpus grown in WORK_DIR/mdns-corpus is kept for later runs; crashing inputs
# land in WORK_DIR/mdns-artifacts/.
set -euo pipefail

mode=${1:-}
shift || true
case "$mode" in
--clang)
  cc=$1 cxx=$2 src=$3 work=$4 seconds=$5 target=$6
  mkdir -p "$work"
  # The nested build must not pick up flags meant for the outer one.
  unset CFLAGS CXXFLAGS LDFLAGS CPPFLAGS CC CXX
  if ! cmake -S "$src" -B "$work" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRO_FUZZ=ON -DTAVRO_SANITIZE= \
      -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_BENCH=OFF -DTAVRO_BUILD_GUI=OFF \
      >"$work/configure.log" 2>&1; then
    cat "$work/configure.log"
    exit 1
  fi
  jobs=$(nproc 2>/dev/null || echo 2)
  start=$(date +%s)
  if ! cmake --build "$work" --target "$target" --parallel "$jobs" >"$work/build-$target.log" 2>&1; then
    tail -n 60 "$work/build-$target.log"
    exit 1
  fi
  echo "$target built with $cxx in $(($(date +%s) - start)) s"
  fuzzer=$work/fuzz/$target
  ;;
--binary)
  fuzzer=$1 src=$2 work=$3 seconds=$4 target=$5
  mkdir -p "$work"
  ;;
*)
  sed -n '2,12p' "$0" >&2
  exit 2
  ;;
esac

name=${target%_fuzz}
corpus=$work/$name-corpus
artifacts=$work/$name-artifacts
mkdir -p "$corpus" "$artifacts"
echo "running $fuzzer for $seconds s"
exec "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "$src/fuzz/corpus/$name"
