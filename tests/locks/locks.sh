#!/bin/sh
# Shows that Clang refuses wrong locking. Include folders stand with semicolons between them.
#   locks.sh faults COMPILER DIRECTORIES SOURCE            each fault that SOURCE lists, by its own message
#   locks.sh deletions COMPILER DIRECTORIES SOURCE [all]   SOURCE less its first CoLock, or less each in turn
#
# unseen.txt lists how many locks of a source guard what the analysis cannot see.
set -eu
what=$1 compiler=$2 directories=$3 source=$4 extent=${5:-first}
IFS=';'
set -- "$compiler" -std=c++17 -fsyntax-only -Wthread-safety -Wthread-safety-beta -Werror
for directory in $directories; do set -- "$@" "-I$directory"; done
unset IFS
lock='\(const \)\{0,1\}\(Vantrel::\)\{0,1\}CoLock lock([^;]*);'
status=0

must_compile() {
    "$@" || { echo "$source does not compile as it is."; exit 1; }
}
# Takes a pattern of the wanted message, then the compiler's command; the source comes from standard input.
must_fail() {
    wanted=$1
    shift
    if output=$(LC_ALL=C "$@" 2>&1); then
        echo "$fault: compiles"
    elif printf '%s\n' "$output" | grep -q -e "$wanted"; then
        return 0
    else
        printf '%s: fails for another reason:\n%s\n' "$fault" "$output"
    fi
    return 1
}

case $what in
    faults)
        must_compile "$@" -DFAULT=0 "$source"
        number=1
        while wanted=$(sed -n "s|^ *// FAULT $number: ||p" "$source") && [ -n "$wanted" ]; do
            fault="fault $number"
            must_fail "$wanted" "$@" "-DFAULT=$number" "$source" || status=1
            number=$((number + 1))
        done
        [ "$number" -gt 1 ] || { echo "no faults in $source"; status=1; }
        ;;
    deletions)
        must_compile "$@" "$source"
        lines=$(grep -n "$lock" "$source" | cut -d: -f1)
        [ -n "$lines" ] || { echo "no CoLock in $source"; status=1; }
        unseen=$(awk -v source="$source" '$1 == source { print $2 }' "$(dirname "$0")/unseen.txt")
        accepted=0
        for line in $lines; do
            fault="$source:$line without its lock"
            sed "${line}s/$lock//" "$source" | must_fail "thread-safety\|undeclared identifier 'lock'" "$@" -x c++ - ||
                accepted=$((accepted + 1))
            [ "$extent" = all ] || break
        done
        if [ "$extent" = all ]; then [ "$accepted" -eq "${unseen:-0}" ] || status=1; else status=$accepted; fi
        ;;
esac
exit $status
