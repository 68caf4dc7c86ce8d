# Every vector tier gives the recorded bytes: the digest tests and the path harness once per QEL_SIMD cap, then on emulated processors without AVX.
# A lane test whose tier is missing skips itself with "needs the <tier> tier";
# a run fails when such a tier is one the processor (or emulator) and the cap
# provide, or when the module reports another tier than expected.
#
# Emulated AVX2 stays out: qemu-x86_64 7.2 gathers wrongly with a vector index
# in ymm4 (it reads every lane at the base), and the filters' AVX2 steps gather,
# so Haswell-class models are not used.
tiers=(scalar sse2 ssse3 avx2 avx512)
rank() { local n; for n in "${!tiers[@]}"; do [[ "${tiers[$n]}" == "$1" ]] && echo "$n" && return; done; echo -1; }

# The tier this processor provides, from the kernel's flags.
flags=" $(grep -m1 '^flags' /proc/cpuinfo | cut -d: -f2) "
native=sse2
[[ "$flags" == *" ssse3 "* ]] && native=ssse3
[[ "$native" == ssse3 && "$flags" == *" avx2 "* ]] && native=avx2
[[ "$native" == avx2 && "$flags" == *" avx512f "* && "$flags" == *" avx512bw "* && "$flags" == *" avx512vbmi "* ]] && native=avx512

cmake -B "$prefix" > /dev/null
cmake --build "$prefix" -j2 --target digest_test paths_test

# check_run LABEL EXPECTED-TIER COMMAND...: runs both programs, then the checks.
check_run() {
  local label="$1" expected="$2"; shift 2
  local log; log=$(mktemp)
  local status=0 results=""
  for program in digest_test paths_test; do
    (cd "$prefix" && "$@" "./tests/$program") > "$log.$program" 2>&1 || status=1
    results+="$program $( (grep -E '^\[  (PASSED|FAILED)  \]' "$log.$program" || true) | head -1 | tr -s ' ')  "
    cat "$log.$program" >> "$log"
    rm -f "$log.$program"
  done
  if [[ $status != 0 ]]; then
    cat "$log"; rm -f "$log"
    echo "FAILED: $label"; return 1
  fi
  local used; used=$(sed -n 's/^vector tier in use: //p' "$log" | head -1)
  local skipped; skipped=$( (grep -o 'needs the [a-z0-9]* tier' "$log" || true) | sort -u | awk '{print $3}' | tr '\n' ' ')
  rm -f "$log"
  if [[ "$used" != "$expected" ]]; then
    echo "FAILED: $label: the module uses the $used tier, expected $expected"; return 1
  fi
  for tier in $skipped; do
    if (( $(rank "$tier") <= $(rank "$expected") )); then
      echo "FAILED: $label: lane tests of the $tier tier were skipped"; return 1
    fi
  done
  echo "$label: tier $used; ${results}skipped tiers: ${skipped:-none}"
}

for cap in "${tiers[@]}"; do
  expected=$cap
  (( $(rank "$native") < $(rank "$cap") )) && expected=$native
  check_run "QEL_SIMD=$cap on this processor" "$expected" env QEL_SIMD="$cap"
done

# Emulated processors: Debian's qemu-user, installed when missing.
command -v qemu-x86_64 > /dev/null || bash tests/install_packages.sh qemu-user
# Nehalem: SSSE3 and SSE4.2, no AVX. qemu64: SSE2 without SSSE3.
check_run "qemu-x86_64 -cpu Nehalem" ssse3 qemu-x86_64 -cpu Nehalem
check_run "qemu-x86_64 -cpu qemu64" sse2 qemu-x86_64 -cpu qemu64
