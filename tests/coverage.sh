#!/usr/bin/env bash
# Line and branch coverage of the module, the runtime and the qel tool from
# the whole test suite: builds with gcc's --coverage in its own folder, runs
# every test through CTest, then the path harness and the digests again under
# each narrower QEL_SIMD cap, and reports each part with gcovr.
#
#   bash tests/coverage.sh              summaries of the three parts
#   bash tests/coverage.sh --details    also every file, with its uncovered lines
#
# Settings (environment):
#   QEL_BUILD_PREFIX   build folder prefix (default "build": the folder is build-coverage)
# Leaves <folder>/coverage.json (every part, for gcovr --add-tracefile),
# <folder>/coverage-{module,runtime,tool}.txt (per file, uncovered lines
# listed) and <folder>/module-lines.txt (the module's line coverage in percent).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${QEL_BUILD_PREFIX:-build}-coverage"
details=0
[[ "${1:-}" == "--details" ]] && details=1

# gcovr comes from Debian; install it when missing (as root, like the build does).
command -v gcovr >/dev/null || bash tests/install_packages.sh gcovr

# -O0 keeps every source line its own so that the counts read true; the
# threads tests call the same code at once, so the counters are updated
# atomically (racing updates gave gcov negative branch counts it cannot parse).
cmake -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" -DQEL_BUILD_BENCH=OFF -DQEL_BUILD_PYTHON=OFF >/dev/null
cmake --build "$build" -j2
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j2 --output-on-failure
# The suite ran with the widest tier this processor has; the narrower tiers'
# lines run only when capped, so the path harness and the digests run again
# under each cap, two programs at a time, before the counts are read.
for cap in avx2 ssse3 sse2; do printf '%s paths_test\0%s digest_test\0' "$cap" "$cap"; done |
  (cd "$build" && xargs -0 -n1 -P2 sh -c 'set -- $1; QEL_SIMD=$1 "./tests/$2" --gtest_brief=1 >/dev/null ||
     { echo "coverage: $2 failed under QEL_SIMD=$1" >&2; exit 255; }' run)

# One pass over the counts; each part is then a filter on the tracefile.
# Branches the compiler adds for exceptions and ones it proved unreachable
# are not the code's own decisions, so they are left out.
gcovr --root . --object-directory "$build" -j 2 --exclude-throw-branches --exclude-unreachable-branches \
      --exclude-directories "$build/CMakeFiles/[0-9.]+" \
      --filter '(module|image|color|transform|filter|maths|host|tools)/' --json "$build/coverage.json"
# Each part's summary here; its file-by-file table, with the uncovered lines
# of every file, in <folder>/coverage-<part>.txt.
report() {
  local part=$1 title=$2 filter=$3
  printf '\n---- %s\n' "$title"
  local summary
  summary=$(gcovr --add-tracefile "$build/coverage.json" --root . --filter "$filter" --print-summary \
            --output "$build/coverage-$part.txt")
  echo "$summary"
  [[ $part == module ]] && sed -n 's/^lines: *\([0-9.]*\)%.*/\1/p' <<<"$summary" >"$build/module-lines.txt"
  (( details )) && cat "$build/coverage-$part.txt"
  return 0
}
report module "module (module/ image/ color/ transform/ filter/ maths/)" '(module|image|color|transform|filter|maths)/'
report runtime "runtime (host/)" 'host/'
report tool "qel tool (tools/)" 'tools/'
