# AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer: every test
# again, then a short seeded run of the stress driver.
# Sanitizer reports end the program with a failure; leak checking is on.
# Every allocation up to 64 MiB starts filled with 0xbe, so a result that
# depends on memory nobody wrote shows up as a wrong byte.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1:max_malloc_fill_size=67108864"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:abort_on_error=1"
export LSAN_OPTIONS="report_objects=1"

cmake -B "$prefix-sanitize" -DQEL_SANITIZE=ON -DQEL_BUILD_BENCH=OFF
cmake --build "$prefix-sanitize" -j2
ctest --test-dir "$prefix-sanitize" --output-on-failure

step "stress run: seed $seed, $seconds s"
(cd "$prefix-sanitize" && ./tests/qel_stress --seed "$seed" --seconds "$seconds")
