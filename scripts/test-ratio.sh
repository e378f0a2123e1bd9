#!/usr/bin/env bash
# Test lines against code lines, blank lines not counted: .cpp/.h/.inc under tests/
# (fixtures and data files are neither) over .cpp/.h/.mm under src/. The project keeps it
# at most 0.35.
cd "$(dirname "$0")/.."
count() { find "$@" -type f | xargs cat | grep -cv '^[[:space:]]*$'; }
tests=$(count tests \( -name '*.cpp' -o -name '*.h' -o -name '*.inc' \) -not -path '*/fixtures/*')
code=$(count src \( -name '*.cpp' -o -name '*.h' -o -name '*.mm' \))
awk -v t="$tests" -v c="$code" 'BEGIN { printf "tests %d / code %d = %.2f\n", t, c, t / c }'
