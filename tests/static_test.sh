#!/usr/bin/env bash
# One check of the source that runs nothing of it: static_test.sh tidy|cppcheck|calls|layers SOURCE BUILD. What the checks are
# not to say stands in .clang-tidy and in tests/static/, with the reasons. A tool that is missing fails its check.
set -euo pipefail

cd "$2"
build=$3
product=(src jpg hosts examples)

# Clang's warnings, the locks among them, and clang-tidy's checks, on every file of the product that is built.
tidy() {
    local folders=${product[*]} files
    files=$(sed -n "s,^ *\"file\": \"$PWD/\(\(${folders// /\\|}\)/.*\)\".*,\1,p" "$build/compile_commands.json" | sort -u)
    [[ $(wc -l <<<"$files") -ge 50 ]] || { echo "Files are missing: $files"; return 1; }
    xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p "$build" <<<"$files" 2>&1 | sed '/^[0-9]* warnings* generated\.$/d'
}

cppcheck_() {
    cppcheck --quiet --error-exitcode=1 -j "$(nproc)" --enable=warning,performance,portability --std=c11 --std=c++20 \
        --library=posix --inline-suppr --suppressions-list=tests/static/cppcheck.txt -Iinclude -Isrc -Ijpg "${product[@]}"
}

# The places in some folders, outside comments, that hold a pattern: "FILE: WHAT IT FOUND" each.
places() {
    local file text
    { grep -rlE --include='*.cpp' --include='*.[ch]' "$1" "${@:2}" || true; } | while read -r file; do
        text=$(g++ -x c++ -w -fpreprocessed -dD -E -P - <"$file") || text=$(<"$file")
        { grep -oE "$1" <<<"$text" || true; } | sed "s,^,$file: ,"
    done
}

# Calls that write without knowing how much room there is are banned everywhere; what copies memory stands on a list.
calls() {
    local banned='\<(strcpy|stpcpy|strcat|strncpy|strncat|sprintf|vsprintf|gets|strtok|alloca)[[:space:]]*\('
    local found failed=0
    found=$(places "$banned" include "${product[@]}" tests fuzz bench)
    [[ -z $found ]] || { printf 'These calls are banned:\n%s\n' "$found"; failed=1; }
    diff <(sed '/^#/d; s/^\([^ ]* [0-9]*\) .*/\1/' tests/static/copies.txt | sort) \
        <(places '\<(__builtin_)?(memcpy|memmove|mempcpy|memccpy|bcopy|wmemcpy|wmemmove)\>' include "${product[@]}" |
            sed 's/: .*//' | sort | uniq -c | awk '{print $2, $1}' | sort) ||
        { echo "Copies of memory (>) are other than tests/static/copies.txt allows (<)."; failed=1; }
    return $failed
}

# Only the platform layer knows an operating system, whose headers have a dot in their names.
layers() {
    local found
    found=$(grep -rnE --include='*.cpp' --include='*.h' '^#include <.*\.' src include) || true
    found=$(grep -vE '^src/platform/posix/|<stdint\.h>' <<<"$found") || return 0
    printf 'Headers of the system outside src/platform/posix:\n%s\n' "$found"
    return 1
}

case $1 in
tidy | calls | layers) "$1" ;;
cppcheck) cppcheck_ ;;
*) exit 2 ;;
esac
