# libFuzzer: each target (file readers, command line, module) for its share of 5 minutes under AddressSanitizer and UndefinedBehaviorSanitizer; any finding fails.
# QEL_FUZZ_SECONDS sets the whole budget (default 300). A longer run, by hand:
#   bash tests/fuzz/run.sh --seconds 36000
QEL_BUILD_PREFIX="$prefix" bash tests/fuzz/run.sh --seconds "${QEL_FUZZ_SECONDS:-300}"
