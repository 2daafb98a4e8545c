#!/usr/bin/env bash
# tools/check-tidy with the real clang-tidy over a tree of three sources: a finding fails it, what the
# build does not compile is skipped with a word, a time that is over and a program that is missing
# are told.
# Usage: static-checks.sh TOOLS
set -euo pipefail
tools=$(cd "$1" && pwd)
room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
export HOME=$room GIT_CONFIG_NOSYSTEM=1
export GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a@b GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a@b
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE XDG_CONFIG_HOME TARV_TIDY_SECONDS
failed=0

# expect WHAT STATUS SAID: how the check of what changed ends, and a word of what it prints.
expect() {
    local status=0
    tools/check-tidy --changed build/dev >"$room/said" 2>&1 || status=$?
    if [ $status -ne "$2" ] || ! grep -q -e "$3" "$room/said"; then
        echo "$1: status $status instead of $2, or does not say '$3':"
        cat "$room/said"
        failed=1
    fi
}

tree=$room/tree
mkdir -p "$tree/tools" "$tree/build/dev" "$tree/app"
cd "$tree"
cp "$tools/changed-sources" "$tools/check-tidy" tools/
echo "/build/" > .gitignore
printf "%s\n" "Checks: '-*,modernize-use-nullptr'" "WarningsAsErrors: '*'" \
    "HeaderFilterRegex: '/app/'" > .clang-tidy
echo "CMAKE_HOME_DIRECTORY:INTERNAL=$tree" > build/dev/CMakeCache.txt
for name in one two; do
    echo "{\"directory\": \"$tree\", \"command\": \"c++ -c $tree/app/$name.cpp\", \"file\": \"$tree/app/$name.cpp\"}"
done | sed '1s/^/[/; 1s/$/,/; $s/$/]/; s/, "/,\n"/g' > build/dev/compile_commands.json
echo "inline int *none() { return nullptr; }" > app/one.h
echo '#include "one.h"' > app/one.cpp
echo "int two();" > app/two.cpp
git init -q -b main .
git add -A
git commit -qm first
git commit -q --allow-empty -m second

expect "nothing changed" 0 "nothing to check"
echo "int two() { return 2; }" > app/two.cpp
echo "int three();" > app/three.cpp
echo "int four();" > app/four.h
expect "clean" 0 "looked at 1 of 1"
expect "a source that the build does not compile" 0 "app/three.cpp skipped"
expect "a header of no source" 0 "app/four.h skipped"
echo "inline int *none() { return 0; }" > app/one.h
expect "a finding in a header" 1 "app/one.h:1.*nullptr"
TARV_TIDY_SECONDS=0 expect "no time" 0 "2 not reached"
mkdir "$room/bin"
for program in bash env dirname; do
    ln -s "$(command -v $program)" "$room/bin/"
done
status=0
said=$(PATH=$room/bin tools/check-tidy --changed build/dev 2>&1) || status=$?
if [ $status -ne 1 ] || ! grep -q "install the package clang-tidy" <<< "$said"; then
    echo "no clang-tidy: status $status, said: $said"
    failed=1
fi
exit $failed
