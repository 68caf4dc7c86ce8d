#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in <prefix>-fuzz and runs each one
# for its share of a time budget, starting from the seeds in corpus/<target>/
# (plus what earlier runs in the same build folder found). Prints each
# target's executions and coverage; any finding (crash, leak, sanitizer
# report, timeout, failed check) fails the script and leaves the input in
# <prefix>-fuzz/fuzz/findings/.
#
#   bash tests/fuzz/run.sh                    every target, 300 s in all
#   bash tests/fuzz/run.sh --seconds 36000    a long run (ten hours in all)
#   bash tests/fuzz/run.sh --only read_png    targets whose names match
#   ./build-fuzz/fuzz/fuzz_read_png crash-... one input again (from build-fuzz)
#
# Settings (environment): QEL_BUILD_PREFIX (default "build").
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
build="${QEL_BUILD_PREFIX:-build}-fuzz"
seconds=300
only=.
while (( $# )); do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    *) echo "usage: run.sh [--seconds TOTAL] [--only PATTERN]" >&2; exit 2 ;;
  esac
done

# Debian's clang and its fuzzer runtime, installed when missing (as root).
fuzzer_runtime() { ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1; }
command -v clang++ >/dev/null && fuzzer_runtime || bash tests/install_packages.sh clang libclang-rt-14-dev

CC=clang CXX=clang++ cmake -B "$build" -DQEL_FUZZ=ON -DQEL_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j2 --target qel_fuzz

cd "$build"
mkdir -p fuzz/work fuzz/findings
targets=()
for program in fuzz/fuzz_*; do
  name=${program#fuzz/fuzz_}
  [[ $name =~ $only ]] && targets+=("$name")
done
(( ${#targets[@]} )) || { echo "fuzz: no target matches '$only'" >&2; exit 2; }
each=$(( seconds / ${#targets[@]} ))
(( each >= 1 )) || each=1
QEL_FUZZ_PRINT_DICTIONARY=1 ./fuzz/fuzz_command_line >fuzz/command_line.dict 2>/dev/null

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
failed=()
for name in "${targets[@]}"; do
  mkdir -p "fuzz/work/$name"
  options=(-max_total_time="$each" -artifact_prefix="fuzz/findings/$name-")
  # Inputs up to these sizes: the seeds are far smaller, and a reader's
  # interesting structure sits in its first kilobytes.
  case $name in
    read_*) options+=(-max_len=65536) ;;
    command_line) options+=(-max_len=512) ;;
    *) options+=(-max_len=1024) ;;
  esac
  for dictionary in "$root/tests/fuzz/$name.dict" "fuzz/$name.dict"; do
    [[ -f $dictionary ]] && options+=(-dict="$dictionary")
  done
  seeds=()
  [[ -d $root/tests/fuzz/corpus/$name ]] && seeds=("$root/tests/fuzz/corpus/$name")
  printf '\n---- fuzz_%s: %d s\n' "$name" "$each"
  # Two jobs' worth of memory at most on a shared 2-core machine; a slow
  # input (10 s) counts as a hang.
  if ! ./fuzz/fuzz_"$name" "${options[@]}" -timeout=10 -rss_limit_mb=2048 "fuzz/work/$name" "${seeds[@]}" \
         >"fuzz/$name.log" 2>&1; then
    failed+=("$name")
    grep -E 'ERROR|SUMMARY|FAULT|Test unit written|^ *#[0-9]+ ' "fuzz/$name.log" | head -40 >&2
  fi
  # libFuzzer's last status line: executions, coverage (edges, features), corpus, speed.
  printf '%-14s %s\n' "$name" "$(grep -E '^#[0-9]+' "fuzz/$name.log" | tail -1)"
done
if (( ${#failed[@]} )); then
  echo "fuzz: findings in ${failed[*]} (inputs in $build/fuzz/findings/, logs in $build/fuzz/*.log)" >&2
  exit 1
fi
