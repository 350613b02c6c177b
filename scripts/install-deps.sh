#!/bin/sh
# Sees to it that the Debian packages that the project builds with are there: installs what is missing when it
# can (as root or through sudo without a password), otherwise prints the one line that does.
#   scripts/install-deps.sh demo     what the library and the programs need
#   scripts/install-deps.sh test     the same, and what tests and benchmarks need
#   scripts/install-deps.sh ci       the same, and what the checks of .ci/run need
set -eu

packages="g++ cmake ninja-build ccache pkg-config uuid-dev libcap-dev libboost-dev
    libsqlite3-dev libcli11-dev nlohmann-json3-dev libopenimageio-dev"
tests="libgtest-dev libgmock-dev libbenchmark-dev"
checks="git iproute2 clang clang-format clang-tidy libclang-rt-14-dev"
case "${1:-}" in
    demo) ;;
    test) packages="$packages $tests" ;;
    ci) packages="$packages $tests $checks" ;;
    *)
        echo "usage: scripts/install-deps.sh demo|test|ci" >&2
        exit 2
        ;;
esac

missing=
for package in $packages; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=
elif sudo -n true 2>/dev/null; then
    as_root="sudo -n"
else
    echo "Missing packages. Install them with:" >&2
    echo "    sudo apt-get install -y$missing" >&2
    exit 1
fi
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
# Words are split on purpose.
$as_root apt-get update -qq
$as_root apt-get install -y -qq --no-install-recommends $missing >/dev/null
