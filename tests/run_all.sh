#!/usr/bin/env bash
# The whole test suite, as CI runs it, from the repository root:
#   1. the normal build and every test;
#   2. a build with AddressSanitizer, UndefinedBehaviorSanitizer and
#      LeakSanitizer, every test again, then a short seeded stress run;
#   3. a ThreadSanitizer build of the module, the runtime and the threads tests.
# Any test failure or sanitizer report stops the script with a failure.
#
# Settings (environment):
#   QEL_BUILD_PREFIX     build folder prefix (default "build": build, build-sanitize, build-tsan)
#   QEL_STRESS_SEED      seed of the stress run (default 1)
#   QEL_STRESS_SECONDS   length of the stress run in seconds (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."

prefix="${QEL_BUILD_PREFIX:-build}"
seed="${QEL_STRESS_SEED:-1}"
seconds="${QEL_STRESS_SECONDS:-60}"

step() { printf '\n==== %s (%s)\n' "$1" "$(date +%T)"; }

step "normal build and tests"
cmake -B "$prefix" && cmake --build "$prefix" -j2 && ctest --test-dir "$prefix" --output-on-failure

# Sanitizer reports end the program with a failure; leak checking is on.
# Every allocation up to 64 MiB starts filled with 0xbe, so a result that
# depends on memory nobody wrote shows up as a wrong byte.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1:max_malloc_fill_size=67108864"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:abort_on_error=1"
export LSAN_OPTIONS="report_objects=1"

step "AddressSanitizer and UndefinedBehaviorSanitizer build and tests"
cmake -B "$prefix-sanitize" -DQEL_SANITIZE=ON -DQEL_BUILD_BENCH=OFF
cmake --build "$prefix-sanitize" -j2
ctest --test-dir "$prefix-sanitize" --output-on-failure

step "stress run: seed $seed, $seconds s"
(cd "$prefix-sanitize" && ./tests/qel_stress --seed "$seed" --seconds "$seconds")

step "ThreadSanitizer build and threads tests"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
cmake -B "$prefix-tsan" -DQEL_THREAD_SANITIZE=ON -DQEL_BUILD_BENCH=OFF
cmake --build "$prefix-tsan" -j2 --target QELImaging CollectionsEx reliability_threads_test host_image_test
ctest --test-dir "$prefix-tsan" -R '^(ReliabilityThreads|ImageDIBSharing)\.' --output-on-failure

step "all passed"
