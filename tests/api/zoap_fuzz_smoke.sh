#!/usr/bin/env bash
# A short libFuzzer run of the Zoap fuzz target, for the test suite.
#   zoap_fuzz_smoke.sh --clang CC CXX SOURCE_DIR BUILD_DIR SECONDS
#       configures and builds a small clang build (-DTAVRO_FUZZ=ON, the
#       zoap_fuzz target and the libraries under it) in BUILD_DIR, then runs
#       the fuzzer there
#   zoap_fuzz_smoke.sh --binary FUZZER SOURCE_DIR WORK_DIR SECONDS
#       runs an already built fuzzer
# The corpus grown in WORK_DIR/zoap-corpus is kept for later runs; crashing
# inputs land in WORK_DIR/zoap-artifacts/.
set -euo pipefail

mode=${1:-}
shift || true
case "$mode" in
--clang)
  cc=$1 cxx=$2 src=$3 work=$4 seconds=$5
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
  if ! cmake --build "$work" --target zoap_fuzz --parallel "$jobs" >"$work/build.log" 2>&1; then
    tail -n 60 "$work/build.log"
    exit 1
  fi
  echo "zoap_fuzz built with $cxx in $(($(date +%s) - start)) s"
  fuzzer=$work/fuzz/zoap_fuzz
  ;;
--binary)
  fuzzer=$1 src=$2 work=$3 seconds=$4
  mkdir -p "$work"
  ;;
*)
  sed -n '2,10p' "$0" >&2
  exit 2
  ;;
esac

corpus=$work/zoap-corpus
artifacts=$work/zoap-artifacts
mkdir -p "$corpus" "$artifacts"
echo "running $fuzzer for $seconds s"
exec "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "$src/fuzz/corpus/zoap"
