#!/usr/bin/env bash
# tools/changed-sources in a fresh clone, with work of its own, detached, of one commit, without git.
# Usage: changed-sources.sh TOOLS
set -euo pipefail
tools=$(cd "$1" && pwd)
room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
# Nothing of the machine's own settings, and no repository that a hook of git points at.
export HOME=$room GIT_CONFIG_NOSYSTEM=1 GIT_CEILING_DIRECTORIES=$room
export GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a@b GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a@b
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE XDG_CONFIG_HOME
failed=0

# expect WHAT DIRECTORY SAID NAMES...: what the tool names there, and whether it says a word.
expect() {
    local what=$1 directory=$2 said=$3 status=0 names
    shift 3
    names=$("$directory/tools/changed-sources" 2>"$room/said" | tr '\n' ' ') || status=$?
    if [ $status -ne 0 ] || [ "$names" != "${*:+$* }" ] || ! grep -q "$said" <(cat "$room/said"; echo end); then
        echo "$what: status $status, names '$names' instead of '$*', said: $(cat "$room/said")"
        failed=1
    fi
}
commit() { git -C "$1" add -A; git -C "$1" commit -qm "$2"; }

origin=$room/origin
git init -q -b main "$origin"
mkdir "$origin/tools"
cp "$tools/changed-sources" "$origin/tools/"
echo 1 > "$origin/first.cpp"
commit "$origin" first
expect "one commit" "$origin" "no commit before"
echo 1 > "$origin/second.cpp"
echo 1 > "$origin/text.md"
commit "$origin" second

git clone -q "$origin" "$room/clone"
expect "fresh clone" "$room/clone" end second.cpp
echo 2 > "$room/clone/first.cpp"
echo "a new one" > "$room/clone/new.h"
expect "what is not committed" "$room/clone" end first.cpp new.h second.cpp
commit "$room/clone" third
git -C "$room/clone" commit -q --allow-empty -m fourth
expect "ahead of the upstream" "$room/clone" end first.cpp new.h
git -C "$room/clone" rm -q second.cpp
expect "a source removed" "$room/clone" end first.cpp new.h
git -C "$room/clone" checkout -q -f --detach HEAD~2
expect "detached" "$room/clone" end second.cpp

git clone -q --depth 1 "file://$origin" "$room/shallow"
expect "clone of one commit" "$room/shallow" "no commit before"
echo 2 > "$room/shallow/first.cpp"
expect "clone of one commit, changed" "$room/shallow" "no commit before" first.cpp

rm -rf "$room/shallow/.git"
expect "without git" "$room/shallow" "no commit of git"
exit $failed
