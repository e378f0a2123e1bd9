#!/usr/bin/env bash
# Fails when the code's shape drifts from the map: a core folder including one it must not
# (the allowed directions below), core reaching for QtGui or QtWidgets, the command line
# including the views, or the home folder read anywhere but the owner of locations.
set -u
cd "$(dirname "$0")/.."

# Each core folder and the core folders it may include (besides itself).
declare -A allowed=(
    [text]=""
    [util]="text"
    [types]="text"
    [outcomes]="text"
    [system]="text util types process"
    [plist]="text util"
    [process]="text util"
    [disk]="text util types system outcomes"
    [health]="text util types disk"
    [updates]="text util types system plist process disk"
    [words]="text types outcomes disk health updates"
    [cleanup]="text util types outcomes system plist process disk words"
    [screenclean]="text util words"
    [models]="text util types outcomes system plist process disk health updates words cleanup screenclean"
)

status=0
fail() {
    echo "check-layers: $*" >&2
    status=1
}

for dir in src/core/*/; do
    folder=$(basename "$dir")
    [[ -v allowed[$folder] ]] || { fail "src/core/$folder is not on the map"; continue; }
    while IFS=: read -r file _ line; do
        target=$(sed -n 's|.*#include "core/\([^/"]*\)/.*|\1|p' <<<"$line")
        [[ -z $target || $target == "$folder" ]] && continue
        [[ " ${allowed[$folder]} " == *" $target "* ]] || fail "$file includes core/$target"
    done < <(grep -Hn '#include "core/' -r "$dir")
done

while IFS= read -r hit; do
    fail "GUI below the views: $hit"
done < <(grep -rn -E '#include <Qt(Gui|Widgets)|#include <Q(Widget|Painter|Image|Pixmap|Color|Font)>' \
    src/core src/platform)
if grep -rqn '#include "ui/' src/cli src/core src/platform; then
    fail "a layer below the views includes ui/"
fi
if grep -rqn '#include "core/' src/platform; then fail "platform includes core"; fi

# The home folder is read once, by the owner of locations.
while IFS= read -r hit; do
    fail "home folder read outside Locations: $hit"
done < <(grep -rn -E 'QDir::homePath|getenv\("HOME"\)|qEnvironmentVariable\("HOME"\)|qgetenv\("HOME"\)' \
    src | grep -v '^src/core/system/Locations\.')

[[ $status == 0 ]] && echo "check-layers: the layers hold"
exit $status
