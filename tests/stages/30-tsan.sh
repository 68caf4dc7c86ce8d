# ThreadSanitizer: the module, the runtime and the threads tests.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
cmake -B "$prefix-tsan" -DQEL_THREAD_SANITIZE=ON -DQEL_BUILD_BENCH=OFF
cmake --build "$prefix-tsan" -j2 --target QELImaging CollectionsEx reliability_threads_test host_image_test
ctest --test-dir "$prefix-tsan" -R '^(ReliabilityThreads|ImageDIBSharing)\.' --output-on-failure
