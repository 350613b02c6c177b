#!/bin/sh
# clang-tidy over the sources of the libraries and programs.
#   run-tidy.sh BUILD     a build folder configured with Clang: its compile commands are used
set -eu
build=$1
git ls-files 'common/*.cpp' 'vantrel/*.cpp' 'examples/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p "$build" --quiet
