#!/usr/bin/env bash
# Which core folders include which, with counts, at a revision (default HEAD):
#   bash scripts/core-graph.sh [REV]
set -eu
cd "$(dirname "$0")/.."
rev=${1:-HEAD}
git ls-tree -r --name-only "$rev" src/core | grep -E '\.(cpp|h)$' | while read -r file; do
    from=$(cut -d/ -f3 <<<"$file")
    git show "$rev:$file" | sed -n 's|^#include "core/\([^/"]*\)/.*|\1|p' | while read -r to; do
        [[ $from != "$to" ]] && echo "$from -> $to"
    done
done | sort | uniq -c | awk '{print $2 " -> " $4 " (" $1 ")"}'
