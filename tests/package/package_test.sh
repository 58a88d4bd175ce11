#!/usr/bin/env bash
# Builds the Debian packages from a built tree, unpacks them into a scratch
# root (dpkg -x, nothing is installed on the machine), and builds and runs
# the example against that copy through pkg-config and the CMake package.
# usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
set -euo pipefail
build=$1 src=$2 version=$3
major=${version%%.*}
scratch=$(mktemp -d /tmp/nuvpkg.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/out" > "$scratch/cpack.log" 2>&1 ||
  { cat "$scratch/cpack.log"; fail "cpack"; }
run_deb=$scratch/out/libnuvucum${major}_${version}_amd64.deb
dev_deb=$scratch/out/libnuvucum-dev_${version}_amd64.deb
[ -f "$run_deb" ] || fail "no run-time package $run_deb"
[ -f "$dev_deb" ] || fail "no development package $dev_deb"
[ "$(ls "$scratch/out"/*.deb | wc -l)" -eq 2 ] || fail "expected exactly two packages"

field() { dpkg-deb -f "$1" "$2"; }
[ "$(field "$run_deb" Package)" = "libnuvucum$major" ] || fail "run-time package name"
[ "$(field "$dev_deb" Package)" = "libnuvucum-dev" ] || fail "development package name"
[ "$(field "$run_deb" Version)" = "$version" ] || fail "run-time version $(field "$run_deb" Version)"
[ "$(field "$dev_deb" Version)" = "$version" ] || fail "development version"
[ "$(field "$dev_deb" Depends)" = "libnuvucum$major (= $version)" ] || fail "development Depends: $(field "$dev_deb" Depends)"
case "$(field "$run_deb" Depends)" in
  libc6*) ;;
  *) fail "run-time Depends should be glibc only: $(field "$run_deb" Depends)" ;;
esac
[[ "$(field "$run_deb" Depends)" != *,* ]] || fail "run-time Depends beyond glibc: $(field "$run_deb" Depends)"
dpkg-deb --ctrl-tarfile "$run_deb" | tar -t | grep -qx './shlibs' || fail "no shlibs file"

# Which file goes where.
list() { dpkg-deb -c "$1" | awk '{print $6}' | sed 's|^\./||'; }
list "$run_deb" > "$scratch/run.list"
list "$dev_deb" > "$scratch/dev.list"
for f in usr/lib/libnuvucum.so.$version usr/lib/libnuvucum.so.$major usr/bin/nuvconv usr/share/man/man1/nuvconv.1.gz; do
  grep -qx "$f" "$scratch/run.list" || fail "$f missing from the run-time package"
done
for f in usr/include/nuvu16.h usr/lib/libnuvucum.a usr/lib/libnuvucum.so usr/lib/pkgconfig/nuvucum.pc \
         usr/lib/cmake/nuvucum/nuvucumConfig.cmake usr/lib/cmake/nuvucum/nuvucumConfigVersion.cmake; do
  grep -qx "$f" "$scratch/dev.list" || fail "$f missing from the development package"
done
! grep -q 'include/\|\.a$\|pkgconfig' "$scratch/run.list" || fail "development files in the run-time package"
! grep -q 'libnuvucum\.so\.' "$scratch/dev.list" || fail "the shared library in the development package"

root=$scratch/root
dpkg -x "$run_deb" "$root"
dpkg -x "$dev_deb" "$root"
lib=$root/usr/lib

# The manual page is readable, the version is the project's.
zcat "$root/usr/share/man/man1/nuvconv.1.gz" | grep -q '^\.TH NUVCONV 1' || fail "manual page"
[ "$(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --modversion nuvucum)" = "$version" ] || fail "pkg-config version"
objdump -p "$lib/libnuvucum.so.$version" | grep -q "SONAME *libnuvucum.so.$major" || fail "SONAME"

# nuvconv from the package converts.
printf 'h\xc3\xa9' | "$root/usr/bin/nuvconv" -f utf-8 -t utf-16le > "$scratch/u16"
[ "$(od -An -tx1 "$scratch/u16" | tr -d ' \n')" = "6800e900" ] || fail "nuvconv output"

# The example, built against the unpacked copy through pkg-config.
make -s -C "$src/examples" STAGE="$root/usr" BUILD="$scratch/ex" > "$scratch/make.log" 2>&1 ||
  { cat "$scratch/make.log"; fail "building the example"; }
ldd "$scratch/ex/tour" | grep -q "$lib/libnuvucum.so.$major" || fail "example not linked to the unpacked library"
"$scratch/ex/tour" "$src/examples/data" > "$scratch/tour.out" 2>&1 || { cat "$scratch/tour.out"; fail "running the example"; }
[ -s "$scratch/tour.out" ] || fail "the example printed nothing"

# And through the CMake package, with the static library.
mkdir -p "$scratch/cm"
cat > "$scratch/cm/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.20)
project(use_nuvucum C)
find_package(nuvucum $version REQUIRED)
add_executable(tour_static $src/examples/tour.c)
target_link_libraries(tour_static PRIVATE nuvucum::nuvucum_static)
CMAKE
cmake -S "$scratch/cm" -B "$scratch/cm/b" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" > "$scratch/cm.log" 2>&1 &&
  cmake --build "$scratch/cm/b" >> "$scratch/cm.log" 2>&1 || { cat "$scratch/cm.log"; fail "CMake package"; }
"$scratch/cm/b/tour_static" "$src/examples/data" > "$scratch/tour2.out" 2>&1 || { cat "$scratch/tour2.out"; fail "static example"; }
same() { sed -E 's/pid = [0-9]+ time = [0-9]+/pid time/' "$1"; }
[ "$(same "$scratch/tour.out")" = "$(same "$scratch/tour2.out")" ] || fail "static and shared example differ"
echo "packages $version: $(basename "$run_deb") $(basename "$dev_deb") ok"
