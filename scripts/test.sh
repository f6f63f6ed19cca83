#!/usr/bin/env bash
# Runs every test of vidora: C++ units under ctest (Release, then ASan+UBSan), the JavaScript
# surface with node's test runner (against the Release addon, then the sanitized one), and
# the type check of index.d.ts. Ends with one summary line.
set -u
cd "$(dirname "$0")/.."
root=$(pwd)
# shellcheck source=scripts/test_deps.sh
source scripts/test_deps.sh
jobs=$(nproc)
passed=0
failed=0
failures=()

step() {
  local name=$1
  shift
  echo
  echo "==== $name"
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    failures+=("$name")
  fi
}

build() {
  local dir=$1
  shift
  cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DVIDORA_BUILD_TESTS=ON "$@" >/dev/null &&
    cmake --build "$dir" --parallel "$jobs"
}

js_tests() {
  node --test --test-concurrency=1 --test-timeout=600000 test/*.test.js
}

sanitized_js_tests() {
  # node itself is not instrumented: the sanitizer runtimes are preloaded for the addon.
  local asan ubsan
  asan=$(gcc -print-file-name=libasan.so)
  ubsan=$(gcc -print-file-name=libubsan.so)
  VIDORA_ADDON_PATH="$root/build-sanitize/vidora.node" VIDORA_SANITIZED=1 \
    LD_PRELOAD="$asan $ubsan" ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 \
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    node --test --test-concurrency=1 --test-timeout=600000 test/*.test.js
}

fuzz_smoke() {
  # The parsers' libFuzzer targets, built with clang and each run briefly from its seeds
  # (fuzz/seeds/<name>/, made by fuzz/make_seeds.sh) with its dictionary (fuzz/<name>.dict).
  # libFuzzer adds the inputs it finds to its first corpus directory: a temporary copy of the
  # seeds, so that the tree stays as it is. VIDORA_FUZZ_SECONDS sets the time per target.
  if ! command -v clang++ >/dev/null; then
    echo "clang++ not found: fuzz targets not built"
    return 1
  fi
  CC=clang CXX=clang++ cmake -S "$root" -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVIDORA_BUILD_FUZZ=ON -DVIDORA_BUILD_TESTS=OFF -DVIDORA_BUILD_ADDON=OFF >/dev/null || return 1
  local targets
  targets=$(cd fuzz && ls *_fuzzer.cc | sed 's/\.cc$//')
  # shellcheck disable=SC2086
  cmake --build build-fuzz --parallel "$jobs" --target $targets || return 1
  local target name corpus status options
  for target in $targets; do
    name=${target%_fuzzer}
    corpus=$(mktemp -d)
    [ -d "fuzz/seeds/$name" ] && cp -R "fuzz/seeds/$name/." "$corpus"
    # A crashing input lands in fuzz/ (crash-<sha1>), where git ignores it; an input that
    # takes 20 s (a hang: inputs run in milliseconds) fails the run instead of stalling it.
    options=(-max_total_time="${VIDORA_FUZZ_SECONDS:-10}" -timeout=20 -artifact_prefix=fuzz/)
    [ -f "fuzz/$name.dict" ] && options+=(-dict="fuzz/$name.dict")
    echo "-- $target"
    "build-fuzz/fuzz/$target" "${options[@]}" "$corpus" >"$corpus.log" 2>&1
    status=$?
    # The last status line: edges covered, corpus size, executions per second.
    grep -E '^#[0-9]+[[:space:]]+DONE' "$corpus.log" || tail -n 1 "$corpus.log"
    [ "$status" -eq 0 ] || tail -n 40 "$corpus.log"
    rm -rf "$corpus" "$corpus.log"
    [ "$status" -eq 0 ] || return 1
  done
}

step "build (Release, with the benchmarks)" build build -DVIDORA_BUILD_BENCH=ON
step "C++ tests (Release)" ctest --test-dir build --output-on-failure -j "$jobs"
step "JavaScript tests" js_tests
step "type check of index.d.ts" npx --no-install tsc -p test/types
step "build (ASan+UBSan)" build build-sanitize -DVIDORA_SANITIZE=address,undefined
step "C++ tests (ASan+UBSan)" ctest --test-dir build-sanitize --output-on-failure -j "$jobs"
step "JavaScript tests (ASan+UBSan)" sanitized_js_tests
step "fuzz targets (clang, short runs)" fuzz_smoke

echo
for name in "${failures[@]}"; do echo "FAILED: $name"; done
echo "summary: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
