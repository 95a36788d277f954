#!/usr/bin/env bash
# Installs a build into an empty place, and makes and runs programs with what is
# there: by the CMake package and by pkg-config. Then looks into the Debian packages.
#
# Usage: run.sh BUILD
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place"
fail() {
    echo "package: $*" >&2
    exit 1
}
expect() {
    [ "$1" = "$2" ] || fail "'$1' instead of '$2'"
}

# The places are written into the files at the configuration, and an installation
# to another prefix must be as good.
cmake --install "$build" --prefix "$place/usr" >install.log || fail "$(cat install.log)"
libdir=$(dirname "$(find usr -name libzb.so.1)")
[ "$(readelf -d "$libdir/libzb.so" | sed -n 's/.*soname: \[\(.*\)\]/\1/p')" = libzb.so.1 ] || fail "wrong soname"
for file in include/zb.h include/zb.hpp bin/zb share/man/man1/zb.1 share/man/man1/zb-info.1 share/man/man3/libzb.3 \
    share/bash-completion/completions/zb; do
    [ -s "usr/$file" ] || fail "$file isn't installed"
done

cmake -S "$here/cmake" -B consumer -DCMAKE_PREFIX_PATH="$place/usr" >cmake.log 2>&1 || fail "$(cat cmake.log)"
cmake --build consumer >>cmake.log 2>&1 || fail "$(cat cmake.log)"
expect "$(consumer/consumer_c)" "record 1"
expect "$(consumer/consumer_cpp)" "record 1"

export PKG_CONFIG_PATH=$place/$libdir/pkgconfig
expect "$(pkg-config --modversion zb)" "$("$build/tools/zb/zb" --version | sed 's/^[^0-9]*//')"
flags=$(pkg-config --define-variable=prefix="$place/usr" --cflags --libs zb)
# shellcheck disable=SC2086
cc "$here/consumer.c" -o by_pkg_config $flags -Wl,-rpath,"$place/$libdir"
rm -f c.dbf
expect "$(./by_pkg_config)" "record 1"

(cd "$build" && cpack -G DEB -B "$place/deb") >cpack.log 2>&1 || fail "$(cat cpack.log)"
expect "$(ls deb/*.deb | sed 's/.*\///; s/_.*//' | sort | tr '\n' ' ')" "libzb-dev libzb1 zb "
for package in libzb1 libzb-dev zb; do
    dpkg-deb -c deb/${package}_*.deb >deb/$package.list
done
holds() {
    grep -q " \./usr/.*$2\$" "deb/$1.list" || fail "$1 holds no $2"
}
holds libzb1 'libzb.so.1 -> libzb.so.1.*'
holds libzb-dev 'libzb.so -> libzb.so.1'
holds libzb-dev 'include/zb.h'
holds libzb-dev 'pkgconfig/zb.pc'
holds libzb-dev 'cmake/zb/zbConfig.cmake'
holds zb 'bin/zb'
holds zb 'man1/zb.1'
! grep -q 'include/' deb/libzb1.list || fail "the library's package holds headers"
echo "package: 1 passed, 0 failed"
