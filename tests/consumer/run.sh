#!/bin/sh
# Installs the build into a folder of its own and uses it from there as an application would.
#   run.sh BUILD WORK CXX
set -eu
build=$1 work=$2 cxx=$3
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
mkdir -p "$work"

cmake --install "$build" --prefix "$work/prefix" >/dev/null

cmake -S "$here/project" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

pc=$(dirname "$(find "$work/prefix" -name vantrel.pc)")
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs vantrel)
# Words are split on purpose. Every public header stands alone, from C++14 up and without a warning.
"$cxx" -std=c++14 -Wall -Wextra -Wpedantic -Werror "$here/project/consumer.cpp" $flags -o "$work/consumer"
LD_LIBRARY_PATH=$(dirname "$pc") "$work/consumer"
for header in "$work"/prefix/include/vantrel/*.h; do
    for standard in 14 17 20; do
        echo "#include <vantrel/$(basename "$header")>" |
            "$cxx" -std=c++$standard -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only \
                -I"$work/prefix/include" -x c++ -
    done
done
echo "every public header stands alone"
