#!/usr/bin/env bash
# An outside project against the installed library: `cmake --install` of
# the finished build into a DESTDIR, then examples/host configured with
# nothing but CMAKE_PREFIX_PATH pointing there, built against the shared
# and the static library, and run; the same program built by hand with
# pkg-config's flags; and every installed header compiled on its own, so the
# installed set is self-contained.
#
# Usage: check_host_example.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source_dir=$2
fail() { echo "FAIL: $*" >&2; exit 1; }

work=$build/packaging-test/host
rm -rf "$work"
mkdir -p "$work"
prefix=$work/dest/opt/formwiz
DESTDIR=$work/dest cmake --install "$build" --prefix /opt/formwiz \
  --component dev > /dev/null
DESTDIR=$work/dest cmake --install "$build" --prefix /opt/formwiz \
  --component lib > /dev/null
[ -e "$prefix/share/formwiz/orbs" ] && fail "the dev and lib components hold the programs' files"

for variant in shared static; do
  static=OFF
  [ $variant = shared ] || static=ON
  cmake -S "$source_dir/examples/host" -B "$work/$variant" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DFORMWIZ_HOST_STATIC=$static \
    > "$work/$variant.log" 2>&1 || { cat "$work/$variant.log"; fail "configure ($variant)"; }
  cmake --build "$work/$variant" >> "$work/$variant.log" 2>&1 ||
    { cat "$work/$variant.log"; fail "build ($variant)"; }
  if grep -F -e "$source_dir/src" "$work/$variant/build.ninja"; then
    fail "the example's build reaches into the source tree"
  fi
  (cd "$work" && "$work/$variant/formwiz-host-example") ||
    fail "the host example ($variant) exited $?"
done
if objdump -p "$work/static/formwiz-host-example" | grep -q 'NEEDED.*libformwiz'; then
  fail "the static build links the shared library"
fi
objdump -p "$work/shared/formwiz-host-example" | grep -q 'NEEDED.*libformwiz\.so\.0' ||
  fail "the shared build does not link libformwiz.so.0"

# pkg-config, with the .pc file found where it was installed.
pc=$(find "$prefix" -name formwiz.pc)
[ -n "$pc" ] || fail "no formwiz.pc"
export PKG_CONFIG_PATH=$(dirname "$pc")
[ "$(pkg-config --modversion formwiz)" = "$(sed -n 's/^#define FORMWIZ_VERSION "\(.*\)"/\1/p' "$prefix/include/formwiz/version.h")" ] ||
  fail "pkg-config version"
# shellcheck disable=SC2046
c++ -std=c++20 -o "$work/by-pkg-config" "$source_dir/examples/host/main.cpp" \
  $(pkg-config --cflags --libs formwiz) || fail "build with pkg-config"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir formwiz) "$work/by-pkg-config" > /dev/null ||
  fail "the pkg-config build exited $?"

cd "$prefix/include"
for header in $(find formwiz -name '*.h'); do
  echo "#include <$header>" | c++ -std=c++20 -fsyntax-only -Wall -Wextra -Werror \
    -I. -Iformwiz -x c++ - || fail "$header does not compile on its own"
done
echo "the host example builds and runs against the installed library"
