#!/usr/bin/env bash
# Test lines as a share of code lines; exits 1 when the share is above the limit.
#
#   bash tests/test_share.sh [limit]     limit in percent (default 35)
#
# Counted: files tracked by git ending in .c .cc .cpp .cxx .h .hh .hpp .py .sh.
# Tests are the files under tests/; code is every other file except the
# benchmarks under bench/. A line counts when it is not blank and is
# not a comment line: a line whose first non-blank characters are // in C and
# C++ files, or # in .py and .sh files (except a #! first line, which counts).
# C++ preprocessor lines (#include, #pragma, ...) are code. Block comments and
# docstrings count as lines.
set -euo pipefail
cd "$(dirname "$0")/.."
limit="${1:-35}"

count() {
  # Reads NUL-separated file names on stdin (names hold no newline); prints the number of counted lines.
  tr '\0' '\n' | awk '
    {
      file = $0; script = (file ~ /\.(py|sh)$/); first = 1
      while ((getline line < file) > 0) {
        if (line ~ /^[[:space:]]*$/) { first = 0; continue }
        if (!script && line ~ /^[[:space:]]*\/\//) { first = 0; continue }
        if (script && line ~ /^[[:space:]]*#/ && !(first && line ~ /^#!/)) { first = 0; continue }
        first = 0; n++
      }
      close(file)
    }
    END { print n + 0 }'
}
files() { git ls-files -z -- '*.c' '*.cc' '*.cpp' '*.cxx' '*.h' '*.hh' '*.hpp' '*.py' '*.sh'; }

tests=$(files | grep -z '^tests/' | count)
code=$(files | grep -zv -e '^tests/' -e '^bench/' | count)
share=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.1f", c ? 100 * t / c : 0 }')
echo "test lines: $tests  code lines: $code  tests/code: ${share}% (limit ${limit}%)"
if awk -v s="$share" -v l="$limit" 'BEGIN { exit !(s + 0 > l + 0) }'; then
  echo "test_share: tests are ${share}% of the code, above the limit of ${limit}%" >&2
  exit 1
fi
