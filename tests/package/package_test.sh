#!/usr/bin/env bash
# Builds the Debian packages from a built tree, unpacks them into a scratch
# root (dpkg -x: nothing is installed on the machine), and builds and runs the
# example against that copy through pkg-config and through the CMake package.
# usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
set -euo pipefail
build=$1 src=$2 version=$3 major=${3%%.*}
tmp=$(mktemp -d /tmp/nuvpkg.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$tmp/out" > "$tmp/log" 2>&1 || { cat "$tmp/log"; fail cpack; }
run=$tmp/out/libnuvucum${major}_${version}_amd64.deb dev=$tmp/out/libnuvucum-dev_${version}_amd64.deb
[ "$(ls "$tmp/out"/*.deb | wc -l)" = 2 ] && [ -f "$run" ] && [ -f "$dev" ] || fail "packages: $(ls "$tmp/out")"
[ "$(dpkg-deb -f "$dev" Version Depends)" = "Version: $version
Depends: libnuvucum$major (= $version)" ] || fail "development control: $(dpkg-deb -f "$dev")"
[[ "$(dpkg-deb -f "$run" Depends)" =~ ^libc6\ \([^,]*\)$ ]] || fail "run-time Depends: $(dpkg-deb -f "$run" Depends)"
files() { dpkg-deb -c "$1" | awk '{print $6}' | grep -v '/$' | sed 's|^\./||' | sort | tr '\n' ' '; }
[ "$(files "$run")" = "usr/bin/nuvconv usr/lib/libnuvucum.so.$major usr/lib/libnuvucum.so.$version usr/share/man/man1/nuvconv.1.gz " ] ||
  fail "run-time files: $(files "$run")"
for f in usr/include/nuvu16.h usr/lib/libnuvucum.a usr/lib/libnuvucum.so usr/lib/pkgconfig/nuvucum.pc \
         usr/lib/cmake/nuvucum/nuvucumConfig.cmake; do
  [[ " $(files "$dev")" == *" $f "* ]] || fail "$f missing from the development package"
done

root=$tmp/root
dpkg -x "$run" "$root" && dpkg -x "$dev" "$root"
zcat "$root/usr/share/man/man1/nuvconv.1.gz" | grep -q '^\.TH NUVCONV 1' || fail "manual page"
[ "$(PKG_CONFIG_PATH=$root/usr/lib/pkgconfig pkg-config --modversion nuvucum)" = "$version" ] || fail "pkg-config version"
[ "$(printf 'h\xc3\xa9' | "$root/usr/bin/nuvconv" -f utf-8 -t utf-16le | od -An -tx1 | tr -d ' \n')" = 6800e900 ] || fail nuvconv

make -s -C "$src/examples" STAGE="$root/usr" BUILD="$tmp/ex" > "$tmp/log" 2>&1 || { cat "$tmp/log"; fail "example build"; }
# ldd's whole answer first: grep -q closing the pipe early would fail it under pipefail
linked=$(ldd "$tmp/ex/tour")
[[ "$linked" == *"$root/usr/lib/libnuvucum.so.$major"* ]] || fail "example not linked to the unpacked library"
"$tmp/ex/tour" "$src/examples/data" > "$tmp/shared.out" 2>&1 || { cat "$tmp/shared.out"; fail "example run"; }

printf 'cmake_minimum_required(VERSION 3.20)\nproject(use C)\nfind_package(nuvucum %s REQUIRED)\nadd_executable(t %s)\ntarget_link_libraries(t PRIVATE nuvucum::nuvucum_static)\n' \
  "$version" "$src/examples/tour.c" > "$tmp/CMakeLists.txt"
{ cmake -S "$tmp" -B "$tmp/b" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" && cmake --build "$tmp/b"; } > "$tmp/log" 2>&1 ||
  { cat "$tmp/log"; fail "CMake package"; }
"$tmp/b/t" "$src/examples/data" > "$tmp/static.out" 2>&1 || fail "static example run"
# pid, time and the program's own name differ between the two runs
same() { sed -E -e 's/pid = [0-9]+ time = [0-9]+//' -e "s#$tmp/(ex/tour|b/t)#PROGRAM#g" "$1"; }
[ "$(same "$tmp/shared.out")" = "$(same "$tmp/static.out")" ] && [ -s "$tmp/shared.out" ] || fail "examples differ"
echo "ok: $(basename "$run") $(basename "$dev")"
