#!/usr/bin/env bash
# The whole test suite, as CI runs it, from the repository root. Each file of
# tests/stages/ is one stage, run in the order of its name (its first comment
# line says what it does); any test failure or sanitizer report stops the
# script with a failure. A stage runs in a subshell, so settings it exports
# stay with it.
#
# Settings (environment):
#   QEL_BUILD_PREFIX     build folder prefix (default "build": build, build-sanitize, ...)
#   QEL_STRESS_SEED      seed of the stress run (default 1)
#   QEL_STRESS_SECONDS   length of the stress run in seconds (default 60)
#   QEL_STAGES           only the stages whose file names match this pattern (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."

export prefix="${QEL_BUILD_PREFIX:-build}"
export seed="${QEL_STRESS_SEED:-1}"
export seconds="${QEL_STRESS_SECONDS:-60}"
only="${QEL_STAGES:-.}"
started=$(date +%s)

step() { printf '\n==== %s (%s)\n' "$1" "$(date +%T)"; }
export -f step

for stage in tests/stages/*.sh; do
  name=$(basename "$stage" .sh)
  [[ "$name" =~ $only ]] || continue
  step "$name: $(sed -n '1s/^# *//p' "$stage")"
  ( set -euo pipefail; source "$stage" )
done

step "all passed in $(( $(date +%s) - started )) s"
