#!/bin/sh
# Includes, with a layer's include path alone, what the layer may see and what it may not.
#   includes.sh COMPILER DIRECTORIES OWN HIDDEN CLOSED SOURCES
# OWN is a header that compiles; each of the headers HIDDEN is not found; none of SOURCES includes a header of the
# folder CLOSED, in which everything is an error. Lists have semicolons between their entries.
set -eu
compiler=$1 directories=$2 own=$3 hidden=$4 closed=$5 sources=$6
IFS=';'
set --
for directory in $directories; do set -- "$@" "-I$directory"; done

include() {
    header=$1
    shift
    printf '#include "%s"\n' "$header" | LC_ALL=C "$compiler" -std=c++17 -fsyntax-only "$@" -x c++ - 2>&1
}

if ! output=$(include "$own" "$@"); then
    printf 'A header of the layer itself does not compile:\n%s\n' "$output"
    exit 1
fi
status=0
for header in $hidden; do
    if output=$(include "$header" "$@"); then
        echo "$header of a layer above compiles."
        status=1
    elif ! printf '%s\n' "$output" | grep -qE "fatal error: '?$header'?(: No such file| file not found)"; then
        printf '%s does not compile, but for another reason than that it is not found:\n%s\n' "$header" "$output"
        status=1
    fi
done
if [ -n "$sources" ] && ! "$compiler" -std=c++17 -M "-I$closed" "$@" $sources >/dev/null; then status=1; fi
exit $status
